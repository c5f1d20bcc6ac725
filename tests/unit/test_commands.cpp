// DoCommand: dispatch, MOV destinations, MOVA, jumps, TST, NOT, BNOT, NG
// and EXEC's hand-over of the name.
#include "test_machine.h"

#include <gtest/gtest.h>

#include <cmath>
#include <cstring>
#include <limits>
#include <sstream>
#include <string>

namespace {

constexpr char kBOOL = 0x20, kSINT = 0x21, kUSINT = 0x22, kINT = 0x23, kUINT = 0x24, kDINT = 0x25, kUDINT = 0x26,
               kREAL = 0x27, kLREAL = 0x28, kSTRING = 0x29;
constexpr char kA0 = char(0x81), kR0 = char(0x82), kR1 = char(0x83);
constexpr char kV = 0x14, kVO = 0x16, kVR = 0x1c;
constexpr uint8_t kEnd = 0x53;

const double kNaN = std::numeric_limits<double>::quiet_NaN();
const char kAllTypes[] = {kBOOL, kSINT, kUSINT, kINT, kUINT, kDINT, kUDINT, kREAL, kLREAL};

::testing::AssertionResult Same(double actual, double expected) {
    if (std::isnan(expected) && std::isnan(actual)) return ::testing::AssertionSuccess();
    if (actual == expected && std::signbit(actual) == std::signbit(expected)) return ::testing::AssertionSuccess();
    std::ostringstream os;
    os.precision(17);
    os << "got " << actual << ", expected " << expected;
    return ::testing::AssertionFailure() << os.str();
}

Var* Declare(TestMachine& m, const char* name, char type, double value, char kind = kV) {
    return m.Vars.lookup(name, kind, type, value, 0, true);
}

// Registers every label of `text` (as the loader's pre-scan does) and puts
// the scanner back on its first character.
void Prepare(TestMachine& m, const std::string& text) {
    m.SetProgram(text);
    while (m.Scan(m.TokenText) == 0 && m.TokenCode != kEnd) {
    }
    m.Seek(0);
    m.TokenCode = 0;
}

// Runs `text` from its start to its first RET (or final RET).
Qz::uint32_t RunAll(TestMachine& m, const std::string& text) {
    Prepare(m, text);
    bool end;
    return m.RunBody(false, end);
}

// ---- Dispatch ----

TEST(Dispatch, CodesOutsideTheInstructionsGive24) {
    TestMachine m;
    m.SetProgram("R0 RET");
    for (int code : {0x00, 0x02, 0x03, 0x04, 0x10, 0x12, 0x14, 0x20, 0x30, 0x53, 0x81, 0x91, 0xa1, 0xff}) {
        m.TokenCode = uint8_t(code);
        EXPECT_EQ(m.DoCommand(), 24u) << code;
    }
}

TEST(Dispatch, RetGives25) {
    TestMachine m;
    m.SetProgram("R0 RET");
    m.TokenCode = 0x52;
    EXPECT_EQ(m.DoCommand(), 25u);
}

TEST(Dispatch, EachInstructionReachesItsHandler) {
    // A bad first operand makes each handler answer with its own code.
    const std::pair<const char*, Qz::uint32_t> rows[] = {
        {"CAL NOWHERE RET", 22}, {"EXEC NOWHERE RET", 13}, {"JMP 1 RET", 60},    {"JMPF 1 RET", 60},
        {"JMPT 1 RET", 60},      {"MOV FOO R0 RET", 43},   {"MOVA FOO R0 RET", 43}, {"ADD FOO R0 RET", 44},
        {"SUB FOO R0 RET", 44},  {"MUL FOO R0 RET", 44},   {"DIV FOO R0 RET", 44}, {"MOD FOO R0 RET", 44},
        {"NE FOO R0 RET", 46},   {"EQ FOO R0 RET", 46},    {"GT FOO R0 RET", 46},  {"GE FOO R0 RET", 46},
        {"LT FOO R0 RET", 46},   {"LE FOO R0 RET", 46},    {"TST FOO RET", 59},    {"OR FOO R0 RET", 47},
        {"XOR FOO R0 RET", 47},  {"AND FOO R0 RET", 47},   {"NOT FOO RET", 61},    {"BOR FOO R0 RET", 49},
        {"BXOR FOO R0 RET", 49}, {"BAND FOO R0 RET", 49},  {"BNOT FOO RET", 53},   {"NG FOO RET", 61},
        {"SHL FOO R0 RET", 54},  {"SHR FOO R0 RET", 54},   {"ROL FOO R0 RET", 54}, {"ROR FOO R0 RET", 54},
        {"POW FOO R0 RET", 62},
    };
    for (const auto& row : rows) {
        TestMachine m;
        EXPECT_EQ(m.RunText(row.first), row.second) << row.first;
    }
}

// ---- MOV destinations ----

TEST(Mov, IntoAVariableNarrowsToItsTypeWhateverTheSourceType) {
    TestMachine m;
    Var* b = Declare(m, "B", kUSINT, 0);
    ASSERT_EQ(m.RunText("MOV 300 @B RET"), 0u);
    EXPECT_EQ(b->VarValue, 44.0);
    ASSERT_EQ(m.RunText("MOV @B R0 RET"), 0u);
    EXPECT_EQ(m.R0.Value, 44.0);
    EXPECT_EQ(m.R0.ValueType, kUSINT);
}

TEST(Mov, IntoEveryVariableType) {
    const struct {
        char Type;
        double Source, Stored;
    } rows[] = {{kBOOL, -3, 1},       {kSINT, 200, -56},     {kUSINT, -1, 255},  {kINT, 40000, -25536},
                {kUINT, -2, 65534},   {kDINT, 3e9, -1294967296}, {kUDINT, -3, 4294967293.0},
                {kREAL, 1e39, 3.402823466e38}, {kLREAL, 1e39, 1e39}};
    for (const auto& row : rows) {
        TestMachine m;
        Var* v = Declare(m, "V", row.Type, 0);
        m.SetValueToRegister(kR0, kSTRING, row.Source);  // the source's type plays no part
        ASSERT_EQ(m.RunText("MOV R0 @V RET"), 0u);
        EXPECT_EQ(v->VarValue, row.Stored) << int(row.Type);
        EXPECT_EQ(v->VarType, row.Type);
    }
}

TEST(Mov, IntoAnOutputSetsRewritedOtherKindsDoNot) {
    TestMachine m;
    Var* o = Declare(m, "O", kINT, 0, kVO);
    Var* v = Declare(m, "V", kINT, 0, kV);
    ASSERT_FALSE(o->Rewrited);
    ASSERT_EQ(m.RunText("MOV 1 @O RET"), 0u);
    EXPECT_TRUE(o->Rewrited);
    ASSERT_EQ(m.RunText("MOV 1 @V RET"), 0u);
    EXPECT_FALSE(v->Rewrited);
}

TEST(Mov, RewritedIsSetEvenWhenTheConversionFails) {
    TestMachine m;
    Var* o = Declare(m, "O", kSTRING, 7, kVO);
    EXPECT_EQ(m.RunText("MOV 1 @O RET"), 10u);
    EXPECT_TRUE(o->Rewrited);
    EXPECT_EQ(o->VarValue, 7.0);
}

TEST(Mov, IntoAMissingVariableGives23) {
    TestMachine m;
    EXPECT_EQ(m.RunText("MOV 1 @NOPE RET"), 23u);
}

TEST(Mov, IntoARegisterKeepsTheSourceTypeAndValue) {
    TestMachine m;
    ASSERT_EQ(m.RunText("MOV 1.5 R0 RET"), 0u);
    EXPECT_EQ(m.R0.Value, 1.5);
    EXPECT_EQ(m.R0.ValueType, kREAL);
    Declare(m, "X", kSINT, 200);
    ASSERT_EQ(m.RunText("MOV @X A0 RET"), 0u);
    EXPECT_EQ(m.A0.Value, -56.0);
    EXPECT_EQ(m.A0.ValueType, kSINT);
    ASSERT_EQ(m.RunText("MOV 300 R1 RET"), 0u);  // registers are never narrowed
    EXPECT_EQ(m.R1.Value, 300.0);
    EXPECT_EQ(m.R1.ValueType, kINT);
}

TEST(Mov, IntoNilDiscards) {
    TestMachine m;
    m.SetValueToRegister(kR0, kINT, 3);
    ASSERT_EQ(m.RunText("MOV R0 NIL RET"), 0u);
    EXPECT_EQ(m.A0.Value, 0.0);
    EXPECT_EQ(m.R0.Value, 3.0);
    EXPECT_EQ(m.R1.Value, 0.0);
    EXPECT_TRUE(m.Stack.empty());
    EXPECT_EQ(m.RunText("MOV NIL R0 RET"), 27u);
}

TEST(Mov, PushThenPop) {
    TestMachine m;
    ASSERT_EQ(m.RunText("MOV 5 PUSH RET"), 0u);
    ASSERT_EQ(m.Stack.size(), 1u);
    EXPECT_EQ(m.Stack.back().ValueType, kSINT);
    ASSERT_EQ(m.RunText("MOV POP R1 RET"), 0u);
    EXPECT_EQ(m.R1.Value, 5.0);
    EXPECT_EQ(m.R1.ValueType, kSINT);
    EXPECT_EQ(m.RunText("MOV POP R1 RET"), 11u);
    EXPECT_EQ(m.R1.Value, 5.0);
}

TEST(Mov, VariablePushedKeepsItsTypeNarrowed) {
    TestMachine m;
    Declare(m, "U", kUINT, -1);
    ASSERT_EQ(m.RunText("MOV @U PUSH RET"), 0u);
    EXPECT_EQ(m.Stack.back().Value, 65535.0);
    EXPECT_EQ(m.Stack.back().ValueType, kUINT);
}

TEST(Mov, TickPresetNarrowsToUdint) {
    const std::pair<const char*, double> rows[] = {
        {"MOV 100 TICK RET", 100}, {"MOV -1 TICK RET", 4294967295.0}, {"MOV 2.9 TICK RET", 2},
        {"MOV 1.0E10 TICK RET", 1410065408}};
    for (const auto& row : rows) {
        TestMachine m;
        ASSERT_EQ(m.RunText(row.first), 0u) << row.first;
        EXPECT_EQ(m.TickValue, row.second) << row.first;
        EXPECT_NE(m.TickLast, 0u);  // the counter runs from the preset on
    }
}

TEST(Mov, TickPresetThenReadCountsOnFromThePreset) {
    TestMachine m;
    ASSERT_EQ(m.RunText("MOV 100 TICK RET"), 0u);
    ASSERT_EQ(m.RunText("MOV TICK R0 RET"), 0u);
    EXPECT_GE(m.R0.Value, 100.0);
    EXPECT_LT(m.R0.Value, 100.0 + 60000.0);
    EXPECT_EQ(m.R0.ValueType, kUDINT);
}

TEST(Mov, OtherDestinationsGive43) {
    for (const char* text : {"MOV 1 2 RET", "MOV 1 POP RET", "MOV 1 FOO RET", "MOV 1 L: RET", "MOV 1 BOOL RET",
                             "MOV 1 MOV RET", "MOV 1 RET"}) {
        TestMachine m;
        EXPECT_EQ(m.RunText(text), 43u) << text;
        EXPECT_TRUE(m.Stack.empty());
    }
}

TEST(Mov, TickIsASourceOnlyForMov) {
    TestMachine m;
    EXPECT_EQ(m.RunText("MOVA TICK R0 RET"), 43u);
    EXPECT_EQ(m.RunText("ADD TICK R0 RET"), 44u);
    EXPECT_EQ(m.TickLast, 0u);  // refused before the clock was read
}

// ---- MOVA ----

TEST(Mova, NarrowsTheVariableInPlaceAndMovesItsHandle) {
    TestMachine m;
    Var* x = Declare(m, "X", kINT, 1.5);
    ASSERT_EQ(m.RunText("MOVA @X R0 RET"), 0u);
    EXPECT_EQ(x->VarValue, 1.0);
    EXPECT_EQ(m.R0.ValueType, kINT);
    EXPECT_EQ(m.References.Resolve(m.R0.Value), &x->VarValue);
}

TEST(Mova, SameVariableGivesTheSameHandle) {
    TestMachine m;
    Declare(m, "X", kINT, 1);
    ASSERT_EQ(m.RunText("MOVA @X R0 RET"), 0u);
    ASSERT_EQ(m.RunText("MOVA @X R1 RET"), 0u);
    EXPECT_EQ(std::memcmp(&m.R0.Value, &m.R1.Value, sizeof(double)), 0);
}

TEST(Mova, IntoAVariableStoresTheBitsAsTheyAre) {
    TestMachine m;
    Declare(m, "X", kREAL, 2.5);
    Var* p = Declare(m, "P", kSINT, 0, kVO);
    ASSERT_EQ(m.RunText("MOVA @X @P RET"), 0u);
    EXPECT_EQ(p->VarType, kSINT);
    EXPECT_FALSE(p->Rewrited);  // MOVA never sets it
    ASSERT_EQ(m.RunText("MOVA @X R0 RET"), 0u);
    EXPECT_EQ(std::memcmp(&p->VarValue, &m.R0.Value, sizeof(double)), 0);
}

TEST(Mova, RegisterSourceMovesValueAndTypeAsTheyAre) {
    TestMachine m;
    m.SetValueToRegister(kR1, kSTRING, 300.5);
    Var* y = Declare(m, "Y", kSINT, 0);
    ASSERT_EQ(m.RunText("MOVA R1 @Y RET"), 0u);
    EXPECT_EQ(y->VarValue, 300.5);  // not narrowed
    ASSERT_EQ(m.RunText("MOVA R1 A0 RET"), 0u);
    EXPECT_EQ(m.A0.Value, 300.5);
    EXPECT_EQ(m.A0.ValueType, kSTRING);
    ASSERT_EQ(m.RunText("MOVA R1 NIL RET"), 0u);
    EXPECT_EQ(m.RunText("MOVA NIL R0 RET"), 27u);
}

TEST(Mova, RefusedSourcesAndDestinations) {
    const std::pair<const char*, Qz::uint32_t> rows[] = {
        {"MOVA ^X R0 RET", 43},  {"MOVA POP R0 RET", 43},  {"MOVA 5 R0 RET", 43},    {"MOVA FOO R0 RET", 43},
        {"MOVA PUSH R0 RET", 43}, {"MOVA @X PUSH RET", 43}, {"MOVA @X POP RET", 43},  {"MOVA @X 5 RET", 43},
        {"MOVA @X ^X RET", 43},  {"MOVA @X FOO RET", 43},  {"MOVA @X TICK RET", 43}, {"MOVA @NOPE R0 RET", 23},
        {"MOVA @X @NOPE RET", 23}, {"MOVA @S R0 RET", 10},
    };
    for (const auto& row : rows) {
        TestMachine m;
        Declare(m, "X", kINT, 2.5);
        Declare(m, "S", kSTRING, 1);
        m.StackPush(kINT, 1);
        m.SetValueToRegister(kR0, kINT, 9);
        EXPECT_EQ(m.RunText(row.first), row.second) << row.first;
        EXPECT_EQ(m.R0.Value, 9.0) << row.first;
        EXPECT_EQ(m.Stack.size(), 1u) << row.first;
    }
}

TEST(Mova, NarrowingStaysDoneWhenTheDestinationFails) {
    TestMachine m;
    Var* x = Declare(m, "X", kINT, 2.5);
    EXPECT_EQ(m.RunText("MOVA @X FOO RET"), 43u);
    EXPECT_EQ(x->VarValue, 2.0);
}

TEST(Mova, VrVariableHoldingAHandleNarrowsItsTargetAndPassesTheHandleOn) {
    TestMachine m;
    Var* x = Declare(m, "X", kLREAL, 2.75);
    Var* r = Declare(m, "R", kINT, 0, kVR);
    ASSERT_EQ(m.RunText("MOVA @X R0 RET"), 0u);
    ASSERT_EQ(m.RunText("MOVA R0 @R RET"), 0u);
    ASSERT_EQ(m.RunText("MOVA @R R1 RET"), 0u);
    EXPECT_EQ(x->VarValue, 2.0);  // narrowed by R's type, in X's storage
    EXPECT_EQ(m.R1.ValueType, kINT);
    EXPECT_EQ(std::memcmp(&m.R1.Value, &r->VarValue, sizeof(double)), 0);
    EXPECT_EQ(m.References.Resolve(m.R1.Value), &x->VarValue);
}

TEST(Mova, VrVariableHoldingItsDeclaredNumberGives23) {
    TestMachine m;
    Var* r = Declare(m, "R", kINT, 5, kVR);
    m.SetValueToRegister(kR0, kINT, 9);
    EXPECT_EQ(m.RunText("MOVA @R R0 RET"), 23u);
    EXPECT_EQ(r->VarValue, 5.0);
    EXPECT_EQ(m.R0.Value, 9.0);
}

// ---- Jumps ----

TEST(Jump, JmpAlwaysJumps) {
    for (char flag : {0, 1}) {
        TestMachine m;
        m.TestFlag = flag;
        ASSERT_EQ(RunAll(m, "JMP L MOV 1 R0 L: MOV 2 R1 RET"), 0u);
        EXPECT_EQ(m.R0.Value, 0.0);
        EXPECT_EQ(m.R1.Value, 2.0);
    }
}

TEST(Jump, ConditionalJumpsFollowTheFlag) {
    const struct {
        const char* Jump;
        char Flag;
        bool Taken;
    } rows[] = {{"JMPF", 0, true}, {"JMPF", 1, false}, {"JMPT", 1, true}, {"JMPT", 0, false}};
    for (const auto& row : rows) {
        TestMachine m;
        m.TestFlag = row.Flag;
        ASSERT_EQ(RunAll(m, std::string(row.Jump) + " L MOV 1 R0 L: MOV 2 R1 RET"), 0u);
        EXPECT_EQ(m.R0.Value, row.Taken ? 0.0 : 1.0) << row.Jump << int(row.Flag);
        EXPECT_EQ(m.R1.Value, 2.0);
        EXPECT_EQ(m.TestFlag, row.Flag);  // jumps only read it
    }
}

TEST(Jump, TstThenJmpf) {
    TestMachine m;
    m.SetValueToRegister(kR0, kINT, 0);
    ASSERT_EQ(RunAll(m, "TST R0 JMPF L MOV 1 A0 L: RET"), 0u);
    EXPECT_EQ(m.A0.Value, 0.0);  // jumped
    m.SetValueToRegister(kR0, kINT, 2);
    ASSERT_EQ(RunAll(m, "TST R0 JMPF L MOV 1 A0 L: RET"), 0u);
    EXPECT_EQ(m.A0.Value, 1.0);  // went on after the operand
}

TEST(Jump, BackwardJumpLoops) {
    TestMachine m;
    Declare(m, "N", kINT, 0);
    ASSERT_EQ(RunAll(m, "L: ADD 1 R0 MOV R0 @N LT 5 R0 MOV R0 R1 MOV @N R0 TST R1 JMPF L RET"), 0u);
    // LT leaves 1 in R0 once 5 < R0, which ends the loop.
    EXPECT_EQ(m.Vars.lookup("N", 0, 0, 0, 0, false)->VarValue, 6.0);
}

TEST(Jump, NotTakenJumpDoesNotLookTheLabelUp) {
    TestMachine m;
    m.TestFlag = 1;
    EXPECT_EQ(RunAll(m, "JMPF NOWHERE MOV 1 R0 RET"), 0u);
    EXPECT_EQ(m.R0.Value, 1.0);
}

TEST(Jump, UnknownLabelGives22) {
    TestMachine m;
    EXPECT_EQ(RunAll(m, "JMP NOWHERE RET"), 22u);
    EXPECT_EQ(RunAll(m, "JMP loop LOOP: RET"), 22u);  // labels are case-sensitive
}

TEST(Jump, OperandThatIsNoPlainNameGives60) {
    for (const char* operand : {"5", "@L", "^L", "L:", "MAIN", "R0", "#JMP", "-1.5", "RET"}) {
        for (const char* jump : {"JMP", "JMPF", "JMPT"}) {
            TestMachine m;
            m.TestFlag = 1;
            const std::string text = std::string(jump) + " " + operand + (std::string(operand) == "RET" ? "" : " RET");
            EXPECT_EQ(m.RunText(text), 60u) << text;
        }
    }
}

TEST(Jump, TargetThatIsNoLabelTokenGives21) {
    TestMachine m;
    const std::string text = "JMP L MOV 1 R0 RET";
    m.SetProgram(text);
    m.Labels.lookup("L", int(text.find("MOV")), int(text.find("MOV")) + 2, true);
    EXPECT_EQ(m.Run(), 21u);
}

TEST(Jump, TargetAtOrPastTheEndGives6) {
    for (int offset : {0, 5}) {
        TestMachine m;
        const std::string text = "JMP L RET";
        m.SetProgram(text);
        m.Labels.lookup("L", int(text.size()) + offset, int(text.size()) + offset, true);
        EXPECT_EQ(m.Run(), 6u);
        EXPECT_EQ(m.CurChar, 0);
    }
}

TEST(Jump, TargetLabelThatEndsTheTextGives6) {
    TestMachine m;
    const std::string text = "JMP L L:";
    m.SetProgram(text);
    m.Labels.lookup("L", int(text.size()) - 2, int(text.size()) - 1, true);
    EXPECT_EQ(m.Run(), 6u);  // the label token runs into the end of the text
}

TEST(Jump, ScannerFailureInTheOperandPassesThrough) {
    TestMachine m;
    EXPECT_EQ(m.RunText("JMP ! RET"), 9u);
    EXPECT_EQ(m.RunText("JMP"), 6u);
    EXPECT_EQ(m.RunText("JMP L"), 6u);
}

TEST(Jump, LeavesRegistersStackAndFramesAlone) {
    TestMachine m;
    m.SetValueToRegister(kR0, kINT, 4);
    m.StackPush(kINT, 1);
    ASSERT_EQ(RunAll(m, "JMP L L: RET"), 0u);
    EXPECT_EQ(m.R0.Value, 4.0);
    EXPECT_EQ(m.Stack.size(), 1u);
}

// ---- TST ----

TEST(Tst, FlagIsWhetherTheValueIsNonZeroWhateverTheType) {
    const double values[] = {0.0, -0.0, 1.0, -1.0, 0.5, kNaN, 1e-320, 1e300};
    const char expected[] = {0, 0, 1, 1, 1, 1, 1, 1};
    for (char type : {kBOOL, kSINT, kUSINT, kINT, kUINT, kDINT, kUDINT, kREAL, kLREAL, char(0), kSTRING}) {
        for (size_t i = 0; i < sizeof values / sizeof *values; ++i) {
            for (const char* reg : {"A0", "R0", "R1"}) {
                TestMachine m;
                m.TestFlag = 1 - expected[i];
                m.SetValueToRegister(char(0x81 + (reg[0] == 'A' ? 0 : reg[1] == '0' ? 1 : 2)), type, values[i]);
                ASSERT_EQ(m.RunText(std::string("TST ") + reg + " RET"), 0u);
                EXPECT_EQ(m.TestFlag, expected[i]) << int(type) << " " << values[i] << " " << reg;
            }
        }
    }
}

TEST(Tst, RefusedOperands) {
    const std::pair<const char*, Qz::uint32_t> rows[] = {{"TST 5 RET", 59},   {"TST @X RET", 59}, {"TST FOO RET", 59},
                                                         {"TST PUSH RET", 59}, {"TST POP RET", 59}, {"TST NIL RET", 27},
                                                         {"TST RET", 59}};
    for (const auto& row : rows) {
        for (char flag : {0, 1}) {
            TestMachine m;
            Declare(m, "X", kINT, 1);
            m.TestFlag = flag;
            EXPECT_EQ(m.RunText(row.first), row.second) << row.first;
            EXPECT_EQ(m.TestFlag, flag) << row.first;
        }
    }
}

TEST(Tst, ComparisonsDoNotTouchTheFlag) {
    TestMachine m;
    m.SetValueToRegister(kR0, kINT, 1);
    m.TestFlag = 0;
    ASSERT_EQ(m.RunText("EQ 1 R0 RET"), 0u);
    EXPECT_EQ(m.TestFlag, 0);
}

// ---- NOT ----

TEST(Not, InvertsABool) {
    const std::pair<double, double> rows[] = {{0, 1}, {-0.0, 1}, {1, 0}, {5, 0}, {kNaN, 0}, {-1, 0}};
    for (const auto& row : rows) {
        TestMachine m;
        m.SetValueToRegister(kR1, kBOOL, row.first);
        ASSERT_EQ(m.RunText("NOT R1 RET"), 0u);
        EXPECT_TRUE(Same(m.R1.Value, row.second)) << row.first;
        EXPECT_EQ(m.R1.ValueType, kBOOL);
    }
}

TEST(Not, OtherTypesGive48AndLeaveTheRegister) {
    for (char type : {kSINT, kUSINT, kINT, kUINT, kDINT, kUDINT, kREAL, kLREAL, char(0), kSTRING}) {
        TestMachine m;
        m.SetValueToRegister(kA0, type, 0);
        EXPECT_EQ(m.RunText("NOT A0 RET"), 48u) << int(type);
        EXPECT_EQ(m.A0.Value, 0.0);
        EXPECT_EQ(m.A0.ValueType, type);
    }
}

TEST(Not, RefusedOperands) {
    TestMachine m;
    Declare(m, "B", kBOOL, 0);
    EXPECT_EQ(m.RunText("NOT 1 RET"), 61u);
    EXPECT_EQ(m.RunText("NOT @B RET"), 61u);
    EXPECT_EQ(m.RunText("NOT POP RET"), 61u);
    EXPECT_EQ(m.RunText("NOT NIL RET"), 27u);
}

// ---- BNOT ----

struct BnotCase {
    char Type;
    double Value, Expected;
};

void PrintTo(const BnotCase& c, std::ostream* os) {
    os->precision(17);
    *os << "BNOT type 0x" << std::hex << int(c.Type) << std::dec << " of " << c.Value << " -> " << c.Expected;
}

class BnotTest : public ::testing::TestWithParam<BnotCase> {};

TEST_P(BnotTest, ComplementsAndKeepsTheType) {
    TestMachine m;
    m.SetValueToRegister(kR0, GetParam().Type, GetParam().Value);
    ASSERT_EQ(m.RunText("BNOT R0 RET"), 0u);
    EXPECT_TRUE(Same(m.R0.Value, GetParam().Expected));
    EXPECT_EQ(m.R0.ValueType, GetParam().Type);
}

INSTANTIATE_TEST_SUITE_P(
    Types, BnotTest,
    ::testing::Values(BnotCase{kSINT, 5, -6}, BnotCase{kSINT, 127, -128}, BnotCase{kSINT, -128, 127},
                      BnotCase{kSINT, 200, 55}, BnotCase{kSINT, 2.9, -3}, BnotCase{kSINT, kNaN, -1},
                      BnotCase{kUSINT, 5, -6}, BnotCase{kUSINT, 0, -1}, BnotCase{kUSINT, 255, -256},
                      BnotCase{kUSINT, 256, -1}, BnotCase{kINT, 5, -6}, BnotCase{kINT, 32767, -32768},
                      BnotCase{kINT, 70000, -4465}, BnotCase{kUINT, 0, -1}, BnotCase{kUINT, 65535, -65536},
                      BnotCase{kUINT, 65536, -1}, BnotCase{kDINT, 0, -1}, BnotCase{kDINT, 2147483647, -2147483648.0},
                      BnotCase{kDINT, -1, 0}, BnotCase{kDINT, 4294967296.0, -1}, BnotCase{kDINT, 1e300, -1},
                      BnotCase{kUDINT, 0, 4294967295.0}, BnotCase{kUDINT, 5, 4294967290.0},
                      BnotCase{kUDINT, 4294967295.0, 0}, BnotCase{kUDINT, -1, 0}, BnotCase{kUDINT, kNaN, 4294967295.0}));

TEST(Bnot, NonIntegerTypesGive53AndLeaveTheRegister) {
    for (char type : {kBOOL, kREAL, kLREAL, char(0), kSTRING, char(0x2a)}) {
        TestMachine m;
        m.SetValueToRegister(kR1, type, 3);
        EXPECT_EQ(m.RunText("BNOT R1 RET"), 53u) << int(type);
        EXPECT_EQ(m.R1.Value, 3.0);
    }
}

TEST(Bnot, RefusedOperands) {
    TestMachine m;
    Declare(m, "X", kINT, 0);
    EXPECT_EQ(m.RunText("BNOT 1 RET"), 53u);
    EXPECT_EQ(m.RunText("BNOT @X RET"), 53u);
    EXPECT_EQ(m.RunText("BNOT NIL RET"), 27u);
}

// ---- NG ----

TEST(Ng, NegatesEveryTypeWithoutNarrowing) {
    const std::pair<double, double> rows[] = {{0.0, -0.0}, {-0.0, 0.0}, {5, -5}, {-300, 300}, {kNaN, kNaN},
                                              {1e300, -1e300}};
    for (char type : {kBOOL, kSINT, kUSINT, kINT, kUINT, kDINT, kUDINT, kREAL, kLREAL, char(0), kSTRING}) {
        for (const auto& row : rows) {
            TestMachine m;
            m.SetValueToRegister(kA0, type, row.first);
            ASSERT_EQ(m.RunText("NG A0 RET"), 0u);
            EXPECT_TRUE(Same(m.A0.Value, row.second)) << int(type) << " " << row.first;
            EXPECT_EQ(m.A0.ValueType, type);
        }
    }
}

TEST(Ng, RefusedOperands) {
    TestMachine m;
    Declare(m, "X", kINT, 0);
    EXPECT_EQ(m.RunText("NG 1 RET"), 61u);
    EXPECT_EQ(m.RunText("NG @X RET"), 61u);
    EXPECT_EQ(m.RunText("NG NIL RET"), 27u);
}

// ---- EXEC ----

TEST(Exec, NameIsUpperCasedBeforeTheLookup) {
    for (const char* text : {"EXEC sqrt RET", "EXEC Sqrt RET", "EXEC SQRT RET", "EXEC @sqrt RET"}) {
        TestMachine m;
        m.StackPush(kDINT, 16);
        ASSERT_EQ(m.RunText(text), 0u) << text;
        EXPECT_EQ(m.A0.Value, 4.0);
        EXPECT_EQ(m.A0.ValueType, kDINT);
        EXPECT_TRUE(m.Stack.empty());
    }
}

TEST(Exec, AnyTokenKindNamesTheFunction) {
    TestMachine m;
    m.StackPush(kDINT, 2);
    m.StackPush(kDINT, 10);
    ASSERT_EQ(m.RunText("EXEC POW RET"), 0u);  // POW is also an instruction keyword
    EXPECT_EQ(m.A0.Value, 1024.0);
    m.StackPush(kREAL, 100);
    ASSERT_EQ(m.RunText("EXEC log10 RET"), 0u);
    EXPECT_EQ(m.A0.Value, 2.0);
    EXPECT_EQ(m.A0.ValueType, kREAL);
}

TEST(Exec, UnknownNameGives13AndTouchesNothing) {
    for (const char* text : {"EXEC SQRTS RET", "EXEC sqr RET", "EXEC 5 RET", "EXEC FOO: RET", "EXEC RET"}) {
        TestMachine m;
        m.StackPush(kDINT, 16);
        m.SetValueToRegister(kA0, kINT, 1);
        EXPECT_EQ(m.RunText(text), 13u) << text;
        EXPECT_EQ(m.Stack.size(), 1u);
        EXPECT_EQ(m.A0.Value, 1.0);
    }
}

TEST(Exec, ResultGoesToA0Only) {
    TestMachine m;
    m.SetValueToRegister(kR0, kINT, 7);
    m.SetValueToRegister(kR1, kINT, 8);
    m.StackPush(kLREAL, 0);
    ASSERT_EQ(m.RunText("EXEC cos RET"), 0u);
    EXPECT_EQ(m.A0.Value, 1.0);
    EXPECT_EQ(m.R0.Value, 7.0);
    EXPECT_EQ(m.R1.Value, 8.0);
}

TEST(Exec, ScannerFailuresPassThrough) {
    TestMachine m;
    EXPECT_EQ(m.RunText("EXEC ! RET"), 9u);
    EXPECT_EQ(m.RunText("EXEC #NOPE RET"), 41u);
    EXPECT_EQ(m.RunText("EXEC SQRT"), 6u);
}

}  // namespace
