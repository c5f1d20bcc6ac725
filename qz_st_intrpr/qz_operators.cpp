// The two-operand instructions: arithmetic, comparison, power, Boolean,
// bitwise, shift and rotation. The source operand is the left-hand one, the
// register both the right-hand one and the destination.
#include "qz_numeric.h"
#include "qz_st_intrpr_execute.h"

#include <cmath>

namespace {

// The wider of two type codes, compared as signed bytes.
char GreaterType(char a, char b) { return static_cast<signed char>(a) > static_cast<signed char>(b) ? a : b; }

int WidthOfType(char type) {
    switch (static_cast<uint8_t>(type)) {
    case ttSINT: case ttUSINT: return 8;
    case ttINT: case ttUINT: return 16;
    default: return 32;
    }
}

// The low bits of a 32-bit result read as `type`.
double ReduceToType(uint32_t bits, char type) {
    switch (static_cast<uint8_t>(type)) {
    case ttSINT: return qz::SignExtend(bits, 8);
    case ttUSINT: return double(bits & 0xFFu);
    case ttINT: return qz::SignExtend(bits, 16);
    case ttUINT: return double(bits & 0xFFFFu);
    case ttDINT: return qz::AsSigned32(bits);
    default: return double(bits);  // UDINT
    }
}

}  // namespace

Qz::uint32_t CQZ_STInterpretator_Execute::DoArithmetic(char code) {
    QZ_Operand s, d;
    char reg;
    if (Qz::uint32_t r = ReadOperands(s, reg, d, Qz::rcArithOperand)) return r;
    const uint8_t op = static_cast<uint8_t>(code);
    if (op < ttADD || op > ttMOD) return Qz::rcArithOperand;
    if ((op == ttDIV || op == ttMOD) && d.Value == 0.0) return Qz::rcDivisionByZero;
    const bool floating = IsFloatingType(s.Type) || IsFloatingType(d.Type);
    if (op == ttMOD && floating) return Qz::rcModFloat;

    if (floating) {
        double result;
        switch (op) {
        case ttADD: result = s.Value + d.Value; break;
        case ttSUB: result = s.Value - d.Value; break;
        case ttMUL: result = s.Value * d.Value; break;
        default: result = s.Value / d.Value; break;  // DIV
        }
        return SetValueToRegister(reg, char(ttLREAL), result);
    }

    const int32_t a = qz::SignExtend(qz::Low64(s.Value), 32);
    const int32_t b = qz::SignExtend(qz::Low64(d.Value), 32);
    int32_t result;
    switch (op) {
    case ttADD: result = qz::WrapAdd(a, b); break;
    case ttSUB: result = qz::WrapSub(a, b); break;
    case ttMUL: result = qz::WrapMul(a, b); break;
    default:
        // A divisor like 0.5 or 2^32 passes the 0.0 test but is 0 in 32 bits.
        if (b == 0) return Qz::rcDivisionByZero;
        result = op == ttDIV ? qz::WrapDiv(a, b) : qz::WrapMod(a, b);
        break;
    }
    return SetValueToRegister(reg, char(ttDINT), result);
}

Qz::uint32_t CQZ_STInterpretator_Execute::DoCompare(char code) {
    QZ_Operand s, d;
    char reg;
    if (Qz::uint32_t r = ReadOperands(s, reg, d, Qz::rcCompareOperand)) return r;
    bool holds;
    switch (static_cast<uint8_t>(code)) {
    case ttNE: holds = !(s.Value == d.Value); break;  // NaN is unequal to everything
    case ttEQ: holds = s.Value == d.Value; break;
    case ttGT: holds = s.Value > d.Value; break;
    case ttGE: holds = s.Value >= d.Value; break;
    case ttLT: holds = s.Value < d.Value; break;
    case ttLE: holds = s.Value <= d.Value; break;
    default: return Qz::rcCompareOperand;
    }
    return SetValueToRegister(reg, char(ttBOOL), holds ? 1.0 : 0.0);
}

Qz::uint32_t CQZ_STInterpretator_Execute::DoPow() {
    QZ_Operand s, d;
    char reg;
    if (Qz::uint32_t r = ReadOperands(s, reg, d, Qz::rcPowOperand)) return r;
    return SetValueToRegister(reg, char(ttLREAL), std::pow(s.Value, d.Value));
}

Qz::uint32_t CQZ_STInterpretator_Execute::DoBoolean(char code) {
    QZ_Operand s, d;
    char reg;
    if (Qz::uint32_t r = ReadSource(s, Qz::rcBoolOperand)) return r;
    if (s.Type != char(ttBOOL)) return Qz::rcBoolOperand;  // before the register is read
    if (Qz::uint32_t r = ReadRegister(reg, d, Qz::rcBoolOperand)) return r;
    if (d.Type != char(ttBOOL)) return Qz::rcBoolOperand;
    const bool a = s.Value != 0.0, b = d.Value != 0.0;  // NaN is true, -0.0 false
    bool result;
    switch (static_cast<uint8_t>(code)) {
    case ttOR: result = a || b; break;
    case ttXOR: result = a != b; break;
    case ttAND: result = a && b; break;
    default: return Qz::rcBoolOperand;
    }
    return SetValueToRegister(reg, char(ttBOOL), result ? 1.0 : 0.0);
}

Qz::uint32_t CQZ_STInterpretator_Execute::DoBits(char code) {
    QZ_Operand s, d;
    char reg;
    if (Qz::uint32_t r = ReadOperands(s, reg, d, Qz::rcBitsOperand)) return r;
    Qz::uint32_t notInteger;
    switch (static_cast<uint8_t>(code)) {
    case ttBOR: notInteger = Qz::rcBorType; break;
    case ttBXOR: notInteger = Qz::rcBxorType; break;
    case ttBAND: notInteger = Qz::rcBandType; break;
    default: return Qz::rcBitsOperand;
    }
    const char type = GreaterType(s.Type, d.Type);
    if (!IsIntegerType(type)) return notInteger;
    const uint32_t a = uint32_t(qz::Low64(s.Value)), b = uint32_t(qz::Low64(d.Value));
    const uint32_t bits = code == char(ttBOR) ? (a | b) : code == char(ttBXOR) ? (a ^ b) : (a & b);
    return SetValueToRegister(reg, type, ReduceToType(bits, type));
}

Qz::uint32_t CQZ_STInterpretator_Execute::DoShift(char code) {
    QZ_Operand s, d;
    char reg;
    if (Qz::uint32_t r = ReadOperands(s, reg, d, Qz::rcShiftOperand)) return r;
    const uint8_t op = static_cast<uint8_t>(code);
    if (op < ttSHL || op > ttROR) return Qz::rcShiftOperand;
    if (!IsIntegerType(s.Type)) return (op == ttSHL || op == ttSHR) ? Qz::rcShiftType : Qz::rcRotateType;

    const int width = WidthOfType(s.Type);
    const uint64_t x = qz::Low64(s.Value);
    const int32_t count = qz::TruncToInt32(d.Value);
    // Distances count modulo 32, whatever the width; w - n likewise.
    const uint32_t n = uint32_t(count) & 31u;
    const uint32_t back = (uint32_t(width) - uint32_t(count)) & 31u;
    double result;
    if (s.Type == char(ttUDINT)) {
        const uint32_t v = uint32_t(x);
        uint32_t bits;
        switch (op) {
        case ttSHL: bits = v << n; break;
        case ttSHR: bits = v >> n; break;
        case ttROL: bits = n ? (v << n) | (v >> (32 - n)) : v; break;
        default: bits = n ? (v >> n) | (v << (32 - n)) : v; break;  // ROR
        }
        result = double(bits);
    } else {
        // Sign-extended for SINT, INT, DINT; zero-extended for USINT, UINT.
        const bool isSigned = s.Type == char(ttSINT) || s.Type == char(ttINT) || s.Type == char(ttDINT);
        const int32_t v = isSigned ? qz::SignExtend(x, width)
                                   : qz::AsSigned32(uint32_t(x) & (width == 8 ? 0xFFu : 0xFFFFu));
        int32_t bits;
        // Rotations of narrow types are deliberately not reduced to the width,
        // and their right-hand part shifts arithmetically.
        switch (op) {
        case ttSHL: bits = qz::ShiftLeft(v, n); break;
        case ttSHR: bits = qz::ShiftRightArithmetic(v, n); break;
        case ttROL: bits = qz::ShiftLeft(v, n) | qz::ShiftRightArithmetic(v, back); break;
        default: bits = qz::ShiftRightArithmetic(v, n) | qz::ShiftLeft(v, back); break;  // ROR
        }
        result = bits;
    }
    return SetValueToRegister(reg, GreaterType(s.Type, d.Type), result);
}
