// Execute after a load that failed, through the .so: what runs depends on
// whether the loader got as far as MAIN. A failure before MAIN (or no load
// at all) leaves no MAIN: Execute returns 21 and calls the host not at all.
// A failure after MAIN (6 for a text that does not end in RET, 9 for a stray
// character, ...) leaves MAIN and every label before the failure registered:
// the cycle reads the inputs and runs the body, up to the failure again, or
// to completion when the failure lies behind the RET that ends the cycle.
#include "plugin.h"
#include "recording_host.h"

#include <gtest/gtest.h>

#include <cctype>
#include <ostream>
#include <string>
#include <vector>

namespace {

struct FailedLoad {
    const char* Name;
    std::string Text;
    Qz::uint32_t Load;
    Qz::uint32_t Cycle;
    std::vector<HostCall> Calls;  // of each cycle
};

const std::string kHead = "PROG P VAR IN VI DINT 0 OUT VO DINT 0 MAIN MOV @IN @OUT ";

const FailedLoad kCases[] = {
    {"no load", "", 19, 21, {}},
    {"failure in VAR", "PROG P VAR IN VI DINT 0 OUT QQ DINT 0 MAIN MOV @IN @OUT RET", 30, 21, {}},
    {"text ends in VAR", "PROG P VAR IN VI DINT 0 OUT VO DINT", 6, 21, {}},
    {"no VAR and no MAIN", "PROG P QQ", 6, 21, {}},
    {"no final RET", kHead, 6, 6, {In("IN", 5)}},
    {"text ends in a word", kHead + "RE", 6, 6, {In("IN", 5)}},
    {"stray character before RET", kHead + "! RET", 9, 9, {In("IN", 5)}},
    {"word behind the final RET", kHead + "RET X", 6, 0, {In("IN", 5), Out("OUT", 5, 6, true)}},
    {"stray character in a subprogram", kHead + "RET L: ! RET", 9, 0, {In("IN", 5), Out("OUT", 5, 6, true)}},
};

class HostFailedLoads : public ::testing::TestWithParam<FailedLoad> {};

TEST_P(HostFailedLoads, ExecuteRunsAsFarAsTheLoaderGot) {
    const FailedLoad& c = GetParam();
    Plugin plugin;
    qz_st_interpretator::IQZSTInterpretator* object = plugin.Create();
    if (!c.Text.empty()) {
        ASSERT_EQ(object->InitInterpretator(c.Text), c.Load);
    } else {
        EXPECT_EQ(object->InitInterpretator(c.Text), c.Load);
    }
    for (int cycle = 0; cycle < 2; ++cycle) {
        RecordingHost host;
        host.Inputs["IN"] = 5;
        EXPECT_EQ(object->Execute(&host), c.Cycle) << "cycle " << cycle + 1;
        EXPECT_EQ(host.Calls, c.Calls) << "cycle " << cycle + 1;
    }
    object->Destroy();
}

void PrintTo(const FailedLoad& c, std::ostream* out) { *out << c.Name; }

INSTANTIATE_TEST_SUITE_P(Texts, HostFailedLoads, ::testing::ValuesIn(kCases),
                         [](const ::testing::TestParamInfo<FailedLoad>& info) {
                             std::string name;
                             bool upper = true;
                             for (const char* p = info.param.Name; *p; ++p) {
                                 if (*p == ' ') {
                                     upper = true;
                                     continue;
                                 }
                                 name += upper ? char(std::toupper(static_cast<unsigned char>(*p))) : *p;
                                 upper = false;
                             }
                             return name;
                         });

TEST(HostFailedLoads, ExecuteBeforeAnyLoadReturns21WithoutCallingTheHost) {
    Plugin plugin;
    qz_st_interpretator::IQZSTInterpretator* object = plugin.Create();
    RecordingHost host;
    EXPECT_EQ(object->Execute(&host), 21u);
    EXPECT_TRUE(host.Calls.empty());
    object->Destroy();
}

}  // namespace
