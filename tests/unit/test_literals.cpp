// Numeric literals: decimal integers with their type ladder, based integers
// ("16#", "8#", "2#"), real literals with fraction and exponent, the REAL /
// LREAL bound, and literals cut off by the end of the text.
#include "test_machine.h"

#include <gtest/gtest.h>

#include <clocale>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <limits>
#include <string>

namespace {

constexpr uint8_t SINT = ttSINT, INT = ttINT, DINT = ttDINT, UDINT = ttUDINT, REAL = ttREAL, LREAL = ttLREAL;
constexpr double kInt64Max = 9223372036854775807.0;  // 2^63 once a double
constexpr double kInt64Min = -9223372036854775808.0;

struct Literal {
    std::string Text;  // the literal; " X" follows it in the program text
    std::string Token;
    double Value;
    uint8_t Type;
};

void ExpectLiteral(const Literal& c) {
    SCOPED_TRACE(c.Text);
    TestMachine m;
    m.SetProgram(c.Text + " X");
    ASSERT_EQ(m.Scan(m.TokenText), 0u);
    EXPECT_EQ(m.TokenCode, ttNUMBER);
    EXPECT_EQ(std::string(m.TokenText), c.Token);
    if (std::isnan(c.Value))
        EXPECT_TRUE(std::isnan(m.DigitValue));
    else
        EXPECT_EQ(m.DigitValue, c.Value);
    EXPECT_EQ(unsigned(m.DigitType), unsigned(c.Type));
    EXPECT_EQ(m.TokenStart, 0);
    EXPECT_EQ(m.TokenEnd, int(c.Text.size()) - 1);
    EXPECT_EQ(m.CurChar, 'X');
    EXPECT_EQ(m.TextPos, int(c.Text.size()) + 2);
}

TEST(DecimalLiteral, TypeLadder) {
    const Literal cases[] = {
        {"0", "0", 0, SINT},
        {"12", "12", 12, SINT},
        {"127", "127", 127, SINT},
        {"128", "128", 128, INT},
        {"-128", "128", -128, SINT},
        {"-129", "129", -129, INT},
        {"300", "300", 300, INT},
        {"32767", "32767", 32767, INT},
        {"32768", "32768", 32768, DINT},
        {"-32768", "32768", -32768, INT},
        {"-32769", "32769", -32769, DINT},
        {"70000", "70000", 70000, DINT},
        {"2147483647", "2147483647", 2147483647.0, DINT},
        {"2147483648", "2147483648", 2147483648.0, UDINT},
        {"-2147483648", "2147483648", -2147483648.0, DINT},
        {"-2147483649", "2147483649", -2147483649.0, UDINT},
        {"3000000000", "3000000000", 3000000000.0, UDINT},
        {"-3000000000", "3000000000", -3000000000.0, UDINT},  // wider than 32 bits: UDINT whatever the sign
        {"4294967296", "4294967296", 4294967296.0, UDINT},
        {"9223372036854775807", "9223372036854775807", kInt64Max, UDINT},
        {"-9223372036854775807", "9223372036854775807", -kInt64Max, UDINT},
    };
    for (const Literal& c : cases) ExpectLiteral(c);
}

TEST(DecimalLiteral, SignsAndLeadingZeros) {
    const Literal cases[] = {
        {"+5", "5", 5, SINT},        // the sign is not part of the token text
        {"-12", "12", -12, SINT},    //
        {"-0", "0", 0, SINT},        //
        {"007", "007", 7, SINT},     //
        {"-0100", "0100", -100, SINT},
    };
    for (const Literal& c : cases) ExpectLiteral(c);
}

TEST(DecimalLiteral, BeyondSixtyFourBitsSaturates) {
    const Literal cases[] = {
        {"9223372036854775808", "9223372036854775808", kInt64Max, UDINT},
        {"18446744073709551615", "18446744073709551615", kInt64Max, UDINT},
        {"18446744073709551616", "18446744073709551616", kInt64Max, UDINT},
        {"99999999999999999999999999", "99999999999999999999999999", kInt64Max, UDINT},
        {"-99999999999999999999999999", "99999999999999999999999999", -kInt64Max, UDINT},
    };
    for (const Literal& c : cases) ExpectLiteral(c);
}

TEST(DecimalLiteral, ADigitRunEndsAtAnyOtherCharacter) {
    TestMachine m;
    m.SetProgram("12AB");
    ASSERT_EQ(m.Scan(m.TokenText), 0u);
    EXPECT_STREQ(m.TokenText, "12");
    EXPECT_EQ(m.DigitValue, 12.0);
    EXPECT_EQ(m.TokenEnd, 1);
    EXPECT_EQ(m.CurChar, 'A');
    EXPECT_EQ(m.TextPos, 3);
}

TEST(BasedLiteral, Values) {
    const Literal cases[] = {
        {"16#ff", "16#FF", 255, INT},
        {"16#FF", "16#FF", 255, INT},
        {"16#aBc", "16#ABC", 2748, INT},
        {"16#7f", "16#7F", 127, SINT},
        {"16#80", "16#80", 128, INT},
        {"-16#80", "16#80", -128, SINT},
        {"-16#81", "16#81", -129, INT},
        {"+16#10", "16#10", 16, SINT},
        {"16#7FFFFFFF", "16#7FFFFFFF", 2147483647.0, DINT},
        {"16#80000000", "16#80000000", 2147483648.0, UDINT},
        {"-16#80000000", "16#80000000", -2147483648.0, DINT},
        {"8#17", "8#17", 15, SINT},
        {"-8#17", "8#17", -15, SINT},
        {"8#777", "8#777", 511, INT},
        {"8#0", "8#0", 0, SINT},
        {"2#1010", "2#1010", 10, SINT},
        {"-2#1010", "2#1010", -10, SINT},
        {"2#0", "2#0", 0, SINT},
        {"-2#1", "2#1", -1, SINT},
        {"2#11111111", "2#11111111", 255, INT},
    };
    for (const Literal& c : cases) ExpectLiteral(c);
}

TEST(BasedLiteral, SixtyFourBitPatternsKeepTheirBits) {
    const Literal cases[] = {
        // Read as unsigned and kept as the same 64 bits.
        {"16#FFFFFFFFFFFFFFFF", "16#FFFFFFFFFFFFFFFF", -1, SINT},
        {"-16#FFFFFFFFFFFFFFFF", "16#FFFFFFFFFFFFFFFF", 1, SINT},
        {"16#8000000000000000", "16#8000000000000000", kInt64Min, UDINT},
        {"-16#8000000000000000", "16#8000000000000000", kInt64Min, UDINT},  // the negation wraps
        {"16#7FFFFFFFFFFFFFFF", "16#7FFFFFFFFFFFFFFF", kInt64Max, UDINT},
        {"8#1777777777777777777777", "8#1777777777777777777777", -1, SINT},
        {"8#1000000000000000000000", "8#1000000000000000000000", kInt64Min, UDINT},
        {"2#" + std::string(64, '1'), "2#" + std::string(64, '1'), -1, SINT},
        {"2#1" + std::string(63, '0'), "2#1" + std::string(63, '0'), kInt64Min, UDINT},
        {"-2#1" + std::string(63, '0'), "2#1" + std::string(63, '0'), kInt64Min, UDINT},
    };
    for (const Literal& c : cases) ExpectLiteral(c);
}

TEST(BasedLiteral, BeyondSixtyFourBits) {
    const Literal cases[] = {
        // Hexadecimal and octal saturate at all ones, which is -1.
        {"16#1FFFFFFFFFFFFFFFF", "16#1FFFFFFFFFFFFFFFF", -1, SINT},
        {"16#10000000000000000", "16#10000000000000000", -1, SINT},
        {"8#7777777777777777777777", "8#7777777777777777777777", -1, SINT},
        // Binary keeps the last 64 digits.
        {"2#1" + std::string(64, '0'), "2#1" + std::string(64, '0'), 0, SINT},
        {"2#11" + std::string(63, '0'), "2#11" + std::string(63, '0'), kInt64Min, UDINT},
        {"2#" + std::string(70, '1') + "0", "2#" + std::string(70, '1') + "0", -2, SINT},
        {"2#" + std::string(100, '0') + "101", "2#" + std::string(100, '0') + "101", 5, SINT},
    };
    for (const Literal& c : cases) ExpectLiteral(c);
}

TEST(BasedLiteral, TheFirstForeignDigitEndsTheLiteral) {
    struct Case {
        const char* Text;
        const char* Token;
        double Value;
        char Cur;
        int Pos;
    };
    const Case cases[] = {
        {"2#102", "2#10", 2, '2', 5},
        {"8#178", "8#17", 15, '8', 5},
        {"16#1G", "16#1", 1, 'G', 5},
        {"16#FF.5", "16#FF", 255, '.', 6},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.Text);
        TestMachine m;
        m.SetProgram(c.Text);
        ASSERT_EQ(m.Scan(m.TokenText), 0u);
        EXPECT_STREQ(m.TokenText, c.Token);
        EXPECT_EQ(m.DigitValue, c.Value);
        EXPECT_EQ(m.CurChar, c.Cur);
        EXPECT_EQ(m.TextPos, c.Pos);
        EXPECT_EQ(m.TokenEnd, c.Pos - 2);
    }
}

struct Failure {
    const char* Text;
    Qz::uint32_t Result;
    const char* Token;  // what TokenText holds afterwards
};

TEST(BasedLiteral, Failures) {
    const Failure cases[] = {
        {"16#G X", 34, "16#"}, {"16# X", 34, "16#"},   {"16#-1 X", 34, "16#"},
        {"8#9 X", 35, "8#"},   {"8#8 X", 35, "8#"},    {"8#A X", 35, "8#"},
        {"2#2 X", 36, "2#"},   {"2# X", 36, "2#"},     {"2#A X", 36, "2#"},
        {"10#5 X", 33, "10#"}, {"016#5 X", 33, "016#"}, {"1#1 X", 33, "1#"},
        {"32#1 X", 33, "32#"}, {"-10#5 X", 33, "10#"},
    };
    for (const Failure& c : cases) {
        SCOPED_TRACE(c.Text);
        TestMachine m;
        m.SetProgram(c.Text);
        EXPECT_EQ(m.Scan(m.TokenText), c.Result);
        EXPECT_STREQ(m.TokenText, c.Token);
    }
}

TEST(BasedLiteral, ReaderRejectsAnyOtherPrefix) {
    TestMachine m;
    m.SetProgram("5 X");
    std::strcpy(m.TokenText, "10#");
    EXPECT_EQ(m.GetFormatedDigit(m.TokenText, 1.0), 33u);
    std::strcpy(m.TokenText, "16#");
    m.CurChar = 'G';
    EXPECT_EQ(m.GetFormatedDigit(m.TokenText, 1.0), 34u);
}

TEST(RealLiteral, Forms) {
    const Literal cases[] = {
        {"3.5", "3.5", 3.5, REAL},
        {"-2.5", "2.5", -2.5, REAL},
        {"+2.5", "2.5", 2.5, REAL},
        {"3.", "3.0", 3.0, REAL},  // an empty fraction reads as ".0"
        {"12.", "12.0", 12.0, REAL},
        {"0.0", "0.0", 0.0, REAL},
        {"0.1", "0.1", 0.1, REAL},
        {"1.25", "1.25", 1.25, REAL},
        {"1.5e-3", "1.5E-3", 0.0015, REAL},
        {"1.5E3", "1.5E3", 1500.0, REAL},
        {"1.5E+3", "1.5E3", 1500.0, REAL},  // '+' is dropped
        {"1.5e03", "1.5E03", 1500.0, REAL},
        {"12.E3", "12.E3", 12000.0, REAL},  // no "0" put in before an exponent
        {"1.5E2-3", "1.5E2-3", 150.0, REAL},  // strtod stops at the late sign
        {"1.5E2+3", "1.5E23", 1.5e23, REAL},  // a late '+' is dropped and the digits join
        {"2.5e", "2.5E", 2.5, REAL},
        {"2.5E-", "2.5E-", 2.5, REAL},
        {"1.0E39", "1.0E39", 1.0e39, LREAL},
        {"-1.0E39", "1.0E39", -1.0e39, LREAL},
        {"1.0E400", "1.0E400", HUGE_VAL, LREAL},
        {"-1.0E400", "1.0E400", -HUGE_VAL, LREAL},
        {"1.0E-400", "1.0E-400", 0.0, REAL},
        {"1.0E-40", "1.0E-40", 1.0e-40, REAL},  // below single precision, still within the bound
    };
    for (const Literal& c : cases) ExpectLiteral(c);
}

TEST(RealLiteral, ASecondPointBeginsTheNextToken) {
    TestMachine m;
    m.SetProgram("1.5.5 X");
    ASSERT_EQ(m.Scan(m.TokenText), 0u);
    EXPECT_EQ(m.DigitValue, 1.5);
    EXPECT_EQ(m.CurChar, '.');
    ASSERT_EQ(m.Scan(m.TokenText), 0u);
    EXPECT_EQ(m.TokenCode, ttNAME);
    EXPECT_STREQ(m.TokenText, ".5");
}

std::string Exponential(double v) {
    char text[64];
    std::snprintf(text, sizeof text, "%.17e", v);
    return text;
}

TEST(RealLiteral, TheBoundIsThePlainDecimal34E38) {
    const Literal exact[] = {
        {"3.4E38", "3.4E38", 3.4e38, REAL},
        {"-3.4E38", "3.4E38", -3.4e38, REAL},
        {"340000000000000000000000000000000000000.0", "340000000000000000000000000000000000000.0", 3.4e38, REAL},
        // The largest single-precision value lies beyond the bound.
        {"3.4028234663852886E38", "3.4028234663852886E38", 3.4028234663852886e38, LREAL},
        {"-3.4028234663852886E38", "3.4028234663852886E38", -3.4028234663852886e38, LREAL},
    };
    for (const Literal& c : exact) ExpectLiteral(c);

    // One step of a double beyond the bound, either way.
    const double above = std::nextafter(3.4e38, HUGE_VAL);
    const double below = std::nextafter(3.4e38, 0.0);
    for (double v : {above, below}) {
        const std::string text = Exponential(v);
        TestMachine m;
        m.SetProgram(text + " X");
        ASSERT_EQ(m.Scan(m.TokenText), 0u) << text;
        ASSERT_EQ(m.DigitValue, v) << text;
        EXPECT_EQ(unsigned(m.DigitType), unsigned(v > 3.4e38 ? LREAL : REAL)) << text;
        m.SetProgram("-" + text + " X");
        ASSERT_EQ(m.Scan(m.TokenText), 0u) << text;
        ASSERT_EQ(m.DigitValue, -v) << text;
        EXPECT_EQ(unsigned(m.DigitType), unsigned(v > 3.4e38 ? LREAL : REAL)) << text;
    }
}

TEST(RealLiteral, TypeRuleAndIntegerLadderAsFunctions) {
    EXPECT_EQ(RealType(3.4e38), char(REAL));
    EXPECT_EQ(RealType(-3.4e38), char(REAL));
    EXPECT_EQ(RealType(std::nextafter(3.4e38, HUGE_VAL)), char(LREAL));
    EXPECT_EQ(RealType(std::nextafter(-3.4e38, -HUGE_VAL)), char(LREAL));
    EXPECT_EQ(RealType(0.0), char(REAL));
    EXPECT_EQ(RealType(HUGE_VAL), char(LREAL));
    EXPECT_EQ(RealType(-HUGE_VAL), char(LREAL));
    EXPECT_EQ(RealType(std::numeric_limits<double>::quiet_NaN()), char(LREAL));

    struct Rung {
        int64_t Value;
        uint8_t Type;
    };
    const Rung ladder[] = {
        {0, SINT},          {-128, SINT},        {127, SINT},         {128, INT},
        {-129, INT},        {-32768, INT},       {32767, INT},        {32768, DINT},
        {-32769, DINT},     {INT32_MIN, DINT},   {INT32_MAX, DINT},   {int64_t(INT32_MAX) + 1, UDINT},
        {int64_t(INT32_MIN) - 1, UDINT},         {INT64_MAX, UDINT},  {INT64_MIN, UDINT},
    };
    for (const Rung& r : ladder) EXPECT_EQ(LadderType(r.Value), char(r.Type)) << r.Value;
}

TEST(DecToDouble, DirectCalls) {
    TestMachine m;
    char type = 0;
    char empty[] = "";
    EXPECT_EQ(m.DecToDouble(empty, 1.0, type), 0.0);  // nothing parsed is 0
    EXPECT_EQ(type, char(SINT));
    char letters[] = "abc";
    EXPECT_EQ(m.DecToDouble(letters, 1.0, type), 0.0);
    char digits[] = "300";
    EXPECT_EQ(m.DecToDouble(digits, -1.0, type), -300.0);
    EXPECT_EQ(type, char(INT));
    std::string longer(400, '9');  // beyond the 255 characters the copy keeps
    EXPECT_EQ(m.DecToDouble(&longer[0], 1.0, type), kInt64Max);
    EXPECT_EQ(type, char(UDINT));
    // It sets nothing but its results.
    EXPECT_EQ(m.DigitValue, 0.0);
}

// scripts/install-deps generates de_DE.UTF-8 for this test. Without it the
// test fails; QZ_ALLOW_MISSING_LOCALE=1 turns that into a skip on machines
// where locales cannot be installed.
TEST(RealLiteral, ReadTheSameUnderADecimalCommaLocale) {
    const std::string saved = std::setlocale(LC_NUMERIC, nullptr);
    const char* found = nullptr;
    for (const char* name : {"de_DE.UTF-8", "de_DE.utf8"}) {
        if (std::setlocale(LC_NUMERIC, name) && std::strcmp(std::localeconv()->decimal_point, ",") == 0) {
            found = name;
            break;
        }
    }
    if (!found) {
        std::setlocale(LC_NUMERIC, saved.c_str());
        const char* allow = std::getenv("QZ_ALLOW_MISSING_LOCALE");
        if (allow && std::strcmp(allow, "1") == 0) GTEST_SKIP() << "de_DE.UTF-8 is not installed";
        FAIL() << "the de_DE.UTF-8 locale is not installed: run scripts/install-deps (as root), "
                  "or set QZ_ALLOW_MISSING_LOCALE=1 to skip this test";
    }
    SCOPED_TRACE(found);
    EXPECT_EQ(std::strtod("2.5", nullptr), 2.0);  // the locale really reads differently
    EXPECT_EQ(std::strtod("2,5", nullptr), 2.5);
    const Literal cases[] = {
        {"2.5", "2.5", 2.5, REAL},
        {"-0.125", "0.125", -0.125, REAL},
        {"1.5e-3", "1.5E-3", 0.0015, REAL},
        {"12.E3", "12.E3", 12000.0, REAL},
        {"1.0E39", "1.0E39", 1.0e39, LREAL},
    };
    for (const Literal& c : cases) ExpectLiteral(c);
    std::setlocale(LC_NUMERIC, saved.c_str());
}

// ---- The end of the text ----

TEST(LiteralAtTheEnd, IsNotDelivered) {
    const char* texts[] = {"12",     "-12",  "-12   ", "3.5",    "3.",    "3.   ", "1.5E3", "1.5E",
                           "1.5E-",  "1.5E2-", "1.5E2-3", "16#FF", "16#FF  ", "16#", "8#7",  "2#1",
                           "2#1   ", "-",    "+",      "7#",     "0"};
    for (const char* text : texts) {
        SCOPED_TRACE(text);
        TestMachine m;
        m.SetProgram(std::string("MOV ") + text);
        ASSERT_EQ(m.Scan(m.TokenText), 0u);
        EXPECT_EQ(m.Scan(m.TokenText), 6u);
        EXPECT_EQ(m.CurChar, 0);
        EXPECT_EQ(m.TextPos, m.TextLen);
    }
}

TEST(LiteralAtTheEnd, FieldsSetBeforeTheBlanksStaySet) {
    TestMachine m;
    m.SetProgram("-12   ");
    EXPECT_EQ(m.Scan(m.TokenText), 6u);
    EXPECT_EQ(m.TokenCode, ttNUMBER);
    EXPECT_EQ(m.DigitValue, -12.0);
    EXPECT_EQ(m.DigitType, SINT);
    EXPECT_EQ(m.TokenEnd, 2);
    EXPECT_EQ(m.CurChar, 0);
}

TEST(LiteralAtTheEnd, FollowedByTheFinalRet) {
    TestMachine m;
    m.SetProgram("16#1F RET");
    ASSERT_EQ(m.Scan(m.TokenText), 0u);
    EXPECT_EQ(m.DigitValue, 31.0);
    ASSERT_EQ(m.Scan(m.TokenText), 0u);
    EXPECT_EQ(m.TokenCode, ttEND);
}

// ---- Long literals ----
// A literal of 10,000 characters is read to its end; TokenText keeps its
// first 255 characters and the value is that of the kept text.

void ExpectLongLiteral(const std::string& literal, double value, uint8_t type) {
    TestMachine m;
    std::memcpy(m.ProgramName, "GUARD", 6);
    m.SetProgram(literal + " X");
    ASSERT_EQ(m.Scan(m.TokenText), 0u);
    EXPECT_EQ(m.TokenCode, ttNUMBER);
    EXPECT_EQ(std::strlen(m.TokenText), 255u);
    EXPECT_EQ(std::string(m.TokenText), literal.substr(literal[0] == '-' ? 1 : 0, 255));
    EXPECT_EQ(m.DigitValue, value);
    EXPECT_EQ(unsigned(m.DigitType), unsigned(type));
    EXPECT_EQ(m.TokenStart, 0);
    EXPECT_EQ(m.TokenEnd, int(literal.size()) - 1);
    EXPECT_EQ(m.CurChar, 'X');
    EXPECT_EQ(m.TextPos, int(literal.size()) + 2);
    EXPECT_STREQ(m.ProgramName, "GUARD");  // nothing was written past TokenText
}

TEST(LongLiteral, Decimal) {
    ExpectLongLiteral(std::string(10000, '7'), kInt64Max, UDINT);
    ExpectLongLiteral("-" + std::string(9999, '7'), -kInt64Max, UDINT);
    ExpectLongLiteral(std::string(9999, '0') + "1", 0.0, SINT);  // the 1 lies beyond the kept text
}

TEST(LongLiteral, Based) {
    ExpectLongLiteral("16#" + std::string(9997, 'F'), -1.0, SINT);
    ExpectLongLiteral("8#" + std::string(9998, '7'), -1.0, SINT);
    // Of the binary digits, the kept text holds the first 253; its last 64 count.
    ExpectLongLiteral("2#" + std::string(250, '0') + std::string(9748, '1'), 7.0, SINT);
}

TEST(LongLiteral, Real) {
    const std::string fraction = "1." + std::string(9998, '5');
    ExpectLongLiteral(fraction, std::strtod(fraction.substr(0, 255).c_str(), nullptr), REAL);
    const std::string exponent = "1.0E" + std::string(9996, '0');
    ExpectLongLiteral(exponent, 1.0, REAL);
}

}  // namespace
