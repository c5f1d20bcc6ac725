// The TICK counter under a host clock set with QZSetClock, and back on the
// wall clock.
#include "qz_st_intrpr_main.h"
#include "recording_host.h"

#include <gtest/gtest.h>

#include <sys/time.h>

#include <memory>
#include <string>

namespace {

constexpr char kUDINT = 0x26;

struct FakeClock {
    uint32_t Now = 0;
    uint32_t Step = 0;  // added after every reading
    int Reads = 0;
    const void* SeenContext = nullptr;

    static uint32_t Read(void* context) {
        FakeClock* clock = static_cast<FakeClock*>(context);
        ++clock->Reads;
        clock->SeenContext = context;
        const uint32_t now = clock->Now;
        clock->Now += clock->Step;
        return now;
    }
};

uint32_t WallMilliseconds() {
    timeval tv;
    gettimeofday(&tv, nullptr);
    return uint32_t(tv.tv_sec) * 1000u + uint32_t(tv.tv_usec / 1000);
}

class ClockTest : public ::testing::Test {
protected:
    void SetUp() override {
        object = std::make_unique<CQZ_STInterpretator>();
        QZSetClock(Interface(), FakeClock::Read, &clock);
    }
    qz_st_interpretator::IQZSTInterpretator* Interface() { return object.get(); }

    // One cycle of a program that reads TICK into R0; returns what it read.
    double ReadTick() {
        EXPECT_EQ(object->InitInterpretator("PROG T MAIN MOV TICK R0 RET"), 0u);
        EXPECT_EQ(object->Execute(&host), 0u);
        EXPECT_EQ(object->R0.ValueType, kUDINT);
        return object->R0.Value;
    }
    void Preset(const std::string& value) {
        EXPECT_EQ(object->InitInterpretator("PROG T MAIN MOV " + value + " TICK RET"), 0u);
        EXPECT_EQ(object->Execute(&host), 0u);
    }

    FakeClock clock;
    RecordingHost host;
    std::unique_ptr<CQZ_STInterpretator> object;
};

TEST_F(ClockTest, FirstReadAfterConstructionIsZero) {
    clock.Now = 5000;
    EXPECT_EQ(ReadTick(), 0.0);
    EXPECT_EQ(object->TickLast, 5000u);
    EXPECT_EQ(clock.SeenContext, &clock);
}

TEST_F(ClockTest, EachLaterReadAddsTheSimulatedIncrement) {
    const struct {
        uint32_t Now;
        double Tick;
    } steps[] = {{5000, 0}, {5010, 10}, {5010, 10}, {5025, 25}, {6025, 1025}, {6026, 1026}};
    for (const auto& step : steps) {
        clock.Now = step.Now;
        EXPECT_EQ(ReadTick(), step.Tick) << step.Now;
        EXPECT_EQ(object->TickLast, step.Now);
    }
}

TEST_F(ClockTest, ClockThatStepsBackAddsNothing) {
    const struct {
        uint32_t Now;
        double Tick;
    } steps[] = {{5000, 0}, {5025, 25}, {4000, 25}, {4005, 30}, {3999, 30}, {4001, 32}};
    for (const auto& step : steps) {
        clock.Now = step.Now;
        EXPECT_EQ(ReadTick(), step.Tick) << step.Now;
    }
}

TEST_F(ClockTest, WrapOfTheMillisecondCountLooksLikeAStepBack) {
    clock.Now = 0xFFFFFFF0u;
    EXPECT_EQ(ReadTick(), 0.0);
    clock.Now = 0xFFFFFFFFu;
    EXPECT_EQ(ReadTick(), 15.0);
    clock.Now = 0x10;
    EXPECT_EQ(ReadTick(), 15.0);
    clock.Now = 0x20;
    EXPECT_EQ(ReadTick(), 31.0);
}

TEST_F(ClockTest, ClockReadingZeroCountsAsNeverRead) {
    clock.Now = 100;
    EXPECT_EQ(ReadTick(), 0.0);
    clock.Now = 150;
    EXPECT_EQ(ReadTick(), 50.0);
    clock.Now = 0;  // steps back to 0: adds nothing, and 0 means "not started"
    EXPECT_EQ(ReadTick(), 50.0);
    clock.Now = 10;
    EXPECT_EQ(ReadTick(), 50.0);
    clock.Now = 20;
    EXPECT_EQ(ReadTick(), 60.0);
}

TEST_F(ClockTest, TheClockIsReadBeforeAndAfterEachTickRead) {
    // The count stored for the next read is taken after the value: with a
    // clock that moves 1 ms per reading, each read sees 1 ms more.
    clock.Now = 1000;
    clock.Step = 1;
    EXPECT_EQ(ReadTick(), 0.0);
    EXPECT_EQ(clock.Reads, 2);
    EXPECT_EQ(ReadTick(), 1.0);
    EXPECT_EQ(ReadTick(), 2.0);
    EXPECT_EQ(clock.Reads, 6);
}

TEST_F(ClockTest, PresetTakesTheHostClock) {
    clock.Now = 7000;
    Preset("100");
    EXPECT_EQ(object->TickValue, 100.0);
    EXPECT_EQ(object->TickLast, 7000u);
    EXPECT_EQ(clock.Reads, 1);
    clock.Now = 7005;
    EXPECT_EQ(ReadTick(), 105.0);  // a preset starts the counter: this is no first read
}

TEST_F(ClockTest, PresetAfterReadsRestartsFromTheValue) {
    clock.Now = 1000;
    ReadTick();
    clock.Now = 1500;
    EXPECT_EQ(ReadTick(), 500.0);
    clock.Now = 2000;
    Preset("0");
    clock.Now = 2003;
    EXPECT_EQ(ReadTick(), 3.0);
}

TEST_F(ClockTest, PresetIsNarrowedToUdintButTheCountIsNot) {
    clock.Now = 10;
    Preset("-1");
    EXPECT_EQ(object->TickValue, 4294967295.0);
    clock.Now = 15;
    EXPECT_EQ(ReadTick(), 4294967300.0);  // grows past the UDINT range
    Preset("2.9");
    EXPECT_EQ(object->TickValue, 2.0);
}

TEST_F(ClockTest, PresetFromAVariableOrRegister) {
    clock.Now = 50;
    ASSERT_EQ(object->InitInterpretator("PROG T VAR S VI DINT 0 MAIN MOV @S TICK MOV 7 R1 RET"), 0u);
    host.Inputs["S"] = 1234;
    ASSERT_EQ(object->Execute(&host), 0u);
    EXPECT_EQ(object->TickValue, 1234.0);
    clock.Now = 60;
    EXPECT_EQ(ReadTick(), 1244.0);
}

TEST_F(ClockTest, NullRestoresTheWallClock) {
    clock.Now = 5;
    ReadTick();
    const int reads = clock.Reads;
    QZSetClock(Interface(), nullptr, &clock);
    EXPECT_EQ(object->Clock, nullptr);
    EXPECT_EQ(object->ClockContext, nullptr);

    const uint32_t before = WallMilliseconds();
    Preset("0");
    const uint32_t after = WallMilliseconds();
    EXPECT_GE(object->TickLast, before);
    EXPECT_LE(object->TickLast, after);
    const double tick = ReadTick();
    EXPECT_GE(tick, 0.0);
    EXPECT_LT(tick, 10000.0);
    EXPECT_EQ(clock.Reads, reads);  // the host clock is no longer asked
}

TEST_F(ClockTest, ClockCanBeReplaced) {
    clock.Now = 100;
    ReadTick();
    FakeClock other;
    other.Now = 130;
    QZSetClock(Interface(), FakeClock::Read, &other);
    EXPECT_EQ(ReadTick(), 30.0);
    EXPECT_EQ(other.SeenContext, &other);
}

TEST_F(ClockTest, EachObjectHasItsOwnClock) {
    auto second = std::make_unique<CQZ_STInterpretator>();
    FakeClock secondClock;
    QZSetClock(second.get(), FakeClock::Read, &secondClock);
    clock.Now = 100;
    secondClock.Now = 9000;
    ReadTick();
    ASSERT_EQ(second->InitInterpretator("PROG T MAIN MOV TICK R0 RET"), 0u);
    ASSERT_EQ(second->Execute(&host), 0u);
    clock.Now = 110;
    secondClock.Now = 9500;
    EXPECT_EQ(ReadTick(), 10.0);
    ASSERT_EQ(second->Execute(&host), 0u);
    EXPECT_EQ(second->R0.Value, 500.0);
}

TEST_F(ClockTest, NullObjectChangesNoObjectsClock) {
    FakeClock other;
    QZSetClock(nullptr, FakeClock::Read, &other);
    QZSetClock(nullptr, nullptr, nullptr);
    EXPECT_EQ(object->Clock, &FakeClock::Read);
    EXPECT_EQ(object->ClockContext, &clock);
    clock.Now = 100;
    EXPECT_EQ(ReadTick(), 0.0);
    clock.Now = 130;
    EXPECT_EQ(ReadTick(), 30.0);
    EXPECT_EQ(clock.Reads, 4);
    // Nor does it become the clock of objects created afterwards.
    QZSetClock(nullptr, FakeClock::Read, &other);
    CQZ_STInterpretator fresh;
    EXPECT_EQ(fresh.Clock, nullptr);
    EXPECT_EQ(fresh.ClockContext, nullptr);
    EXPECT_EQ(other.Reads, 0);
}

TEST(Clock, WallClockFirstReadIsZeroToo) {
    CQZ_STInterpretator object;
    RecordingHost host;
    ASSERT_EQ(object.InitInterpretator("PROG T MAIN MOV TICK R0 RET"), 0u);
    ASSERT_EQ(object.Execute(&host), 0u);
    EXPECT_EQ(object.R0.Value, 0.0);
    EXPECT_EQ(object.R0.ValueType, kUDINT);
}

}  // namespace
