// End-to-end behaviour of the example program of the overview.
#include "qz_st_intrpr_main.h"
#include "recording_host.h"

#include <gtest/gtest.h>

namespace {

const char* kDemo =
    "PROG DEMO VAR CNT V DINT 0 START VI BOOL 0 LAMP VO BOOL 0 MAIN MOV @START R0 TST R0 JMPF OFF "
    "MOV 1 @LAMP RET OFF: MOV 0 @LAMP RET";

TEST(Smoke, DemoProgramFollowsItsInput) {
    auto* object = new CQZ_STInterpretator();
    ASSERT_EQ(object->InitInterpretator(kDemo), 0u);
    RecordingHost host;
    for (double start : {0.0, 1.0, 1.0, 0.0}) {
        host.Calls.clear();
        host.Inputs["START"] = start;
        ASSERT_EQ(object->Execute(&host), 0u);
        ASSERT_EQ(host.Calls.size(), 2u);
        EXPECT_EQ(host.Calls[0], In("START", start));
        EXPECT_EQ(host.Calls[1], Out("LAMP", start, 1, true));
    }
    object->Destroy();
}

}  // namespace
