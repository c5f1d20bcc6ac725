// Cases for the built-in functions, shared by the unit tests (which call the
// functions directly) and the boundary tests (which find them with dlsym).
#ifndef QZ_TEST_BUILTIN_CASES_H
#define QZ_TEST_BUILTIN_CASES_H

#include "mock_machine.h"

#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <ostream>
#include <sstream>
#include <string>
#include <vector>

namespace builtin_cases {

constexpr char kBOOL = 0x20, kSINT = 0x21, kUSINT = 0x22, kINT = 0x23, kUINT = 0x24, kDINT = 0x25, kUDINT = 0x26,
               kREAL = 0x27, kLREAL = 0x28;
constexpr char kA0 = char(0x81);

// Equal as doubles, NaN equal to NaN, the sign of zero kept apart.
inline ::testing::AssertionResult Same(double actual, double expected) {
    if (std::isnan(expected) && std::isnan(actual)) return ::testing::AssertionSuccess();
    if (actual == expected && std::signbit(actual) == std::signbit(expected)) return ::testing::AssertionSuccess();
    std::ostringstream os;
    os.precision(17);
    os << "got " << actual << ", expected " << expected;
    return ::testing::AssertionFailure() << os.str();
}

struct Case {
    const char* Function;  // the operation, e.g. "DoCos"
    const char* Name;      // its name for EXEC, e.g. "COS"
    std::vector<MockMachine::Slot> Pushed;  // bottom of the stack first
    char ResultType;
    double Result;
};

inline void PrintTo(const Case& c, std::ostream* os) {
    os->precision(17);
    *os << c.Function << "(";
    for (const MockMachine::Slot& s : c.Pushed) *os << " 0x" << std::hex << int(s.Type) << std::dec << ":" << s.Value;
    *os << " ) -> 0x" << std::hex << int(c.ResultType) << std::dec << ":" << c.Result;
}

inline std::vector<Case> AllCases() {
    const double nan = std::numeric_limits<double>::quiet_NaN();
    const double inf = std::numeric_limits<double>::infinity();
    const double intMin = -2147483648.0;
    return {
        // The result keeps the argument's type without being converted to it.
        {"DoCos", "COS", {{kDINT, 1}}, kDINT, 0.5403023058681398},
        {"DoCos", "COS", {{kLREAL, 0}}, kLREAL, 1},
        {"DoSin", "SIN", {{kLREAL, 0.5}}, kLREAL, std::sin(0.5)},
        {"DoSin", "SIN", {{kREAL, -1}}, kREAL, std::sin(-1.0)},
        {"DoTan", "TAN", {{kREAL, 1}}, kREAL, std::tan(1.0)},
        {"DoACos", "ACOS", {{kLREAL, 2}}, kLREAL, nan},
        {"DoACos", "ACOS", {{kLREAL, 0.5}}, kLREAL, std::acos(0.5)},
        {"DoASin", "ASIN", {{kSINT, 1}}, kSINT, std::asin(1.0)},
        {"DoASin", "ASIN", {{kLREAL, -1.5}}, kLREAL, nan},
        {"DoATan", "ATAN", {{kINT, 1}}, kINT, std::atan(1.0)},
        {"DoATan", "ATAN", {{kLREAL, inf}}, kLREAL, std::atan(inf)},
        // CEIL and FLOOR: DINT, truncated to 32 bits.
        {"DoCeil", "CEIL", {{kREAL, 2.1}}, kDINT, 3},
        {"DoCeil", "CEIL", {{kREAL, -2.1}}, kDINT, -2},
        {"DoCeil", "CEIL", {{kLREAL, 3e9}}, kDINT, intMin},
        {"DoCeil", "CEIL", {{kLREAL, -0.5}}, kDINT, 0.0},  // no negative zero after the 32-bit truncation
        {"DoCeil", "CEIL", {{kDINT, 5}}, kDINT, 5},
        {"DoCeil", "CEIL", {{kLREAL, 2147483646.5}}, kDINT, 2147483647},
        {"DoCeil", "CEIL", {{kLREAL, 2147483647.5}}, kDINT, intMin},
        {"DoCeil", "CEIL", {{kLREAL, 4503599627370496.0}}, kDINT, intMin},  // 2^52: taken as it is
        {"DoCeil", "CEIL", {{kLREAL, inf}}, kDINT, intMin},
        {"DoCeil", "CEIL", {{kLREAL, nan}}, kDINT, intMin},
        {"DoFloor", "FLOOR", {{kREAL, -2.1}}, kDINT, -3},
        {"DoFloor", "FLOOR", {{kREAL, 2.9}}, kDINT, 2},
        {"DoFloor", "FLOOR", {{kLREAL, 0.5}}, kDINT, 0},
        {"DoFloor", "FLOOR", {{kLREAL, nan}}, kDINT, intMin},
        {"DoFloor", "FLOOR", {{kLREAL, -2147483648.0}}, kDINT, intMin},
        {"DoFloor", "FLOOR", {{kLREAL, -2147483648.5}}, kDINT, intMin},
        {"DoFloor", "FLOOR", {{kLREAL, -2147483647.5}}, kDINT, intMin},
        {"DoFloor", "FLOOR", {{kLREAL, 2147483647.9}}, kDINT, 2147483647},
        {"DoFloor", "FLOOR", {{kLREAL, -inf}}, kDINT, intMin},
        // ROUND: halves away from zero, not truncated to 32 bits.
        {"DoRound", "ROUND", {{kREAL, 2.5}}, kDINT, 3},
        {"DoRound", "ROUND", {{kREAL, -2.5}}, kDINT, -3},
        {"DoRound", "ROUND", {{kLREAL, 3e9}}, kDINT, 3e9},
        {"DoRound", "ROUND", {{kLREAL, 1e12}}, kDINT, 1e12},
        {"DoRound", "ROUND", {{kLREAL, -0.4}}, kDINT, -0.0},
        {"DoRound", "ROUND", {{kLREAL, -0.5}}, kDINT, -1},
        {"DoRound", "ROUND", {{kLREAL, nan}}, kDINT, nan},
        {"DoRound", "ROUND", {{kSINT, 7}}, kDINT, 7},
        {"DoExp", "EXP", {{kBOOL, 1}}, kBOOL, 2.718281828459045},
        {"DoExp", "EXP", {{kLREAL, 0}}, kLREAL, 1},
        {"DoExp", "EXP", {{kLREAL, 1000}}, kLREAL, inf},
        {"DoFabs", "FABS", {{kREAL, -0.0}}, kREAL, 0.0},
        {"DoFabs", "FABS", {{kDINT, -5}}, kDINT, 5},
        {"DoFabs", "FABS", {{kLREAL, -inf}}, kLREAL, inf},
        {"DoLn", "LN", {{kLREAL, 0}}, kLREAL, -inf},
        {"DoLn", "LN", {{kUDINT, 1}}, kUDINT, 0},
        {"DoLn", "LN", {{kLREAL, -1}}, kLREAL, nan},
        {"DoLog10", "LOG10", {{kREAL, 100}}, kREAL, 2},
        {"DoLog10", "LOG10", {{kUINT, 0}}, kUINT, -inf},
        {"DoLog10", "LOG10", {{kLREAL, -1}}, kLREAL, nan},
        {"DoSqrt", "SQRT", {{kDINT, -4}}, kDINT, nan},
        {"DoSqrt", "SQRT", {{kDINT, 16}}, kDINT, 4},
        {"DoSqrt", "SQRT", {{kUSINT, 2}}, kUSINT, std::sqrt(2.0)},
        // POW: base pushed first, exponent last; the base's type.
        {"DoPow", "POW", {{kDINT, 2}, {kDINT, 10}}, kDINT, 1024},
        {"DoPow", "POW", {{kDINT, 10}, {kDINT, 2}}, kDINT, 100},
        {"DoPow", "POW", {{kUSINT, 3}, {kLREAL, 2}}, kUSINT, 9},
        {"DoPow", "POW", {{kREAL, 2}, {kDINT, 0.5}}, kREAL, std::pow(2.0, 0.5)},
        {"DoPow", "POW", {{kLREAL, -8}, {kLREAL, 1.0 / 3}}, kLREAL, nan},
        {"DoPow", "POW", {{kLREAL, 0}, {kLREAL, -1}}, kLREAL, inf},
    };
}

// What each function leaves when the stack is empty: the argument reads as
// 0.0 of type LREAL.
struct EmptyCase {
    const char* Function;
    char ResultType;
    double Result;
};

inline void PrintTo(const EmptyCase& c, std::ostream* os) { *os << c.Function << " on an empty stack"; }

inline std::vector<EmptyCase> EmptyStackCases() {
    const double inf = std::numeric_limits<double>::infinity();
    return {
        {"DoCos", kLREAL, 1},      {"DoSin", kLREAL, 0},     {"DoTan", kLREAL, 0},
        {"DoACos", kLREAL, std::acos(0.0)}, {"DoASin", kLREAL, 0}, {"DoATan", kLREAL, 0},
        {"DoCeil", kDINT, 0},      {"DoFloor", kDINT, 0},    {"DoRound", kDINT, 0},
        {"DoExp", kLREAL, 1},      {"DoFabs", kLREAL, 0},    {"DoLn", kLREAL, -inf},
        {"DoLog10", kLREAL, -inf}, {"DoPow", kLREAL, 1},     {"DoSqrt", kLREAL, 0},
    };
}

// The names EXEC knows, in the order they are tried.
inline std::vector<std::pair<const char*, const char*>> Names() {
    return {{"COS", "DoCos"},   {"SIN", "DoSin"},     {"TAN", "DoTan"},     {"ACOS", "DoACos"},
            {"ASIN", "DoASin"}, {"ATAN", "DoATan"},   {"CEIL", "DoCeil"},   {"FLOOR", "DoFloor"},
            {"ROUND", "DoRound"}, {"EXP", "DoExp"},   {"FABS", "DoFabs"},   {"LN", "DoLn"},
            {"LOG10", "DoLog10"}, {"POW", "DoPow"},   {"SQRT", "DoSqrt"}};
}

inline std::vector<const char*> UnknownNames() {
    return {"SQRTS", "SQR", "", " SQRT", "SQRT ", "COSH", "LOG", "ARCCOS", "POW2", "S QRT", "ABS", "TRUNC"};
}

// Pushes the case's arguments onto `machine` (without recording them).
inline void Push(MockMachine& machine, const Case& c) {
    for (const MockMachine::Slot& s : c.Pushed) machine.Stack.push_back(s);
}

// The calls a function made: its pops, then exactly one write into A0.
inline void ExpectResult(const MockMachine& machine, const Case& c, Qz::uint32_t result) {
    EXPECT_EQ(result, 0u);
    ASSERT_EQ(machine.Calls.size(), c.Pushed.size() + 1);
    for (size_t i = 0; i < c.Pushed.size(); ++i) {
        const MockMachine::Slot& expected = c.Pushed[c.Pushed.size() - 1 - i];  // the top first
        EXPECT_EQ(machine.Calls[i].Kind, MockMachine::kPop);
        EXPECT_EQ(machine.Calls[i].Type, expected.Type);
        EXPECT_TRUE(Same(machine.Calls[i].Value, expected.Value));
    }
    const MockMachine::Call& set = machine.Calls.back();
    EXPECT_EQ(set.Kind, MockMachine::kSet);
    EXPECT_EQ(set.Reg, kA0);
    EXPECT_EQ(set.Type, c.ResultType);
    EXPECT_TRUE(Same(set.Value, c.Result));
    EXPECT_TRUE(machine.Stack.empty());
    EXPECT_EQ(machine.R0.Type, 0);
    EXPECT_EQ(machine.R1.Type, 0);
}

}  // namespace builtin_cases

#endif
