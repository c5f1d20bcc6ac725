// TICK under a host clock, through the exported QZSetClock of the loaded
// plug-in.
#include "host_call_print.h"
#include "plugin.h"
#include "recording_host.h"

#include <gtest/gtest.h>

#include <sys/time.h>

#include <string>
#include <vector>

namespace {

using qz_st_interpretator::IQZSTInterpretator;

struct FakeClock {
    uint32_t Now = 0;
    int Reads = 0;
    static uint32_t Read(void* context) {
        FakeClock* clock = static_cast<FakeClock*>(context);
        ++clock->Reads;
        return clock->Now;
    }
};

// Reads TICK into an LREAL output, so the host sees the count unnarrowed.
const char* kRead = "PROG T VAR T VO LREAL 0 MAIN MOV TICK @T RET";

class BoundaryClockTest : public ::testing::Test {
protected:
    void SetUp() override {
        object = plugin.Create();
        plugin.SetClock(object, FakeClock::Read, &clock);
    }
    void TearDown() override { object->Destroy(); }

    double ReadTick() {
        EXPECT_EQ(object->InitInterpretator(kRead), 0u);
        host.Calls.clear();
        EXPECT_EQ(object->Execute(&host), 0u);
        EXPECT_EQ(host.Calls.size(), 1u);
        return host.Calls.empty() ? -1 : host.Calls.back().Value;
    }
    void Preset(const std::string& value) {
        ASSERT_EQ(object->InitInterpretator("PROG T MAIN MOV " + value + " TICK RET"), 0u);
        ASSERT_EQ(object->Execute(&host), 0u);
    }

    Plugin plugin;
    FakeClock clock;
    RecordingHost host;
    IQZSTInterpretator* object = nullptr;
};

TEST_F(BoundaryClockTest, FirstReadIsZeroThenEachReadAddsTheIncrement) {
    const struct {
        uint32_t Now;
        double Tick;
    } steps[] = {{5000, 0}, {5010, 10}, {5010, 10}, {5100, 100}, {4000, 100}, {4001, 101}};
    for (const auto& step : steps) {
        clock.Now = step.Now;
        EXPECT_EQ(ReadTick(), step.Tick) << step.Now;
    }
    EXPECT_EQ(clock.Reads, 12);
}

TEST_F(BoundaryClockTest, OutputCarriesTheTickAsAnLreal) {
    clock.Now = 1;
    ReadTick();
    clock.Now = 21;
    ReadTick();
    EXPECT_EQ(host.Calls.back(), Out("T", 20, 11, true));
}

TEST_F(BoundaryClockTest, PresetUsesTheHostClock) {
    clock.Now = 7000;
    Preset("100");
    EXPECT_EQ(clock.Reads, 1);
    clock.Now = 7005;
    EXPECT_EQ(ReadTick(), 105.0);
    clock.Now = 8000;
    Preset("-1");  // narrowed to UDINT
    clock.Now = 8002;
    EXPECT_EQ(ReadTick(), 4294967297.0);
}

TEST_F(BoundaryClockTest, NullRestoresTheWallClock) {
    clock.Now = 40;
    ReadTick();
    const int reads = clock.Reads;
    plugin.SetClock(object, nullptr, nullptr);
    Preset("0");
    const double tick = ReadTick();
    EXPECT_GE(tick, 0.0);
    EXPECT_LT(tick, 10000.0);  // wall milliseconds since the preset, not 2^32-scale jumps
    EXPECT_EQ(clock.Reads, reads);
}

TEST_F(BoundaryClockTest, WallClockFirstReadOfANewObjectIsZero) {
    IQZSTInterpretator* fresh = plugin.Create();
    ASSERT_EQ(fresh->InitInterpretator(kRead), 0u);
    RecordingHost other;
    ASSERT_EQ(fresh->Execute(&other), 0u);
    EXPECT_EQ(other.Calls.back(), Out("T", 0, 11, true));
    fresh->Destroy();
}

TEST_F(BoundaryClockTest, NullObjectChangesNoObjectsClock) {
    FakeClock other;
    other.Now = 900000;
    plugin.SetClock(nullptr, FakeClock::Read, &other);
    plugin.SetClock(nullptr, nullptr, nullptr);
    // The object still reads its own clock, twice for each TICK.
    clock.Now = 5000;
    EXPECT_EQ(ReadTick(), 0.0);
    clock.Now = 5040;
    EXPECT_EQ(ReadTick(), 40.0);
    EXPECT_EQ(clock.Reads, 4);
    // An object created afterwards reads the wall clock, not the one given
    // with the null object: its first TICK is 0 and `other` is never read.
    plugin.SetClock(nullptr, FakeClock::Read, &other);
    IQZSTInterpretator* fresh = plugin.Create();
    ASSERT_EQ(fresh->InitInterpretator(kRead), 0u);
    RecordingHost freshHost;
    EXPECT_EQ(fresh->Execute(&freshHost), 0u);
    fresh->Destroy();
    const std::vector<HostCall> expected = {Out("T", 0, 11, true)};
    EXPECT_EQ(freshHost.Calls, expected);
    EXPECT_EQ(other.Reads, 0);
}

}  // namespace
