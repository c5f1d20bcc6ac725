// The plug-in object: what Create returns, how the object is released, the
// exported Destroy that does nothing, and the state of a new object.
//
// This executable replaces the global allocation functions to count live
// blocks and to make a chosen allocation fail.
#include "qz_st_intrpr_main.h"
#include "recording_host.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <new>

#include "counting_allocator.h"

namespace {

using qz_st_interpretator::IQZSTInterpretator;

const char* kDemo =
    "PROG DEMO VAR CNT V DINT 0 START VI BOOL 0 LAMP VO BOOL 0 MAIN MOV @START R0 TST R0 JMPF OFF "
    "MOV 1 @LAMP RET OFF: MOV 0 @LAMP RET";

CQZ_STInterpretator* Object(IQZSTInterpretator* iface) { return static_cast<CQZ_STInterpretator*>(iface); }

// Runs the demo program once with START = `start`; true when LAMP followed.
bool RunsDemo(IQZSTInterpretator* iface, double start) {
    RecordingHost host;
    host.Inputs["START"] = start;
    if (iface->Execute(&host) != 0u) return false;
    return host.Calls.size() == 2 && host.Calls[1] == Out("LAMP", start, 1, true);
}

// One full life of an object, so that one-time initialisations inside the
// library have happened before blocks are counted.
void WarmUp() {
    IQZSTInterpretator* iface = Create();
    iface->InitInterpretator(kDemo);
    RunsDemo(iface, 1.0);
    iface->Destroy();
}

TEST(PluginObject, CreateReturnsTheInterfaceBaseNotTheObjectStart) {
    IQZSTInterpretator* iface = Create();
    ASSERT_NE(iface, nullptr);
    void* start = dynamic_cast<void*>(iface);
    EXPECT_NE(start, static_cast<void*>(iface));
    CQZ_STInterpretator* object = Object(iface);
    EXPECT_EQ(static_cast<void*>(object), start);
    EXPECT_EQ(dynamic_cast<CQZ_STInterpretator*>(iface), object);
    // The root of the class chain is where the object starts.
    EXPECT_EQ(static_cast<void*>(static_cast<CQZ_STInterpretator_Base*>(object)), start);
    // The built-ins' machine interface is a base of its own, elsewhere again.
    void* machine = static_cast<CQZ_STInterpretator_Interface*>(object);
    EXPECT_NE(machine, start);
    EXPECT_NE(machine, static_cast<void*>(iface));
    iface->Destroy();
}

TEST(PluginObject, DestroyOnTheInterfaceFreesEveryBlock) {
    WarmUp();
    const long before = gLiveBlocks;
    IQZSTInterpretator* iface = Create();
    EXPECT_GT(gLiveBlocks, before);
    iface->Destroy();
    EXPECT_EQ(gLiveBlocks, before);
}

TEST(PluginObject, DestroyAfterLoadingAndRunningFreesEveryBlock) {
    WarmUp();
    const long before = gLiveBlocks;
    IQZSTInterpretator* iface = Create();
    ASSERT_EQ(iface->InitInterpretator(kDemo), 0u);
    ASSERT_TRUE(RunsDemo(iface, 1.0));
    ASSERT_TRUE(RunsDemo(iface, 0.0));
    ASSERT_EQ(iface->InitInterpretator(kDemo), 0u);  // a reload in between
    ASSERT_TRUE(RunsDemo(iface, 1.0));
    iface->Destroy();
    EXPECT_EQ(gLiveBlocks, before);
}

TEST(PluginObject, FailedAllocationInCreateReleasesWhatWasBuilt) {
    WarmUp();
    int failures = 0;
    for (long n = 1; n < 100; ++n) {
        const long before = gLiveBlocks;
        IQZSTInterpretator* iface = nullptr;
        bool threw = false;
        gFailCountdown = n;
        try {
            iface = Create();
        } catch (const std::bad_alloc&) {
            threw = true;
        }
        gFailCountdown = 0;
        if (threw) {
            ++failures;
            EXPECT_EQ(gLiveBlocks, before) << "allocation " << n;
            continue;
        }
        ASSERT_NE(iface, nullptr);
        ASSERT_TRUE(iface->InitInterpretator(kDemo) == 0u && RunsDemo(iface, 1.0));
        iface->Destroy();
        EXPECT_EQ(gLiveBlocks, before);
        break;
    }
    EXPECT_GE(failures, 5);  // the object, then the room reserved for each of its four stacks
}

TEST(PluginObject, ExportedDestroyLeavesTheObjectAliveAndUsable) {
    WarmUp();
    IQZSTInterpretator* iface = Create();
    const long before = gLiveBlocks;
    ::Destroy();
    EXPECT_EQ(gLiveBlocks, before);
    ASSERT_EQ(iface->InitInterpretator(kDemo), 0u);
    EXPECT_TRUE(RunsDemo(iface, 1.0));
    ::Destroy();
    ::Destroy();
    EXPECT_TRUE(RunsDemo(iface, 0.0));
    EXPECT_TRUE(RunsDemo(iface, 1.0));
    iface->Destroy();
}

TEST(PluginObject, ExecuteBeforeInitFindsNoMain) {
    IQZSTInterpretator* iface = Create();
    RecordingHost host;
    EXPECT_EQ(iface->Execute(&host), 21u);
    EXPECT_EQ(iface->Execute(&host), 21u);
    EXPECT_TRUE(host.Calls.empty());
    // Loading afterwards works as usual.
    ASSERT_EQ(iface->InitInterpretator(kDemo), 0u);
    EXPECT_TRUE(RunsDemo(iface, 1.0));
    iface->Destroy();
}

void ExpectNewObjectState(const CQZ_STInterpretator* object) {
    EXPECT_EQ(object->TokenCode, 0);
    EXPECT_NE(object->TokenCode, ttPROG);
    EXPECT_TRUE(object->Text.empty());
    EXPECT_EQ(object->TextLen, 0);
    EXPECT_EQ(object->DigitValue, 0.0);
    EXPECT_EQ(object->TickValue, 0.0);
    EXPECT_EQ(object->TickLast, 0u);
    EXPECT_TRUE(object->Stack.empty());
    EXPECT_TRUE(object->CallStack.empty());
    EXPECT_TRUE(object->TableStack.empty());
    EXPECT_EQ(object->Labels.size(), 0);
    for (const Var* head : object->ProgramBuckets) EXPECT_EQ(head, nullptr);
    for (uint8_t kind = ttV; kind <= ttTVR; ++kind) {
        std::list<Var> list;
        EXPECT_TRUE(object->Vars.GetVarsList(list, char(kind)));
        EXPECT_TRUE(list.empty()) << int(kind);
    }
    for (const QZ_Register* reg : {&object->A0, &object->R0, &object->R1}) {
        EXPECT_EQ(reg->Value, 0.0);
        EXPECT_EQ(reg->ValueType, 0);
    }
    EXPECT_EQ(object->TestFlag, 0);
    EXPECT_EQ(object->InstructionBudget, 0u);
    EXPECT_EQ(object->Clock, nullptr);
    EXPECT_EQ(object->TraceHook, nullptr);
}

TEST(PluginObject, FieldsOfANewObject) {
    IQZSTInterpretator* iface = Create();
    ExpectNewObjectState(Object(iface));
    iface->Destroy();
}

TEST(PluginObject, ObjectsShareNothing) {
    IQZSTInterpretator* first = Create();
    ASSERT_EQ(first->InitInterpretator(kDemo), 0u);
    ASSERT_TRUE(RunsDemo(first, 1.0));
    ASSERT_EQ(Object(first)->StackPush(char(ttINT), 5.0), 0u);

    IQZSTInterpretator* second = Create();
    ExpectNewObjectState(Object(second));
    RecordingHost host;
    EXPECT_EQ(second->Execute(&host), 21u);
    EXPECT_TRUE(RunsDemo(first, 0.0));
    EXPECT_EQ(Object(first)->Stack.size(), 1u);
    second->Destroy();
    EXPECT_TRUE(RunsDemo(first, 1.0));
    first->Destroy();
}

TEST(PluginObject, MachineInterfaceReachesTheSameObject) {
    IQZSTInterpretator* iface = Create();
    CQZ_STInterpretator* object = Object(iface);
    CQZ_STInterpretator_Interface* machine = object;
    ASSERT_EQ(machine->StackPush(char(ttREAL), 2.5), 0u);
    char type = 0;
    double value = 0.0;
    ASSERT_EQ(object->StackPop(type, value), 0u);
    EXPECT_EQ(type, char(ttREAL));
    EXPECT_EQ(value, 2.5);
    ASSERT_EQ(machine->SetValueToRegister(char(ttR1), char(ttDINT), 7.0), 0u);
    EXPECT_EQ(object->R1.Value, 7.0);
    EXPECT_EQ(object->R1.ValueType, char(ttDINT));
    ASSERT_EQ(machine->GetValueFromRegister(char(ttR1), type, value), 0u);
    EXPECT_EQ(value, 7.0);
    iface->Destroy();
}

}  // namespace
