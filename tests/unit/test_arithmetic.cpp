// Arithmetic (ADD SUB MUL DIV MOD), comparison (NE EQ GT GE LT LE) and POW:
// results with their types for every type code, operand order, and every
// failure code with the state it leaves behind.
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

class Operators : public ::testing::Test {
public:
    // Runs "<op> R1 R0" with the source in R1 and the destination in R0.
    Qz::uint32_t RunRegisters(const std::string& op, const Val& s, const Val& d) {
        m.R1 = QZ_Register{s.Value, s.Type};
        m.R0 = QZ_Register{d.Value, d.Type};
        return m.RunText(op + " R1 R0 RET");
    }
    // Checks one outcome: on failure R0 must be unchanged; R1 (the source) always.
    void Expect(const std::string& op, const Val& s, const Val& d, const Outcome& want) {
        SCOPED_TRACE(op + " source " + Describe(s) + " destination " + Describe(d));
        const Qz::uint32_t rc = RunRegisters(op, s, d);
        EXPECT_EQ(rc, want.Rc);
        EXPECT_TRUE(Holds(m.R0, rc == 0 ? want.Result : d));
        EXPECT_TRUE(Holds(m.R1, s));
    }
    Var* Declare(const char* name, char kind, char type, double value) {
        return m.Vars.lookup(name, kind, type, value, 0, true);
    }

    TestMachine m;
};

// ---------------------------------------------------------------- arithmetic

const char* const kArithmetic[] = {"ADD", "SUB", "MUL", "DIV", "MOD"};

struct ArithRow {
    Val S;
    Val D;
    Outcome Add, Sub, Mul, Div, Mod;
};

class Arithmetic : public Operators {
public:
    void Check(const std::vector<ArithRow>& rows) {
        for (const ArithRow& row : rows) {
            const Outcome* outcomes[] = {&row.Add, &row.Sub, &row.Mul, &row.Div, &row.Mod};
            for (int i = 0; i < 5; ++i) Expect(kArithmetic[i], row.S, row.D, *outcomes[i]);
        }
    }
};

TEST_F(Arithmetic, EverySourceTypeAgainstAnIntegerRegister) {
    const Val d{3, kDINT};
    Check({
        {{1, kBOOL}, d, Ok(4, kDINT), Ok(-2, kDINT), Ok(3, kDINT), Ok(0, kDINT), Ok(1, kDINT)},
        {{-7, kSINT}, d, Ok(-4, kDINT), Ok(-10, kDINT), Ok(-21, kDINT), Ok(-2, kDINT), Ok(-1, kDINT)},
        {{200, kUSINT}, d, Ok(203, kDINT), Ok(197, kDINT), Ok(600, kDINT), Ok(66, kDINT), Ok(2, kDINT)},
        {{-300, kINT}, d, Ok(-297, kDINT), Ok(-303, kDINT), Ok(-900, kDINT), Ok(-100, kDINT), Ok(0, kDINT)},
        {{60000, kUINT}, d, Ok(60003, kDINT), Ok(59997, kDINT), Ok(180000, kDINT), Ok(20000, kDINT), Ok(0, kDINT)},
        {{-70000, kDINT}, d, Ok(-69997, kDINT), Ok(-70003, kDINT), Ok(-210000, kDINT), Ok(-23333, kDINT),
         Ok(-1, kDINT)},
        // A UDINT above 2^31 takes part as the negative 32-bit number.
        {{4000000000.0, kUDINT}, d, Ok(-294967293, kDINT), Ok(-294967299, kDINT), Ok(-884901888, kDINT),
         Ok(-98322432, kDINT), Ok(0, kDINT)},
        {{2.5, kREAL}, d, Ok(5.5, kLREAL), Ok(-0.5, kLREAL), Ok(7.5, kLREAL), Ok(2.5 / 3.0, kLREAL), Fails(45)},
        {{-0.75, kLREAL}, d, Ok(2.25, kLREAL), Ok(-3.75, kLREAL), Ok(-2.25, kLREAL), Ok(-0.25, kLREAL),
         Fails(45)},
        // Codes that are no value type count as integer.
        {{10, kSTRING}, d, Ok(13, kDINT), Ok(7, kDINT), Ok(30, kDINT), Ok(3, kDINT), Ok(1, kDINT)},
        {{10, kNoType}, d, Ok(13, kDINT), Ok(7, kDINT), Ok(30, kDINT), Ok(3, kDINT), Ok(1, kDINT)},
        {{10, kHighCode}, d, Ok(13, kDINT), Ok(7, kDINT), Ok(30, kDINT), Ok(3, kDINT), Ok(1, kDINT)},
    });
}

TEST_F(Arithmetic, EveryRegisterTypeAgainstAnIntegerSource) {
    const Val s{7, kDINT};
    Check({
        {s, {1, kBOOL}, Ok(8, kDINT), Ok(6, kDINT), Ok(7, kDINT), Ok(7, kDINT), Ok(0, kDINT)},
        {s, {-2, kSINT}, Ok(5, kDINT), Ok(9, kDINT), Ok(-14, kDINT), Ok(-3, kDINT), Ok(1, kDINT)},
        {s, {200, kUSINT}, Ok(207, kDINT), Ok(-193, kDINT), Ok(1400, kDINT), Ok(0, kDINT), Ok(7, kDINT)},
        {s, {-300, kINT}, Ok(-293, kDINT), Ok(307, kDINT), Ok(-2100, kDINT), Ok(0, kDINT), Ok(7, kDINT)},
        {s, {60000, kUINT}, Ok(60007, kDINT), Ok(-59993, kDINT), Ok(420000, kDINT), Ok(0, kDINT), Ok(7, kDINT)},
        {s, {-70000, kDINT}, Ok(-69993, kDINT), Ok(70007, kDINT), Ok(-490000, kDINT), Ok(0, kDINT), Ok(7, kDINT)},
        {s, {4000000000.0, kUDINT}, Ok(-294967289, kDINT), Ok(294967303, kDINT), Ok(-2064771072, kDINT),
         Ok(0, kDINT), Ok(7, kDINT)},
        {s, {2.5, kREAL}, Ok(9.5, kLREAL), Ok(4.5, kLREAL), Ok(17.5, kLREAL), Ok(2.8, kLREAL), Fails(45)},
        {s, {-0.5, kLREAL}, Ok(6.5, kLREAL), Ok(7.5, kLREAL), Ok(-3.5, kLREAL), Ok(-14, kLREAL), Fails(45)},
        {s, {2, kSTRING}, Ok(9, kDINT), Ok(5, kDINT), Ok(14, kDINT), Ok(3, kDINT), Ok(1, kDINT)},
        {s, {2, kNoType}, Ok(9, kDINT), Ok(5, kDINT), Ok(14, kDINT), Ok(3, kDINT), Ok(1, kDINT)},
        // Two floating operands still give LREAL, REAL ones included.
        {{1.5, kREAL}, {2.25, kREAL}, Ok(3.75, kLREAL), Ok(-0.75, kLREAL), Ok(3.375, kLREAL),
         Ok(1.5 / 2.25, kLREAL), Fails(45)},
    });
}

TEST_F(Arithmetic, IntegerOperandsAreTruncatedToTheirLow32Bits) {
    Check({
        {{2.9, kDINT}, {-1.9, kDINT}, Ok(1, kDINT), Ok(3, kDINT), Ok(-2, kDINT), Ok(-2, kDINT), Ok(0, kDINT)},
        {{-2.9, kDINT}, {1.9, kDINT}, Ok(-1, kDINT), Ok(-3, kDINT), Ok(-2, kDINT), Ok(-2, kDINT), Ok(0, kDINT)},
        // NaN, the infinities and anything beyond 2^63 become -2^63, whose low 32 bits are 0.
        {{kNaN, kDINT}, {5, kDINT}, Ok(5, kDINT), Ok(-5, kDINT), Ok(0, kDINT), Ok(0, kDINT), Ok(0, kDINT)},
        {{kInf, kDINT}, {5, kDINT}, Ok(5, kDINT), Ok(-5, kDINT), Ok(0, kDINT), Ok(0, kDINT), Ok(0, kDINT)},
        {{-kInf, kDINT}, {5, kDINT}, Ok(5, kDINT), Ok(-5, kDINT), Ok(0, kDINT), Ok(0, kDINT), Ok(0, kDINT)},
        {{1e300, kDINT}, {5, kDINT}, Ok(5, kDINT), Ok(-5, kDINT), Ok(0, kDINT), Ok(0, kDINT), Ok(0, kDINT)},
        {{-9.3e18, kUDINT}, {5, kDINT}, Ok(5, kDINT), Ok(-5, kDINT), Ok(0, kDINT), Ok(0, kDINT), Ok(0, kDINT)},
        // 2^32 + 5 keeps 5.
        {{4294967301.0, kUDINT}, {5, kDINT}, Ok(10, kDINT), Ok(0, kDINT), Ok(25, kDINT), Ok(1, kDINT),
         Ok(0, kDINT)},
        // 2^31 as UDINT is -2^31 in 32 bits.
        {{2147483648.0, kUDINT}, {5, kDINT}, Ok(-2147483643, kDINT), Ok(2147483643, kDINT),
         Ok(-2147483648.0, kDINT), Ok(-429496729, kDINT), Ok(-3, kDINT)},
        {{0, kSINT}, {4294967295.0, kUDINT}, Ok(-1, kDINT), Ok(1, kDINT), Ok(0, kDINT), Ok(0, kDINT),
         Ok(0, kDINT)},
        {{7, kDINT}, {4294967297.0, kUDINT}, Ok(8, kDINT), Ok(6, kDINT), Ok(7, kDINT), Ok(7, kDINT), Ok(0, kDINT)},
    });
}

TEST_F(Arithmetic, IntegerResultsWrapInThirtyTwoBits) {
    Check({
        {{2147483647, kDINT}, {1, kDINT}, Ok(-2147483648.0, kDINT), Ok(2147483646, kDINT),
         Ok(2147483647, kDINT), Ok(2147483647, kDINT), Ok(0, kDINT)},
        {{-2147483648.0, kDINT}, {1, kDINT}, Ok(-2147483647, kDINT), Ok(2147483647, kDINT),
         Ok(-2147483648.0, kDINT), Ok(-2147483648.0, kDINT), Ok(0, kDINT)},
        {{65536, kDINT}, {65536, kDINT}, Ok(131072, kDINT), Ok(0, kDINT), Ok(0, kDINT), Ok(1, kDINT),
         Ok(0, kDINT)},
        {{65537, kDINT}, {65537, kDINT}, Ok(131074, kDINT), Ok(0, kDINT), Ok(131073, kDINT), Ok(1, kDINT),
         Ok(0, kDINT)},
        // The one quotient that overflows: -2^31 / -1 wraps to -2^31, its remainder is 0.
        {{-2147483648.0, kDINT}, {-1, kDINT}, Ok(2147483647, kDINT), Ok(-2147483647, kDINT),
         Ok(-2147483648.0, kDINT), Ok(-2147483648.0, kDINT), Ok(0, kDINT)},
        {{2147483648.0, kUDINT}, {-1, kSINT}, Ok(2147483647, kDINT), Ok(-2147483647, kDINT),
         Ok(-2147483648.0, kDINT), Ok(-2147483648.0, kDINT), Ok(0, kDINT)},
    });
}

TEST_F(Arithmetic, DivisorsThatAreZeroOrTruncateToZero) {
    // 15 leaves the register exactly as it was, type and sign of zero included.
    Check({
        {{7, kDINT}, {0.0, kDINT}, Ok(7, kDINT), Ok(7, kDINT), Ok(0, kDINT), Fails(15), Fails(15)},
        {{7, kDINT}, {-0.0, kDINT}, Ok(7, kDINT), Ok(7, kDINT), Ok(0, kDINT), Fails(15), Fails(15)},
        {{7, kLREAL}, {0.0, kLREAL}, Ok(7, kLREAL), Ok(7, kLREAL), Ok(0, kLREAL), Fails(15), Fails(15)},
        {{1, kLREAL}, {-0.0, kREAL}, Ok(1, kLREAL), Ok(1, kLREAL), Ok(-0.0, kLREAL), Fails(15), Fails(15)},
        // The zero test comes before the type test, so MOD reports 15 for a REAL source.
        {{1.5, kREAL}, {0.0, kDINT}, Ok(1.5, kLREAL), Ok(1.5, kLREAL), Ok(0, kLREAL), Fails(15), Fails(15)},
        // Not 0.0, but 0 in 32 bits under an integer type.
        {{7, kDINT}, {0.5, kDINT}, Ok(7, kDINT), Ok(7, kDINT), Ok(0, kDINT), Fails(15), Fails(15)},
        {{7, kDINT}, {-0.5, kINT}, Ok(7, kDINT), Ok(7, kDINT), Ok(0, kDINT), Fails(15), Fails(15)},
        {{7, kDINT}, {4294967296.0, kUDINT}, Ok(7, kDINT), Ok(7, kDINT), Ok(0, kDINT), Fails(15), Fails(15)},
        {{7, kDINT}, {kNaN, kDINT}, Ok(7, kDINT), Ok(7, kDINT), Ok(0, kDINT), Fails(15), Fails(15)},
        {{7, kDINT}, {kInf, kDINT}, Ok(7, kDINT), Ok(7, kDINT), Ok(0, kDINT), Fails(15), Fails(15)},
        {{7, kDINT}, {-kInf, kDINT}, Ok(7, kDINT), Ok(7, kDINT), Ok(0, kDINT), Fails(15), Fails(15)},
        {{7, kDINT}, {1e300, kDINT}, Ok(7, kDINT), Ok(7, kDINT), Ok(0, kDINT), Fails(15), Fails(15)},
        // The same divisors are fine in floating point.
        {{1, kLREAL}, {0.5, kDINT}, Ok(1.5, kLREAL), Ok(0.5, kLREAL), Ok(0.5, kLREAL), Ok(2, kLREAL), Fails(45)},
        {{1, kREAL}, {4294967296.0, kUDINT}, Ok(4294967297.0, kLREAL), Ok(-4294967295.0, kLREAL),
         Ok(4294967296.0, kLREAL), Ok(1.0 / 4294967296.0, kLREAL), Fails(45)},
    });
}

TEST_F(Arithmetic, FloatingNaNAndInfinities) {
    Check({
        {{kInf, kLREAL}, {1, kDINT}, Ok(kInf, kLREAL), Ok(kInf, kLREAL), Ok(kInf, kLREAL), Ok(kInf, kLREAL),
         Fails(45)},
        {{kNaN, kLREAL}, {1, kDINT}, Ok(kNaN, kLREAL), Ok(kNaN, kLREAL), Ok(kNaN, kLREAL), Ok(kNaN, kLREAL),
         Fails(45)},
        // A NaN divisor passes the zero test.
        {{1, kDINT}, {kNaN, kLREAL}, Ok(kNaN, kLREAL), Ok(kNaN, kLREAL), Ok(kNaN, kLREAL), Ok(kNaN, kLREAL),
         Fails(45)},
        {{kInf, kLREAL}, {kInf, kLREAL}, Ok(kInf, kLREAL), Ok(kNaN, kLREAL), Ok(kInf, kLREAL), Ok(kNaN, kLREAL),
         Fails(45)},
        {{1e300, kLREAL}, {1e300, kLREAL}, Ok(2e300, kLREAL), Ok(0, kLREAL), Ok(kInf, kLREAL), Ok(1, kLREAL),
         Fails(45)},
        {{-1e300, kLREAL}, {1e-300, kLREAL}, Ok(-1e300, kLREAL), Ok(-1e300, kLREAL), Ok(-1e300 * 1e-300, kLREAL),
         Ok(-kInf, kLREAL), Fails(45)},
    });
}

// The operand order: the source is the left operand, the register the right.
TEST_F(Arithmetic, SourceIsTheLeftOperand) {
    m.R0 = {3, kDINT};
    ASSERT_EQ(m.RunText("SUB 10 R0 RET"), 0u);
    EXPECT_TRUE(Holds(m.R0, {7, kDINT}));
    m.R0 = {10, kDINT};
    ASSERT_EQ(m.RunText("SUB 3 R0 RET"), 0u);
    EXPECT_TRUE(Holds(m.R0, {-7, kDINT}));
    m.R0 = {2, kDINT};
    ASSERT_EQ(m.RunText("DIV 7 R0 RET"), 0u);
    EXPECT_TRUE(Holds(m.R0, {3, kDINT}));
    m.R0 = {7, kDINT};
    ASSERT_EQ(m.RunText("DIV 2 R0 RET"), 0u);
    EXPECT_TRUE(Holds(m.R0, {0, kDINT}));
    m.R0 = {2, kDINT};
    ASSERT_EQ(m.RunText("MOD 7 R0 RET"), 0u);
    EXPECT_TRUE(Holds(m.R0, {1, kDINT}));
    m.R0 = {7, kDINT};
    ASSERT_EQ(m.RunText("MOD 2 R0 RET"), 0u);
    EXPECT_TRUE(Holds(m.R0, {2, kDINT}));
}

// ---- the listed corner cases, one test each

TEST_F(Arithmetic, SubtractsTheRegisterFromASintLiteral) {
    m.R0 = {3, kDINT};
    ASSERT_EQ(m.RunText("SUB 10 R0 RET"), 0u);
    EXPECT_TRUE(Holds(m.R0, {7, kDINT}));
}

TEST_F(Arithmetic, DivisionTruncatesTowardZero) {
    m.R0 = {2, kDINT};
    ASSERT_EQ(m.RunText("DIV 7 R0 RET"), 0u);
    EXPECT_TRUE(Holds(m.R0, {3, kDINT}));
    m.R0 = {2, kDINT};
    ASSERT_EQ(m.RunText("DIV -7 R0 RET"), 0u);
    EXPECT_TRUE(Holds(m.R0, {-3, kDINT}));
}

TEST_F(Arithmetic, RemainderHasTheSignOfTheSource) {
    m.R0 = {2, kDINT};
    ASSERT_EQ(m.RunText("MOD -7 R0 RET"), 0u);
    EXPECT_TRUE(Holds(m.R0, {-1, kDINT}));
    m.R0 = {-2, kDINT};
    ASSERT_EQ(m.RunText("MOD 7 R0 RET"), 0u);
    EXPECT_TRUE(Holds(m.R0, {1, kDINT}));
}

TEST_F(Arithmetic, RealLiteralPlusDintGivesLreal) {
    m.R0 = {2, kDINT};
    ASSERT_EQ(m.RunText("ADD 1.5 R0 RET"), 0u);
    EXPECT_TRUE(Holds(m.R0, {3.5, kLREAL}));
}

TEST_F(Arithmetic, LargestDintPlusOneWraps) {
    m.R0 = {1, kDINT};
    ASSERT_EQ(m.RunText("ADD 2147483647 R0 RET"), 0u);
    EXPECT_TRUE(Holds(m.R0, {-2147483648.0, kDINT}));
}

TEST_F(Arithmetic, LargestUdintPlusZeroIsMinusOne) {
    m.R0 = {4294967295.0, kUDINT};
    ASSERT_EQ(m.RunText("ADD 0 R0 RET"), 0u);
    EXPECT_TRUE(Holds(m.R0, {-1, kDINT}));
}

TEST_F(Arithmetic, DivisionByPositiveOrNegativeZeroFails) {
    for (const Val zero : {Val{0.0, kDINT}, Val{-0.0, kDINT}, Val{0.0, kLREAL}, Val{-0.0, kREAL}}) {
        for (const char* op : {"DIV 7 R0 RET", "MOD 7 R0 RET", "DIV 7.5 R0 RET"}) {
            SCOPED_TRACE(std::string(op) + " with R0 = " + Describe(zero));
            m.R0 = {zero.Value, zero.Type};
            EXPECT_EQ(m.RunText(op), 15u);
            EXPECT_TRUE(Holds(m.R0, zero));
        }
    }
}

TEST_F(Arithmetic, DivisionByNaNStoresNaN) {
    m.R0 = {kNaN, kLREAL};
    ASSERT_EQ(m.RunText("DIV 7 R0 RET"), 0u);
    EXPECT_TRUE(Holds(m.R0, {kNaN, kLREAL}));
}

TEST_F(Arithmetic, ModuloChecksZeroBeforeFloatingType) {
    m.R0 = {0, kDINT};
    EXPECT_EQ(m.RunText("MOD 1.5 R0 RET"), 15u);
    EXPECT_TRUE(Holds(m.R0, {0, kDINT}));
    m.R0 = {2, kDINT};
    EXPECT_EQ(m.RunText("MOD 1.5 R0 RET"), 45u);
    EXPECT_TRUE(Holds(m.R0, {2, kDINT}));
    m.R0 = {2.5, kREAL};
    EXPECT_EQ(m.RunText("MOD 7 R0 RET"), 45u);
    EXPECT_TRUE(Holds(m.R0, {2.5, kREAL}));
}

TEST_F(Arithmetic, DivisorsZeroOnlyInThirtyTwoBitsFail) {
    for (const Val divisor : {Val{0.5, kDINT}, Val{4294967296.0, kDINT}, Val{-0.25, kUDINT}}) {
        for (const char* op : {"DIV 7 R0 RET", "MOD 7 R0 RET"}) {
            SCOPED_TRACE(std::string(op) + " with R0 = " + Describe(divisor));
            m.R0 = {divisor.Value, divisor.Type};
            EXPECT_EQ(m.RunText(op), 15u);
            EXPECT_TRUE(Holds(m.R0, divisor));
        }
    }
}

TEST_F(Arithmetic, SmallestDintDividedByMinusOne) {
    m.R0 = {-1, kDINT};
    ASSERT_EQ(m.RunText("DIV -2147483648 R0 RET"), 0u);
    EXPECT_TRUE(Holds(m.R0, {-2147483648.0, kDINT}));
    m.R0 = {-1, kDINT};
    ASSERT_EQ(m.RunText("MOD -2147483648 R0 RET"), 0u);
    EXPECT_TRUE(Holds(m.R0, {0, kDINT}));
}

// ---- operand kinds

TEST_F(Arithmetic, SourceOperandKinds) {
    Declare("X", char(ttV), kSINT, 200);  // narrowed on reading: -56
    Declare("Y", char(ttV), kLREAL, 2.75);
    Declare("P", char(ttV), kDINT, 0);
    m.R0 = {0, kDINT};
    ASSERT_EQ(m.RunText("ADD @X R0 RET"), 0u);
    EXPECT_TRUE(Holds(m.R0, {-56, kDINT}));

    // Through a reference the value takes the reference variable's type.
    ASSERT_EQ(m.RunText("MOVA @Y @P RET"), 0u);
    m.R0 = {0.5, kLREAL};
    ASSERT_EQ(m.RunText("ADD ^P R0 RET"), 0u);
    EXPECT_TRUE(Holds(m.R0, {2.5, kLREAL}));
    m.R0 = {1, kDINT};
    ASSERT_EQ(m.RunText("ADD ^P R0 RET"), 0u);
    EXPECT_TRUE(Holds(m.R0, {3, kDINT}));

    m.StackPush(kUSINT, 250);
    m.R0 = {10, kDINT};
    ASSERT_EQ(m.RunText("ADD POP R0 RET"), 0u);
    EXPECT_TRUE(Holds(m.R0, {260, kDINT}));
    EXPECT_TRUE(m.Stack.empty());

    m.A0 = {5, kINT};
    m.R0 = {1, kDINT};
    ASSERT_EQ(m.RunText("MUL A0 R0 RET"), 0u);
    EXPECT_TRUE(Holds(m.R0, {5, kDINT}));
    ASSERT_EQ(m.RunText("ADD R0 R0 RET"), 0u);
    EXPECT_TRUE(Holds(m.R0, {10, kDINT}));

    m.R1 = {1, kDINT};
    ASSERT_EQ(m.RunText("SUB 16#FF R1 RET"), 0u);
    EXPECT_TRUE(Holds(m.R1, {254, kDINT}));
    m.A0 = {4, kDINT};
    ASSERT_EQ(m.RunText("DIV 1.0 A0 RET"), 0u);
    EXPECT_TRUE(Holds(m.A0, {0.25, kLREAL}));
}

TEST_F(Arithmetic, RegistersAreReadAsStored) {
    // Only variables are narrowed: a USINT register holding 300 takes part as 300.
    Expect("ADD", {300, kUSINT}, {1, kUSINT}, Ok(301, kDINT));
}

// Codes for operands the instructions refuse, per family, with the register untouched.
struct BadOperand {
    const char* Source;
    const char* Destination;
    Qz::uint32_t Rc;  // 0: the family's own wrong-operand code
};

const BadOperand kBadOperands[] = {
    {"PUSH", "R0", 0},    {"TICK", "R0", 0},   {"NAME", "R0", 0},  {"MOV", "R0", 0},   {"BODY", "R0", 0},
    {"DINT", "R0", 0},    {"V", "R0", 0},      {"#MAIN", "R0", 0}, {"1", "@X", 0},     {"1", "^P", 0},
    {"1", "5", 0},        {"1", "1.5", 0},     {"1", "PUSH", 0},   {"1", "POP", 0},    {"1", "TICK", 0},
    {"1", "NAME", 0},     {"1", "BODY", 0},    {"NIL", "R0", 27},  {"1", "NIL", 27},   {"@NOPE", "R0", 23},
    {"^NOPE", "R0", 23},  {"^X", "R0", 23},    {"@S", "R0", 10},   {"@", "R0", 39},    {"#FOO", "R0", 41},
    {"POP", "R0", 11},
};

void CheckBadOperands(TestMachine& m, const char* op, Qz::uint32_t own) {
    m.Vars.lookup("X", char(ttV), kDINT, 4, 0, true);  // holds a number, not a handle
    m.Vars.lookup("P", char(ttV), kDINT, 4, 0, true);
    m.Vars.lookup("S", char(ttV), kSTRING, 4, 0, true);
    for (const BadOperand& bad : kBadOperands) {
        const std::string text = std::string(op) + " " + bad.Source + " " + bad.Destination + " RET";
        SCOPED_TRACE(text);
        m.Stack.clear();
        m.R0 = {2, kDINT};
        EXPECT_EQ(m.RunText(text), bad.Rc ? bad.Rc : own);
        EXPECT_TRUE(Holds(m.R0, {2, kDINT}));
    }
}

TEST_F(Arithmetic, WrongOperandsGive44) {
    for (const char* op : kArithmetic) CheckBadOperands(m, op, 44);
}

TEST_F(Arithmetic, PoppedSourceStaysPoppedWhenTheDestinationIsWrong) {
    for (const char* op : kArithmetic) {
        for (const char* destination : {"@X", "5", "PUSH", "NIL"}) {
            const std::string text = std::string(op) + " POP " + destination + " RET";
            SCOPED_TRACE(text);
            m.Stack.clear();
            m.StackPush(kDINT, 9);
            EXPECT_EQ(m.RunText(text), std::string(destination) == "NIL" ? 27u : 44u);
            EXPECT_TRUE(m.Stack.empty());
        }
    }
}

TEST_F(Arithmetic, ListedOperandFailures) {
    m.R0 = {2, kDINT};
    EXPECT_EQ(m.RunText("ADD POP R0 RET"), 11u);
    EXPECT_EQ(m.RunText("ADD 1 NIL RET"), 27u);
    Declare("X", char(ttV), kDINT, 0);
    EXPECT_EQ(m.RunText("ADD 1 @X RET"), 44u);
    EXPECT_EQ(m.RunText("EQ 1 5 RET"), 46u);
    EXPECT_EQ(m.RunText("POW 1 POP RET"), 62u);
    EXPECT_TRUE(Holds(m.R0, {2, kDINT}));
}

TEST_F(Arithmetic, BothOperandsAreReadBeforeAnyCheck) {
    // NIL as the register fails as a read, before the divisor or the types are looked at.
    EXPECT_EQ(m.RunText("MOD 1.5 NIL RET"), 27u);
    EXPECT_EQ(m.RunText("DIV 7 NIL RET"), 27u);
    // A popped source stays popped when the division then fails.
    m.StackPush(kDINT, 7);
    m.R0 = {0, kDINT};
    EXPECT_EQ(m.RunText("DIV POP R0 RET"), 15u);
    EXPECT_TRUE(m.Stack.empty());
    m.StackPush(kREAL, 7);
    m.R0 = {2, kDINT};
    EXPECT_EQ(m.RunText("MOD POP R0 RET"), 45u);
    EXPECT_TRUE(m.Stack.empty());
    EXPECT_TRUE(Holds(m.R0, {2, kDINT}));
}

TEST_F(Arithmetic, CodesOutsideTheFamilyAreRefused) {
    for (uint8_t code : {uint8_t(ttCAL), uint8_t(ttNE), uint8_t(ttRET), uint8_t(0x37), uint8_t(0x3d)}) {
        m.R0 = {2, kDINT};
        m.R1 = {3, kDINT};
        m.SetProgram("R1 R0 RET");
        EXPECT_EQ(m.DoArithmetic(char(code)), 44u) << int(code);
        EXPECT_TRUE(Holds(m.R0, {2, kDINT}));
    }
}

TEST_F(Arithmetic, ResultGoesToAnyRegister) {
    m.A0 = {1, kDINT};
    m.R0 = {10, kDINT};
    m.R1 = {100, kDINT};
    ASSERT_EQ(m.RunText("ADD 5 A0 RET"), 0u);
    ASSERT_EQ(m.RunText("SUB 5 R1 RET"), 0u);
    EXPECT_TRUE(Holds(m.A0, {6, kDINT}));
    EXPECT_TRUE(Holds(m.R0, {10, kDINT}));
    EXPECT_TRUE(Holds(m.R1, {-95, kDINT}));
}

// ---------------------------------------------------------------- comparisons

const char* const kComparisons[] = {"NE", "EQ", "GT", "GE", "LT", "LE"};
const char* const kTypeNames[] = {"BOOL", "SINT", "USINT", "INT", "UINT", "DINT", "UDINT", "REAL", "LREAL"};

struct CompareRow {
    Val S;
    Val D;
    bool Result[6];  // NE EQ GT GE LT LE
};

class Comparison : public Operators {
public:
    void Check(const CompareRow& row) {
        for (int i = 0; i < 6; ++i) Expect(kComparisons[i], row.S, row.D, Ok(row.Result[i] ? 1.0 : 0.0, kBOOL));
    }
};

TEST_F(Comparison, EveryTypeCodeComparesByValueOnly) {
    const char types[] = {kBOOL, kSINT, kUSINT, kINT, kUINT, kDINT, kUDINT, kREAL, kLREAL, kSTRING, kNoType};
    for (char t : types) {
        SCOPED_TRACE(::testing::Message() << "type 0x" << std::hex << int(static_cast<unsigned char>(t)));
        Check({{1, t}, {1, kLREAL}, {false, true, false, true, false, true}});
        Check({{1, t}, {2, kDINT}, {true, false, false, false, true, true}});
        Check({{3, kDINT}, {2, t}, {true, false, true, true, false, false}});
        Check({{2, t}, {2, t}, {false, true, false, true, false, true}});
    }
}

TEST_F(Comparison, NaNZeroesAndInfinities) {
    // Only NE holds when either side is NaN.
    Check({{kNaN, kLREAL}, {kNaN, kLREAL}, {true, false, false, false, false, false}});
    Check({{kNaN, kREAL}, {1, kDINT}, {true, false, false, false, false, false}});
    Check({{1, kDINT}, {kNaN, kLREAL}, {true, false, false, false, false, false}});
    Check({{0.0, kLREAL}, {-0.0, kLREAL}, {false, true, false, true, false, true}});
    Check({{kInf, kLREAL}, {1e300, kLREAL}, {true, false, true, true, false, false}});
    Check({{-kInf, kLREAL}, {-kInf, kLREAL}, {false, true, false, true, false, true}});
    // Values, not 32-bit views: UDINT 4294967295 is not DINT -1.
    Check({{4294967295.0, kUDINT}, {-1, kDINT}, {true, false, true, true, false, false}});
    // A REAL keeps the single-precision value it was rounded to.
    Check({{0.1, kLREAL}, {double(0.1f), kREAL}, {true, false, false, false, true, true}});
    Check({{5, kSINT}, {5.0, kREAL}, {false, true, false, true, false, true}});
}

TEST_F(Comparison, NaNIsUnequalToItself) {
    m.R0 = {kNaN, kLREAL};
    m.R1 = {kNaN, kLREAL};
    ASSERT_EQ(m.RunText("EQ R1 R0 RET"), 0u);
    EXPECT_TRUE(Holds(m.R0, {0.0, kBOOL}));
    m.R0 = {kNaN, kLREAL};
    ASSERT_EQ(m.RunText("NE R1 R0 RET"), 0u);
    EXPECT_TRUE(Holds(m.R0, {1.0, kBOOL}));
}

TEST_F(Comparison, ResultTypeIsBoolWhateverTheRegisterHeld) {
    for (const char* op : kComparisons) {
        for (int t = 0; t < 9; ++t) {
            SCOPED_TRACE(std::string(op) + " on a " + kTypeNames[t] + " register");
            m.A0 = {4, char(ttBOOL + t)};
            ASSERT_EQ(m.RunText(std::string(op) + " 4 A0 RET"), 0u);
            EXPECT_EQ(m.A0.ValueType, kBOOL);
            EXPECT_TRUE(m.A0.Value == 0.0 || m.A0.Value == 1.0);
        }
    }
}

TEST_F(Comparison, SourceIsTheLeftOperand) {
    m.R0 = {2, kDINT};
    ASSERT_EQ(m.RunText("GT 3 R0 RET"), 0u);
    EXPECT_TRUE(Holds(m.R0, {1, kBOOL}));
    m.R0 = {2, kDINT};
    ASSERT_EQ(m.RunText("LT 3 R0 RET"), 0u);
    EXPECT_TRUE(Holds(m.R0, {0, kBOOL}));
    m.R0 = {3, kDINT};
    ASSERT_EQ(m.RunText("GE 2 R0 RET"), 0u);
    EXPECT_TRUE(Holds(m.R0, {0, kBOOL}));
    m.R0 = {3, kDINT};
    ASSERT_EQ(m.RunText("LE 2 R0 RET"), 0u);
    EXPECT_TRUE(Holds(m.R0, {1, kBOOL}));
}

TEST_F(Comparison, TestFlagIsNotTouched) {
    for (char flag : {char(0), char(1)}) {
        for (const char* op : kComparisons) {
            m.TestFlag = flag;
            m.R0 = {flag ? 0.0 : 1.0, kDINT};
            ASSERT_EQ(m.RunText(std::string(op) + " 1 R0 RET"), 0u);
            EXPECT_EQ(m.TestFlag, flag) << op;
        }
    }
}

TEST_F(Comparison, VariableSourcesAreNarrowedFirst) {
    Declare("B", char(ttV), kUSINT, 300);  // reads as 44
    m.R0 = {44, kDINT};
    ASSERT_EQ(m.RunText("EQ @B R0 RET"), 0u);
    EXPECT_TRUE(Holds(m.R0, {1, kBOOL}));
}

TEST_F(Comparison, WrongOperandsGive46) {
    for (const char* op : kComparisons) CheckBadOperands(m, op, 46);
}

TEST_F(Comparison, CodesOutsideTheFamilyAreRefused) {
    for (uint8_t code : {uint8_t(ttADD), uint8_t(ttMOD), uint8_t(ttTST), uint8_t(ttPOW)}) {
        m.R0 = {2, kDINT};
        m.R1 = {2, kDINT};
        m.SetProgram("R1 R0 RET");
        EXPECT_EQ(m.DoCompare(char(code)), 46u) << int(code);
        EXPECT_TRUE(Holds(m.R0, {2, kDINT}));
    }
}

// ---------------------------------------------------------------- power

class Power : public Operators {};

TEST_F(Power, EveryTypeGivesLreal) {
    struct Row {
        Val S;
        Val D;
        double Result;
    };
    const Row rows[] = {
        {{2, kSINT}, {10, kDINT}, 1024},
        {{1, kBOOL}, {5, kDINT}, 1},
        {{3, kUSINT}, {4, kUINT}, 81},
        {{-2, kINT}, {3, kSINT}, -8},
        {{10, kDINT}, {-2, kSINT}, 0x1.47ae147ae147bp-7},  // the double nearest 0.01
        {{4294967295.0, kUDINT}, {0, kDINT}, 1},
        {{1.5, kREAL}, {2, kDINT}, 2.25},
        {{2, kLREAL}, {0.5, kLREAL}, 0x1.6a09e667f3bcdp+0},  // the double nearest sqrt(2)
        {{3, kSTRING}, {2, kNoType}, 9},
        {{2, kDINT}, {2, kBOOL}, 4},
        // No integer view: a DINT register holding 2.5 is squared as 2.5.
        {{2.5, kDINT}, {2, kDINT}, 6.25},
        {{4294967296.0, kUDINT}, {0.5, kREAL}, 65536},
    };
    for (const Row& row : rows) Expect("POW", row.S, row.D, Ok(row.Result, kLREAL));
}

TEST_F(Power, DomainIsNotChecked) {
    struct Row {
        Val S;
        Val D;
        double Result;
    };
    const Row rows[] = {
        {{-8, kSINT}, {0.5, kLREAL}, kNaN},
        {{0, kDINT}, {-1, kDINT}, kInf},
        {{-0.0, kLREAL}, {-1, kDINT}, -kInf},
        {{kNaN, kLREAL}, {0, kDINT}, 1},
        {{1, kDINT}, {kNaN, kLREAL}, 1},
        {{2, kDINT}, {kNaN, kLREAL}, kNaN},
        {{-kInf, kLREAL}, {3, kSINT}, -kInf},
        {{10, kDINT}, {400, kINT}, kInf},
        {{1e300, kLREAL}, {-2, kDINT}, 0},
    };
    for (const Row& row : rows) Expect("POW", row.S, row.D, Ok(row.Result, kLREAL));
}

TEST_F(Power, TwoToTheTenth) {
    m.R0 = {10, kDINT};
    ASSERT_EQ(m.RunText("POW 2 R0 RET"), 0u);
    EXPECT_TRUE(Holds(m.R0, {1024, kLREAL}));
}

TEST_F(Power, NegativeBaseToAHalfIsNaNAndSucceeds) {
    m.R0 = {0.5, kREAL};
    ASSERT_EQ(m.RunText("POW -8 R0 RET"), 0u);
    EXPECT_TRUE(Holds(m.R0, {kNaN, kLREAL}));
}

TEST_F(Power, SourceIsTheBase) {
    m.R0 = {2, kDINT};
    ASSERT_EQ(m.RunText("POW 3 R0 RET"), 0u);
    EXPECT_TRUE(Holds(m.R0, {9, kLREAL}));
    m.R0 = {3, kDINT};
    ASSERT_EQ(m.RunText("POW 2 R0 RET"), 0u);
    EXPECT_TRUE(Holds(m.R0, {8, kLREAL}));
}

TEST_F(Power, WrongOperandsGive62) { CheckBadOperands(m, "POW", 62); }

}  // namespace
