// MOVA handles and '^name' operands: reading and writing through a variable
// that holds another variable's handle, and every way a handle stops being
// valid (which gives 23 and touches nothing).
#include "host_call_print.h"
#include "recording_host.h"
#include "test_machine.h"

#include <gtest/gtest.h>

#include <cmath>
#include <cstring>
#include <limits>
#include <memory>
#include <string>

namespace {

constexpr char kSINT = 0x21, kINT = 0x23, kDINT = 0x25, kLREAL = 0x28, kSTRING = 0x29;
constexpr char kR0 = char(0x82), kR1 = char(0x83);
constexpr char kV = 0x14, kVG = 0x18;

Var* Declare(TestMachine& m, const char* name, char type, double value, char kind = kVG) {
    return m.Vars.lookup(name, kind, type, value, 0, true);
}

std::unique_ptr<CQZ_STInterpretator> Load(const std::string& text) {
    auto object = std::make_unique<CQZ_STInterpretator>();
    EXPECT_EQ(object->InitInterpretator(text), 0u) << text;
    return object;
}

// Subprograms here end with a RET of their own; the text's final RET
// after it is never reached.

// ---- Valid references ----

TEST(References, WriteThroughNarrowsToTheReferenceVariablesType) {
    TestMachine m;
    Var* x = Declare(m, "X", kINT, 0);
    Var* p = Declare(m, "P", kSINT, 0);
    ASSERT_EQ(m.RunText("MOVA @X @P RET"), 0u);
    const double handle = p->VarValue;
    ASSERT_EQ(m.RunText("MOV 7 ^P RET"), 0u);
    EXPECT_EQ(x->VarValue, 7.0);
    ASSERT_EQ(m.RunText("MOV 300 ^P RET"), 0u);
    EXPECT_EQ(x->VarValue, 44.0);  // SINT's narrowing, not INT's
    EXPECT_EQ(std::memcmp(&p->VarValue, &handle, sizeof handle), 0);  // P itself is unchanged
}

TEST(References, ReadThroughNarrowsToTheReferenceVariablesType) {
    TestMachine m;
    Var* x = Declare(m, "X", kINT, 0);
    Declare(m, "P", kSINT, 0);
    ASSERT_EQ(m.RunText("MOVA @X @P RET"), 0u);
    ASSERT_EQ(m.RunText("MOV 5 @X RET"), 0u);
    ASSERT_EQ(m.RunText("MOV ^P R0 RET"), 0u);
    EXPECT_EQ(m.R0.Value, 5.0);
    EXPECT_EQ(m.R0.ValueType, kSINT);
    x->VarValue = 200;
    ASSERT_EQ(m.RunText("MOV ^p R1 RET"), 0u);
    EXPECT_EQ(m.R1.Value, -56.0);
    EXPECT_EQ(m.R1.ValueType, kSINT);
    EXPECT_EQ(x->VarValue, 200.0);  // reading does not write back
}

TEST(References, WritingThroughDoesNotFlagTheTargetAsRewritten) {
    TestMachine m;
    Var* o = Declare(m, "O", kINT, 0, 0x16);
    Declare(m, "P", kINT, 0);
    ASSERT_EQ(m.RunText("MOVA @O @P RET"), 0u);
    ASSERT_EQ(m.RunText("MOV 3 ^P RET"), 0u);
    EXPECT_EQ(o->VarValue, 3.0);
    EXPECT_FALSE(o->Rewrited);
}

TEST(References, HandleTravelsThroughRegistersStackAndLrealVariables) {
    TestMachine m;
    Var* x = Declare(m, "X", kDINT, 1);
    Declare(m, "Q", kLREAL, 0);
    ASSERT_EQ(m.RunText("MOVA @X R0 RET"), 0u);
    ASSERT_EQ(m.RunText("MOV R0 PUSH RET"), 0u);
    ASSERT_EQ(m.RunText("MOV POP R1 RET"), 0u);
    ASSERT_EQ(m.RunText("MOV R1 @Q RET"), 0u);  // LREAL keeps the 64 bits
    ASSERT_EQ(m.RunText("MOV 9 ^Q RET"), 0u);
    EXPECT_EQ(x->VarValue, 9.0);
}

TEST(References, NarrowingStoreDestroysTheHandle) {
    TestMachine m;
    Var* x = Declare(m, "X", kDINT, 1);
    Declare(m, "Q", kDINT, 0);
    ASSERT_EQ(m.RunText("MOVA @X R0 RET"), 0u);
    ASSERT_EQ(m.RunText("MOV R0 @Q RET"), 0u);  // DINT narrowing leaves 0
    EXPECT_EQ(m.RunText("MOV 9 ^Q RET"), 23u);
    EXPECT_EQ(x->VarValue, 1.0);
}

TEST(References, StringReferenceVariableGives10) {
    TestMachine m;
    Var* x = Declare(m, "X", kINT, 1);
    Declare(m, "P", kSTRING, 0);
    ASSERT_EQ(m.RunText("MOVA @X @P RET"), 0u);
    m.SetValueToRegister(kR0, kINT, 4);
    EXPECT_EQ(m.RunText("MOV 9 ^P RET"), 10u);
    EXPECT_EQ(m.RunText("MOV ^P R0 RET"), 10u);
    EXPECT_EQ(x->VarValue, 1.0);
    EXPECT_EQ(m.R0.Value, 4.0);
}

TEST(References, UnknownReferenceVariableGives23) {
    TestMachine m;
    EXPECT_EQ(m.RunText("MOV ^NOPE R0 RET"), 23u);
    EXPECT_EQ(m.RunText("MOV 1 ^NOPE RET"), 23u);
}

// ---- Anything that is not a live handle: 23, nothing touched ----

// Checks that P (holding `content`) cannot be used as a reference: reads and
// writes through it fail with 23 and change nothing.
void ExpectDeadReference(TestMachine& m, Var* x, double xValue) {
    m.SetValueToRegister(kR0, kINT, 4);
    m.StackPush(kINT, 6);
    EXPECT_EQ(m.RunText("MOV 9 ^P RET"), 23u);
    EXPECT_EQ(m.RunText("MOV ^P R0 RET"), 23u);
    EXPECT_EQ(m.RunText("MOV POP ^P RET"), 23u);  // the POP happens before the write fails
    EXPECT_EQ(x->VarValue, xValue);
    EXPECT_EQ(m.R0.Value, 4.0);
    EXPECT_TRUE(m.Stack.empty());
}

TEST(References, NumberMovedIntoTheReferenceVariable) {
    const double numbers[] = {0.0, 1.0, -1.0, 5.0, 2.5, 1e300, -1e-300,
                              std::numeric_limits<double>::infinity(), std::numeric_limits<double>::quiet_NaN()};
    for (double number : numbers) {
        SCOPED_TRACE(number);
        TestMachine m;
        Var* x = Declare(m, "X", kINT, 3);
        Var* p = Declare(m, "P", kLREAL, 0);
        ASSERT_EQ(m.RunText("MOVA @X @P RET"), 0u);
        p->VarValue = number;
        ExpectDeadReference(m, x, 3.0);
    }
}

// The smallest denormals are what a raw handle of the first slots would look
// like; handles are scrambled so that such numbers stay plain numbers.
TEST(References, TinyDenormalsAreNoHandles) {
    for (const char* literal : {"4.9E-324", "9.9E-324", "1.5E-323", "2.0E-323"}) {
        SCOPED_TRACE(literal);
        TestMachine m;
        Var* x = Declare(m, "X", kINT, 3);
        Declare(m, "P", kLREAL, 0);
        ASSERT_EQ(m.RunText("MOVA @X @P RET"), 0u);
        ASSERT_EQ(m.RunText(std::string("MOV ") + literal + " @P RET"), 0u);
        ExpectDeadReference(m, x, 3.0);
    }
}

TEST(References, NumberMovedByAProgram) {
    TestMachine m;
    Var* x = Declare(m, "X", kINT, 3);
    Declare(m, "P", kLREAL, 0);
    ASSERT_EQ(m.RunText("MOVA @X @P RET"), 0u);
    ASSERT_EQ(m.RunText("MOV 5 @P RET"), 0u);
    ExpectDeadReference(m, x, 3.0);
}

TEST(References, VariableThatNeverHeldAHandle) {
    TestMachine m;
    Var* x = Declare(m, "X", kINT, 3);
    Declare(m, "P", kINT, 0);
    ExpectDeadReference(m, x, 3.0);
}

TEST(References, VrVariablesDeclaredNumber) {
    for (const char* body : {"MOV ^P R0", "MOV 1 ^P", "MOVA @P R0"}) {
        auto object = Load(std::string("PROG D VAR X VG INT 3 MAIN CAL S RET S: P VR INT 5 BODY ") + body + " RET");
        object->SetValueToRegister(kR0, kINT, 4);
        RecordingHost host;
        EXPECT_EQ(object->Execute(&host), 23u) << body;
        EXPECT_EQ(object->R0.Value, 4.0) << body;
        EXPECT_EQ(object->GetVar("P")->VarValue, 5.0) << body;  // the frame is still on top
    }
}

TEST(References, LocalOfAReturnedSubprogram) {
    auto object = Load("PROG D VAR P VG LREAL 0 MAIN CAL S MOVA R1 @P MOV ^P R0 RET "
                       "S: L V INT 3 BODY MOVA @L R1 RET RET");
    object->SetValueToRegister(kR0, kINT, 4);
    RecordingHost host;
    EXPECT_EQ(object->Execute(&host), 23u);
    EXPECT_EQ(object->R0.Value, 4.0);
    EXPECT_TRUE(object->TableStack.empty());

    object = Load("PROG D VAR P VG LREAL 0 MAIN CAL S MOVA R1 @P MOV 9 ^P RET S: L V INT 3 BODY MOVA @L R1 RET RET");
    EXPECT_EQ(object->Execute(&host), 23u);
}

TEST(References, LocalOfAnEarlierCallIsNotTheSameCallsLocalNow) {
    // T's frame reuses the records that S's frame released; the old handle
    // must not reach them.
    auto object = Load("PROG D VAR G VG INT 0 MAIN CAL S MOV R1 R0 CAL T RET "
                       "S: L V INT 3 BODY MOVA @L R1 RET "
                       "T: M V INT 4 Q V LREAL 0 BODY MOVA R0 @Q MOV 9 ^Q RET");
    RecordingHost host;
    EXPECT_EQ(object->Execute(&host), 23u);
    ASSERT_EQ(object->TableStack.size(), 1u);  // T failed: its frame is on top
    EXPECT_EQ(object->GetVar("M")->VarValue, 4.0);

    // A second run of the same subprogram gets fresh locals too.
    object = Load("PROG D VAR G VG INT 0 MAIN CAL S MOV R1 PUSH CAL U RET "
                  "S: L V INT 3 BODY MOVA @L R1 RET "
                  "U: L V INT 3 Q V LREAL 0 BODY MOV POP @Q MOV 9 ^Q RET");
    EXPECT_EQ(object->Execute(&host), 23u);
    EXPECT_EQ(object->GetVar("L")->VarValue, 3.0);
}

TEST(References, LocalIsReachableWhileItsCallRuns) {
    auto object = Load("PROG D VAR O VO INT 0 MAIN CAL S MOV R0 @O RET "
                       "S: L V INT 3 Q V LREAL 0 BODY MOVA @L @Q MOV 8 ^Q MOV @L R0 RET RET");
    RecordingHost host;
    ASSERT_EQ(object->Execute(&host), 0u);
    ASSERT_EQ(host.Calls.size(), 1u);
    EXPECT_EQ(host.Calls[0], Out("O", 8, 4, true));
}

TEST(References, VrLocalPassesACallersVariableByReference) {
    auto object = Load("PROG D VAR X VG LREAL 2.75 O VO LREAL 0 MAIN MOVA @X R0 CAL S MOV @X @O RET "
                       "S: P VR INT 0 BODY MOVA R0 @P MOVA @P A0 MOV ^P PUSH MOV 7 ^P RET RET");
    RecordingHost host;
    ASSERT_EQ(object->Execute(&host), 0u);
    // MOVA @P narrowed X to P's type in place before the handle moved on.
    ASSERT_EQ(object->Stack.size(), 1u);
    EXPECT_EQ(object->Stack.back().Value, 2.0);
    EXPECT_EQ(object->Stack.back().ValueType, kINT);
    EXPECT_EQ(object->A0.ValueType, kINT);
    EXPECT_EQ(std::memcmp(&object->A0.Value, &object->R0.Value, sizeof(double)), 0);
    EXPECT_EQ(host.Calls[0], Out("O", 7, 11, true));
}

TEST(References, GlobalStaysReachableAfterACall) {
    auto object = Load("PROG D VAR X VG INT 1 P VG LREAL 0 MAIN MOVA @X R0 CAL S MOVA R0 @P MOV 6 ^P RET "
                       "S: L V INT 0 BODY RET RET");
    RecordingHost host;
    ASSERT_EQ(object->Execute(&host), 0u);
    EXPECT_EQ(object->GetVar("X")->VarValue, 6.0);
}

TEST(References, ResetOfAVVariableDropsItsHandle) {
    auto object = Load("PROG D VAR X VG INT 1 P V LREAL 0 MAIN TST R1 JMPT USE MOVA @X @P MOV 1 R1 MOV 2 ^P RET "
                       "USE: MOV 3 ^P RET");
    RecordingHost host;
    ASSERT_EQ(object->Execute(&host), 0u);
    EXPECT_EQ(object->GetVar("X")->VarValue, 2.0);
    EXPECT_EQ(object->Execute(&host), 23u);  // P is back at its declared 0
    EXPECT_EQ(object->GetVar("X")->VarValue, 2.0);
}

TEST(References, HandlesKeptAcrossAReloadAreDead) {
    const std::string text = "PROG D VAR X VG INT 5 P VG LREAL 0 MAIN MOVA @X R0 MOV R0 PUSH MOVA @X R1 RET";
    auto object = Load(text);
    RecordingHost host;
    ASSERT_EQ(object->Execute(&host), 0u);
    // The new X takes the slot the old one had; the old handle still fails.
    ASSERT_EQ(object->InitInterpretator("PROG D VAR X VG INT 5 P VG LREAL 0 Y VG LREAL 0 MAIN "
                                        "MOVA @X @Y MOVA R0 @P MOV ^P A0 RET"),
              0u);
    object->SetValueToRegister(char(0x81), kINT, 4);
    EXPECT_EQ(object->Execute(&host), 23u);
    EXPECT_EQ(object->A0.Value, 4.0);

    ASSERT_EQ(object->InitInterpretator("PROG D VAR X VG INT 5 P VG LREAL 0 MAIN MOV POP A0 MOVA A0 @P "
                                        "MOV 1 ^P RET"),
              0u);
    EXPECT_EQ(object->Execute(&host), 23u);
    EXPECT_EQ(object->GetVar("X")->VarValue, 5.0);
    EXPECT_TRUE(object->Stack.empty());

    ASSERT_EQ(object->InitInterpretator(text), 0u);  // the same text again
    ASSERT_EQ(object->InitInterpretator("PROG D VAR X VG INT 5 P VG LREAL 0 MAIN MOVA R1 @P MOV 1 ^P RET"), 0u);
    EXPECT_EQ(object->Execute(&host), 23u);
    EXPECT_EQ(object->GetVar("X")->VarValue, 5.0);
}

TEST(References, NewHandleAfterAReloadWorks) {
    auto object = Load("PROG D VAR X VG INT 5 MAIN MOVA @X R0 RET");
    RecordingHost host;
    ASSERT_EQ(object->Execute(&host), 0u);
    ASSERT_EQ(object->InitInterpretator("PROG D VAR X VG INT 5 P VG LREAL 0 MAIN MOVA @X @P MOV 8 ^P RET"), 0u);
    ASSERT_EQ(object->Execute(&host), 0u);
    EXPECT_EQ(object->GetVar("X")->VarValue, 8.0);
}

}  // namespace
