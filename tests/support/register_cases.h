// Typed values and register checks shared by the operator tests.
#ifndef QZ_TEST_REGISTER_CASES_H
#define QZ_TEST_REGISTER_CASES_H

#include "test_machine.h"

#include <gtest/gtest.h>

#include <cmath>
#include <cstdio>
#include <limits>
#include <string>

namespace register_cases {

constexpr char kBOOL = char(ttBOOL);
constexpr char kSINT = char(ttSINT);
constexpr char kUSINT = char(ttUSINT);
constexpr char kINT = char(ttINT);
constexpr char kUINT = char(ttUINT);
constexpr char kDINT = char(ttDINT);
constexpr char kUDINT = char(ttUDINT);
constexpr char kREAL = char(ttREAL);
constexpr char kLREAL = char(ttLREAL);
constexpr char kSTRING = char(ttSTRING);
constexpr char kNoType = 0;             // what a register holds before it is written
constexpr char kHighCode = char(0x90);  // negative as a signed byte

const double kNaN = std::numeric_limits<double>::quiet_NaN();
const double kInf = std::numeric_limits<double>::infinity();

struct Val {
    double Value;
    char Type;
};

// What an instruction leaves: its result code and, on success, the register.
struct Outcome {
    Qz::uint32_t Rc;
    Val Result;
};
inline Outcome Ok(double value, char type) { return Outcome{0, Val{value, type}}; }
inline Outcome Fails(Qz::uint32_t rc) { return Outcome{rc, Val{0.0, 0}}; }

inline std::string Describe(double v) {
    char buffer[64];
    std::snprintf(buffer, sizeof buffer, "%.17g", v);
    return buffer;
}
inline std::string Describe(const Val& v) {
    char buffer[80];
    std::snprintf(buffer, sizeof buffer, "%.17g type 0x%02x", v.Value, unsigned(static_cast<unsigned char>(v.Type)));
    return buffer;
}

// Exact equality that tells NaN from NaN-free values and -0.0 from 0.0.
inline bool SameDouble(double expected, double actual) {
    if (std::isnan(expected)) return std::isnan(actual);
    return expected == actual && std::signbit(expected) == std::signbit(actual);
}

inline ::testing::AssertionResult Holds(const QZ_Register& reg, const Val& expected) {
    if (SameDouble(expected.Value, reg.Value) && reg.ValueType == expected.Type)
        return ::testing::AssertionSuccess();
    return ::testing::AssertionFailure() << "register holds " << Describe(Val{reg.Value, reg.ValueType})
                                         << ", expected " << Describe(expected);
}

}  // namespace register_cases

#endif
