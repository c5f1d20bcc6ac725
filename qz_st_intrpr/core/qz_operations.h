// What the instructions compute, apart from where their operands come from.
//
// An instruction's operands are read either by scanning the text (the
// handlers in qz_commands.cpp and qz_operators.cpp) or from the decoded form
// of the instruction (qz_fast_path.cpp). Both then call these functions, so
// the two ways compute the same results and fail with the same codes by
// construction. Each function returns 0 and fills `out`, or a failure code
// and leaves `out` alone; none of them touches the machine.
#ifndef QZ_OPERATIONS_H
#define QZ_OPERATIONS_H

#include "qz_numeric.h"
#include "qz_tokens.h"

#include <cmath>

// A decoded operand value.
struct QZ_Operand {
    double Value = 0.0;
    char Type = 0;
};

namespace qz {

// Narrows `value` to `type` into `out`; 10 (out untouched) for a non-value type.
inline Qz::uint32_t Narrow(double value, double& out, char type) {
    // The clamp bound is the decimal 3.402823466e38 as a double, not FLT_MAX.
    static constexpr double kRealLimit = 3.402823466e38;
    switch (static_cast<uint8_t>(type)) {
    case ttBOOL: out = (value == 0.0) ? 0.0 : 1.0; return Qz::rcOK;
    case ttSINT: out = SignExtend(Low64(value), 8); return Qz::rcOK;
    case ttUSINT: out = double(Low64(value) & 0xFFu); return Qz::rcOK;
    case ttINT: out = SignExtend(Low64(value), 16); return Qz::rcOK;
    case ttUINT: out = double(Low64(value) & 0xFFFFu); return Qz::rcOK;
    case ttDINT: out = Low32Signed(value); return Qz::rcOK;
    case ttUDINT: out = double(Low64(value) & 0xFFFFFFFFu); return Qz::rcOK;
    case ttREAL:
        if (value < -kRealLimit)
            out = -kRealLimit;
        else if (value > kRealLimit)
            out = kRealLimit;
        else
            out = double(static_cast<float>(value));  // in range, or NaN
        return Qz::rcOK;
    case ttLREAL: out = value; return Qz::rcOK;
    default: return Qz::rcBadType;
    }
}

// The wider of two type codes, compared as signed bytes.
inline char GreaterType(char a, char b) {
    return static_cast<signed char>(a) > static_cast<signed char>(b) ? a : b;
}

inline int WidthOfType(char type) {
    switch (static_cast<uint8_t>(type)) {
    case ttSINT: case ttUSINT: return 8;
    case ttINT: case ttUINT: return 16;
    default: return 32;
    }
}

// The low bits of a 32-bit result read as `type`.
inline double ReduceToType(uint32_t bits, char type) {
    switch (static_cast<uint8_t>(type)) {
    case ttSINT: return SignExtend(bits, 8);
    case ttUSINT: return double(bits & 0xFFu);
    case ttINT: return SignExtend(bits, 16);
    case ttUINT: return double(bits & 0xFFFFu);
    case ttDINT: return AsSigned32(bits);
    default: return double(bits);  // UDINT
    }
}

// ADD SUB MUL DIV MOD: source `s` on the left, register `d` on the right.
inline Qz::uint32_t Arithmetic(uint8_t op, const QZ_Operand& s, const QZ_Operand& d, QZ_Operand& out) {
    if (op < ttADD || op > ttMOD) return Qz::rcArithOperand;
    if ((op == ttDIV || op == ttMOD) && d.Value == 0.0) return Qz::rcDivisionByZero;
    const bool floating = IsFloatingType(s.Type) || IsFloatingType(d.Type);
    if (op == ttMOD && floating) return Qz::rcModFloat;

    if (floating) {
        switch (op) {
        case ttADD: out.Value = s.Value + d.Value; break;
        case ttSUB: out.Value = s.Value - d.Value; break;
        case ttMUL: out.Value = s.Value * d.Value; break;
        default: out.Value = s.Value / d.Value; break;  // DIV
        }
        out.Type = char(ttLREAL);
        return Qz::rcOK;
    }

    const int32_t a = Low32Signed(s.Value);
    const int32_t b = Low32Signed(d.Value);
    int32_t result;
    switch (op) {
    case ttADD: result = WrapAdd(a, b); break;
    case ttSUB: result = WrapSub(a, b); break;
    case ttMUL: result = WrapMul(a, b); break;
    default:
        // A divisor like 0.5 or 2^32 passes the 0.0 test but is 0 in 32 bits.
        if (b == 0) return Qz::rcDivisionByZero;
        result = op == ttDIV ? WrapDiv(a, b) : WrapMod(a, b);
        break;
    }
    out.Value = result;
    out.Type = char(ttDINT);
    return Qz::rcOK;
}

// NE EQ GT GE LT LE: a BOOL 1.0 or 0.0; the types are not consulted.
inline Qz::uint32_t Compare(uint8_t op, const QZ_Operand& s, const QZ_Operand& d, QZ_Operand& out) {
    bool holds;
    switch (op) {
    case ttNE: holds = !(s.Value == d.Value); break;  // NaN is unequal to everything
    case ttEQ: holds = s.Value == d.Value; break;
    case ttGT: holds = s.Value > d.Value; break;
    case ttGE: holds = s.Value >= d.Value; break;
    case ttLT: holds = s.Value < d.Value; break;
    case ttLE: holds = s.Value <= d.Value; break;
    default: return Qz::rcCompareOperand;
    }
    out.Value = holds ? 1.0 : 0.0;
    out.Type = char(ttBOOL);
    return Qz::rcOK;
}

// The POW instruction: always LREAL, no domain check.
inline Qz::uint32_t Power(const QZ_Operand& s, const QZ_Operand& d, QZ_Operand& out) {
    out.Value = std::pow(s.Value, d.Value);
    out.Type = char(ttLREAL);
    return Qz::rcOK;
}

// OR XOR AND. The source's type has been checked before the register was
// read (a non-BOOL source fails before the second operand is scanned).
inline Qz::uint32_t Boolean(uint8_t op, const QZ_Operand& s, const QZ_Operand& d, QZ_Operand& out) {
    if (d.Type != char(ttBOOL)) return Qz::rcBoolOperand;
    const bool a = s.Value != 0.0, b = d.Value != 0.0;  // NaN is true, -0.0 false
    bool result;
    switch (op) {
    case ttOR: result = a || b; break;
    case ttXOR: result = a != b; break;
    case ttAND: result = a && b; break;
    default: return Qz::rcBoolOperand;
    }
    out.Value = result ? 1.0 : 0.0;
    out.Type = char(ttBOOL);
    return Qz::rcOK;
}

// BOR BXOR BAND in the wider of the two integer types.
inline Qz::uint32_t Bits(uint8_t op, const QZ_Operand& s, const QZ_Operand& d, QZ_Operand& out) {
    Qz::uint32_t notInteger;
    switch (op) {
    case ttBOR: notInteger = Qz::rcBorType; break;
    case ttBXOR: notInteger = Qz::rcBxorType; break;
    case ttBAND: notInteger = Qz::rcBandType; break;
    default: return Qz::rcBitsOperand;
    }
    const char type = GreaterType(s.Type, d.Type);
    if (!IsIntegerType(type)) return notInteger;
    const uint32_t a = uint32_t(Low64(s.Value)), b = uint32_t(Low64(d.Value));
    const uint32_t bits = op == ttBOR ? (a | b) : op == ttBXOR ? (a ^ b) : (a & b);
    out.Value = ReduceToType(bits, type);
    out.Type = type;
    return Qz::rcOK;
}

// SHL SHR ROL ROR: the source shifted by the register's count.
inline Qz::uint32_t Shift(uint8_t op, const QZ_Operand& s, const QZ_Operand& d, QZ_Operand& out) {
    if (op < ttSHL || op > ttROR) return Qz::rcShiftOperand;
    if (!IsIntegerType(s.Type)) return (op == ttSHL || op == ttSHR) ? Qz::rcShiftType : Qz::rcRotateType;

    const int width = WidthOfType(s.Type);
    const uint64_t x = Low64(s.Value);
    const int32_t count = TruncToInt32(d.Value);
    // Distances count modulo 32, whatever the width; w - n likewise.
    const uint32_t n = uint32_t(count) & 31u;
    const uint32_t back = (uint32_t(width) - uint32_t(count)) & 31u;
    if (s.Type == char(ttUDINT)) {
        const uint32_t v = uint32_t(x);
        uint32_t bits;
        switch (op) {
        case ttSHL: bits = v << n; break;
        case ttSHR: bits = v >> n; break;
        case ttROL: bits = n ? (v << n) | (v >> (32 - n)) : v; break;
        default: bits = n ? (v >> n) | (v << (32 - n)) : v; break;  // ROR
        }
        out.Value = double(bits);
    } else {
        // Sign-extended for SINT, INT, DINT; zero-extended for USINT, UINT.
        const bool isSigned = s.Type == char(ttSINT) || s.Type == char(ttINT) || s.Type == char(ttDINT);
        const int32_t v = isSigned ? SignExtend(x, width) : AsSigned32(uint32_t(x) & (width == 8 ? 0xFFu : 0xFFFFu));
        int32_t bits;
        // Rotations of narrow types are deliberately not reduced to the width,
        // and their right-hand part shifts arithmetically.
        switch (op) {
        case ttSHL: bits = ShiftLeft(v, n); break;
        case ttSHR: bits = ShiftRightArithmetic(v, n); break;
        case ttROL: bits = ShiftLeft(v, n) | ShiftRightArithmetic(v, back); break;
        default: bits = ShiftRightArithmetic(v, n) | ShiftLeft(v, back); break;  // ROR
        }
        out.Value = bits;
    }
    out.Type = GreaterType(s.Type, d.Type);
    return Qz::rcOK;
}

// NOT: only a BOOL register.
inline Qz::uint32_t Not(const QZ_Operand& d, QZ_Operand& out) {
    if (d.Type != char(ttBOOL)) return Qz::rcNotType;
    out.Value = d.Value == 0.0 ? 1.0 : 0.0;
    out.Type = char(ttBOOL);
    return Qz::rcOK;
}

// BNOT keeps the register's type. The unsigned 8- and 16-bit complements are
// not masked back to their width: BNOT of USINT 0 is -1, not 255.
inline Qz::uint32_t BitNot(const QZ_Operand& d, QZ_Operand& out) {
    const uint64_t x = Low64(d.Value);
    switch (static_cast<uint8_t>(d.Type)) {
    case ttSINT: out.Value = ~SignExtend(x, 8); break;
    case ttUSINT: out.Value = ~int32_t(x & 0xFFu); break;
    case ttINT: out.Value = ~SignExtend(x, 16); break;
    case ttUINT: out.Value = ~int32_t(x & 0xFFFFu); break;
    case ttDINT: out.Value = ~SignExtend(x, 32); break;
    case ttUDINT: out.Value = double(~uint32_t(x)); break;
    default: return Qz::rcBnotOperand;
    }
    out.Type = d.Type;
    return Qz::rcOK;
}

// NG: no type check, no narrowing; 0.0 becomes -0.0.
inline Qz::uint32_t Negate(const QZ_Operand& d, QZ_Operand& out) {
    out.Value = -d.Value;
    out.Type = d.Type;
    return Qz::rcOK;
}

}  // namespace qz

#endif
