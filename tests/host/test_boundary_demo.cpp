// The plug-in as a host sees it: loaded with dlopen, driven only through
// IQZSTInterpretator, with every host call checked.
#include "host_call_print.h"
#include "plugin.h"
#include "recording_host.h"

#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <vector>

namespace {

const char* kDemo =
    "PROG DEMO VAR CNT V DINT 0 START VI BOOL 0 LAMP VO BOOL 0 MAIN MOV @START R0 TST R0 JMPF OFF "
    "MOV 1 @LAMP RET OFF: MOV 0 @LAMP RET";

using qz_st_interpretator::IQZSTInterpretator;

class BoundaryTest : public ::testing::Test {
protected:
    void TearDown() override {
        for (IQZSTInterpretator* object : objects) object->Destroy();
    }
    IQZSTInterpretator* NewObject() {
        IQZSTInterpretator* object = plugin.Create();
        EXPECT_NE(object, nullptr);
        objects.push_back(object);
        return object;
    }

    Plugin plugin;
    std::vector<IQZSTInterpretator*> objects;
};

TEST_F(BoundaryTest, DemoProgramFollowsItsInputCycleByCycle) {
    IQZSTInterpretator* object = NewObject();
    ASSERT_EQ(object->InitInterpretator(kDemo), 0u);
    RecordingHost host;
    for (double start : {0.0, 1.0, 1.0, 0.0, 1.0, 0.0, 0.0, 1.0}) {
        host.Calls.clear();
        host.Inputs["START"] = start;
        ASSERT_EQ(object->Execute(&host), 0u);
        // START asked once, then LAMP sent once: BOOL is Dimension 1, and the
        // body writes LAMP on both paths. CNT never reaches the host.
        const std::vector<HostCall> expected = {In("START", start), Out("LAMP", start, 1, true)};
        EXPECT_EQ(host.Calls, expected) << "START " << start;
    }
}

TEST_F(BoundaryTest, DemoInputIsNarrowedToBoolOnlyWhenRead) {
    IQZSTInterpretator* object = NewObject();
    ASSERT_EQ(object->InitInterpretator(kDemo), 0u);
    const double inputs[] = {5, -0.5, 1e300, std::numeric_limits<double>::quiet_NaN(), -0.0, 0.0};
    const double lamps[] = {1, 1, 1, 1, 0, 0};
    RecordingHost host;
    for (size_t i = 0; i < sizeof inputs / sizeof *inputs; ++i) {
        host.Calls.clear();
        host.Inputs["START"] = inputs[i];
        ASSERT_EQ(object->Execute(&host), 0u);
        ASSERT_EQ(host.Calls.size(), 2u);
        EXPECT_EQ(host.Calls[0].Name, "START");
        EXPECT_EQ(host.Calls[0].Direction, tdIN);
        EXPECT_EQ(host.Calls[1], Out("LAMP", lamps[i], 1, true)) << inputs[i];
    }
}

TEST_F(BoundaryTest, ObjectsAreIndependent) {
    IQZSTInterpretator* a = NewObject();
    IQZSTInterpretator* b = NewObject();
    ASSERT_EQ(a->InitInterpretator(kDemo), 0u);
    ASSERT_EQ(b->InitInterpretator(kDemo), 0u);
    RecordingHost hostA, hostB;
    hostA.Inputs["START"] = 1;
    hostB.Inputs["START"] = 0;
    ASSERT_EQ(a->Execute(&hostA), 0u);
    ASSERT_EQ(b->Execute(&hostB), 0u);
    EXPECT_EQ(hostA.Outputs["LAMP"], 1.0);
    EXPECT_EQ(hostB.Outputs["LAMP"], 0.0);
}

TEST_F(BoundaryTest, ExecuteBeforeLoadingReturns21AndCallsNothing) {
    IQZSTInterpretator* object = NewObject();
    RecordingHost host;
    EXPECT_EQ(object->Execute(&host), 21u);
    EXPECT_TRUE(host.Calls.empty());
}

TEST_F(BoundaryTest, ExportedDestroyLeavesTheObjectUsable) {
    IQZSTInterpretator* object = NewObject();
    plugin.Destroy();
    ASSERT_EQ(object->InitInterpretator(kDemo), 0u);
    RecordingHost host;
    host.Inputs["START"] = 1;
    plugin.Destroy();
    EXPECT_EQ(object->Execute(&host), 0u);
    EXPECT_EQ(host.Outputs["LAMP"], 1.0);
}

TEST_F(BoundaryTest, FailedLoadThenReload) {
    IQZSTInterpretator* object = NewObject();
    EXPECT_EQ(object->InitInterpretator(""), 19u);
    EXPECT_EQ(object->InitInterpretator("PROG DEMO CONST MAIN RET"), 20u);
    EXPECT_EQ(object->InitInterpretator("PROG DEMO VAR X V STRING 0 MAIN RET"), 31u);
    ASSERT_EQ(object->InitInterpretator(kDemo), 0u);
    RecordingHost host;
    host.Inputs["START"] = 1;
    ASSERT_EQ(object->Execute(&host), 0u);
    const std::vector<HostCall> expected = {In("START", 1), Out("LAMP", 1, 1, true)};
    EXPECT_EQ(host.Calls, expected);
}

TEST_F(BoundaryTest, FailedCycleSendsNoOutputs) {
    IQZSTInterpretator* object = NewObject();
    ASSERT_EQ(object->InitInterpretator("PROG D VAR I VI INT 0 O VO INT 0 MAIN MOV 1 @O MOV POP R0 RET"), 0u);
    RecordingHost host;
    EXPECT_EQ(object->Execute(&host), 11u);
    const std::vector<HostCall> expected = {In("I", 0)};
    EXPECT_EQ(host.Calls, expected);
}

TEST_F(BoundaryTest, EveryOutputTypeWithItsDimension) {
    IQZSTInterpretator* object = NewObject();
    ASSERT_EQ(object->InitInterpretator("PROG D VAR A VO BOOL 0 B VO SINT 0 C VO USINT 0 D VO INT 0 E VO UINT 0 "
                                        "F VO DINT 0 G VO UDINT 0 H VO REAL 0 I VO LREAL 0 X VIO INT 0 MAIN "
                                        "MOV 300 @C MOV 2.5 @H RET"),
              0u);
    RecordingHost host;
    ASSERT_EQ(object->Execute(&host), 0u);
    const std::vector<HostCall> expected = {Out("A", 0, 1, false),  Out("B", 0, 2, false),  Out("C", 44, 3, true),
                                            Out("D", 0, 4, false),  Out("E", 0, 5, false),  Out("F", 0, 6, false),
                                            Out("G", 0, 7, false),  Out("H", 2.5, 10, true), Out("I", 0, 11, false)};
    EXPECT_EQ(host.Calls, expected);
}

TEST_F(BoundaryTest, BudgetStopsAnEndlessLoopEveryCycle) {
    IQZSTInterpretator* object = NewObject();
    ASSERT_EQ(object->InitInterpretator("PROG P MAIN L: JMP L RET"), 0u);
    plugin.SetBudget(object, 1000);
    RecordingHost host;
    EXPECT_EQ(object->Execute(&host), 100u);
    EXPECT_EQ(object->Execute(&host), 100u);
    EXPECT_TRUE(host.Calls.empty());
}

TEST_F(BoundaryTest, BudgetCountsInstructions) {
    // The demo runs four instructions on either path.
    IQZSTInterpretator* object = NewObject();
    ASSERT_EQ(object->InitInterpretator(kDemo), 0u);
    RecordingHost host;
    for (double start : {0.0, 1.0}) {
        host.Inputs["START"] = start;
        plugin.SetBudget(object, 3);
        host.Calls.clear();
        EXPECT_EQ(object->Execute(&host), 100u);
        const std::vector<HostCall> stopped = {In("START", start)};  // no outputs
        EXPECT_EQ(host.Calls, stopped);

        plugin.SetBudget(object, 4);
        host.Calls.clear();
        EXPECT_EQ(object->Execute(&host), 0u);
        EXPECT_EQ(host.Calls.size(), 2u);

        plugin.SetBudget(object, 0);  // unlimited again
        EXPECT_EQ(object->Execute(&host), 0u);
    }
}

TEST_F(BoundaryTest, BudgetOnANullObjectChangesNoObjectsBudget) {
    const char* five = "PROG P MAIN MOV 1 R0 MOV 2 R0 MOV 3 R0 MOV 4 R0 MOV 5 R0 RET";
    IQZSTInterpretator* object = NewObject();
    plugin.SetBudget(object, 4);
    plugin.SetBudget(nullptr, 1);
    plugin.SetBudget(nullptr, 0);
    // Still 4: the demo's four instructions run, a fifth does not.
    ASSERT_EQ(object->InitInterpretator(kDemo), 0u);
    RecordingHost host;
    host.Inputs["START"] = 1;
    EXPECT_EQ(object->Execute(&host), 0u);
    const std::vector<HostCall> demo = {In("START", 1), Out("LAMP", 1, 1, true)};
    EXPECT_EQ(host.Calls, demo);
    ASSERT_EQ(object->InitInterpretator(five), 0u);
    host.Calls.clear();
    EXPECT_EQ(object->Execute(&host), 100u);
    EXPECT_TRUE(host.Calls.empty());
    // An object created afterwards has no budget at all.
    plugin.SetBudget(nullptr, 1);
    IQZSTInterpretator* fresh = NewObject();
    ASSERT_EQ(fresh->InitInterpretator(five), 0u);
    EXPECT_EQ(fresh->Execute(&host), 0u);
    EXPECT_TRUE(host.Calls.empty());
}

}  // namespace
