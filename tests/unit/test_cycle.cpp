// Execute: resetting the cycle's variables, pulling inputs, running MAIN,
// pushing outputs, and what a cycle leaves behind when it fails.
#include "qz_st_intrpr_main.h"
#include "host_call_print.h"
#include "recording_host.h"

#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <memory>
#include <string>
#include <vector>

namespace {

std::unique_ptr<CQZ_STInterpretator> Load(const std::string& text) {
    auto object = std::make_unique<CQZ_STInterpretator>();
    const Qz::uint32_t result = object->InitInterpretator(text);
    EXPECT_EQ(result, 0u) << text;
    return object;
}

// Records, at every host call, what the interpreter's variables hold then.
class ObservingHost : public RecordingHost {
public:
    explicit ObservingHost(CQZ_STInterpretator* object) : Object(object) {}

    bool GetValueFrom(CQZDirection dir, const QString& name, double& value) override {
        Snapshot();
        return RecordingHost::GetValueFrom(dir, name, value);
    }
    bool SetValueTo(CQZDirection dir, const QString& name, double value, int Dimension, bool Rewrited) override {
        Snapshot();
        return RecordingHost::SetValueTo(dir, name, value, Dimension, Rewrited);
    }

    struct State {
        double Value;
        bool Rewrited;
    };
    std::vector<std::vector<State>> Seen;  // one row per host call
    std::vector<std::string> Watched;

private:
    void Snapshot() {
        std::vector<State> row;
        for (const std::string& name : Watched) {
            const Var* var = Object->GetVar(name.c_str());
            row.push_back(var ? State{var->VarValue, var->Rewrited} : State{NAN, false});
        }
        Seen.push_back(row);
    }
    CQZ_STInterpretator* Object;
};

// ---- A normal cycle ----

TEST(Cycle, AsksEachInputOnceAndSendsEachOutputOnce) {
    auto object = Load("PROG DEMO VAR COUNT V DINT 5 START VI BOOL 0 LAMP VO BOOL 0 MAIN RET");
    RecordingHost host;
    for (int cycle = 0; cycle < 3; ++cycle) {
        host.Calls.clear();
        host.Inputs["START"] = cycle;
        ASSERT_EQ(object->Execute(&host), 0u);
        const std::vector<HostCall> expected = {In("START", cycle), Out("LAMP", 0, 1, false)};
        EXPECT_EQ(host.Calls, expected);
        EXPECT_EQ(object->GetVar("COUNT")->VarValue, 5.0);
    }
}

TEST(Cycle, ExecuteBeforeAnyLoadReturns21WithoutCallingTheHost) {
    CQZ_STInterpretator object;
    RecordingHost host;
    EXPECT_EQ(object.Execute(&host), 21u);
    EXPECT_TRUE(host.Calls.empty());
}

TEST(Cycle, InputsThenOutputsEachInDeclarationOrder) {
    auto object = Load("PROG D VAR I2 VI INT 0 O2 VO INT 2 L V INT 0 I1 VI INT 0 O1 VO INT 1 I3 VI INT 0 MAIN RET");
    RecordingHost host;
    host.Inputs["I1"] = 10;
    host.Inputs["I2"] = 20;
    host.Inputs["I3"] = 30;
    ASSERT_EQ(object->Execute(&host), 0u);
    const std::vector<HostCall> expected = {In("I2", 20), In("I1", 10), In("I3", 30), Out("O2", 2, 4, false),
                                            Out("O1", 1, 4, false)};
    EXPECT_EQ(host.Calls, expected);
}

TEST(Cycle, VariablesAreResetBeforeInputsAndInputsReadBeforeTheBody) {
    auto object = Load("PROG D VAR A V INT 5 I VI INT 7 O VO INT 0 MAIN MOV @I @O MOV 9 @A MOV 9 @I RET");
    ObservingHost host(object.get());
    host.Watched = {"A", "I", "O"};
    host.Inputs["I"] = 3;
    ASSERT_EQ(object->Execute(&host), 0u);
    ASSERT_EQ(object->Execute(&host), 0u);
    ASSERT_EQ(host.Seen.size(), 4u);
    // Second cycle, at GetValueFrom: A and I back at their declared values,
    // O's flag cleared, its value kept.
    EXPECT_EQ(host.Seen[2][0].Value, 5.0);
    EXPECT_EQ(host.Seen[2][1].Value, 7.0);
    EXPECT_EQ(host.Seen[2][2].Value, 3.0);
    EXPECT_FALSE(host.Seen[2][2].Rewrited);
    // At SetValueTo the body has run.
    EXPECT_EQ(host.Seen[3][0].Value, 9.0);
    EXPECT_EQ(host.Seen[3][1].Value, 9.0);
    EXPECT_TRUE(host.Seen[3][2].Rewrited);
    EXPECT_EQ(host.Calls[3], Out("O", 3, 4, true));
}

TEST(Cycle, NamesReachTheHostAsDeclared) {
    const std::string longName(300, 'q');
    auto object = Load("PROG D VAR Start VI INT 0 a.b,c VO INT 0 " + longName +
                       " VO INT 0 \xC3\xA9t\xC3\xA9 VO INT 0 \xE9X VO INT 0 MAIN RET");
    RecordingHost host;
    host.Inputs["Start"] = 1;
    ASSERT_EQ(object->Execute(&host), 0u);
    ASSERT_EQ(host.Calls.size(), 5u);
    EXPECT_EQ(host.Calls[0], In("Start", 1));  // not upper-cased
    EXPECT_EQ(host.Calls[1].Name, "a.b,c");
    EXPECT_EQ(host.Calls[2].Name, longName.substr(0, 255));
    EXPECT_EQ(host.Calls[3].Name, "\xC3\xA9t\xC3\xA9");
    // Bytes that are not UTF-8 arrive as QString(const char*) makes them.
    EXPECT_EQ(host.Calls[4].Name, QString("\xE9X").toStdString());
}

struct DimensionCase {
    const char* Type;
    int Dimension;
};

class DimensionTest : public ::testing::TestWithParam<DimensionCase> {};

TEST_P(DimensionTest, OutputCarriesTheHostTypeCode) {
    auto object = Load(std::string("PROG D VAR O VO ") + GetParam().Type + " 1 MAIN RET");
    RecordingHost host;
    ASSERT_EQ(object->Execute(&host), 0u);
    const std::vector<HostCall> expected = {Out("O", 1, GetParam().Dimension, false)};
    EXPECT_EQ(host.Calls, expected);
}

INSTANTIATE_TEST_SUITE_P(Types, DimensionTest,
                         ::testing::Values(DimensionCase{"BOOL", 1}, DimensionCase{"SINT", 2},
                                           DimensionCase{"USINT", 3}, DimensionCase{"INT", 4},
                                           DimensionCase{"UINT", 5}, DimensionCase{"DINT", 6},
                                           DimensionCase{"UDINT", 7}, DimensionCase{"REAL", 10},
                                           DimensionCase{"LREAL", 11}));

TEST(Cycle, AllNineOutputsInOneCycle) {
    auto object = Load("PROG D VAR A VO BOOL 1 B VO SINT 2 C VO USINT 3 D VO INT 4 E VO UINT 5 F VO DINT 6 "
                       "G VO UDINT 7 H VO REAL 8.5 I VO LREAL 9.25 MAIN RET");
    RecordingHost host;
    ASSERT_EQ(object->Execute(&host), 0u);
    const std::vector<HostCall> expected = {Out("A", 1, 1, false),    Out("B", 2, 2, false),  Out("C", 3, 3, false),
                                            Out("D", 4, 4, false),    Out("E", 5, 5, false),  Out("F", 6, 6, false),
                                            Out("G", 7, 7, false),    Out("H", 8.5, 10, false),
                                            Out("I", 9.25, 11, false)};
    EXPECT_EQ(host.Calls, expected);
}

TEST(Cycle, OutputValueIsSentAsStored) {
    // Declared values are not narrowed; the host gets the record's double.
    auto object = Load("PROG D VAR B VO BOOL 5 S VO SINT 300 MAIN RET");
    RecordingHost host;
    ASSERT_EQ(object->Execute(&host), 0u);
    const std::vector<HostCall> expected = {Out("B", 5, 1, false), Out("S", 300, 2, false)};
    EXPECT_EQ(host.Calls, expected);
}

TEST(Cycle, OutputOfANonValueTypeStopsTheOutputsWith10) {
    auto object = Load("PROG D VAR O1 VO INT 1 O2 VO INT 2 O3 VO INT 3 MAIN RET");
    object->GetVar("O2")->VarType = 0x29;  // STRING never comes from a declaration
    RecordingHost host;
    EXPECT_EQ(object->Execute(&host), 10u);
    const std::vector<HostCall> expected = {Out("O1", 1, 4, false)};
    EXPECT_EQ(host.Calls, expected);
}

TEST(Cycle, RewritedTellsWhichOutputsTheBodyWrote) {
    auto object = Load("PROG D VAR I VI BOOL 0 O1 VO INT 7 O2 VO INT 0 MAIN MOV @I R0 TST R0 JMPF SKIP "
                       "MOV 3 @O1 SKIP: MOV 4 @O2 RET");
    RecordingHost host;
    const struct {
        double Input;
        HostCall O1, O2;
    } cycles[] = {
        {0, Out("O1", 7, 4, false), Out("O2", 4, 4, true)},
        {1, Out("O1", 3, 4, true), Out("O2", 4, 4, true)},
        {0, Out("O1", 3, 4, false), Out("O2", 4, 4, true)},  // kept from the last cycle, not written
    };
    for (const auto& cycle : cycles) {
        host.Calls.clear();
        host.Inputs["I"] = cycle.Input;
        ASSERT_EQ(object->Execute(&host), 0u);
        const std::vector<HostCall> expected = {In("I", cycle.Input), cycle.O1, cycle.O2};
        EXPECT_EQ(host.Calls, expected);
    }
}

TEST(Cycle, VioIsNeverExchanged) {
    auto object = Load("PROG D VAR I VI INT 0 X VIO INT 4 O VO INT 0 MAIN MOV @X @O MOV 9 @X RET");
    RecordingHost host;
    host.Inputs["X"] = 100;  // would be taken if X were asked for
    ASSERT_EQ(object->Execute(&host), 0u);
    ASSERT_EQ(object->Execute(&host), 0u);
    const std::vector<HostCall> expected = {In("I", 0), Out("O", 4, 4, true), In("I", 0), Out("O", 9, 4, true)};
    EXPECT_EQ(host.Calls, expected);  // X keeps its value from cycle to cycle, unseen by the host
}

TEST(Cycle, LocalsAreResetGlobalsKept) {
    auto object = Load("PROG D VAR A V INT 5 G VG INT 5 T TVR INT 0 0 0 0 OA VO INT 0 OG VO INT 0 OT VO INT 0 "
                       "MAIN MOV @A @OA MOV @G @OG MOV @T @OT MOV 9 @A MOV 9 @G MOV 9 @T RET");
    RecordingHost host;
    ASSERT_EQ(object->Execute(&host), 0u);
    ASSERT_EQ(object->Execute(&host), 0u);
    const std::vector<HostCall> expected = {Out("OA", 5, 4, true), Out("OG", 5, 4, true), Out("OT", 0, 4, true),
                                            Out("OA", 5, 4, true), Out("OG", 9, 4, true), Out("OT", 9, 4, true)};
    EXPECT_EQ(host.Calls, expected);
}

TEST(Cycle, HostValuesAreTakenWithoutNarrowing) {
    auto object = Load("PROG D VAR B VI BOOL 0 S VI SINT 0 X VI DINT 0 OB VO LREAL 0 OS VO LREAL 0 MAIN "
                       "MOV @B @OB MOV @S @OS RET");
    const double cases[][3] = {
        {5.5, 200, 1e300},
        {-0.0, -129, std::numeric_limits<double>::infinity()},
        {0.25, 1e10, std::nan("")},
    };
    const double read[][2] = {{1, -56}, {0, 127}, {1, 0}};  // narrowed only when the body reads them
    for (size_t i = 0; i < 3; ++i) {
        RecordingHost host;
        host.Inputs["B"] = cases[i][0];
        host.Inputs["S"] = cases[i][1];
        host.Inputs["X"] = cases[i][2];
        ASSERT_EQ(object->Execute(&host), 0u);
        EXPECT_EQ(object->GetVar("B")->VarValue, cases[i][0]);
        EXPECT_EQ(std::signbit(object->GetVar("B")->VarValue), std::signbit(cases[i][0]));
        EXPECT_EQ(object->GetVar("S")->VarValue, cases[i][1]);
        const double x = object->GetVar("X")->VarValue;
        if (std::isnan(cases[i][2]))
            EXPECT_TRUE(std::isnan(x));
        else
            EXPECT_EQ(x, cases[i][2]);
        EXPECT_EQ(host.Outputs["OB"], read[i][0]) << i;
        EXPECT_EQ(host.Outputs["OS"], read[i][1]) << i;
    }
}

TEST(Cycle, UnknownInputNameGetsWhateverTheHostWrote) {
    // The local starts at 0.0 for each input; this host writes 0.0 for names
    // it does not know.
    auto object = Load("PROG D VAR I VI INT 7 MAIN RET");
    RecordingHost host;
    ASSERT_EQ(object->Execute(&host), 0u);
    EXPECT_EQ(object->GetVar("I")->VarValue, 0.0);
}

TEST(Cycle, RegistersFlagAndStackSurviveCycles) {
    auto object = Load("PROG D VAR G VG INT 0 MAIN MOV 1 PUSH TST R0 MOV 2.5 R1 RET");
    object->SetValueToRegister(char(0x82), 0x25, 3);
    RecordingHost host;
    for (int cycle = 1; cycle <= 3; ++cycle) {
        ASSERT_EQ(object->Execute(&host), 0u);
        EXPECT_EQ(object->Stack.size(), size_t(cycle));
    }
    EXPECT_EQ(object->R0.Value, 3.0);
    EXPECT_EQ(object->R1.Value, 2.5);
    EXPECT_EQ(object->TestFlag, 1);
}

// ---- Statements the loop passes over or refuses ----

TEST(Cycle, LabelsArePassedOver) {
    for (const char* text : {"PROG D VAR O VO INT 0 MAIN L1: L2: RET", "PROG D VAR O VO INT 0 MAIN MOV 1 @O L: RET",
                             "PROG D VAR O VO INT 0 MAIN L: MOV 1 @O L2: L3: RET X: RET"}) {
        auto object = Load(text);
        RecordingHost host;
        EXPECT_EQ(object->Execute(&host), 0u) << text;
        EXPECT_EQ(host.Calls.size(), 1u) << text;
    }
}

TEST(Cycle, BodyEndsAtTheFirstRetOrAtTheEnd) {
    auto object = Load("PROG D VAR O VO INT 0 MAIN MOV 1 @O RET MOV 2 @O RET");
    RecordingHost host;
    ASSERT_EQ(object->Execute(&host), 0u);
    EXPECT_EQ(host.Calls.back(), Out("O", 1, 4, true));

    object = Load("PROG D VAR O VO INT 0 MAIN JMP E RET E: MOV 2 @O RET");
    ASSERT_EQ(object->Execute(&host), 0u);
    EXPECT_EQ(host.Calls.back(), Out("O", 2, 4, true));
}

class NotInstructionTest : public ::testing::TestWithParam<const char*> {};

TEST_P(NotInstructionTest, Returns14AfterInputsWithoutOutputs) {
    auto object = Load(std::string("PROG D VAR X VG INT 0 I VI INT 0 O VO INT 0 MAIN MOV 1 @O ") + GetParam() + " RET");
    RecordingHost host;
    EXPECT_EQ(object->Execute(&host), 14u);
    const std::vector<HostCall> expected = {In("I", 0)};
    EXPECT_EQ(host.Calls, expected);
}

INSTANTIATE_TEST_SUITE_P(Tokens, NotInstructionTest,
                         ::testing::Values("FOO", "5", "-2.5", "@X", "^X", "A0", "R0", "NIL", "PUSH", "POP", "TICK",
                                           "VAR", "#MAIN", "PROG", "BODY", "V", "VI", "BOOL", "STRING", "mov"));

TEST(Cycle, FirstStatementANameReturns14) {
    auto object = Load("PROG DEMO VAR I VI INT 0 O VO INT 0 MAIN FOO RET");
    RecordingHost host;
    EXPECT_EQ(object->Execute(&host), 14u);
    const std::vector<HostCall> expected = {In("I", 0)};
    EXPECT_EQ(host.Calls, expected);
}

TEST(Cycle, MainMetBeforeProgIsWhereTheBodyStarts) {
    // The first registration of MAIN wins, even one among the skipped tokens
    // before PROG: the cycle then starts there and meets PROG as a statement.
    auto object = Load("MAIN PROG D VAR X V INT 0 MAIN RET");
    EXPECT_EQ(object->Labels.lookup("MAIN", 0, 0, false)->LabelStart, 0);
    RecordingHost host;
    EXPECT_EQ(object->Execute(&host), 14u);
}

TEST(Cycle, ScannerAndInstructionCodesPassThroughUnchanged) {
    const std::pair<const char*, Qz::uint32_t> rows[] = {
        {"PROG D MAIN MOV ! R0 RET", 9},  // not pre-scanned without VAR
        {"PROG D MAIN MOV 16#G R0 RET", 34},
        {"PROG D MAIN MOV", 6},
        {"PROG D VAR O VO INT 0 MAIN MOV @NOPE R0 RET", 23},
        {"PROG D VAR O VO INT 0 MAIN MOV 1 2 RET", 43},
        {"PROG D VAR O VO INT 0 MAIN MOV POP R0 RET", 11},
        {"PROG D VAR O VO INT 0 MAIN JMP NOWHERE RET", 22},
        {"PROG D VAR O VO INT 0 MAIN EXEC NOSUCH RET", 13},
        {"PROG D VAR O VO INT 0 MAIN MOV 1 RET", 43},  // the destination is the final RET
    };
    for (const auto& row : rows) {
        auto object = Load(row.first);
        RecordingHost host;
        EXPECT_EQ(object->Execute(&host), row.second) << row.first;
        EXPECT_TRUE(host.Calls.empty()) << row.first;
    }
}

// ---- Failed cycles ----

TEST(Cycle, FailedCycleSendsNoOutputsAndUndoesNothing) {
    auto object = Load("PROG D VAR I VI INT 0 O VO INT 0 G VG INT 0 MAIN MOV 5 @O MOV 6 @G MOV POP R0 RET");
    RecordingHost host;
    EXPECT_EQ(object->Execute(&host), 11u);
    const std::vector<HostCall> expected = {In("I", 0)};
    EXPECT_EQ(host.Calls, expected);
    EXPECT_EQ(object->GetVar("O")->VarValue, 5.0);
    EXPECT_TRUE(object->GetVar("O")->Rewrited);
    EXPECT_EQ(object->GetVar("G")->VarValue, 6.0);
}

TEST(Cycle, MainRetWithCallsPendingReturns8) {
    // The first cycle's call fails in its declarations: its return position
    // stays on the call stack but no frame was pushed.
    auto object = Load("PROG D VAR I VI INT 0 O VO INT 0 MAIN TST R0 JMPT DONE MOV 1 R0 MOV 5 @O CAL S DONE: RET "
                       "S: X VI INT 0 BODY RET");
    RecordingHost host;
    EXPECT_EQ(object->Execute(&host), 30u);
    EXPECT_EQ(object->CallStack.size(), 1u);
    EXPECT_TRUE(object->TableStack.empty());
    host.Calls.clear();
    EXPECT_EQ(object->Execute(&host), 8u);
    const std::vector<HostCall> expected = {In("I", 0)};  // no outputs on a failed cycle
    EXPECT_EQ(host.Calls, expected);
    EXPECT_EQ(object->Execute(&host), 8u);  // and so on for every later cycle
}

TEST(Cycle, CallThatRunsIntoTheEndStillEndsTheCycleNormally) {
    // A subprogram without its own RET ends the cycle at the text's final
    // RET; its frame and return position stay, so MAIN's RET later gives 8.
    auto object = Load("PROG D VAR G VG INT 0 MAIN TST R0 JMPT DONE MOV 1 R0 CAL S DONE: RET S: BODY RET");
    RecordingHost host;
    EXPECT_EQ(object->Execute(&host), 0u);
    EXPECT_EQ(object->CallStack.size(), 1u);
    EXPECT_EQ(object->TableStack.size(), 1u);
    EXPECT_EQ(object->Execute(&host), 8u);
}

TEST(Cycle, OutputsAreLookedUpInAFrameLeftPushed) {
    auto object = Load("PROG D VAR I VI INT 0 O VO INT 0 MAIN CAL S RET S: BODY RET");
    RecordingHost host;
    EXPECT_EQ(object->Execute(&host), 23u);  // O is hidden by S's empty frame
    const std::vector<HostCall> expected = {In("I", 0)};
    EXPECT_EQ(host.Calls, expected);
    host.Calls.clear();
    EXPECT_EQ(object->Execute(&host), 23u);  // now the reset of I fails before any host call
    EXPECT_TRUE(host.Calls.empty());

    // A frame local of the output's name is what gets sent.
    object = Load("PROG D VAR O VO INT 0 MAIN CAL S RET S: O V DINT 42 BODY RET");
    host.Calls.clear();
    EXPECT_EQ(object->Execute(&host), 0u);
    const std::vector<HostCall> fromFrame = {Out("O", 42, 6, false)};
    EXPECT_EQ(host.Calls, fromFrame);
}

TEST(Cycle, FrameLeftByAFailedCallHidesTheProgramsVariables) {
    auto object = Load("PROG D VAR X V INT 0 MAIN CAL S RET S: BODY MOV POP R0 RET");
    RecordingHost host;
    EXPECT_EQ(object->Execute(&host), 11u);
    EXPECT_EQ(object->Execute(&host), 23u);
    EXPECT_TRUE(host.Calls.empty());
}

// ---- Host-contract assertions ----

// The assertion reporter prints "file:line: function: Assertion `expr' failed."
std::string ExactPattern(const std::string& text) {
    std::string pattern;
    for (char c : text) {
        if (std::string("\\^$.|?*+()[]{}").find(c) != std::string::npos) pattern += '\\';
        pattern += c;
    }
    return pattern;
}

const char* kInputAssertion =
    "qz_st_intrpr_main.h:203: Qz::uint32_t CQZ_STInterpretator::UpdateInEntries(qz_st_interpretator::"
    "IQZExecuteInterface*): Assertion `exec->GetValueFrom(CQZDirection::tdIN, Item.VarName, Value)' failed.";
const char* kOutputAssertion =
    "qz_st_intrpr_main.h:323: Qz::uint32_t CQZ_STInterpretator::UpdateOutEntries(qz_st_interpretator::"
    "IQZExecuteInterface*): Assertion `exec->SetValueTo(CQZDirection::tdOUT, Item.VarName, pVar->VarValue, "
    "Dimension, Rewrited)' failed.";

class RefusingHost : public RecordingHost {
public:
    bool RefuseInputs = false;
    bool RefuseOutputs = false;
    bool GetValueFrom(CQZDirection dir, const QString& name, double& value) override {
        RecordingHost::GetValueFrom(dir, name, value);
        return !RefuseInputs;
    }
    bool SetValueTo(CQZDirection dir, const QString& name, double value, int Dimension, bool Rewrited) override {
        RecordingHost::SetValueTo(dir, name, value, Dimension, Rewrited);
        return !RefuseOutputs;
    }
};

TEST(CycleDeathTest, HostRefusingAnInputStopsTheProcess) {
    auto object = Load("PROG D VAR I VI INT 0 O VO INT 0 MAIN RET");
    RefusingHost host;
    host.RefuseInputs = true;
    EXPECT_DEATH(object->Execute(&host), ExactPattern(kInputAssertion));
}

TEST(CycleDeathTest, HostRefusingAnOutputStopsTheProcess) {
    auto object = Load("PROG D VAR I VI INT 0 O VO INT 0 MAIN RET");
    RefusingHost host;
    host.RefuseOutputs = true;
    EXPECT_DEATH(object->Execute(&host), ExactPattern(kOutputAssertion));
}

TEST(CycleDeathTest, HostThatAcceptsEverythingDoesNotStopIt) {
    auto object = Load("PROG D VAR I VI INT 0 O VO INT 0 MAIN RET");
    RefusingHost host;
    EXPECT_EQ(object->Execute(&host), 0u);
    // Nothing to refuse: a program without inputs or outputs never asks.
    auto quiet = Load("PROG D VAR X V INT 0 MAIN RET");
    host.RefuseInputs = host.RefuseOutputs = true;
    EXPECT_EQ(quiet->Execute(&host), 0u);
}

}  // namespace
