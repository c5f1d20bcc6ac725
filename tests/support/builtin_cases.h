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

// Expected values are written out, not computed with the functions the
// library calls: each inexact one is the double nearest to the true value
// (worked out to many more digits than a double holds), as a hex-float.
// Names for the values written in hex below:
//   0x1.fffffffffffffp-2    0.49999999999999994, the largest double below 0.5
//   0x1.0000000000001p-1    0.5000000000000001, the smallest above 0.5
//   0x1.7ffffffffffffp+0    1.4999999999999998, the largest below 1.5
//   0x1.fffffffffffffp-1    0.9999999999999999, the largest below 1
//   0x1.0000000000001p+0    1.0000000000000002, the smallest above 1
//   0x1p-1074               the smallest subnormal
//   0x1.fffffffffffffp+1023 the largest finite double
//   0x1.fffffffc00001p+30   2147483647 + 2^-22, the smallest double above 2^31 - 1
//   0x1.921fb54442d18p+1    pi; p+0 is pi/2 and p-1 pi/4
// Test names: the function's name and the case's place in the table.
inline std::string CaseName(const ::testing::TestParamInfo<Case>& info) {
    return std::string(info.param.Name) + "_" + std::to_string(info.index);
}

inline std::vector<Case> AllCases() {
    const double nan = std::numeric_limits<double>::quiet_NaN();
    const double inf = std::numeric_limits<double>::infinity();
    const double intMin = -2147483648.0;
    return {
        // The result keeps the argument's type without being converted to it.
        {"DoCos", "COS", {{kDINT, 1}}, kDINT, 0x1.14a280fb5068cp-1},  // 0.5403023058681398
        {"DoCos", "COS", {{kLREAL, 0}}, kLREAL, 1},
        {"DoCos", "COS", {{kLREAL, -0.0}}, kLREAL, 1},
        {"DoCos", "COS", {{kLREAL, 0x1.921fb54442d18p+0}}, kLREAL, 0x1.1a62633145c07p-54},  // cos of the double nearest pi/2
        {"DoCos", "COS", {{kLREAL, inf}}, kLREAL, nan},
        {"DoCos", "COS", {{kLREAL, nan}}, kLREAL, nan},
        {"DoSin", "SIN", {{kLREAL, 0.5}}, kLREAL, 0x1.eaee8744b05f0p-2},  // 0.479425538604203
        {"DoSin", "SIN", {{kREAL, -1}}, kREAL, -0x1.aed548f090ceep-1},   // -0.8414709848078965
        {"DoSin", "SIN", {{kLREAL, -0.0}}, kLREAL, -0.0},
        {"DoSin", "SIN", {{kLREAL, 0x1p-1074}}, kLREAL, 0x1p-1074},
        {"DoSin", "SIN", {{kLREAL, 0x1.921fb54442d18p+1}}, kLREAL, 0x1.1a62633145c07p-53},  // sin of the double nearest pi
        {"DoSin", "SIN", {{kLREAL, -inf}}, kLREAL, nan},
        {"DoTan", "TAN", {{kREAL, 1}}, kREAL, 0x1.8eb245cbee3a6p+0},       // 1.5574077246549023
        {"DoTan", "TAN", {{kLREAL, 0.5}}, kLREAL, 0x1.17b4f5bf3474ap-1},   // 0.5463024898437905
        {"DoTan", "TAN", {{kLREAL, -0.0}}, kLREAL, -0.0},
        {"DoTan", "TAN", {{kLREAL, inf}}, kLREAL, nan},
        {"DoACos", "ACOS", {{kLREAL, 2}}, kLREAL, nan},
        {"DoACos", "ACOS", {{kLREAL, 0.5}}, kLREAL, 0x1.0c152382d7366p+0},  // pi/3
        {"DoACos", "ACOS", {{kLREAL, 1}}, kLREAL, 0.0},
        {"DoACos", "ACOS", {{kLREAL, -1}}, kLREAL, 0x1.921fb54442d18p+1},  // pi
        {"DoACos", "ACOS", {{kLREAL, 0x1.0000000000001p+0}}, kLREAL, nan},
        {"DoACos", "ACOS", {{kLREAL, nan}}, kLREAL, nan},
        {"DoASin", "ASIN", {{kSINT, 1}}, kSINT, 0x1.921fb54442d18p+0},     // pi/2
        {"DoASin", "ASIN", {{kLREAL, -1.5}}, kLREAL, nan},
        {"DoASin", "ASIN", {{kLREAL, 0.5}}, kLREAL, 0x1.0c152382d7366p-1},  // pi/6
        {"DoASin", "ASIN", {{kLREAL, -1}}, kLREAL, -0x1.921fb54442d18p+0},
        {"DoASin", "ASIN", {{kLREAL, -0.0}}, kLREAL, -0.0},
        {"DoATan", "ATAN", {{kINT, 1}}, kINT, 0x1.921fb54442d18p-1},       // pi/4
        {"DoATan", "ATAN", {{kLREAL, inf}}, kLREAL, 0x1.921fb54442d18p+0},
        {"DoATan", "ATAN", {{kLREAL, -inf}}, kLREAL, -0x1.921fb54442d18p+0},
        {"DoATan", "ATAN", {{kLREAL, 0.5}}, kLREAL, 0x1.dac670561bb4fp-2},  // 0.4636476090008061
        {"DoATan", "ATAN", {{kLREAL, -0.0}}, kLREAL, -0.0},
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
        {"DoCeil", "CEIL", {{kLREAL, 0x1.fffffffffffffp-2}}, kDINT, 1},
        {"DoCeil", "CEIL", {{kLREAL, -0x1.fffffffffffffp-2}}, kDINT, 0.0},
        {"DoCeil", "CEIL", {{kLREAL, -0.0}}, kDINT, 0.0},
        {"DoCeil", "CEIL", {{kLREAL, 0x1p-1074}}, kDINT, 1},
        {"DoCeil", "CEIL", {{kLREAL, -0x1p-1074}}, kDINT, 0.0},
        {"DoCeil", "CEIL", {{kLREAL, 1.0}}, kDINT, 1},
        {"DoCeil", "CEIL", {{kLREAL, 0x1.0000000000001p+0}}, kDINT, 2},
        {"DoCeil", "CEIL", {{kLREAL, 2147483647.0}}, kDINT, 2147483647},
        {"DoCeil", "CEIL", {{kLREAL, 0x1.fffffffc00001p+30}}, kDINT, intMin},  // rounds up to 2^31
        {"DoCeil", "CEIL", {{kLREAL, -2147483648.5}}, kDINT, -2147483648.0},  // -2^31 itself is in range
        {"DoCeil", "CEIL", {{kLREAL, 4503599627370495.5}}, kDINT, intMin},    // 2^52 - 0.5 rounds up to 2^52
        {"DoCeil", "CEIL", {{kLREAL, 4503599627370497.0}}, kDINT, intMin},    // 2^52 + 1
        {"DoCeil", "CEIL", {{kLREAL, -inf}}, kDINT, intMin},
        {"DoFloor", "FLOOR", {{kREAL, -2.1}}, kDINT, -3},
        {"DoFloor", "FLOOR", {{kREAL, 2.9}}, kDINT, 2},
        {"DoFloor", "FLOOR", {{kLREAL, 0.5}}, kDINT, 0},
        {"DoFloor", "FLOOR", {{kLREAL, nan}}, kDINT, intMin},
        {"DoFloor", "FLOOR", {{kLREAL, -2147483648.0}}, kDINT, intMin},
        {"DoFloor", "FLOOR", {{kLREAL, -2147483648.5}}, kDINT, intMin},
        {"DoFloor", "FLOOR", {{kLREAL, -2147483647.5}}, kDINT, intMin},
        {"DoFloor", "FLOOR", {{kLREAL, 2147483647.9}}, kDINT, 2147483647},
        {"DoFloor", "FLOOR", {{kLREAL, -inf}}, kDINT, intMin},
        {"DoFloor", "FLOOR", {{kLREAL, 0x1.fffffffffffffp-2}}, kDINT, 0.0},
        {"DoFloor", "FLOOR", {{kLREAL, -0x1.fffffffffffffp-2}}, kDINT, -1},
        {"DoFloor", "FLOOR", {{kLREAL, 0x1.fffffffffffffp-1}}, kDINT, 0.0},
        {"DoFloor", "FLOOR", {{kLREAL, -0.0}}, kDINT, 0.0},  // no negative zero after the 32-bit truncation
        {"DoFloor", "FLOOR", {{kLREAL, 0x1p-1074}}, kDINT, 0.0},
        {"DoFloor", "FLOOR", {{kLREAL, -0x1p-1074}}, kDINT, -1},
        {"DoFloor", "FLOOR", {{kLREAL, 2147483647.0}}, kDINT, 2147483647},
        {"DoFloor", "FLOOR", {{kLREAL, 2147483648.0}}, kDINT, intMin},
        {"DoFloor", "FLOOR", {{kLREAL, 4503599627370495.5}}, kDINT, intMin},
        {"DoFloor", "FLOOR", {{kLREAL, -4503599627370497.0}}, kDINT, intMin},
        {"DoFloor", "FLOOR", {{kLREAL, inf}}, kDINT, intMin},
        // ROUND: halves away from zero, not truncated to 32 bits.
        {"DoRound", "ROUND", {{kREAL, 2.5}}, kDINT, 3},
        {"DoRound", "ROUND", {{kREAL, -2.5}}, kDINT, -3},
        {"DoRound", "ROUND", {{kLREAL, 3e9}}, kDINT, 3e9},
        {"DoRound", "ROUND", {{kLREAL, 1e12}}, kDINT, 1e12},
        {"DoRound", "ROUND", {{kLREAL, -0.4}}, kDINT, -0.0},
        {"DoRound", "ROUND", {{kLREAL, -0.5}}, kDINT, -1},
        {"DoRound", "ROUND", {{kLREAL, nan}}, kDINT, nan},
        {"DoRound", "ROUND", {{kSINT, 7}}, kDINT, 7},
        // Just below a half: adding 0.5 first would round the sum up to 1.
        {"DoRound", "ROUND", {{kLREAL, 0x1.fffffffffffffp-2}}, kDINT, 0.0},
        {"DoRound", "ROUND", {{kLREAL, -0x1.fffffffffffffp-2}}, kDINT, -0.0},
        {"DoRound", "ROUND", {{kLREAL, 0.5}}, kDINT, 1},
        {"DoRound", "ROUND", {{kLREAL, 0x1.0000000000001p-1}}, kDINT, 1},
        {"DoRound", "ROUND", {{kLREAL, 0x1.7ffffffffffffp+0}}, kDINT, 1},
        {"DoRound", "ROUND", {{kLREAL, 1.5}}, kDINT, 2},
        {"DoRound", "ROUND", {{kLREAL, -1.5}}, kDINT, -2},
        // Around 2^52, where the halves end: x + 0.5 is no longer exact.
        {"DoRound", "ROUND", {{kLREAL, 4503599627370494.5}}, kDINT, 4503599627370495.0},
        {"DoRound", "ROUND", {{kLREAL, 4503599627370495.5}}, kDINT, 4503599627370496.0},
        {"DoRound", "ROUND", {{kLREAL, -4503599627370495.5}}, kDINT, -4503599627370496.0},
        {"DoRound", "ROUND", {{kLREAL, 4503599627370496.0}}, kDINT, 4503599627370496.0},
        {"DoRound", "ROUND", {{kLREAL, 4503599627370497.0}}, kDINT, 4503599627370497.0},
        {"DoRound", "ROUND", {{kLREAL, -4503599627370497.0}}, kDINT, -4503599627370497.0},
        {"DoRound", "ROUND", {{kLREAL, 9007199254740991.0}}, kDINT, 9007199254740991.0},  // 2^53 - 1
        {"DoRound", "ROUND", {{kLREAL, 2147483647.5}}, kDINT, 2147483648.0},  // kept beyond 32 bits
        {"DoRound", "ROUND", {{kLREAL, 0.0}}, kDINT, 0.0},
        {"DoRound", "ROUND", {{kLREAL, -0.0}}, kDINT, -0.0},
        {"DoRound", "ROUND", {{kLREAL, 0x1p-1074}}, kDINT, 0.0},
        {"DoRound", "ROUND", {{kLREAL, -0x1p-1074}}, kDINT, -0.0},
        {"DoRound", "ROUND", {{kLREAL, 0x1.fffffffffffffp+1023}}, kDINT, 0x1.fffffffffffffp+1023},
        {"DoRound", "ROUND", {{kLREAL, inf}}, kDINT, inf},
        {"DoRound", "ROUND", {{kLREAL, -inf}}, kDINT, -inf},
        {"DoExp", "EXP", {{kBOOL, 1}}, kBOOL, 0x1.5bf0a8b145769p+1},  // e, 2.718281828459045
        {"DoExp", "EXP", {{kLREAL, 0}}, kLREAL, 1},
        {"DoExp", "EXP", {{kLREAL, 1000}}, kLREAL, inf},
        {"DoExp", "EXP", {{kLREAL, -0.0}}, kLREAL, 1},
        {"DoExp", "EXP", {{kLREAL, -1}}, kLREAL, 0x1.78b56362cef38p-2},  // 0.36787944117144233
        {"DoExp", "EXP", {{kLREAL, 0.5}}, kLREAL, 0x1.a61298e1e069cp+0},  // 1.6487212707001282
        {"DoExp", "EXP", {{kLREAL, -1000}}, kLREAL, 0.0},
        {"DoExp", "EXP", {{kLREAL, -inf}}, kLREAL, 0.0},
        {"DoExp", "EXP", {{kLREAL, inf}}, kLREAL, inf},
        {"DoExp", "EXP", {{kLREAL, nan}}, kLREAL, nan},
        {"DoFabs", "FABS", {{kREAL, -0.0}}, kREAL, 0.0},
        {"DoFabs", "FABS", {{kDINT, -5}}, kDINT, 5},
        {"DoFabs", "FABS", {{kLREAL, -inf}}, kLREAL, inf},
        {"DoFabs", "FABS", {{kLREAL, -0x1p-1074}}, kLREAL, 0x1p-1074},
        {"DoFabs", "FABS", {{kLREAL, -0x1.fffffffffffffp+1023}}, kLREAL, 0x1.fffffffffffffp+1023},
        {"DoFabs", "FABS", {{kLREAL, 2.5}}, kLREAL, 2.5},
        {"DoFabs", "FABS", {{kLREAL, nan}}, kLREAL, nan},
        {"DoLn", "LN", {{kLREAL, 0}}, kLREAL, -inf},
        {"DoLn", "LN", {{kUDINT, 1}}, kUDINT, 0},
        {"DoLn", "LN", {{kLREAL, -1}}, kLREAL, nan},
        {"DoLn", "LN", {{kLREAL, -0.0}}, kLREAL, -inf},
        {"DoLn", "LN", {{kLREAL, 2}}, kLREAL, 0x1.62e42fefa39efp-1},   // 0.6931471805599453
        {"DoLn", "LN", {{kLREAL, 10}}, kLREAL, 0x1.26bb1bbb55516p+1},  // 2.302585092994046
        {"DoLn", "LN", {{kLREAL, inf}}, kLREAL, inf},
        {"DoLn", "LN", {{kLREAL, nan}}, kLREAL, nan},
        {"DoLog10", "LOG10", {{kREAL, 100}}, kREAL, 2},
        {"DoLog10", "LOG10", {{kUINT, 0}}, kUINT, -inf},
        {"DoLog10", "LOG10", {{kLREAL, -1}}, kLREAL, nan},
        {"DoLog10", "LOG10", {{kLREAL, 1000}}, kLREAL, 3},
        {"DoLog10", "LOG10", {{kLREAL, 1}}, kLREAL, 0.0},
        {"DoLog10", "LOG10", {{kLREAL, 2}}, kLREAL, 0x1.34413509f79ffp-2},  // 0.3010299956639812
        {"DoLog10", "LOG10", {{kLREAL, -0.0}}, kLREAL, -inf},
        {"DoLog10", "LOG10", {{kLREAL, inf}}, kLREAL, inf},
        {"DoSqrt", "SQRT", {{kDINT, -4}}, kDINT, nan},
        {"DoSqrt", "SQRT", {{kDINT, 16}}, kDINT, 4},
        {"DoSqrt", "SQRT", {{kUSINT, 2}}, kUSINT, 0x1.6a09e667f3bcdp+0},  // 1.4142135623730951
        {"DoSqrt", "SQRT", {{kLREAL, 3}}, kLREAL, 0x1.bb67ae8584caap+0},  // 1.7320508075688772
        {"DoSqrt", "SQRT", {{kLREAL, 0.25}}, kLREAL, 0.5},
        {"DoSqrt", "SQRT", {{kLREAL, -0.0}}, kLREAL, -0.0},
        {"DoSqrt", "SQRT", {{kLREAL, 0x1p-1074}}, kLREAL, 0x1p-537},
        {"DoSqrt", "SQRT", {{kLREAL, inf}}, kLREAL, inf},
        {"DoSqrt", "SQRT", {{kLREAL, -inf}}, kLREAL, nan},
        // POW: base pushed first, exponent last; the base's type.
        {"DoPow", "POW", {{kDINT, 2}, {kDINT, 10}}, kDINT, 1024},
        {"DoPow", "POW", {{kDINT, 10}, {kDINT, 2}}, kDINT, 100},
        {"DoPow", "POW", {{kUSINT, 3}, {kLREAL, 2}}, kUSINT, 9},
        {"DoPow", "POW", {{kREAL, 2}, {kDINT, 0.5}}, kREAL, 0x1.6a09e667f3bcdp+0},  // sqrt(2)
        {"DoPow", "POW", {{kLREAL, -8}, {kLREAL, 1.0 / 3}}, kLREAL, nan},
        {"DoPow", "POW", {{kLREAL, 0}, {kLREAL, -1}}, kLREAL, inf},
        {"DoPow", "POW", {{kLREAL, -0.0}, {kLREAL, -1}}, kLREAL, -inf},
        {"DoPow", "POW", {{kLREAL, -2}, {kLREAL, 3}}, kLREAL, -8},
        {"DoPow", "POW", {{kLREAL, 10}, {kLREAL, -2}}, kLREAL, 0x1.47ae147ae147bp-7},  // 0.01
        {"DoPow", "POW", {{kLREAL, 2}, {kLREAL, 1.25}}, kLREAL, 0x1.306fe0a31b715p+1},  // 2.378414230005442
        {"DoPow", "POW", {{kLREAL, 2}, {kLREAL, 1024}}, kLREAL, inf},
        {"DoPow", "POW", {{kLREAL, 2}, {kLREAL, -1074}}, kLREAL, 0x1p-1074},
        {"DoPow", "POW", {{kLREAL, nan}, {kLREAL, 0}}, kLREAL, 1},
        {"DoPow", "POW", {{kLREAL, 1}, {kLREAL, nan}}, kLREAL, 1},
        {"DoPow", "POW", {{kLREAL, -1}, {kLREAL, inf}}, kLREAL, 1},
        {"DoPow", "POW", {{kLREAL, -inf}, {kLREAL, 3}}, kLREAL, -inf},
        {"DoPow", "POW", {{kLREAL, 2}, {kLREAL, nan}}, kLREAL, nan},
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
        {"DoACos", kLREAL, 0x1.921fb54442d18p+0}, {"DoASin", kLREAL, 0}, {"DoATan", kLREAL, 0},
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
