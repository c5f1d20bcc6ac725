// The two-operand instructions: arithmetic, comparison, power, Boolean,
// bitwise, shift and rotation. The source operand is the left-hand one, the
// register both the right-hand one and the destination. What they compute is
// in qz_operations.h; here the operands are read from the text.
#include "qz_operations.h"
#include "qz_st_intrpr_execute.h"

Qz::uint32_t CQZ_STInterpretator_Execute::WriteResult(char reg, Qz::uint32_t result, const QZ_Operand& value) {
    if (result != Qz::rcOK) return result;
    return SetValueToRegister(reg, value.Type, value.Value);
}

Qz::uint32_t CQZ_STInterpretator_Execute::DoArithmetic(char code) {
    QZ_Operand s, d, out;
    char reg;
    if (Qz::uint32_t r = ReadOperands(s, reg, d, Qz::rcArithOperand)) return r;
    return WriteResult(reg, qz::Arithmetic(static_cast<uint8_t>(code), s, d, out), out);
}

Qz::uint32_t CQZ_STInterpretator_Execute::DoCompare(char code) {
    QZ_Operand s, d, out;
    char reg;
    if (Qz::uint32_t r = ReadOperands(s, reg, d, Qz::rcCompareOperand)) return r;
    return WriteResult(reg, qz::Compare(static_cast<uint8_t>(code), s, d, out), out);
}

Qz::uint32_t CQZ_STInterpretator_Execute::DoPow() {
    QZ_Operand s, d, out;
    char reg;
    if (Qz::uint32_t r = ReadOperands(s, reg, d, Qz::rcPowOperand)) return r;
    return WriteResult(reg, qz::Power(s, d, out), out);
}

Qz::uint32_t CQZ_STInterpretator_Execute::DoBoolean(char code) {
    QZ_Operand s, d, out;
    char reg;
    if (Qz::uint32_t r = ReadSource(s, Qz::rcBoolOperand)) return r;
    if (s.Type != char(ttBOOL)) return Qz::rcBoolOperand;  // before the register is read
    if (Qz::uint32_t r = ReadRegister(reg, d, Qz::rcBoolOperand)) return r;
    return WriteResult(reg, qz::Boolean(static_cast<uint8_t>(code), s, d, out), out);
}

Qz::uint32_t CQZ_STInterpretator_Execute::DoBits(char code) {
    QZ_Operand s, d, out;
    char reg;
    if (Qz::uint32_t r = ReadOperands(s, reg, d, Qz::rcBitsOperand)) return r;
    return WriteResult(reg, qz::Bits(static_cast<uint8_t>(code), s, d, out), out);
}

Qz::uint32_t CQZ_STInterpretator_Execute::DoShift(char code) {
    QZ_Operand s, d, out;
    char reg;
    if (Qz::uint32_t r = ReadOperands(s, reg, d, Qz::rcShiftOperand)) return r;
    return WriteResult(reg, qz::Shift(static_cast<uint8_t>(code), s, d, out), out);
}
