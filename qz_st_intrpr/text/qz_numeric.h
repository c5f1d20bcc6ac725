// Integer views of values, written without undefined behaviour.
//
// Every value is a double; instructions that work on integers take its
// "integer view": truncation toward zero to 64 bits, then the low bits. The
// processor gives -2^63 for NaN and for anything out of the 64-bit range, and
// programs depend on that (such values read as 0 in every narrower type), so
// the rule is spelled out here instead of left to an undefined cast.
#ifndef QZ_NUMERIC_H
#define QZ_NUMERIC_H

#include <cstdint>
#if defined(__SSE2__)
#include <emmintrin.h>
#endif
#include <cstring>
#include <limits>

namespace qz {

inline int64_t TruncToInt64(double v) {
    // -2^63 is exact as a double; 2^63 is the first value out of range.
    if (!(v >= -9223372036854775808.0 && v < 9223372036854775808.0)) return std::numeric_limits<int64_t>::min();
    return static_cast<int64_t>(v);
}

// Truncation to a signed 32-bit count: NaN and out-of-range give -2^31.
inline int32_t TruncToInt32(double v) {
    if (!(v > -2147483649.0 && v < 2147483648.0)) return std::numeric_limits<int32_t>::min();
    return static_cast<int32_t>(v);
}

inline uint64_t Low64(double v) { return static_cast<uint64_t>(TruncToInt64(v)); }

// Reinterprets 32 bits as two's complement.
inline int32_t AsSigned32(uint32_t u) {
    int32_t s;
    std::memcpy(&s, &u, sizeof s);
    return s;
}

inline int32_t SignExtend(uint64_t bits, int width) {
    const uint32_t mask = width >= 32 ? 0xFFFFFFFFu : ((1u << width) - 1u);
    const uint32_t low = static_cast<uint32_t>(bits) & mask;
    const uint32_t signBit = width >= 32 ? 0x80000000u : (1u << (width - 1));
    return AsSigned32((low ^ signBit) - signBit);
}

// The low 32 bits of the integer view, as a signed 32-bit integer. Values
// already in the 32-bit range (the usual case) need only the truncation: the
// processor's own truncation answers INT32_MIN for anything it cannot hold,
// so one instruction and one test decide it.
inline int32_t Low32Signed(double v) {
#if defined(__SSE2__)
    const int32_t i = _mm_cvttsd_si32(_mm_set_sd(v));
    if (i != std::numeric_limits<int32_t>::min()) return i;
#else
    if (v > -2147483649.0 && v < 2147483648.0) return static_cast<int32_t>(v);
#endif
    return SignExtend(Low64(v), 32);
}

// Arithmetic right shift (copies of the sign bit come in) by 0..31.
inline int32_t ShiftRightArithmetic(int32_t v, uint32_t s) { return v < 0 ? ~(~v >> s) : v >> s; }
inline int32_t ShiftLeft(int32_t v, uint32_t s) { return AsSigned32(static_cast<uint32_t>(v) << s); }

// Wrapping 32-bit arithmetic.
inline int32_t WrapAdd(int32_t a, int32_t b) { return AsSigned32(uint32_t(a) + uint32_t(b)); }
inline int32_t WrapSub(int32_t a, int32_t b) { return AsSigned32(uint32_t(a) - uint32_t(b)); }
inline int32_t WrapMul(int32_t a, int32_t b) { return AsSigned32(uint32_t(a) * uint32_t(b)); }
// Truncating division; callers rule out b == 0. INT_MIN / -1 wraps to INT_MIN.
inline int32_t WrapDiv(int32_t a, int32_t b) { return b == -1 ? WrapSub(0, a) : a / b; }
// Remainder with the sign of a; INT_MIN % -1 is 0.
inline int32_t WrapMod(int32_t a, int32_t b) { return b == -1 ? 0 : a % b; }

}  // namespace qz

#endif
