// Boolean (OR XOR AND), bitwise (BOR BXOR BAND) and shift and rotation
// (SHL SHR ROL ROR) instructions: results with their types, distances of
// every size, the type rules, and every failure code.
#include "register_cases.h"
#include "test_machine.h"

#include <gtest/gtest.h>

#include <cmath>
#include <cstdio>
#include <limits>
#include <string>
#include <vector>

namespace {

using namespace register_cases;

struct Row {
    const char* Op;
    Val S;
    Val D;
    Outcome Want;
};

class Logic : public ::testing::Test {
public:
    // "<op> R1 R0" with the source in R1 and the destination in R0; on
    // failure R0 must be unchanged, R1 always is.
    void Expect(const Row& row) {
        SCOPED_TRACE(std::string(row.Op) + " source " + Describe(row.S) + " register " + Describe(row.D));
        m.R1 = QZ_Register{row.S.Value, row.S.Type};
        m.R0 = QZ_Register{row.D.Value, row.D.Type};
        const Qz::uint32_t rc = m.RunText(std::string(row.Op) + " R1 R0 RET");
        EXPECT_EQ(rc, row.Want.Rc);
        EXPECT_TRUE(Holds(m.R0, rc == 0 ? row.Want.Result : row.D));
        EXPECT_TRUE(Holds(m.R1, row.S));
    }
    void Check(const std::vector<Row>& rows) {
        for (const Row& row : rows) Expect(row);
    }
    Var* Declare(const char* name, char type, double value) {
        return m.Vars.lookup(name, char(ttV), type, value, 0, true);
    }

    TestMachine m;
};

// ---------------------------------------------------------------- Boolean

class Boolean : public Logic {};

TEST_F(Boolean, TruthTables) {
    const Val f{0, kBOOL}, t{1, kBOOL};
    Check({
        {"OR", f, f, Ok(0, kBOOL)},  {"OR", f, t, Ok(1, kBOOL)},  {"OR", t, f, Ok(1, kBOOL)},
        {"OR", t, t, Ok(1, kBOOL)},  {"XOR", f, f, Ok(0, kBOOL)}, {"XOR", f, t, Ok(1, kBOOL)},
        {"XOR", t, f, Ok(1, kBOOL)}, {"XOR", t, t, Ok(0, kBOOL)}, {"AND", f, f, Ok(0, kBOOL)},
        {"AND", f, t, Ok(0, kBOOL)}, {"AND", t, f, Ok(0, kBOOL)}, {"AND", t, t, Ok(1, kBOOL)},
    });
}

TEST_F(Boolean, TruthIsNotEqualToZero) {
    // BOOL registers may hold any double; NaN is true, -0.0 false; results are 0.0 or 1.0.
    Check({
        {"OR", {kNaN, kBOOL}, {kNaN, kBOOL}, Ok(1, kBOOL)},
        {"XOR", {1, kBOOL}, {kNaN, kBOOL}, Ok(0, kBOOL)},
        {"AND", {kNaN, kBOOL}, {-0.0, kBOOL}, Ok(0, kBOOL)},
        {"OR", {-0.0, kBOOL}, {-0.0, kBOOL}, Ok(0, kBOOL)},
        {"AND", {2.0, kBOOL}, {0.5, kBOOL}, Ok(1, kBOOL)},
        {"XOR", {-3, kBOOL}, {kInf, kBOOL}, Ok(0, kBOOL)},
        {"XOR", {-0.0, kBOOL}, {1e-300, kBOOL}, Ok(1, kBOOL)},
    });
}

TEST_F(Boolean, AndOfTrueWithFalseRegister) {
    m.StackPush(kBOOL, 1);
    m.R0 = {0, kBOOL};
    ASSERT_EQ(m.RunText("AND POP R0 RET"), 0u);
    EXPECT_TRUE(Holds(m.R0, {0, kBOOL}));
}

TEST_F(Boolean, OrOfTwoNaNs) {
    m.R1 = {kNaN, kBOOL};
    m.R0 = {kNaN, kBOOL};
    ASSERT_EQ(m.RunText("OR R1 R0 RET"), 0u);
    EXPECT_TRUE(Holds(m.R0, {1, kBOOL}));
}

TEST_F(Boolean, XorOfOneAndNaN) {
    m.R1 = {1, kBOOL};
    m.R0 = {kNaN, kBOOL};
    ASSERT_EQ(m.RunText("XOR R1 R0 RET"), 0u);
    EXPECT_TRUE(Holds(m.R0, {0, kBOOL}));
}

TEST_F(Boolean, EveryOtherTypeIsRefused) {
    const char others[] = {kSINT, kUSINT, kINT, kUINT, kDINT, kUDINT, kREAL, kLREAL, kSTRING, kNoType, kHighCode};
    for (const char* op : {"OR", "XOR", "AND"}) {
        for (char type : others) {
            Expect({op, {1, type}, {1, kBOOL}, Fails(47)});
            Expect({op, {1, kBOOL}, {1, type}, Fails(47)});
        }
    }
}

TEST_F(Boolean, NonBoolSourceIsRefusedBeforeTheRegisterIsRead) {
    // Were the second operand scanned, "@" alone would give 39 and NIL 27.
    for (const char* op : {"OR", "XOR", "AND"}) {
        m.R1 = {1, kDINT};
        EXPECT_EQ(m.RunText(std::string(op) + " R1 @ RET"), 47u) << op;
        EXPECT_EQ(m.RunText(std::string(op) + " R1 NIL RET"), 47u) << op;
    }
}

TEST_F(Boolean, AndWithDintSourceOrDintRegister) {
    m.R0 = {1, kBOOL};
    m.R1 = {1, kDINT};
    EXPECT_EQ(m.RunText("AND R1 NIL RET"), 47u);
    m.R1 = {1, kBOOL};
    m.R0 = {1, kDINT};
    EXPECT_EQ(m.RunText("AND R1 R0 RET"), 47u);
    EXPECT_TRUE(Holds(m.R0, {1, kDINT}));
}

TEST_F(Boolean, LiteralsAreNeverBool) {
    m.R0 = {1, kBOOL};
    EXPECT_EQ(m.RunText("OR 1 R0 RET"), 47u);
    EXPECT_EQ(m.RunText("AND 0 R0 RET"), 47u);
    EXPECT_TRUE(Holds(m.R0, {1, kBOOL}));
}

TEST_F(Boolean, SourceOperandKinds) {
    Declare("B", kBOOL, 5);  // read as 1
    Declare("Z", kBOOL, 0);
    m.R0 = {0, kBOOL};
    ASSERT_EQ(m.RunText("OR @B R0 RET"), 0u);
    EXPECT_TRUE(Holds(m.R0, {1, kBOOL}));
    ASSERT_EQ(m.RunText("AND @Z R0 RET"), 0u);
    EXPECT_TRUE(Holds(m.R0, {0, kBOOL}));
    m.A0 = {1, kBOOL};
    ASSERT_EQ(m.RunText("XOR A0 R0 RET"), 0u);
    EXPECT_TRUE(Holds(m.R0, {1, kBOOL}));
    ASSERT_EQ(m.RunText("XOR R0 R0 RET"), 0u);
    EXPECT_TRUE(Holds(m.R0, {0, kBOOL}));
    m.StackPush(kBOOL, 1);
    ASSERT_EQ(m.RunText("OR POP A0 RET"), 0u);
    EXPECT_TRUE(Holds(m.A0, {1, kBOOL}));
    EXPECT_TRUE(m.Stack.empty());
    // A popped non-BOOL value is refused and stays popped.
    m.StackPush(kDINT, 1);
    EXPECT_EQ(m.RunText("OR POP A0 RET"), 47u);
    EXPECT_TRUE(m.Stack.empty());
}

TEST_F(Boolean, CodesOutsideTheFamilyAreRefused) {
    for (uint8_t code : {uint8_t(ttTST), uint8_t(ttNOT), uint8_t(ttBOR), uint8_t(ttADD)}) {
        m.R1 = {1, kBOOL};
        m.R0 = {1, kBOOL};
        m.SetProgram("R1 R0 RET");
        EXPECT_EQ(m.DoBoolean(char(code)), 47u) << int(code);
        EXPECT_TRUE(Holds(m.R0, {1, kBOOL}));
    }
}

// ---------------------------------------------------------------- wrong operands of every family

struct BadOperand {
    const char* Source;  // null: a good source of the family
    const char* Destination;
    Qz::uint32_t Rc;  // 0: the family's own wrong-operand code
};

const BadOperand kBadOperands[] = {
    {"PUSH", "R0", 0},   {"TICK", "R0", 0},   {"NAME", "R0", 0},  {"MOV", "R0", 0},     {"BODY", "R0", 0},
    {"DINT", "R0", 0},   {"V", "R0", 0},      {"#MAIN", "R0", 0}, {nullptr, "@X", 0},   {nullptr, "^P", 0},
    {nullptr, "5", 0},   {nullptr, "1.5", 0}, {nullptr, "PUSH", 0}, {nullptr, "POP", 0}, {nullptr, "TICK", 0},
    {nullptr, "NAME", 0}, {nullptr, "BODY", 0}, {"NIL", "R0", 27}, {nullptr, "NIL", 27}, {"@NOPE", "R0", 23},
    {"^NOPE", "R0", 23}, {"^X", "R0", 23},    {"@S", "R0", 10},   {"@", "R0", 39},      {"#FOO", "R0", 41},
    {"POP", "R0", 11},
};

void CheckBadOperands(TestMachine& m, const char* op, Qz::uint32_t own, const char* goodSource, Val reg) {
    m.Vars.lookup("X", char(ttV), kDINT, 4, 0, true);  // holds a number, not a handle
    m.Vars.lookup("P", char(ttV), kDINT, 4, 0, true);
    m.Vars.lookup("S", char(ttV), kSTRING, 4, 0, true);
    m.Vars.lookup("B", char(ttV), kBOOL, 1, 0, true);
    for (const BadOperand& bad : kBadOperands) {
        const std::string text =
            std::string(op) + " " + (bad.Source ? bad.Source : goodSource) + " " + bad.Destination + " RET";
        SCOPED_TRACE(text);
        m.Stack.clear();
        m.R0 = {reg.Value, reg.Type};
        EXPECT_EQ(m.RunText(text), bad.Rc ? bad.Rc : own);
        EXPECT_TRUE(Holds(m.R0, reg));
    }
    // A popped source stays popped when the destination then proves wrong.
    for (const char* destination : {"@X", "5", "PUSH", "NIL"}) {
        const std::string text = std::string(op) + " POP " + destination + " RET";
        SCOPED_TRACE(text);
        m.Stack.clear();
        m.StackPush(reg.Type, reg.Value);
        EXPECT_EQ(m.RunText(text), std::string(destination) == "NIL" ? 27u : own);
        EXPECT_TRUE(m.Stack.empty());
    }
}

TEST_F(Boolean, WrongOperandsGive47) {
    for (const char* op : {"OR", "XOR", "AND"}) CheckBadOperands(m, op, 47, "@B", {1, kBOOL});
}

TEST_F(Logic, BitwiseWrongOperandsGive49) {
    for (const char* op : {"BOR", "BXOR", "BAND"}) CheckBadOperands(m, op, 49, "1", {2, kDINT});
}

TEST_F(Logic, ShiftWrongOperandsGive54) {
    for (const char* op : {"SHL", "SHR", "ROL", "ROR"}) CheckBadOperands(m, op, 54, "1", {2, kDINT});
}

// ---------------------------------------------------------------- bitwise

class Bitwise : public Logic {};

TEST_F(Bitwise, OperationTypeIsTheGreaterTypeCode) {
    Check({
        {"BOR", {1, kSINT}, {1, kBOOL}, Ok(1, kSINT)},
        {"BXOR", {255, kUSINT}, {1, kSINT}, Ok(254, kUSINT)},
        {"BOR", {112, kSINT}, {15, kUSINT}, Ok(127, kUSINT)},
        {"BXOR", {-1, kSINT}, {0, kUSINT}, Ok(255, kUSINT)},
        {"BOR", {0, kINT}, {-1, kSINT}, Ok(-1, kINT)},
        {"BAND", {-1, kINT}, {65535, kUINT}, Ok(65535, kUINT)},
        {"BXOR", {65535, kUINT}, {0, kINT}, Ok(65535, kUINT)},
        {"BOR", {2147483648.0, kUDINT}, {1, kDINT}, Ok(2147483649.0, kUDINT)},
        {"BAND", {-1, kDINT}, {4294967295.0, kUDINT}, Ok(4294967295.0, kUDINT)},
        {"BOR", {32768, kUINT}, {1, kBOOL}, Ok(32769, kUINT)},
        // A code that is negative as a signed byte never wins.
        {"BOR", {6, kHighCode}, {1, kDINT}, Ok(7, kDINT)},
    });
}

TEST_F(Bitwise, ResultIsReducedToTheOperationType) {
    Check({
        {"BOR", {-1, kINT}, {0, kINT}, Ok(-1, kINT)},
        {"BOR", {65535, kUINT}, {0, kUINT}, Ok(65535, kUINT)},
        {"BOR", {127, kSINT}, {-128, kSINT}, Ok(-1, kSINT)},
        {"BXOR", {32767, kINT}, {-1, kINT}, Ok(-32768, kINT)},
        {"BAND", {-1, kDINT}, {255, kDINT}, Ok(255, kDINT)},
        {"BXOR", {2147483647, kDINT}, {-1, kDINT}, Ok(-2147483648.0, kDINT)},
        {"BAND", {300, kUSINT}, {255, kUSINT}, Ok(44, kUSINT)},
        {"BOR", {0x1234, kSINT}, {0, kSINT}, Ok(0x34, kSINT)},
        {"BXOR", {0xF0F0, kUINT}, {0x0FF0, kUINT}, Ok(0xFF00, kUINT)},
        {"BAND", {0xFFFF, kUDINT}, {-16, kDINT}, Ok(0xFFF0, kUDINT)},
    });
}

TEST_F(Bitwise, IntegerViewOfUnusualValues) {
    Check({
        {"BOR", {kNaN, kDINT}, {5, kDINT}, Ok(5, kDINT)},
        {"BOR", {kInf, kDINT}, {5, kDINT}, Ok(5, kDINT)},
        {"BOR", {-kInf, kDINT}, {5, kDINT}, Ok(5, kDINT)},
        {"BOR", {1e300, kDINT}, {5, kDINT}, Ok(5, kDINT)},
        {"BXOR", {4294967299.0, kUDINT}, {0, kDINT}, Ok(3, kUDINT)},
        {"BOR", {-0.9, kDINT}, {0, kDINT}, Ok(0, kDINT)},
        {"BAND", {2.9, kDINT}, {3, kDINT}, Ok(2, kDINT)},
        {"BAND", {-2.9, kDINT}, {-1, kDINT}, Ok(-2, kDINT)},
        {"BAND", {kNaN, kDINT}, {-1, kDINT}, Ok(0, kDINT)},
    });
}

TEST_F(Bitwise, NonIntegerOperationTypesAreRefused) {
    Check({
        {"BOR", {1, kBOOL}, {1, kBOOL}, Fails(50)},
        {"BXOR", {1, kBOOL}, {1, kBOOL}, Fails(51)},
        {"BAND", {1, kBOOL}, {1, kBOOL}, Fails(52)},
        {"BAND", {1, kREAL}, {1, kDINT}, Fails(52)},
        {"BAND", {1, kDINT}, {1, kREAL}, Fails(52)},
        {"BAND", {1, kLREAL}, {1, kSINT}, Fails(52)},
        {"BOR", {1, kREAL}, {1, kUDINT}, Fails(50)},
        {"BOR", {1, kDINT}, {1, kLREAL}, Fails(50)},
        {"BXOR", {1, kLREAL}, {1, kLREAL}, Fails(51)},
        {"BXOR", {1, kUSINT}, {1, kREAL}, Fails(51)},
        {"BOR", {1, kSTRING}, {1, kDINT}, Fails(50)},
        {"BXOR", {1, kNoType}, {1, kNoType}, Fails(51)},
        {"BAND", {1, kHighCode}, {1, kNoType}, Fails(52)},
        {"BAND", {1, kHighCode}, {1, kBOOL}, Fails(52)},
    });
}

TEST_F(Bitwise, EveryIntegerTypeCombinesWithItself) {
    Check({
        {"BOR", {0x0F, kSINT}, {0x30, kSINT}, Ok(0x3F, kSINT)},
        {"BOR", {0x0F, kUSINT}, {0xF0, kUSINT}, Ok(0xFF, kUSINT)},
        {"BOR", {0x0F00, kINT}, {0x00F0, kINT}, Ok(0x0FF0, kINT)},
        {"BOR", {0xF000, kUINT}, {0x000F, kUINT}, Ok(0xF00F, kUINT)},
        {"BOR", {-65536, kDINT}, {1, kDINT}, Ok(-65535, kDINT)},
        {"BOR", {4026531840.0, kUDINT}, {15, kUDINT}, Ok(4026531855.0, kUDINT)},
        {"BXOR", {-1, kSINT}, {0x0F, kSINT}, Ok(-16, kSINT)},
        {"BXOR", {0xFF, kUSINT}, {0x0F, kUSINT}, Ok(0xF0, kUSINT)},
        {"BXOR", {-1, kINT}, {1, kINT}, Ok(-2, kINT)},
        {"BXOR", {0xFFFF, kUINT}, {1, kUINT}, Ok(0xFFFE, kUINT)},
        {"BXOR", {-1, kDINT}, {1, kDINT}, Ok(-2, kDINT)},
        {"BXOR", {4294967295.0, kUDINT}, {1, kUDINT}, Ok(4294967294.0, kUDINT)},
        {"BAND", {-1, kSINT}, {-128, kSINT}, Ok(-128, kSINT)},
        {"BAND", {0xAA, kUSINT}, {0x0F, kUSINT}, Ok(0x0A, kUSINT)},
        {"BAND", {-1, kINT}, {-32768, kINT}, Ok(-32768, kINT)},
        {"BAND", {0xFFFF, kUINT}, {0x8001, kUINT}, Ok(0x8001, kUINT)},
        {"BAND", {-1, kDINT}, {-2147483648.0, kDINT}, Ok(-2147483648.0, kDINT)},
        {"BAND", {4294967295.0, kUDINT}, {2147483648.0, kUDINT}, Ok(2147483648.0, kUDINT)},
    });
}

TEST_F(Bitwise, ListedCases) {
    Check({
        {"BOR", {1, kSINT}, {1, kBOOL}, Ok(1, kSINT)},
        {"BXOR", {255, kUSINT}, {1, kSINT}, Ok(254, kUSINT)},
        {"BAND", {1.5, kREAL}, {1, kDINT}, Fails(52)},
        {"BOR", {1, kBOOL}, {0, kBOOL}, Fails(50)},
        {"BOR", {-1, kINT}, {0, kINT}, Ok(-1, kINT)},
        {"BOR", {65535, kUINT}, {0, kUINT}, Ok(65535, kUINT)},
    });
}

TEST_F(Bitwise, SourceOperandKinds) {
    Declare("U", kUSINT, 511);  // read as 255
    m.R0 = {0x0F, kSINT};
    ASSERT_EQ(m.RunText("BAND @U R0 RET"), 0u);
    EXPECT_TRUE(Holds(m.R0, {0x0F, kUSINT}));
    // Literals take their ladder type: 16#FF is an INT.
    m.R0 = {0x100, kSINT};
    ASSERT_EQ(m.RunText("BOR 16#FF R0 RET"), 0u);
    EXPECT_TRUE(Holds(m.R0, {0x1FF, kINT}));
    m.StackPush(kUDINT, 4294967295.0);
    m.R0 = {1, kDINT};
    ASSERT_EQ(m.RunText("BXOR POP R0 RET"), 0u);
    EXPECT_TRUE(Holds(m.R0, {4294967294.0, kUDINT}));
    EXPECT_TRUE(m.Stack.empty());
}

TEST_F(Bitwise, CodesOutsideTheFamilyAreRefused) {
    for (uint8_t code : {uint8_t(ttOR), uint8_t(ttBNOT), uint8_t(ttSHL), uint8_t(0x47)}) {
        m.R1 = {1, kDINT};
        m.R0 = {2, kDINT};
        m.SetProgram("R1 R0 RET");
        EXPECT_EQ(m.DoBits(char(code)), 49u) << int(code);
        EXPECT_TRUE(Holds(m.R0, {2, kDINT}));
    }
}

// ---------------------------------------------------------------- shifts and rotations

class Shift : public Logic {};

// The count in a DINT register leaves the source's type only where the
// source's code is the greater one (UDINT); each row states the type.
TEST_F(Shift, ShiftLeft) {
    Check({
        {"SHL", {1, kDINT}, {0, kDINT}, Ok(1, kDINT)},
        {"SHL", {1, kDINT}, {31, kDINT}, Ok(-2147483648.0, kDINT)},
        {"SHL", {1, kDINT}, {32, kDINT}, Ok(1, kDINT)},
        {"SHL", {1, kDINT}, {33, kDINT}, Ok(2, kDINT)},
        {"SHL", {1, kDINT}, {-1, kDINT}, Ok(-2147483648.0, kDINT)},
        {"SHL", {1, kDINT}, {-31, kDINT}, Ok(2, kDINT)},
        {"SHL", {1, kDINT}, {kNaN, kDINT}, Ok(1, kDINT)},
        {"SHL", {1, kDINT}, {1e10, kDINT}, Ok(1, kDINT)},
        {"SHL", {1, kDINT}, {-1e10, kDINT}, Ok(1, kDINT)},
        {"SHL", {1, kDINT}, {kInf, kDINT}, Ok(1, kDINT)},
        {"SHL", {-1, kDINT}, {4, kDINT}, Ok(-16, kDINT)},
        {"SHL", {-3, kDINT}, {1, kDINT}, Ok(-6, kDINT)},
        {"SHL", {1, kUDINT}, {31, kDINT}, Ok(2147483648.0, kUDINT)},
        {"SHL", {4294967295.0, kUDINT}, {4, kDINT}, Ok(4294967280.0, kUDINT)},
        {"SHL", {3, kUDINT}, {32, kDINT}, Ok(3, kUDINT)},
        // Narrow sources are computed in 32 bits and not reduced to their width.
        {"SHL", {64, kSINT}, {2, kSINT}, Ok(256, kSINT)},
        {"SHL", {-128, kSINT}, {1, kSINT}, Ok(-256, kSINT)},
        {"SHL", {-1, kINT}, {16, kSINT}, Ok(-65536, kINT)},
        {"SHL", {255, kUSINT}, {8, kSINT}, Ok(65280, kUSINT)},
        {"SHL", {65535, kUINT}, {16, kSINT}, Ok(-65536, kUINT)},
    });
}

TEST_F(Shift, ShiftRight) {
    Check({
        {"SHR", {-128, kSINT}, {1, kSINT}, Ok(-64, kSINT)},
        {"SHR", {128, kUSINT}, {1, kSINT}, Ok(64, kUSINT)},
        {"SHR", {4294967295.0, kUDINT}, {4, kSINT}, Ok(268435455, kUDINT)},
        {"SHR", {-1, kDINT}, {31, kDINT}, Ok(-1, kDINT)},
        {"SHR", {-2147483648.0, kDINT}, {31, kDINT}, Ok(-1, kDINT)},
        {"SHR", {-2147483648.0, kDINT}, {32, kDINT}, Ok(-2147483648.0, kDINT)},
        {"SHR", {-2147483648.0, kDINT}, {33, kDINT}, Ok(-1073741824, kDINT)},
        {"SHR", {-2147483648.0, kDINT}, {-1, kDINT}, Ok(-1, kDINT)},
        {"SHR", {-7, kDINT}, {1, kDINT}, Ok(-4, kDINT)},
        {"SHR", {256, kDINT}, {4, kDINT}, Ok(16, kDINT)},
        {"SHR", {-32768, kINT}, {15, kSINT}, Ok(-1, kINT)},
        {"SHR", {65535, kUINT}, {8, kSINT}, Ok(255, kUINT)},
        {"SHR", {2147483648.0, kUDINT}, {31, kDINT}, Ok(1, kUDINT)},
        {"SHR", {2147483648.0, kUDINT}, {32, kDINT}, Ok(2147483648.0, kUDINT)},
        {"SHR", {4294967295.0, kUDINT}, {31, kDINT}, Ok(1, kUDINT)},
        {"SHR", {4294967295.0, kUDINT}, {-1, kDINT}, Ok(1, kUDINT)},
        {"SHR", {-5, kDINT}, {kNaN, kDINT}, Ok(-5, kDINT)},
        {"SHR", {-5, kDINT}, {1e10, kDINT}, Ok(-5, kDINT)},
        {"SHR", {255, kUSINT}, {9, kSINT}, Ok(0, kUSINT)},
        {"SHR", {-1, kSINT}, {5, kSINT}, Ok(-1, kSINT)},
    });
}

TEST_F(Shift, RotateLeft) {
    Check({
        {"ROL", {2147483648.0, kUDINT}, {1, kDINT}, Ok(1, kUDINT)},
        {"ROL", {2147483649.0, kUDINT}, {1, kDINT}, Ok(3, kUDINT)},
        {"ROL", {2147483649.0, kUDINT}, {33, kDINT}, Ok(3, kUDINT)},
        {"ROL", {2147483649.0, kUDINT}, {0, kDINT}, Ok(2147483649.0, kUDINT)},
        {"ROL", {2147483649.0, kUDINT}, {32, kDINT}, Ok(2147483649.0, kUDINT)},
        {"ROL", {2147483649.0, kUDINT}, {-1, kDINT}, Ok(3221225472.0, kUDINT)},
        {"ROL", {305419896, kUDINT}, {8, kDINT}, Ok(878082066, kUDINT)},  // 0x12345678 -> 0x34567812
        {"ROL", {128, kUSINT}, {1, kSINT}, Ok(257, kUSINT)},
        {"ROL", {1, kUSINT}, {0, kSINT}, Ok(1, kUSINT)},
        {"ROL", {1, kSINT}, {7, kSINT}, Ok(128, kSINT)},
        {"ROL", {1, kSINT}, {10, kSINT}, Ok(1024, kSINT)},
        {"ROL", {1, kSINT}, {32, kSINT}, Ok(1, kSINT)},
        // The right-hand part shifts arithmetically: negative values fill with ones.
        {"ROL", {-128, kSINT}, {1, kSINT}, Ok(-1, kSINT)},
        {"ROL", {-1, kSINT}, {3, kSINT}, Ok(-1, kSINT)},
        {"ROL", {-2147483648.0, kDINT}, {1, kDINT}, Ok(-1, kDINT)},
        {"ROL", {1, kDINT}, {31, kDINT}, Ok(-2147483648.0, kDINT)},
        {"ROL", {1073741824, kDINT}, {2, kDINT}, Ok(1, kDINT)},
        {"ROL", {16384, kINT}, {2, kSINT}, Ok(65537, kINT)},
        {"ROL", {32769, kUINT}, {1, kSINT}, Ok(65539, kUINT)},
        {"ROL", {1, kDINT}, {kNaN, kDINT}, Ok(1, kDINT)},
        {"ROL", {1, kDINT}, {1e10, kDINT}, Ok(1, kDINT)},
    });
}

TEST_F(Shift, RotateRight) {
    Check({
        {"ROR", {1, kUSINT}, {1, kSINT}, Ok(128, kUSINT)},
        {"ROR", {1, kSINT}, {1, kSINT}, Ok(128, kSINT)},
        {"ROR", {1, kSINT}, {9, kSINT}, Ok(-2147483648.0, kSINT)},
        {"ROR", {1, kSINT}, {32, kSINT}, Ok(257, kSINT)},
        {"ROR", {-2, kDINT}, {1, kDINT}, Ok(-1, kDINT)},
        {"ROR", {-1, kDINT}, {7, kDINT}, Ok(-1, kDINT)},
        {"ROR", {1, kDINT}, {1, kDINT}, Ok(-2147483648.0, kDINT)},
        {"ROR", {2, kDINT}, {1, kDINT}, Ok(1, kDINT)},
        {"ROR", {5, kDINT}, {0, kDINT}, Ok(5, kDINT)},
        {"ROR", {6, kDINT}, {kNaN, kDINT}, Ok(6, kDINT)},
        {"ROR", {-32768, kINT}, {1, kSINT}, Ok(-16384, kINT)},
        {"ROR", {1, kUINT}, {0, kSINT}, Ok(65537, kUINT)},
        {"ROR", {255, kUSINT}, {4, kSINT}, Ok(4095, kUSINT)},
        {"ROR", {1, kUDINT}, {1, kDINT}, Ok(2147483648.0, kUDINT)},
        {"ROR", {3, kUDINT}, {33, kDINT}, Ok(2147483649.0, kUDINT)},
        {"ROR", {3, kUDINT}, {0, kDINT}, Ok(3, kUDINT)},
        {"ROR", {1, kUDINT}, {-1, kDINT}, Ok(2, kUDINT)},
        {"ROR", {305419896, kUDINT}, {8, kDINT}, Ok(2014458966, kUDINT)},  // 0x12345678 -> 0x78123456
    });
}

TEST_F(Shift, SourceIsTakenAsItsTypesIntegerView) {
    Check({
        {"SHL", {1e300, kDINT}, {1, kDINT}, Ok(0, kDINT)},
        {"SHL", {kNaN, kDINT}, {1, kDINT}, Ok(0, kDINT)},
        {"SHL", {-kInf, kDINT}, {1, kDINT}, Ok(0, kDINT)},
        {"SHL", {4294967297.0, kDINT}, {1, kDINT}, Ok(2, kDINT)},
        {"SHL", {257, kSINT}, {0, kSINT}, Ok(1, kSINT)},
        {"SHL", {200, kSINT}, {0, kSINT}, Ok(-56, kSINT)},
        {"SHL", {300, kUSINT}, {0, kSINT}, Ok(44, kUSINT)},
        {"SHL", {40000, kINT}, {0, kSINT}, Ok(-25536, kINT)},
        {"SHL", {-1, kUINT}, {0, kSINT}, Ok(65535, kUINT)},
        {"SHL", {-1, kUDINT}, {0, kSINT}, Ok(4294967295.0, kUDINT)},
        {"SHL", {2.9, kDINT}, {1, kDINT}, Ok(4, kDINT)},
        {"SHL", {-2.9, kDINT}, {1, kDINT}, Ok(-4, kDINT)},
        // The count is truncated toward zero.
        {"SHL", {1, kDINT}, {2.9, kDINT}, Ok(4, kDINT)},
        {"SHL", {1, kDINT}, {-1.5, kDINT}, Ok(-2147483648.0, kDINT)},
    });
}

TEST_F(Shift, ResultTypeIsTheGreaterOfSourceAndCountTypes) {
    Check({
        {"SHL", {3, kSINT}, {2, kDINT}, Ok(12, kDINT)},
        {"SHL", {1, kSINT}, {1, kBOOL}, Ok(2, kSINT)},
        {"SHR", {8, kUSINT}, {1, kINT}, Ok(4, kINT)},
        {"ROL", {1, kDINT}, {2, kREAL}, Ok(4, kREAL)},
        {"ROR", {2, kDINT}, {1, kLREAL}, Ok(1, kLREAL)},
        {"SHL", {1, kDINT}, {kNaN, kLREAL}, Ok(1, kLREAL)},
        {"SHL", {1, kDINT}, {1, kSTRING}, Ok(2, kSTRING)},
        {"SHL", {1, kSINT}, {1, kHighCode}, Ok(2, kSINT)},
        {"SHR", {4, kUDINT}, {1, kDINT}, Ok(2, kUDINT)},
    });
}

TEST_F(Shift, SintSourceWithDintCountGivesDint) {
    m.R0 = {2, kDINT};
    ASSERT_EQ(m.RunText("SHL 3 R0 RET"), 0u);  // the literal 3 is a SINT
    EXPECT_TRUE(Holds(m.R0, {12, kDINT}));
}

TEST_F(Shift, NonIntegerSourcesAreRefused) {
    const char refused[] = {kBOOL, kREAL, kLREAL, kSTRING, kNoType, kHighCode};
    for (char type : refused) {
        Expect({"SHL", {1, type}, {1, kDINT}, Fails(55)});
        Expect({"SHR", {1, type}, {1, kDINT}, Fails(55)});
        Expect({"ROL", {1, type}, {1, kDINT}, Fails(58)});
        Expect({"ROR", {1, type}, {1, kDINT}, Fails(58)});
    }
}

TEST_F(Shift, ListedCases) {
    Check({
        {"SHL", {1, kDINT}, {32, kDINT}, Ok(1, kDINT)},
        {"SHL", {1, kDINT}, {31, kDINT}, Ok(-2147483648.0, kDINT)},
        {"SHL", {1, kUDINT}, {31, kSINT}, Ok(2147483648.0, kUDINT)},
        {"SHR", {-128, kSINT}, {1, kSINT}, Ok(-64, kSINT)},
        {"SHR", {128, kUSINT}, {1, kSINT}, Ok(64, kUSINT)},
        {"SHR", {4294967295.0, kUDINT}, {4, kSINT}, Ok(268435455, kUDINT)},
        {"ROL", {2147483648.0, kUDINT}, {1, kSINT}, Ok(1, kUDINT)},
        {"ROR", {1, kUSINT}, {1, kSINT}, Ok(128, kUSINT)},
        {"ROL", {128, kUSINT}, {1, kSINT}, Ok(257, kUSINT)},
        {"ROL", {1.5, kREAL}, {1, kSINT}, Fails(58)},
        {"SHL", {1.5, kREAL}, {1, kSINT}, Fails(55)},
        {"SHL", {64, kSINT}, {2, kSINT}, Ok(256, kSINT)},
        {"ROR", {1, kSINT}, {1, kSINT}, Ok(128, kSINT)},
        {"ROR", {-2, kDINT}, {1, kDINT}, Ok(-1, kDINT)},
    });
}

TEST_F(Shift, SourceOperandKinds) {
    Declare("N", kSINT, 200);  // read as -56
    m.R0 = {1, kSINT};
    ASSERT_EQ(m.RunText("SHR @N R0 RET"), 0u);
    EXPECT_TRUE(Holds(m.R0, {-28, kSINT}));
    m.StackPush(kUSINT, 3);
    m.R1 = {4, kSINT};
    ASSERT_EQ(m.RunText("SHL POP R1 RET"), 0u);
    EXPECT_TRUE(Holds(m.R1, {48, kUSINT}));
    EXPECT_TRUE(m.Stack.empty());
    m.A0 = {3, kDINT};
    ASSERT_EQ(m.RunText("SHL A0 A0 RET"), 0u);
    EXPECT_TRUE(Holds(m.A0, {24, kDINT}));
    // A literal beyond 32 bits is a UDINT.
    m.R0 = {4, kSINT};
    ASSERT_EQ(m.RunText("ROR 4294967296 R0 RET"), 0u);
    EXPECT_TRUE(Holds(m.R0, {0, kUDINT}));
}

TEST_F(Logic, RegisterIsReadBeforeTheTypesAreChecked) {
    // Unlike the Boolean instructions, BOR..BAND and SHL..ROR read NIL (27)
    // before they look at a REAL operand.
    m.R1 = {1.5, kREAL};
    for (const char* op : {"BOR", "BXOR", "BAND", "SHL", "SHR", "ROL", "ROR"})
        EXPECT_EQ(m.RunText(std::string(op) + " R1 NIL RET"), 27u) << op;
    m.StackPush(kREAL, 1);
    m.R0 = {1, kDINT};
    EXPECT_EQ(m.RunText("ROL POP R0 RET"), 58u);
    EXPECT_TRUE(m.Stack.empty());
    EXPECT_TRUE(Holds(m.R0, {1, kDINT}));
}

TEST_F(Shift, CodesOutsideTheFamilyAreRefused) {
    for (uint8_t code : {uint8_t(ttNG), uint8_t(ttPOW), uint8_t(ttBAND), uint8_t(ttRET)}) {
        m.R1 = {1, kDINT};
        m.R0 = {2, kDINT};
        m.SetProgram("R1 R0 RET");
        EXPECT_EQ(m.DoShift(char(code)), 54u) << int(code);
        EXPECT_TRUE(Holds(m.R0, {2, kDINT}));
    }
}

}  // namespace
