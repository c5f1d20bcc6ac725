// The machine core: ConvertDim, registers, the value stack, source operand
// decoding and the TICK source.
#include "test_machine.h"

#include <gtest/gtest.h>

#include <cfloat>
#include <cmath>
#include <limits>
#include <sstream>
#include <string>

namespace {

constexpr char kBOOL = 0x20, kSINT = 0x21, kUSINT = 0x22, kINT = 0x23, kUINT = 0x24, kDINT = 0x25, kUDINT = 0x26,
               kREAL = 0x27, kLREAL = 0x28, kSTRING = 0x29;
constexpr char kA0 = char(0x81), kR0 = char(0x82), kR1 = char(0x83), kNIL = char(0x84);
constexpr char kV = 0x14;

const double kNaN = std::numeric_limits<double>::quiet_NaN();
const double kInf = std::numeric_limits<double>::infinity();
const double kDenorm = std::numeric_limits<double>::denorm_min();
const double kTwo63 = 9223372036854775808.0;
const double kBelowTwo63 = 9223372036854774784.0;  // the largest double under 2^63
const double kRealClamp = 3.402823466e38;

// Equal as doubles, NaN equal to NaN, and the sign of zero kept apart.
::testing::AssertionResult Same(double actual, double expected) {
    if (std::isnan(expected) && std::isnan(actual)) return ::testing::AssertionSuccess();
    if (actual == expected && std::signbit(actual) == std::signbit(expected)) return ::testing::AssertionSuccess();
    std::ostringstream os;
    os.precision(17);
    os << "got " << actual << ", expected " << expected;
    return ::testing::AssertionFailure() << os.str();
}

// ---- ConvertDim ----

struct ConvertCase {
    double Value;
    char Type;
    double Expected;
};

void PrintTo(const ConvertCase& c, std::ostream* os) {
    os->precision(17);
    *os << c.Value << " as 0x" << std::hex << int(static_cast<unsigned char>(c.Type)) << std::dec << " -> "
        << c.Expected;
}

class ConvertDimTest : public ::testing::TestWithParam<ConvertCase> {};

TEST_P(ConvertDimTest, Narrows) {
    double out = 12345.5;
    ASSERT_EQ(CQZ_STInterpretator_Execute::ConvertDim(GetParam().Value, out, GetParam().Type), 0u);
    EXPECT_TRUE(Same(out, GetParam().Expected));
}

const ConvertCase kBoolCases[] = {
    {0.0, kBOOL, 0.0},   {-0.0, kBOOL, 0.0},     {1.0, kBOOL, 1.0},      {-1.0, kBOOL, 1.0},     {0.5, kBOOL, 1.0},
    {kNaN, kBOOL, 1.0},  {kInf, kBOOL, 1.0},     {-kInf, kBOOL, 1.0},    {kDenorm, kBOOL, 1.0},  {-kDenorm, kBOOL, 1.0},
    {1e308, kBOOL, 1.0}, {kTwo63, kBOOL, 1.0},   {255.0, kBOOL, 1.0},
};
const ConvertCase kSintCases[] = {
    {0.0, kSINT, 0.0},      {-0.0, kSINT, 0.0},       {2.9, kSINT, 2.0},         {-2.9, kSINT, -2.0},
    {127.0, kSINT, 127.0},  {127.9, kSINT, 127.0},    {128.0, kSINT, -128.0},    {200.0, kSINT, -56.0},
    {255.0, kSINT, -1.0},   {256.0, kSINT, 0.0},      {300.0, kSINT, 44.0},      {-128.0, kSINT, -128.0},
    {-129.0, kSINT, 127.0}, {-0.9, kSINT, 0.0},       {kNaN, kSINT, 0.0},        {kInf, kSINT, 0.0},
    {-kInf, kSINT, 0.0},    {kDenorm, kSINT, 0.0},    {-kDenorm, kSINT, 0.0},    {1e308, kSINT, 0.0},
    {-1e308, kSINT, 0.0},   {kTwo63, kSINT, 0.0},     {-kTwo63, kSINT, 0.0},     {2 * kTwo63, kSINT, 0.0},
    {kBelowTwo63, kSINT, 0.0}, {1e300, kSINT, 0.0},   {1e10, kSINT, 0.0},        {-kBelowTwo63, kSINT, 0.0},
};
const ConvertCase kUsintCases[] = {
    {300.0, kUSINT, 44.0},  {-1.0, kUSINT, 255.0},  {255.9, kUSINT, 255.0}, {256.0, kUSINT, 0.0},
    {511.0, kUSINT, 255.0}, {-0.5, kUSINT, 0.0},    {-0.0, kUSINT, 0.0},    {-128.0, kUSINT, 128.0},
    {kNaN, kUSINT, 0.0},    {kInf, kUSINT, 0.0},    {kTwo63, kUSINT, 0.0},  {1e308, kUSINT, 0.0},
    {kDenorm, kUSINT, 0.0},
};
const ConvertCase kIntCases[] = {
    {32767.0, kINT, 32767.0},  {32768.0, kINT, -32768.0}, {65535.0, kINT, -1.0},   {65536.0, kINT, 0.0},
    {-32768.0, kINT, -32768.0}, {-32769.0, kINT, 32767.0}, {70000.0, kINT, 4464.0}, {1e300, kINT, 0.0},
    {kBelowTwo63, kINT, -1024.0}, {kNaN, kINT, 0.0},      {-kInf, kINT, 0.0},      {-2.5, kINT, -2.0},
};
const ConvertCase kUintCases[] = {
    {-1.0, kUINT, 65535.0},    {65535.0, kUINT, 65535.0}, {65536.0, kUINT, 0.0},  {70000.0, kUINT, 4464.0},
    {-2.9, kUINT, 65534.0},    {kBelowTwo63, kUINT, 64512.0}, {kNaN, kUINT, 0.0}, {kTwo63, kUINT, 0.0},
    {-32768.0, kUINT, 32768.0},
};
const ConvertCase kDintCases[] = {
    {2147483647.0, kDINT, 2147483647.0}, {2147483648.0, kDINT, -2147483648.0}, {4294967295.0, kDINT, -1.0},
    {4294967296.0, kDINT, 0.0},          {-2147483648.0, kDINT, -2147483648.0}, {-2147483649.0, kDINT, 2147483647.0},
    {1e300, kDINT, 0.0},                 {1e10, kDINT, 1410065408.0},           {kBelowTwo63, kDINT, -1024.0},
    {kTwo63, kDINT, 0.0},                {-kTwo63, kDINT, 0.0},                 {kNaN, kDINT, 0.0},
    {kInf, kDINT, 0.0},                  {-1e308, kDINT, 0.0},                  {-7.99, kDINT, -7.0},
    {-0.0, kDINT, 0.0},
};
const ConvertCase kUdintCases[] = {
    {-1.0, kUDINT, 4294967295.0},         {4294967295.0, kUDINT, 4294967295.0}, {4294967296.0, kUDINT, 0.0},
    {4294967297.0, kUDINT, 1.0},          {-2147483648.0, kUDINT, 2147483648.0}, {1e10, kUDINT, 1410065408.0},
    {kBelowTwo63, kUDINT, 4294966272.0},  {kTwo63, kUDINT, 0.0},                 {kNaN, kUDINT, 0.0},
    {-kInf, kUDINT, 0.0},                 {3000000000.5, kUDINT, 3000000000.0},  {kDenorm, kUDINT, 0.0},
};
const ConvertCase kRealCases[] = {
    {0.1, kREAL, double(0.1f)},
    {1.5, kREAL, 1.5},
    {16777217.0, kREAL, 16777216.0},
    {1e39, kREAL, kRealClamp},
    {-1e39, kREAL, -kRealClamp},
    {kInf, kREAL, kRealClamp},
    {-kInf, kREAL, -kRealClamp},
    {1e308, kREAL, kRealClamp},
    {-1e308, kREAL, -kRealClamp},
    {3.4028235e38, kREAL, kRealClamp},       // above the bound, below FLT_MAX: clamped, not rounded
    {kRealClamp, kREAL, double(FLT_MAX)},    // at the bound: rounded to single precision
    {-kRealClamp, kREAL, -double(FLT_MAX)},
    {kNaN, kREAL, kNaN},
    {-0.0, kREAL, -0.0},
    {kDenorm, kREAL, 0.0},
    {-kDenorm, kREAL, -0.0},
    {1e-45, kREAL, double(std::numeric_limits<float>::denorm_min())},
    {kTwo63, kREAL, kTwo63},
};
const ConvertCase kLrealCases[] = {
    {0.1, kLREAL, 0.1},       {kNaN, kLREAL, kNaN},       {-0.0, kLREAL, -0.0},     {kDenorm, kLREAL, kDenorm},
    {kInf, kLREAL, kInf},     {-kInf, kLREAL, -kInf},     {1e308, kLREAL, 1e308},   {-1e308, kLREAL, -1e308},
    {1e39, kLREAL, 1e39},     {kTwo63, kLREAL, kTwo63},   {-kDenorm, kLREAL, -kDenorm},
};

INSTANTIATE_TEST_SUITE_P(Bool, ConvertDimTest, ::testing::ValuesIn(kBoolCases));
INSTANTIATE_TEST_SUITE_P(Sint, ConvertDimTest, ::testing::ValuesIn(kSintCases));
INSTANTIATE_TEST_SUITE_P(Usint, ConvertDimTest, ::testing::ValuesIn(kUsintCases));
INSTANTIATE_TEST_SUITE_P(Int, ConvertDimTest, ::testing::ValuesIn(kIntCases));
INSTANTIATE_TEST_SUITE_P(Uint, ConvertDimTest, ::testing::ValuesIn(kUintCases));
INSTANTIATE_TEST_SUITE_P(Dint, ConvertDimTest, ::testing::ValuesIn(kDintCases));
INSTANTIATE_TEST_SUITE_P(Udint, ConvertDimTest, ::testing::ValuesIn(kUdintCases));
INSTANTIATE_TEST_SUITE_P(Real, ConvertDimTest, ::testing::ValuesIn(kRealCases));
INSTANTIATE_TEST_SUITE_P(Lreal, ConvertDimTest, ::testing::ValuesIn(kLrealCases));

TEST(ConvertDim, ClampIsTheDecimalBoundNotFltMax) {
    double out = 0;
    ASSERT_EQ(CQZ_STInterpretator_Execute::ConvertDim(1e39, out, kREAL), 0u);
    EXPECT_EQ(out, 3.402823466e38);
    EXPECT_NE(out, double(FLT_MAX));
}

TEST(ConvertDim, RefusedTypesReturn10AndLeaveTheOutput) {
    const char refused[] = {kSTRING, 0x2a, 0x1f, 0x00, 0x14, 0x1c, 0x2b, 0x30, 0x7f, char(0x80), char(0x81),
                            char(0xff)};
    for (char type : refused) {
        for (double value : {0.0, 1.0, kNaN}) {
            double out = 12345.5;
            EXPECT_EQ(CQZ_STInterpretator_Execute::ConvertDim(value, out, type), 10u) << int(type);
            EXPECT_EQ(out, 12345.5) << int(type);
        }
    }
}

TEST(ConvertDim, OutputMayBeTheInput) {
    double v = 300.0;
    ASSERT_EQ(CQZ_STInterpretator_Execute::ConvertDim(v, v, kUSINT), 0u);
    EXPECT_EQ(v, 44.0);
}

// ---- Registers ----

TEST(Registers, StartAsZeroOfTypeZeroWithTheFlagClear) {
    TestMachine m;
    for (char reg : {kA0, kR0, kR1}) {
        char type = 9;
        double value = 9;
        ASSERT_EQ(m.GetValueFromRegister(reg, type, value), 0u);
        EXPECT_EQ(type, 0);
        EXPECT_TRUE(Same(value, 0.0));
    }
    EXPECT_EQ(m.TestFlag, 0);
}

TEST(Registers, StoreTypeAndValueUnconverted) {
    TestMachine m;
    const struct {
        char Reg;
        char Type;
        double Value;
    } rows[] = {{kA0, kBOOL, 1.5}, {kR0, kSTRING, -0.0}, {kR1, char(0xee), kNaN}, {kR0, kSINT, 300.0},
                {kA0, kLREAL, kDenorm}};
    for (const auto& row : rows) {
        ASSERT_EQ(m.SetValueToRegister(row.Reg, row.Type, row.Value), 0u);
        char type = 0;
        double value = 0;
        ASSERT_EQ(m.GetValueFromRegister(row.Reg, type, value), 0u);
        EXPECT_EQ(type, row.Type);
        EXPECT_TRUE(Same(value, row.Value));
    }
}

TEST(Registers, EachRegisterIsItsOwnSlot) {
    TestMachine m;
    m.SetValueToRegister(kA0, kINT, 1);
    m.SetValueToRegister(kR0, kDINT, 2);
    m.SetValueToRegister(kR1, kREAL, 3);
    EXPECT_EQ(m.A0.Value, 1.0);
    EXPECT_EQ(m.A0.ValueType, kINT);
    EXPECT_EQ(m.R0.Value, 2.0);
    EXPECT_EQ(m.R0.ValueType, kDINT);
    EXPECT_EQ(m.R1.Value, 3.0);
    EXPECT_EQ(m.R1.ValueType, kREAL);
}

TEST(Registers, NilDiscardsWritesAndRefusesReads) {
    TestMachine m;
    m.SetValueToRegister(kA0, kINT, 1);
    m.SetValueToRegister(kR0, kINT, 2);
    m.SetValueToRegister(kR1, kINT, 3);
    EXPECT_EQ(m.SetValueToRegister(kNIL, kREAL, 99), 0u);
    EXPECT_EQ(m.A0.Value + m.R0.Value + m.R1.Value, 6.0);
    char type = 7;
    double value = 7.5;
    EXPECT_EQ(m.GetValueFromRegister(kNIL, type, value), 27u);
    EXPECT_EQ(type, 7);
    EXPECT_EQ(value, 7.5);
}

TEST(Registers, OtherCodesAreNoRegisters) {
    TestMachine m;
    m.SetValueToRegister(kR0, kINT, 2);
    for (char code : {char(0x80), char(0x85), char(0x91), char(0x92), char(0xa1), char(0x00), char(0x20), char(0x36),
                      char(0xff)}) {
        char type = 7;
        double value = 7.5;
        EXPECT_EQ(m.GetValueFromRegister(code, type, value), 27u) << int(code);
        EXPECT_EQ(type, 7);
        EXPECT_EQ(value, 7.5);
        EXPECT_EQ(m.SetValueToRegister(code, kREAL, 9), 27u) << int(code);
    }
    EXPECT_EQ(m.A0.Value, 0.0);
    EXPECT_EQ(m.R0.Value, 2.0);
    EXPECT_EQ(m.R1.Value, 0.0);
}

// ---- The value stack ----

TEST(ValueStack, PopOnEmptyReturns11AndLeavesTheOutputs) {
    TestMachine m;
    char type = 7;
    double value = 7.5;
    EXPECT_EQ(m.StackPop(type, value), 11u);
    EXPECT_EQ(type, 7);
    EXPECT_EQ(value, 7.5);
    EXPECT_TRUE(m.Stack.empty());
}

TEST(ValueStack, ThirtyThreeValuesComeBackInReverseWithTheirTypes) {
    TestMachine m;
    for (int i = 0; i < 33; ++i) ASSERT_EQ(m.StackPush(char(kBOOL + i % 9), i * 1.5), 0u);
    EXPECT_EQ(m.Stack.size(), 33u);
    for (int i = 32; i >= 0; --i) {
        char type = 0;
        double value = 0;
        ASSERT_EQ(m.StackPop(type, value), 0u);
        EXPECT_EQ(type, char(kBOOL + i % 9));
        EXPECT_EQ(value, i * 1.5);
    }
    char type = 0;
    double value = 0;
    EXPECT_EQ(m.StackPop(type, value), 11u);
}

TEST(ValueStack, ManyBlocksAndInterleavedUse) {
    TestMachine m;
    for (int i = 0; i < 1000; ++i) m.StackPush(kDINT, i);
    char type;
    double value;
    for (int i = 999; i >= 500; --i) {
        ASSERT_EQ(m.StackPop(type, value), 0u);
        ASSERT_EQ(value, i);
    }
    for (int i = 0; i < 100; ++i) m.StackPush(kREAL, -double(i));
    for (int i = 99; i >= 0; --i) {
        ASSERT_EQ(m.StackPop(type, value), 0u);
        ASSERT_TRUE(Same(value, -double(i)));
        ASSERT_EQ(type, kREAL);
    }
    EXPECT_EQ(m.Stack.size(), 500u);
}

TEST(ValueStack, KeepsOddTypesAndValues) {
    TestMachine m;
    m.StackPush(char(0xee), kNaN);
    m.StackPush(kSTRING, -0.0);
    char type;
    double value;
    ASSERT_EQ(m.StackPop(type, value), 0u);
    EXPECT_EQ(type, kSTRING);
    EXPECT_TRUE(Same(value, -0.0));
    ASSERT_EQ(m.StackPop(type, value), 0u);
    EXPECT_EQ(type, char(0xee));
    EXPECT_TRUE(std::isnan(value));
}

// ---- Source operands, decoded by MOV ----

Var* Declare(TestMachine& m, const char* name, char type, double value, char kind = kV) {
    return m.Vars.lookup(name, kind, type, value, 0, true);
}

TEST(SourceOperand, VariableIsNarrowedToItsTypeOnReading) {
    TestMachine m;
    Var* x = Declare(m, "X", kSINT, 200);
    ASSERT_EQ(m.RunText("MOV @X R0 RET"), 0u);
    EXPECT_EQ(m.R0.Value, -56.0);
    EXPECT_EQ(m.R0.ValueType, kSINT);
    EXPECT_EQ(x->VarValue, 200.0);  // the variable itself is not written
}

TEST(SourceOperand, VariableOfEveryType) {
    const struct {
        char Type;
        double Stored, Read;
    } rows[] = {{kBOOL, 7, 1},         {kSINT, 300, 44},      {kUSINT, -1, 255},   {kINT, 70000, 4464},
                {kUINT, -1, 65535},    {kDINT, 1e10, 1410065408}, {kUDINT, -1, 4294967295.0},
                {kREAL, 0.1, double(0.1f)}, {kLREAL, 0.1, 0.1}};
    for (const auto& row : rows) {
        TestMachine m;
        Declare(m, "v", row.Type, row.Stored);
        ASSERT_EQ(m.RunText("MOV @V R1 RET"), 0u);
        EXPECT_EQ(m.R1.Value, row.Read) << int(row.Type);
        EXPECT_EQ(m.R1.ValueType, row.Type);
    }
}

TEST(SourceOperand, VariableNameIgnoresCase) {
    TestMachine m;
    Declare(m, "Speed", kINT, 12);
    ASSERT_EQ(m.RunText("MOV @sPeEd R0 RET"), 0u);
    EXPECT_EQ(m.R0.Value, 12.0);
}

TEST(SourceOperand, MissingVariableGives23AndNothingChanges) {
    TestMachine m;
    m.SetValueToRegister(kR0, kINT, 5);
    EXPECT_EQ(m.RunText("MOV @NOPE R0 RET"), 23u);
    EXPECT_EQ(m.R0.Value, 5.0);
}

TEST(SourceOperand, StringVariableGives10) {
    TestMachine m;
    Declare(m, "S", kSTRING, 1);
    m.SetValueToRegister(kR0, kINT, 5);
    EXPECT_EQ(m.RunText("MOV @S R0 RET"), 10u);
    EXPECT_EQ(m.R0.Value, 5.0);
}

TEST(SourceOperand, RegistersAreCopiedWithTheirType) {
    TestMachine m;
    m.SetValueToRegister(kA0, kSTRING, 300);
    ASSERT_EQ(m.RunText("MOV A0 R0 RET"), 0u);
    EXPECT_EQ(m.R0.Value, 300.0);
    EXPECT_EQ(m.R0.ValueType, kSTRING);
    ASSERT_EQ(m.RunText("MOV R0 R1 RET"), 0u);
    EXPECT_EQ(m.R1.ValueType, kSTRING);
    ASSERT_EQ(m.RunText("MOV R1 A0 RET"), 0u);
    EXPECT_EQ(m.A0.Value, 300.0);
}

TEST(SourceOperand, NilGives27) {
    TestMachine m;
    m.SetValueToRegister(kR0, kINT, 5);
    EXPECT_EQ(m.RunText("MOV NIL R0 RET"), 27u);
    EXPECT_EQ(m.R0.Value, 5.0);
}

TEST(SourceOperand, PopTakesTheTopWithItsType) {
    TestMachine m;
    m.StackPush(kINT, 1);
    m.StackPush(kUDINT, 2);
    ASSERT_EQ(m.RunText("MOV POP R0 RET"), 0u);
    EXPECT_EQ(m.R0.Value, 2.0);
    EXPECT_EQ(m.R0.ValueType, kUDINT);
    EXPECT_EQ(m.Stack.size(), 1u);
}

TEST(SourceOperand, PopOnEmptyGives11) {
    TestMachine m;
    m.SetValueToRegister(kR0, kINT, 5);
    EXPECT_EQ(m.RunText("MOV POP R0 RET"), 11u);
    EXPECT_EQ(m.R0.Value, 5.0);
}

TEST(SourceOperand, PopStaysPoppedWhenTheDestinationFails) {
    TestMachine m;
    m.StackPush(kINT, 1);
    EXPECT_EQ(m.RunText("MOV POP FOO RET"), 43u);
    EXPECT_TRUE(m.Stack.empty());
}

TEST(SourceOperand, NumbersKeepTheLiteralsType) {
    const struct {
        const char* Literal;
        double Value;
        char Type;
    } rows[] = {{"1.5", 1.5, kREAL},      {"-5", -5, kSINT},        {"300", 300, kINT},
                {"70000", 70000, kDINT},  {"3000000000", 3e9, kUDINT}, {"16#FF", 255, kINT},
                {"-16#80", -128, kSINT},  {"1.0E39", 1e39, kLREAL}, {"2#1010", 10, kSINT},
                {"0", 0, kSINT}};
    for (const auto& row : rows) {
        TestMachine m;
        ASSERT_EQ(m.RunText(std::string("MOV ") + row.Literal + " R0 RET"), 0u) << row.Literal;
        EXPECT_EQ(m.R0.Value, row.Value) << row.Literal;
        EXPECT_EQ(m.R0.ValueType, row.Type) << row.Literal;
    }
}

TEST(SourceOperand, FirstTickReadIsZeroOfTypeUdint) {
    TestMachine m;
    m.SetValueToRegister(kR0, kREAL, 5);
    ASSERT_EQ(m.RunText("MOV TICK R0 RET"), 0u);
    EXPECT_EQ(m.R0.Value, 0.0);
    EXPECT_EQ(m.R0.ValueType, kUDINT);
    EXPECT_NE(m.TickLast, 0u);  // the clock has started
}

TEST(SourceOperand, LaterTickReadsGrowWithTheWallClock) {
    TestMachine m;
    ASSERT_EQ(m.RunText("MOV TICK R0 RET"), 0u);
    double last = 0;
    for (int i = 0; i < 5; ++i) {
        ASSERT_EQ(m.RunText("MOV TICK R0 RET"), 0u);
        EXPECT_GE(m.R0.Value, last);
        EXPECT_LT(m.R0.Value, 60000.0);
        EXPECT_EQ(m.R0.ValueType, kUDINT);
        last = m.R0.Value;
    }
}

TEST(SourceOperand, OtherTokensGive43) {
    for (const char* text : {"MOV FOO R0 RET", "MOV L: R0 RET", "MOV PUSH R0 RET", "MOV BOOL R0 RET",
                             "MOV MOV R0 RET", "MOV MAIN R0 RET", "MOV #VAR R0 RET", "MOV RET"}) {
        TestMachine m;
        m.SetValueToRegister(kR0, kINT, 5);
        EXPECT_EQ(m.RunText(text), 43u) << text;
        EXPECT_EQ(m.R0.Value, 5.0) << text;
    }
}

TEST(SourceOperand, ScannerFailuresPassThrough) {
    const std::pair<const char*, Qz::uint32_t> rows[] = {
        {"MOV ! R0 RET", 9}, {"MOV @1 R0 RET", 39}, {"MOV 16#G R0 RET", 34}, {"MOV - R0 RET", 33},
        {"MOV #FOO R0 RET", 41}, {"MOV", 6},        {"MOV 5", 6},           {"MOV 5 R0", 6}};
    for (const auto& row : rows) {
        TestMachine m;
        EXPECT_EQ(m.RunText(row.first), row.second) << row.first;
    }
}

// ---- The four operations are reached through their virtual slots ----

class CountingMachine : public TestMachine {
public:
    int Pushes = 0, Pops = 0, Gets = 0, Sets = 0;
    Qz::uint32_t StackPush(char type, double value) override {
        ++Pushes;
        return TestMachine::StackPush(type, value);
    }
    Qz::uint32_t StackPop(char& type, double& value) override {
        ++Pops;
        return TestMachine::StackPop(type, value);
    }
    Qz::uint32_t GetValueFromRegister(char reg, char& type, double& value) override {
        ++Gets;
        return TestMachine::GetValueFromRegister(reg, type, value);
    }
    Qz::uint32_t SetValueToRegister(char reg, char type, double value) override {
        ++Sets;
        return TestMachine::SetValueToRegister(reg, type, value);
    }
};

TEST(VirtualSlots, InstructionsUseTheOverriddenOperations) {
    CountingMachine m;
    ASSERT_EQ(m.RunText("MOV 4 PUSH RET"), 0u);
    EXPECT_EQ(m.Pushes, 1);
    ASSERT_EQ(m.RunText("MOV POP R0 RET"), 0u);
    EXPECT_EQ(m.Pops, 1);
    EXPECT_EQ(m.Sets, 1);
    ASSERT_EQ(m.RunText("MOV R0 R1 RET"), 0u);
    EXPECT_EQ(m.Gets, 1);
    EXPECT_EQ(m.Sets, 2);
    ASSERT_EQ(m.RunText("TST R1 RET"), 0u);
    EXPECT_EQ(m.Gets, 2);
    ASSERT_EQ(m.RunText("NG R1 RET"), 0u);
    EXPECT_EQ(m.Gets, 3);
    EXPECT_EQ(m.Sets, 3);
    ASSERT_EQ(m.RunText("MOV 9 PUSH RET"), 0u);
    ASSERT_EQ(m.RunText("EXEC SQRT RET"), 0u);  // built-ins see the same machine
    EXPECT_EQ(m.Pops, 2);
    EXPECT_EQ(m.Sets, 4);
    EXPECT_EQ(m.A0.Value, 3.0);
}

// Through the Interface base, as the built-in library holds the machine.
TEST(VirtualSlots, InterfaceBaseReachesTheMachine) {
    TestMachine m;
    CQZ_STInterpretator_Interface* i = &m;
    ASSERT_EQ(i->StackPush(kINT, 3), 0u);
    char type;
    double value;
    ASSERT_EQ(i->StackPop(type, value), 0u);
    EXPECT_EQ(value, 3.0);
    ASSERT_EQ(i->SetValueToRegister(kR1, kINT, 4), 0u);
    EXPECT_EQ(m.R1.Value, 4.0);
    ASSERT_EQ(i->GetValueFromRegister(kR1, type, value), 0u);
    EXPECT_EQ(value, 4.0);
    EXPECT_EQ(i->GetValueFromRegister(kNIL, type, value), 27u);
    EXPECT_EQ(i->StackPop(type, value), 11u);
}

}  // namespace
