// Recovery after a failed cycle brings the object back to the compiled core:
// leftover calls and frames send every cycle down the reading path until
// they are released.
#include "qz_st_intrpr_main.h"
#include "qz_st_variables.h"
#include "recording_host.h"

#include <gtest/gtest.h>

#include <string>

namespace {

const std::string kDivider =
    "PROG DIVIDER VAR DIVISOR VI DINT 1 TOTAL VG DINT 0 RESULT VO DINT 0 MAIN "
    "MOV @DIVISOR PUSH CAL SAFEDIV MOV R0 @RESULT MOV @TOTAL R0 ADD 1 R0 MOV R0 @TOTAL RET "
    "SAFEDIV: D V DINT 0 BODY MOV POP @D MOV @D R0 DIV 100 R0 RET RET";

TEST(Recovery, NextCycleRunsCompiledAgain) {
    CQZ_STInterpretator object;
    RecordingHost host;
    ASSERT_EQ(object.InitInterpretator(kDivider), 0u);
    host.Inputs["DIVISOR"] = 4;
    ASSERT_EQ(object.Execute(&host), 0u);
    EXPECT_EQ(object.CompiledCycles, 1u);

    host.Inputs["DIVISOR"] = 0;
    ASSERT_EQ(object.Execute(&host), uint32_t(Qz::rcDivisionByZero));
    EXPECT_EQ(object.CompiledCycles, 2u) << "the failing cycle itself ran compiled";
    host.Inputs["DIVISOR"] = 5;
    EXPECT_EQ(object.Execute(&host), uint32_t(Qz::rcVarNotFound));
    EXPECT_EQ(object.CompiledCycles, 2u) << "a leftover frame sends the cycle down the reading path";

    ASSERT_EQ(QZRecover(&object), 0u);
    EXPECT_TRUE(object.TableStack.empty());
    EXPECT_TRUE(object.CallStack.empty());
    EXPECT_TRUE(object.Stack.empty());
    EXPECT_EQ(object.FrameRecordsInUse, 0u);
    ASSERT_EQ(object.Execute(&host), 0u);
    EXPECT_EQ(object.CompiledCycles, 3u);
    EXPECT_EQ(host.Outputs["RESULT"], 20.0);
    EXPECT_EQ(host.Outputs.size(), 1u);
}

TEST(Recovery, GivesBackTheStorageOfARunawayStack) {
    CQZ_STInterpretator object;
    RecordingHost host;
    ASSERT_EQ(object.InitInterpretator("PROG P MAIN L: MOV 1 PUSH JMP L RET"), 0u);
    QZSetStackLimit(&object, 100000);
    ASSERT_EQ(object.Execute(&host), uint32_t(Qz::rcStackLimit));
    EXPECT_GE(object.Stack.capacity(), 100000u);
    ASSERT_EQ(QZRecover(&object), 0u);
    EXPECT_EQ(object.Stack.capacity(), 0u);
    EXPECT_EQ(object.MemoryInUse(), 0u);
}

}  // namespace
