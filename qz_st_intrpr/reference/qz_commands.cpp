// Instruction dispatch, data moves, jumps and the one-register instructions.
#include "qz_st_intrpr_execute.h"

const CQZ_STInterpretator_Execute::Handler CQZ_STInterpretator_Execute::kHandlers[ttRET - ttCAL + 1] = {
#define QZ_HANDLER_ROW(name, code, handler, ...) &CQZ_STInterpretator_Execute::handler,
    QZ_INSTRUCTIONS(QZ_HANDLER_ROW)
#undef QZ_HANDLER_ROW
};

Qz::uint32_t CQZ_STInterpretator_Execute::DoCommand() {
    const uint8_t code = TokenCode;
    if (!IsInstructionCode(code)) return Qz::rcNoCommand;
    return (this->*kHandlers[code - ttCAL])(char(code));
}

Qz::uint32_t CQZ_STInterpretator_Execute::DoRetCommand(char) {
    return Qz::rcRetInCommand;  // the body loops end at RET before dispatching it
}

Qz::uint32_t CQZ_STInterpretator_Execute::DoCallCommand(char) { return DoCall(); }
Qz::uint32_t CQZ_STInterpretator_Execute::DoMOVCommand(char) { return DoMOV(); }
Qz::uint32_t CQZ_STInterpretator_Execute::DoPowCommand(char) { return DoPow(); }

// ---- Moves ----

Qz::uint32_t CQZ_STInterpretator_Execute::DoMOV() {
    QZ_Operand source;
    if (Qz::uint32_t r = ReadSource(source, Qz::rcMovOperand, true)) return r;
    if (Qz::uint32_t r = Scan(TokenText)) return r;
    switch (TokenCode) {
    case ttVAR: {
        Var* var = GetVar(TokenText);
        if (!var) return Qz::rcVarNotFound;
        return StoreVariable(*var, source.Value);
    }
    case ttREF: {
        const Var* var = GetVar(TokenText);
        if (!var) return Qz::rcVarNotFound;
        return StoreReference(*var, source.Value);
    }
    case ttA0: case ttR0: case ttR1: case ttNIL:
        return SetValueToRegister(char(TokenCode), source.Type, source.Value);
    case ttPUSH:
        return StackPush(source.Type, source.Value);
    case ttTICK:  // presets the free-running counter
        TickLast = ClockMilliseconds();
        return ConvertDim(source.Value, TickValue, char(ttUDINT));
    default:
        return Qz::rcMovOperand;
    }
}

Qz::uint32_t CQZ_STInterpretator_Execute::DoMOVA(char) {
    double address = 0.0;
    char type = 0;
    if (Qz::uint32_t r = Scan(TokenText)) return r;
    switch (TokenCode) {
    case ttVAR: {
        Var* var = GetVar(TokenText);
        if (!var) return Qz::rcVarNotFound;
        if (var->VarKind == char(ttVR)) {
            // A VR variable already holds an address: narrow its target in place.
            double* target = ReferencedValue(var);
            if (!target) return Qz::rcVarNotFound;
            if (Qz::uint32_t r = ConvertDim(*target, *target, var->VarType)) return r;
            address = var->VarValue;
        } else {
            if (Qz::uint32_t r = ConvertDim(var->VarValue, var->VarValue, var->VarType)) return r;
            if (!References.AddressOf(var, address)) return Qz::rcVarNotFound;
        }
        type = var->VarType;
        break;
    }
    case ttA0: case ttR0: case ttR1: case ttNIL:
        if (Qz::uint32_t r = GetValueFromRegister(char(TokenCode), type, address)) return r;
        break;
    default:
        return Qz::rcMovOperand;
    }

    if (Qz::uint32_t r = Scan(TokenText)) return r;
    switch (TokenCode) {
    case ttVAR: {
        Var* var = GetVar(TokenText);
        if (!var) return Qz::rcVarNotFound;
        var->VarValue = address;  // the bits as they are: no narrowing, no Rewrited
        return Qz::rcOK;
    }
    case ttA0: case ttR0: case ttR1: case ttNIL:
        return SetValueToRegister(char(TokenCode), type, address);
    default:
        return Qz::rcMovOperand;
    }
}

// ---- Jumps ----

Qz::uint32_t CQZ_STInterpretator_Execute::DoJump(char code) {
    if (Qz::uint32_t r = Scan(TokenText)) return r;
    if (TokenCode != ttNAME) return Qz::rcJumpOperand;
    const bool stay = (code == char(ttJMPF) && TestFlag) || (code == char(ttJMPT) && !TestFlag);
    if (stay) return SkipWhite();
    const Label* label = Labels.lookup(TokenText, 0, 0, false);
    if (!label) return Qz::rcLabelNotFound;
    JumpOperandEnd = TokenEnd;
    if (Qz::uint32_t r = SeekTo(label->LabelStart)) return r;
    if (Qz::uint32_t r = Scan(TokenText)) return r;
    if (TokenCode != ttLABEL) return Qz::rcNoLabelToken;
    return SkipWhite();
}

// ---- One-register instructions ----

Qz::uint32_t CQZ_STInterpretator_Execute::DoTest(char) {
    char reg;
    QZ_Operand value;
    if (Qz::uint32_t r = ReadRegister(reg, value, Qz::rcTstOperand)) return r;
    TestFlag = (value.Value == 0.0) ? 0 : 1;  // NaN tests true
    return Qz::rcOK;
}

Qz::uint32_t CQZ_STInterpretator_Execute::DoNot(char) {
    char reg;
    QZ_Operand value, out;
    if (Qz::uint32_t r = ReadRegister(reg, value, Qz::rcUnaryOperand)) return r;
    return WriteResult(reg, qz::Not(value, out), out);
}

Qz::uint32_t CQZ_STInterpretator_Execute::DoBitNot(char) {
    char reg;
    QZ_Operand value, out;
    if (Qz::uint32_t r = ReadRegister(reg, value, Qz::rcBnotOperand)) return r;
    return WriteResult(reg, qz::BitNot(value, out), out);
}

Qz::uint32_t CQZ_STInterpretator_Execute::DoNegate(char) {
    char reg;
    QZ_Operand value, out;
    if (Qz::uint32_t r = ReadRegister(reg, value, Qz::rcUnaryOperand)) return r;
    return WriteResult(reg, qz::Negate(value, out), out);
}

// ---- Built-in functions ----

Qz::uint32_t CQZ_STInterpretator_Execute::DoExec(char) {
    if (Qz::uint32_t r = Scan(TokenText)) return r;
    QString name = QString::fromLatin1(TokenText).toUpper();
    return QZBuildInFunctions::DoBildInFunctions(this, name);
}
