// Recovery after a failed cycle, the program's variables, retained-value
// snapshots and the machine state, through the .so as a host loads it.
#include "plugin.h"
#include "qz_st_variables.h"
#include "recording_host.h"

#include <gtest/gtest.h>

#include <cstring>
#include <string>
#include <vector>

namespace {

using qz_st_interpretator::IQZSTInterpretator;

// A subprogram that divides 100 by its argument: 0 fails inside the call.
const std::string kDivider =
    "PROG DIVIDER VAR DIVISOR VI DINT 1 TOTAL VG DINT 0 COUNT VO DINT 0 RESULT VO DINT 0 MAIN "
    "MOV @DIVISOR PUSH CAL SAFEDIV MOV R0 @RESULT MOV @TOTAL R0 ADD 1 R0 MOV R0 @TOTAL MOV R0 @COUNT RET "
    "SAFEDIV: D V DINT 0 BODY MOV POP @D MOV @D R0 DIV 100 R0 RET RET";

// One declaration of every kind a program may declare.
const std::string kEveryKind =
    "PROG KINDS VAR LOCAL V INT 7 IN VI BOOL 0 OUT VO REAL 1.5 KEEP VIO UINT 3 "
    "GLOBAL VG LREAL 2.25 T1 TVR UDINT 10 20 30 40 T2 TVG DINT 5 SMALL VG SINT 0 MAIN "
    "MOV @GLOBAL R0 ADD 1.0 R0 MOV R0 @GLOBAL RET";

struct Listed {
    std::string Name;
    int Kind, Type;
    uint32_t Ordinal;
    double Value;
    bool operator==(const Listed& o) const {
        return Name == o.Name && Kind == o.Kind && Type == o.Type && Ordinal == o.Ordinal && Value == o.Value;
    }
};

void Collect(void* context, const QZVariableInfo* info) {
    static_cast<std::vector<Listed>*>(context)->push_back(
        Listed{std::string(info->Name, info->NameLength), info->Kind, info->Type, info->Ordinal, info->Value});
}

class HostVariables : public ::testing::Test {
protected:
    void SetUp() override {
        Recover = plugin.Symbol<decltype(&QZRecover)>("QZRecover");
        List = plugin.Symbol<decltype(&QZListVariables)>("QZListVariables");
        ListLocals = plugin.Symbol<decltype(&QZListLocals)>("QZListLocals");
        Get = plugin.Symbol<decltype(&QZGetVariable)>("QZGetVariable");
        Set = plugin.Symbol<decltype(&QZSetVariable)>("QZSetVariable");
        Save = plugin.Symbol<decltype(&QZSaveRetained)>("QZSaveRetained");
        Restore = plugin.Symbol<decltype(&QZRestoreRetained)>("QZRestoreRetained");
        State = plugin.Symbol<decltype(&QZGetMachineState)>("QZGetMachineState");
        GetStack = plugin.Symbol<decltype(&QZGetStack)>("QZGetStack");
        GetCall = plugin.Symbol<decltype(&QZGetCall)>("QZGetCall");
        object = plugin.Create();
    }
    void TearDown() override { object->Destroy(); }

    uint32_t Run(double divisor) {
        host.Inputs["DIVISOR"] = divisor;
        host.Outputs.clear();
        return object->Execute(&host);
    }
    double Value(const char* name) {
        double value = -1.0;
        EXPECT_EQ(Get(object, name, std::strlen(name), &value, nullptr), 0u) << name;
        return value;
    }
    std::vector<uint8_t> Snapshot() {
        size_t needed = 0;
        EXPECT_EQ(Save(object, nullptr, 0, &needed), uint32_t(Qz::rcBufferTooSmall));
        std::vector<uint8_t> bytes(needed);
        EXPECT_EQ(Save(object, bytes.data(), bytes.size(), &needed), 0u);
        EXPECT_EQ(needed, bytes.size());
        return bytes;
    }
    QZMachineState Machine() {
        QZMachineState state{};
        EXPECT_EQ(State(object, &state), 0u);
        return state;
    }

    Plugin plugin;
    decltype(&QZRecover) Recover;
    decltype(&QZListVariables) List;
    decltype(&QZListLocals) ListLocals;
    decltype(&QZGetVariable) Get;
    decltype(&QZSetVariable) Set;
    decltype(&QZSaveRetained) Save;
    decltype(&QZRestoreRetained) Restore;
    decltype(&QZGetMachineState) State;
    decltype(&QZGetStack) GetStack;
    decltype(&QZGetCall) GetCall;
    IQZSTInterpretator* object = nullptr;
    RecordingHost host;
};

// ---- Recovery ----

TEST_F(HostVariables, FailureInsideACallBreaksLaterCyclesUntilRecovered) {
    ASSERT_EQ(object->InitInterpretator(kDivider), 0u);
    ASSERT_EQ(Run(4), 0u);
    EXPECT_EQ(host.Outputs["RESULT"], 25.0);
    ASSERT_EQ(Run(0), uint32_t(Qz::rcDivisionByZero));
    EXPECT_EQ(Machine().CallDepth, 1u);
    EXPECT_EQ(Run(5), uint32_t(Qz::rcVarNotFound)) << "the call's frame hides the program's variables";
    EXPECT_EQ(Run(5), uint32_t(Qz::rcVarNotFound));

    EXPECT_EQ(Recover(object), 0u);
    const QZMachineState state = Machine();
    EXPECT_EQ(state.CallDepth, 0u);
    EXPECT_EQ(state.StackDepth, 0u);
    ASSERT_EQ(Run(5), 0u);
    EXPECT_EQ(host.Outputs["RESULT"], 20.0);
    EXPECT_EQ(host.Outputs["COUNT"], 2.0) << "TOTAL kept its value through the failure and the recovery";
    ASSERT_EQ(Run(10), 0u);
    EXPECT_EQ(host.Outputs["COUNT"], 3.0);
}

TEST_F(HostVariables, RecoveryKeepsRegistersAndEveryVariable) {
    ASSERT_EQ(object->InitInterpretator(kDivider), 0u);
    ASSERT_EQ(Run(4), 0u);
    ASSERT_EQ(Run(0), uint32_t(Qz::rcDivisionByZero));
    const QZMachineState before = Machine();
    ASSERT_EQ(Recover(object), 0u);
    const QZMachineState after = Machine();
    EXPECT_EQ(after.R0, before.R0);
    EXPECT_EQ(after.R0Type, before.R0Type);
    EXPECT_EQ(after.A0, before.A0);
    EXPECT_EQ(after.TestFlag, before.TestFlag);
    EXPECT_EQ(Value("TOTAL"), 1.0);
    EXPECT_EQ(Value("RESULT"), 25.0);
    EXPECT_EQ(Value("COUNT"), 1.0);
}

TEST_F(HostVariables, RecoveryAfterTheBudgetStoppedADeepRecursion) {
    const std::string text =
        "PROG DEEP VAR N VG DINT 0 MAIN MOV @N R0 ADD 1 R0 MOV R0 @N CAL DOWN RET "
        "DOWN: K V DINT 0 BODY MOV 1 PUSH CAL DOWN RET RET";
    ASSERT_EQ(object->InitInterpretator(text), 0u);
    plugin.SetBudget(object, 5000);
    ASSERT_EQ(object->Execute(&host), uint32_t(Qz::rcBudgetExhausted));
    EXPECT_GT(Machine().CallDepth, 100u);
    EXPECT_GT(Machine().StackDepth, 100u);
    ASSERT_EQ(Recover(object), 0u);
    EXPECT_EQ(Machine().CallDepth, 0u);
    EXPECT_EQ(Machine().StackDepth, 0u);
    EXPECT_EQ(Value("N"), 1.0);
    EXPECT_EQ(object->Execute(&host), uint32_t(Qz::rcBudgetExhausted)) << "the same cycle, the same failure";
    ASSERT_EQ(Recover(object), 0u);
    EXPECT_EQ(Value("N"), 2.0);
}

TEST_F(HostVariables, RecoveryClearsCallsAReloadKeeps) {
    ASSERT_EQ(object->InitInterpretator(kDivider), 0u);
    ASSERT_EQ(Run(0), uint32_t(Qz::rcDivisionByZero));
    ASSERT_EQ(object->InitInterpretator(kDivider), 0u);
    EXPECT_EQ(Run(5), uint32_t(Qz::rcRetWithCallsPending)) << "a reload keeps the return position";
    ASSERT_EQ(Recover(object), 0u);
    ASSERT_EQ(Run(5), 0u);
    EXPECT_EQ(host.Outputs["RESULT"], 20.0);
}

TEST_F(HostVariables, RecoveryOfAHealthyObjectChangesNothingButTheValueStack) {
    ASSERT_EQ(object->InitInterpretator("PROG P VAR X VO DINT 0 MAIN MOV 7 PUSH MOV 3 @X RET"), 0u);
    ASSERT_EQ(object->Execute(&host), 0u);
    EXPECT_EQ(Machine().StackDepth, 1u);
    ASSERT_EQ(Recover(object), 0u);
    EXPECT_EQ(Machine().StackDepth, 0u);
    EXPECT_EQ(Value("X"), 3.0);
    ASSERT_EQ(object->Execute(&host), 0u);
    EXPECT_EQ(host.Outputs["X"], 3.0);
}

TEST_F(HostVariables, RecoveryWithoutAProgramSaysSo) {
    EXPECT_EQ(Recover(object), uint32_t(Qz::rcNoProgram));
    EXPECT_EQ(object->InitInterpretator("PROG P VAR X VO DINT 0 MAIN MOV 3 @X"), uint32_t(Qz::rcEndOfText));
    EXPECT_EQ(Recover(object), uint32_t(Qz::rcNoProgram));
    EXPECT_EQ(Recover(nullptr), uint32_t(Qz::rcBadHandle));
}

// ---- Variables ----

TEST_F(HostVariables, ListGivesEveryDeclarationInTextOrder) {
    ASSERT_EQ(object->InitInterpretator(kEveryKind), 0u);
    std::vector<Listed> listed;
    ASSERT_EQ(List(object, Collect, &listed), 0u);
    const std::vector<Listed> expected = {
        {"LOCAL", 0x14, 0x23, 0, 7.0},   {"IN", 0x15, 0x20, 1, 0.0},      {"OUT", 0x16, 0x27, 2, 1.5},
        {"KEEP", 0x17, 0x24, 3, 3.0},    {"GLOBAL", 0x18, 0x28, 4, 2.25}, {"T1", 0x1a, 0x26, 5, 0.0},
        {"T2", 0x19, 0x25, 6, 0.0},      {"SMALL", 0x18, 0x21, 7, 0.0},
    };
    EXPECT_EQ(listed, expected);
    ASSERT_EQ(object->Execute(&host), 0u);
    listed.clear();
    ASSERT_EQ(List(object, Collect, &listed), 0u);
    EXPECT_EQ(listed[4].Value, 3.25) << "the current value";
}

TEST_F(HostVariables, GetFindsNamesAsTheProgramDoes) {
    const std::string text = "PROG P VAR Total VG DINT 12 \xd1\x81\xd1\x87\xd0\xb5\xd1\x82 VG INT 4 "
                             "RAW\xff VG BOOL 1 MAIN RET";
    ASSERT_EQ(object->InitInterpretator(text), 0u);
    double value = 0.0;
    uint8_t type = 0;
    ASSERT_EQ(Get(object, "TOTAL", 5, &value, &type), 0u);
    EXPECT_EQ(value, 12.0);
    EXPECT_EQ(type, 0x25);
    const char upper[] = "\xd0\xa1\xd0\xa7\xd0\x95\xd0\xa2";  // the same Cyrillic name in capitals
    ASSERT_EQ(Get(object, upper, sizeof upper - 1, &value, &type), 0u);
    EXPECT_EQ(value, 4.0);
    ASSERT_EQ(Get(object, "raw\xff", 4, &value, nullptr), 0u) << "bytes that are not UTF-8 match as bytes";
    EXPECT_EQ(value, 1.0);
    EXPECT_EQ(Get(object, "MISSING", 7, &value, &type), uint32_t(Qz::rcVarNotFound));
}

TEST_F(HostVariables, NamesWhoseLengthLiesAreNotFound) {
    ASSERT_EQ(object->InitInterpretator("PROG P VAR TOTAL VG DINT 12 MAIN RET"), 0u);
    double value = -1.0;
    EXPECT_EQ(Get(object, "TOTAL", 3, &value, nullptr), uint32_t(Qz::rcVarNotFound)) << "TOT";
    EXPECT_EQ(Get(object, "TOTAL", 0, &value, nullptr), uint32_t(Qz::rcVarNotFound));
    // A length past the terminating NUL: the NUL is inside the name, and
    // nothing beyond it is read (the sanitizers would see it).
    EXPECT_EQ(Get(object, "TOTAL", 6, &value, nullptr), uint32_t(Qz::rcVarNotFound));
    EXPECT_EQ(Get(object, "TOTAL", size_t(-1), &value, nullptr), uint32_t(Qz::rcVarNotFound));
    EXPECT_EQ(Get(object, "\xff\xfe\xfd", 3, &value, nullptr), uint32_t(Qz::rcVarNotFound));
    EXPECT_EQ(Get(object, nullptr, 5, &value, nullptr), uint32_t(Qz::rcBadArgument));
    EXPECT_EQ(Set(object, nullptr, 5, 1.0), uint32_t(Qz::rcBadArgument));
    EXPECT_EQ(value, -1.0) << "nothing written on a failure";
}

TEST_F(HostVariables, NamesKeepTheirFirst255Bytes) {
    const std::string name(300, 'N');
    ASSERT_EQ(object->InitInterpretator("PROG P VAR " + name + " VG DINT 9 MAIN RET"), 0u);
    double value = 0.0;
    ASSERT_EQ(Get(object, name.data(), name.size(), &value, nullptr), 0u);
    EXPECT_EQ(value, 9.0);
    ASSERT_EQ(Get(object, name.data(), 255, &value, nullptr), 0u);
    EXPECT_EQ(Get(object, name.data(), 254, &value, nullptr), uint32_t(Qz::rcVarNotFound));
    std::vector<Listed> listed;
    ASSERT_EQ(List(object, Collect, &listed), 0u);
    ASSERT_EQ(listed.size(), 1u);
    EXPECT_EQ(listed[0].Name, std::string(255, 'N'));
}

// A write is narrowed exactly as the program's own MOV into the variable.
TEST_F(HostVariables, SetNarrowsAsAMovDoes) {
    const char* types[] = {"BOOL", "SINT", "USINT", "INT", "UINT", "DINT", "UDINT", "REAL", "LREAL"};
    const double values[] = {0.0, 1.0, -1.0, 2.5, -2.5, 300.0, -129.0, 65537.5, 4294967297.0, 1e40, -1e40, 0.1};
    for (const char* type : types) {
        for (double v : values) {
            char literal[64];
            std::snprintf(literal, sizeof literal, "%.1f", v);
            const std::string text = std::string("PROG P VAR BYMOV VG ") + type + " 0 BYHOST VG " + type +
                                     " 0 MAIN MOV " + literal + " R0 MOV R0 @BYMOV RET";
            ASSERT_EQ(object->InitInterpretator(text), 0u);
            ASSERT_EQ(object->Execute(&host), 0u);
            ASSERT_EQ(Set(object, "BYHOST", 6, v), 0u);
            const double byMov = Value("BYMOV"), byHost = Value("BYHOST");
            EXPECT_EQ(std::memcmp(&byMov, &byHost, sizeof byMov), 0) << type << " " << literal;
        }
    }
}

TEST_F(HostVariables, SetBetweenCyclesIsWhatTheNextCycleSees) {
    ASSERT_EQ(object->InitInterpretator(kDivider), 0u);
    ASSERT_EQ(Run(4), 0u);
    ASSERT_EQ(Set(object, "total", 5, 41.9), 0u);
    EXPECT_EQ(Value("TOTAL"), 41.0) << "narrowed to DINT";
    ASSERT_EQ(Run(4), 0u);
    EXPECT_EQ(host.Outputs["COUNT"], 42.0);
    EXPECT_EQ(Set(object, "NOPE", 4, 1.0), uint32_t(Qz::rcVarNotFound));
}

// Inside a subprogram a trace hook sees that subprogram's locals, and the
// program's variables are not found there, as the body finds them.
struct HookProbe {
    HostVariables* Test;
    decltype(&QZGetVariable) Get;
    decltype(&QZSetVariable) Set;
    decltype(&QZGetCall) GetCall;
    decltype(&QZListLocals) ListLocals;
    IQZSTInterpretator* Object;
    int32_t Pop;  // where MOV POP @D stands
    std::vector<double> SeenD;
    std::vector<uint32_t> TotalInFrame;
    int32_t CallOffset = -1, LabelOffset = -1;
    std::vector<Listed> Locals;
};

void ProbeHook(void* context, const QZTraceEvent* event) {
    HookProbe& probe = *static_cast<HookProbe*>(context);
    double d = 0.0;
    if (probe.Get(probe.Object, "D", 1, &d, nullptr) == 0) {
        probe.SeenD.push_back(d);
        probe.TotalInFrame.push_back(probe.Get(probe.Object, "TOTAL", 5, &d, nullptr));
        if (event->InstructionStart == probe.Pop) {
            probe.Set(probe.Object, "D", 1, 50.0);  // the division then gives 2
            probe.GetCall(probe.Object, 0, &probe.CallOffset, &probe.LabelOffset);
            probe.ListLocals(probe.Object, Collect, &probe.Locals);
        }
    }
}

TEST_F(HostVariables, TraceHookReadsAndWritesTheSubprogramsLocals) {
    ASSERT_EQ(object->InitInterpretator(kDivider), 0u);
    HookProbe probe{this, Get, Set, GetCall, ListLocals, object, int32_t(kDivider.find("MOV POP @D")), {}, {}, -1, -1, {}};
    plugin.SetTrace(object, ProbeHook, &probe);
    ASSERT_EQ(Run(4), 0u);
    plugin.SetTrace(object, nullptr, nullptr);
    // After the CAL, after MOV POP @D (then the hook writes 50), after
    // MOV @D R0, after DIV.
    EXPECT_EQ(probe.SeenD, (std::vector<double>{0.0, 4.0, 50.0, 50.0}));
    for (uint32_t r : probe.TotalInFrame) EXPECT_EQ(r, uint32_t(Qz::rcVarNotFound));
    EXPECT_EQ(host.Outputs["RESULT"], 2.0);
    EXPECT_EQ(probe.CallOffset, int32_t(kDivider.find("CAL SAFEDIV")));
    EXPECT_EQ(probe.LabelOffset, int32_t(kDivider.find("SAFEDIV:")));
    EXPECT_EQ(probe.Locals, (std::vector<Listed>{{"D", 0x14, 0x25, 0, 50.0}}));
    std::vector<Listed> none;
    EXPECT_EQ(ListLocals(object, Collect, &none), 0u);
    EXPECT_TRUE(none.empty()) << "between cycles no call is pending";
}

// ---- Machine state ----

TEST_F(HostVariables, MachineStateStackAndCallsAfterAFailureInsideACall) {
    const std::string text =
        "PROG P VAR X VG DINT 0 MAIN MOV 1.5 PUSH MOV 2 PUSH MOV 0 PUSH CAL F RET "
        "F: D V DINT 0 BODY MOV POP @D MOV @D R0 MOV 9 R1 DIV R1 R0 RET RET";
    ASSERT_EQ(object->InitInterpretator(text), 0u);
    ASSERT_EQ(object->Execute(&host), uint32_t(Qz::rcDivisionByZero));
    const QZMachineState state = Machine();
    EXPECT_EQ(state.StackDepth, 2u);
    EXPECT_EQ(state.CallDepth, 1u);
    EXPECT_EQ(state.R0, 0.0);
    EXPECT_EQ(state.R0Type, 0x25);
    EXPECT_EQ(state.R1, 9.0);
    QZStackValue values[4] = {};
    size_t count = 99;
    ASSERT_EQ(GetStack(object, values, 4, &count), 0u);
    ASSERT_EQ(count, 2u);
    EXPECT_EQ(values[0].Value, 1.5);
    EXPECT_EQ(values[1].Value, 2.0);
    ASSERT_EQ(GetStack(object, values, 1, &count), 0u);
    ASSERT_EQ(count, 1u);
    EXPECT_EQ(values[0].Value, 2.0) << "the top";
    int32_t call = -1, label = -1;
    ASSERT_EQ(GetCall(object, 0, &call, &label), 0u);
    EXPECT_EQ(call, int32_t(text.find("CAL F")));
    EXPECT_EQ(label, int32_t(text.find("F:")));
    EXPECT_EQ(GetCall(object, 1, &call, &label), uint32_t(Qz::rcBadArgument));
}

// ---- Snapshots ----

TEST_F(HostVariables, SnapshotRestoresRetainedValuesOnly) {
    ASSERT_EQ(object->InitInterpretator(kEveryKind), 0u);
    ASSERT_EQ(Set(object, "KEEP", 4, 11), 0u);
    ASSERT_EQ(Set(object, "T1", 2, 1234), 0u);
    ASSERT_EQ(Set(object, "OUT", 3, -0.5), 0u);
    const std::vector<uint8_t> saved = Snapshot();
    for (const char* name : {"LOCAL", "KEEP", "T1", "T2", "OUT", "GLOBAL", "SMALL"})
        ASSERT_EQ(Set(object, name, std::strlen(name), 99), 0u);
    ASSERT_EQ(Restore(object, saved.data(), saved.size()), 0u);
    EXPECT_EQ(Value("KEEP"), 11.0);
    EXPECT_EQ(Value("T1"), 1234.0);
    EXPECT_EQ(Value("OUT"), -0.5);
    EXPECT_EQ(Value("GLOBAL"), 2.25);
    EXPECT_EQ(Value("T2"), 0.0);
    EXPECT_EQ(Value("SMALL"), 0.0);
    EXPECT_EQ(Value("LOCAL"), 99.0) << "V is not retained";
}

TEST_F(HostVariables, SnapshotOfAFreshObjectCarriesOver) {
    ASSERT_EQ(object->InitInterpretator(kDivider), 0u);
    for (double d : {1.0, 2.0, 4.0}) ASSERT_EQ(Run(d), 0u);
    const std::vector<uint8_t> saved = Snapshot();
    IQZSTInterpretator* other = plugin.Create();
    ASSERT_EQ(other->InitInterpretator(kDivider), 0u);
    ASSERT_EQ(Restore(other, saved.data(), saved.size()), 0u);
    host.Inputs["DIVISOR"] = 5;
    ASSERT_EQ(other->Execute(&host), 0u);
    EXPECT_EQ(host.Outputs["COUNT"], 4.0);
    other->Destroy();
}

// The format, byte for byte, as docs/host-integration.md describes it.
TEST_F(HostVariables, SnapshotFormatVersion1) {
    ASSERT_EQ(object->InitInterpretator("PROG P VAR A V BOOL 1 Bc VG DINT 3 MAIN RET"), 0u);
    const std::vector<uint8_t> bytes = Snapshot();
    const std::vector<uint8_t> expected = {
        'Q', 'Z', 'R', 'V', 1, 0, 0, 0,  // magic, version 1, reserved
        37, 0, 0, 0, 2, 0, 0, 0,         // size, 2 declarations
        0x14, 0x20, 1, 'A',              // A V BOOL, no value
        0x18, 0x25, 2, 'B', 'c', 0, 0, 0, 0, 0, 0, 0x08, 0x40,  // Bc VG DINT 3.0
    };
    ASSERT_EQ(bytes.size(), expected.size() + 4);
    EXPECT_EQ(std::vector<uint8_t>(bytes.begin(), bytes.end() - 4), expected);
}

TEST_F(HostVariables, SnapshotOfAnotherProgramIsRefusedAndNothingRestored) {
    ASSERT_EQ(object->InitInterpretator("PROG P VAR A VG DINT 1 B VG DINT 2 MAIN RET"), 0u);
    const std::vector<uint8_t> saved = Snapshot();
    const char* others[] = {
        "PROG P VAR A VG DINT 1 MAIN RET",                            // fewer
        "PROG P VAR A VG DINT 1 B VG DINT 2 C V DINT 0 MAIN RET",     // more
        "PROG P VAR A VG DINT 1 B VG INT 2 MAIN RET",                 // another type
        "PROG P VAR A VG DINT 1 B VIO DINT 2 MAIN RET",               // another kind
        "PROG P VAR A VG DINT 1 b VG DINT 2 MAIN RET",                // another spelling
        "PROG P VAR B VG DINT 2 A VG DINT 1 MAIN RET",                // another order
    };
    for (const char* text : others) {
        ASSERT_EQ(object->InitInterpretator(text), 0u);
        ASSERT_EQ(Set(object, "A", 1, 77), 0u);
        EXPECT_EQ(Restore(object, saved.data(), saved.size()), uint32_t(Qz::rcSnapshotMismatch)) << text;
        EXPECT_EQ(Value("A"), 77.0) << text;
    }
}

TEST_F(HostVariables, TruncatedSnapshotsAreRefused) {
    ASSERT_EQ(object->InitInterpretator(kEveryKind), 0u);
    const std::vector<uint8_t> saved = Snapshot();
    ASSERT_EQ(Set(object, "GLOBAL", 6, 8), 0u);
    for (size_t size = 0; size < saved.size(); ++size) {
        std::vector<uint8_t> cut(saved.begin(), saved.begin() + long(size));  // its own allocation: overreads show
        EXPECT_EQ(Restore(object, cut.data(), cut.size()), uint32_t(Qz::rcSnapshotCorrupt)) << size;
    }
    std::vector<uint8_t> longer = saved;
    longer.push_back(0);
    EXPECT_EQ(Restore(object, longer.data(), longer.size()), uint32_t(Qz::rcSnapshotCorrupt));
    EXPECT_EQ(Value("GLOBAL"), 8.0);
}

TEST_F(HostVariables, EveryAlteredByteIsRefused) {
    ASSERT_EQ(object->InitInterpretator(kEveryKind), 0u);
    const std::vector<uint8_t> saved = Snapshot();
    ASSERT_EQ(Set(object, "GLOBAL", 6, 8), 0u);
    for (size_t i = 0; i < saved.size(); ++i) {
        for (uint8_t flip : {0x01, 0x80, 0xff}) {
            std::vector<uint8_t> altered = saved;
            altered[i] ^= flip;
            const uint32_t r = Restore(object, altered.data(), altered.size());
            EXPECT_TRUE(r == Qz::rcSnapshotCorrupt || (r == Qz::rcSnapshotVersion && (i == 4 || i == 5)))
                << "byte " << i << " ^ " << int(flip) << ": " << r;
        }
    }
    EXPECT_EQ(Value("GLOBAL"), 8.0);
}

TEST_F(HostVariables, AnotherFormatVersionIsRefusedByName) {
    ASSERT_EQ(object->InitInterpretator(kEveryKind), 0u);
    std::vector<uint8_t> saved = Snapshot();
    saved[4] = 2;
    EXPECT_EQ(Restore(object, saved.data(), saved.size()), uint32_t(Qz::rcSnapshotVersion));
}

TEST_F(HostVariables, SnapshotBuffersThatDoNotFit) {
    ASSERT_EQ(object->InitInterpretator(kEveryKind), 0u);
    const std::vector<uint8_t> saved = Snapshot();
    std::vector<uint8_t> small(saved.size() - 1, 0xAA);
    size_t needed = 0;
    EXPECT_EQ(Save(object, small.data(), small.size(), &needed), uint32_t(Qz::rcBufferTooSmall));
    EXPECT_EQ(needed, saved.size());
    EXPECT_EQ(small, std::vector<uint8_t>(saved.size() - 1, 0xAA)) << "nothing written";
    EXPECT_EQ(Save(object, small.data(), small.size(), nullptr), uint32_t(Qz::rcBadArgument));
    EXPECT_EQ(Save(object, nullptr, 10, &needed), uint32_t(Qz::rcBadArgument));
    EXPECT_EQ(Restore(object, nullptr, 10), uint32_t(Qz::rcBadArgument));
}

// ---- Hostile arguments ----

TEST_F(HostVariables, NullObjectsAndNullResults) {
    double value = 0.0;
    size_t count = 0;
    QZMachineState state;
    QZStackValue stack[1];
    int32_t a = 0, b = 0;
    const uint32_t bad = Qz::rcBadHandle;
    EXPECT_EQ(List(nullptr, Collect, nullptr), bad);
    EXPECT_EQ(ListLocals(nullptr, Collect, nullptr), bad);
    EXPECT_EQ(Get(nullptr, "X", 1, &value, nullptr), bad);
    EXPECT_EQ(Set(nullptr, "X", 1, 1.0), bad);
    EXPECT_EQ(Save(nullptr, nullptr, 0, &count), bad);
    EXPECT_EQ(Restore(nullptr, "x", 1), bad);
    EXPECT_EQ(State(nullptr, &state), bad);
    EXPECT_EQ(GetStack(nullptr, stack, 1, &count), bad);
    EXPECT_EQ(GetCall(nullptr, 0, &a, &b), bad);

    EXPECT_EQ(List(object, nullptr, nullptr), uint32_t(Qz::rcBadArgument));
    EXPECT_EQ(State(object, nullptr), uint32_t(Qz::rcBadArgument));
    EXPECT_EQ(GetStack(object, nullptr, 1, &count), uint32_t(Qz::rcBadArgument));
    EXPECT_EQ(GetStack(object, stack, 1, nullptr), uint32_t(Qz::rcBadArgument));
    EXPECT_EQ(GetStack(object, nullptr, 0, &count), 0u);
    EXPECT_EQ(count, 0u);
}

TEST_F(HostVariables, WithoutAProgramNothingIsFound) {
    double value = 0.0;
    size_t needed = 0;
    std::vector<Listed> listed;
    EXPECT_EQ(List(object, Collect, &listed), uint32_t(Qz::rcNoProgram));
    EXPECT_EQ(Get(object, "X", 1, &value, nullptr), uint32_t(Qz::rcNoProgram));
    EXPECT_EQ(Set(object, "X", 1, 1.0), uint32_t(Qz::rcNoProgram));
    EXPECT_EQ(Save(object, nullptr, 0, &needed), uint32_t(Qz::rcNoProgram));
    EXPECT_EQ(Restore(object, "QZRV", 4), uint32_t(Qz::rcNoProgram));
    EXPECT_EQ(object->InitInterpretator("PROG P VAR X VG BOOL"), uint32_t(Qz::rcEndOfText));
    EXPECT_EQ(Get(object, "X", 1, &value, nullptr), uint32_t(Qz::rcNoProgram)) << "a failed load";
    EXPECT_TRUE(listed.empty());
}

}  // namespace

namespace {

struct RecoverProbe {
    decltype(&QZRecover) Recover;
    IQZSTInterpretator* Object;
    std::vector<uint32_t> Codes;
};

void RecoverFromTrace(void* context, const QZTraceEvent*) {
    RecoverProbe& probe = *static_cast<RecoverProbe*>(context);
    probe.Codes.push_back(probe.Recover(probe.Object));
}

TEST_F(HostVariables, RecoveryFromInsideACycleIsRefused) {
    ASSERT_EQ(object->InitInterpretator(kDivider), 0u);
    RecoverProbe probe{Recover, object, {}};
    plugin.SetTrace(object, RecoverFromTrace, &probe);
    ASSERT_EQ(Run(4), 0u);
    plugin.SetTrace(object, nullptr, nullptr);
    ASSERT_FALSE(probe.Codes.empty());
    for (uint32_t code : probe.Codes) EXPECT_EQ(code, uint32_t(Qz::rcInCycle));
    EXPECT_EQ(host.Outputs["RESULT"], 25.0);
    EXPECT_EQ(Recover(object), 0u) << "between cycles it is fine";
}

}  // namespace

namespace {

// CRC-32 as zlib computes it (reflected, polynomial 0xEDB88320), written out
// here so the test checks the format, not the library against itself.
uint32_t Crc32(const uint8_t* data, size_t size) {
    uint32_t crc = 0xFFFFFFFFu;
    for (size_t i = 0; i < size; ++i) {
        crc ^= data[i];
        for (int bit = 0; bit < 8; ++bit) crc = (crc >> 1) ^ (0xEDB88320u & (0u - (crc & 1u)));
    }
    return ~crc;
}

void Reseal(std::vector<uint8_t>& snapshot) {
    const uint32_t crc = Crc32(snapshot.data(), snapshot.size() - 4);
    for (int i = 0; i < 4; ++i) snapshot[snapshot.size() - 4 + size_t(i)] = uint8_t(crc >> (8 * i));
}

TEST_F(HostVariables, SnapshotChecksumIsZlibsCrc32) {
    ASSERT_EQ(object->InitInterpretator(kEveryKind), 0u);
    std::vector<uint8_t> saved = Snapshot();
    const std::vector<uint8_t> original = saved;
    Reseal(saved);
    EXPECT_EQ(saved, original);
}

// Altered snapshots whose checksum was made to fit: the declarations are
// read with every length checked, and the result is a refusal or, where only
// a value changed, that value; never a read beyond the snapshot.
TEST_F(HostVariables, ResealedAlterationsAreReadSafely) {
    ASSERT_EQ(object->InitInterpretator(kEveryKind), 0u);
    const std::vector<uint8_t> saved = Snapshot();
    for (size_t i = 8; i + 4 < saved.size(); ++i) {
        for (uint8_t replacement : {uint8_t(0), uint8_t(1), uint8_t(0x7f), uint8_t(0xff)}) {
            std::vector<uint8_t> altered = saved;
            if (altered[i] == replacement) continue;
            altered[i] = replacement;
            Reseal(altered);
            const uint32_t r = Restore(object, altered.data(), altered.size());
            EXPECT_TRUE(r == 0 || r == Qz::rcSnapshotCorrupt || r == Qz::rcSnapshotMismatch)
                << "byte " << i << " := " << int(replacement) << ": " << r;
            ASSERT_EQ(Restore(object, saved.data(), saved.size()), 0u);
        }
    }
    // A declaration count far beyond what the bytes hold.
    std::vector<uint8_t> counted = saved;
    counted[12] = counted[13] = counted[14] = counted[15] = 0xff;
    Reseal(counted);
    EXPECT_EQ(Restore(object, counted.data(), counted.size()), uint32_t(Qz::rcSnapshotCorrupt));
}

}  // namespace
