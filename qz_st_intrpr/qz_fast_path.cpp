// The decoded path: a body runs by replaying decoded instructions instead of
// scanning their text, with the same effects in the same order, the same
// result codes, and the same state left behind as RunBodyPlain.
//
// The scanner's fields are the expensive part of a replay, and only the last
// token's values survive an instruction, so they are kept pending: `Pending`
// names the token whose scan the fields should show, and Materialize() writes
// them before anything that could look (a plain handler, the clock, the
// trace hook, the caller). DigitValue and DigitType are written at once,
// since a number's values outlive the tokens after it.
//
// What would fail is mostly left to the plain handlers: an instruction whose
// operands are of a kind it refuses never gets a decoded form, and one whose
// jump or call target is not a clean label runs plainly from its keyword
// (nothing has happened yet at that point). Failures that depend on the
// machine's state (a variable missing from the current table, an empty
// stack, a division by zero) are reported here with the fields showing the
// token the plain handler would have stopped at.
#include "qz_st_intrpr_execute.h"

#include <cstring>

QZ_Register CQZ_STInterpretator_Execute::* const CQZ_STInterpretator_Execute::kRegisters[3] = {
    &CQZ_STInterpretator_Execute::A0, &CQZ_STInterpretator_Execute::R0, &CQZ_STInterpretator_Execute::R1};

void CQZ_STInterpretator_Execute::ShowToken(const QZ_DecodedToken& token) {
    TokenStart = token.Start;
    if (token.EndWritten) TokenEnd = token.End;
    TokenCode = token.Code;
    std::memcpy(TokenText, Decoded.TextAt(token.TextOffset), size_t(token.TextLength) + 1);
    TokenLength = token.TextLength;
    TextPos = token.NextTextPos;
    CurChar = token.NextChar;
    if (token.Code == ttNUMBER) {
        DigitValue = token.Number;
        DigitType = token.NumberType;
    }
}

int32_t CQZ_STInterpretator_Execute::NextPosition() const {
    if (Pending) return PendingNext;
    // The fields are the scanner's: the next token starts at the current
    // character, provided that it is the text's character there.
    if (CurChar == 0 || TextPos < 1 || TextPos > TextLen || Text[size_t(TextPos - 1)] != CurChar) return -1;
    return TextPos - 1;
}

void CQZ_STInterpretator_Execute::Step(uint32_t token) {
    const QZ_DecodedToken& t = Decoded.Tokens[token - 1];
    // A final RET cut off by the end keeps the TokenEnd of the token before it.
    if (!t.EndWritten) Materialize();
    Pending = token;
    PendingNext = t.Next();
}

Var* CQZ_STInterpretator_Execute::ResolveVariable(QZ_DecodedOperand& operand) {
    CQZ_Vars& table = CurrentVars();
    const uint32_t shape = table.Shape();
    if (shape != 0 && operand.Shape == shape) return table.Record(operand.Ordinal);
    Var* var = table.lookup(Decoded.TextAt(operand.NameOffset), 0, 0, 0.0, 0, false);
    if (var && shape != 0) {
        operand.Shape = shape;
        operand.Ordinal = var->Ordinal;
    }
    return var;
}

Qz::uint32_t CQZ_STInterpretator_Execute::ReadDecodedSource(QZ_DecodedOperand& operand, QZ_Operand& out) {
    switch (operand.Kind) {
    case ttVAR: {
        const Var* var = ResolveVariable(operand);
        if (!var) return Qz::rcVarNotFound;
        return ReadVariable(*var, out);
    }
    case ttREF: {
        const Var* var = ResolveVariable(operand);
        if (!var) return Qz::rcVarNotFound;
        return ReadReference(*var, out);
    }
    case ttPOP:
        if (Stack.empty()) return Qz::rcStackEmpty;
        out.Type = Stack.back().ValueType;
        out.Value = Stack.back().Value;
        Stack.pop_back();
        return Qz::rcOK;
    case ttNUMBER:
        DigitValue = operand.Number;
        DigitType = operand.NumberType;
        out.Value = operand.Number;
        out.Type = char(operand.NumberType);
        return Qz::rcOK;
    case ttTICK:
        // The clock is the host's: it sees the fields as the plain path leaves them.
        Pending = operand.Token;
        Materialize();
        out.Value = ReadTick();
        out.Type = char(ttUDINT);
        return Qz::rcOK;
    default: {  // A0, R0, R1
        const QZ_Register& reg = Register(operand.Register);
        out.Value = reg.Value;
        out.Type = reg.ValueType;
        return Qz::rcOK;
    }
    }
}

Qz::uint32_t CQZ_STInterpretator_Execute::RunBodyDecoded(bool callBase, bool& reachedEnd) {
    PrepareDecoded();
    const Qz::uint32_t r = RunDecodedBody(callBase, reachedEnd);
    Materialize();
    return r;
}

// RunBodyPlain step by step, with the tokens replayed where they are decoded.
Qz::uint32_t CQZ_STInterpretator_Execute::RunDecodedBody(bool callBase, bool& reachedEnd) {
    size_t depth = 0;
    reachedEnd = false;
    for (;;) {
        if ((Pending ? Decoded.Tokens[Pending - 1].Code : TokenCode) == ttEND) {
            reachedEnd = true;
            return Qz::rcOK;
        }
        const bool inCall = callBase || depth > 0;
        uint32_t token;  // 1 + the decoded token of the statement, 0 when it was scanned
        uint8_t code;
        do {
            const int32_t pos = NextPosition();
            token = pos >= 0 ? DecodedTokenAt(pos) : 0;
            if (token) {
                Step(token);
                code = Decoded.Tokens[token - 1].Code;
            } else {
                Materialize();
                if (Qz::uint32_t r = Scan(TokenText)) return r;
                code = TokenCode;
            }
            if (code == ttEND) {
                reachedEnd = true;
                return Qz::rcOK;
            }
        } while (code == ttLABEL || (inCall && code == ttBODY));

        if (code == ttRET) {
            if (!inCall) return Qz::rcOK;  // MAIN's RET
            Materialize();
            if (Qz::uint32_t r = ReturnFromCall()) return r;
            if (depth == 0) return Qz::rcOK;  // the call that started this loop returned
            --depth;
            continue;
        }
        if (!IsInstructionCode(code)) return Qz::rcNotInstruction;
        if (InstructionBudget && InstructionsRun >= InstructionBudget) return Qz::rcBudgetExhausted;
        ++InstructionsRun;

        const int32_t start = token ? Decoded.Tokens[token - 1].Start : TokenStart;
        if (TraceHook) JumpOperandEnd = -1;
        Qz::uint32_t r;
        if (token) {
            uint32_t instruction = Decoded.Tokens[token - 1].Instruction;
            if (!instruction) instruction = DecodeInstruction(token);
            r = RunDecoded(instruction, depth);
        } else if (code == ttCAL) {
            r = EnterCall();
            if (r == Qz::rcOK) ++depth;
        } else {
            r = DoCommand();
        }
        if (TraceHook) {
            Materialize();
            TraceInstruction(start, r);
        }
        if (r != Qz::rcOK) return r;
    }
}

// One decoded instruction; `Pending` is its keyword on entry.
Qz::uint32_t CQZ_STInterpretator_Execute::RunDecoded(uint32_t instruction, size_t& depth) {
    QZ_DecodedInstruction& in = Decoded.Instructions[instruction - 1];
    const uint8_t form = in.Form;
    if (form == dfPlain) {
        Materialize();
        if (in.Code != ttCAL) return DoCommand();
        const Qz::uint32_t r = EnterCall();
        if (r == Qz::rcOK) ++depth;
        return r;
    }
    if (form == dfCall) return RunDecodedCall(instruction, depth);
    if (form == dfJump) {
        const bool stay = (in.Code == ttJMPF && TestFlag) || (in.Code == ttJMPT && !TestFlag);
        Pending = in.Last;
        PendingNext = in.Next;
        if (stay) return Qz::rcOK;
        if (in.TargetState == QZ_DecodedInstruction::tgUnresolved) ResolveTarget(instruction);
        const QZ_DecodedInstruction& jump = Decoded.Instructions[instruction - 1];
        if (jump.TargetState == QZ_DecodedInstruction::tgUnresolved) return Qz::rcLabelNotFound;
        if (jump.TargetState == QZ_DecodedInstruction::tgPlain) {
            Pending = jump.Keyword;
            Materialize();
            return DoCommand();
        }
        JumpOperandEnd = Decoded.Tokens[jump.Last - 1].End;
        Pending = jump.TargetToken;
        PendingNext = jump.TargetNext;
        return Qz::rcOK;
    }
    if (form == dfExec) {
        Pending = in.Last;
        PendingNext = in.Next;
        return in.Function(this);
    }

    // The rest read a source (two-operand forms) and a register.
    QZ_Operand s, out;
    if (form <= dfShift) {
        if (Qz::uint32_t r = ReadDecodedSource(in.Source, s)) {
            Pending = in.Source.Token;
            return r;
        }
        if (form == dfBoolean && s.Type != char(ttBOOL)) {  // before the register is read
            Pending = in.Source.Token;
            return Qz::rcBoolOperand;
        }
    }
    Pending = in.Last;
    PendingNext = in.Next;

    if (form == dfMove) {
        switch (in.Target.Kind) {
        case ttVAR: {
            Var* var = ResolveVariable(in.Target);
            return var ? StoreVariable(*var, s.Value) : Qz::rcVarNotFound;
        }
        case ttREF: {
            const Var* var = ResolveVariable(in.Target);
            return var ? StoreReference(*var, s.Value) : Qz::rcVarNotFound;
        }
        case ttNIL:
            return Qz::rcOK;  // discards
        case ttPUSH:
            Stack.push_back(QZ_StackValue{s.Value, s.Type});
            return Qz::rcOK;
        case ttTICK:  // presets the free-running counter
            Materialize();
            TickLast = ClockMilliseconds();
            return ConvertDim(s.Value, TickValue, char(ttUDINT));
        default: {  // A0, R0, R1
            QZ_Register& reg = Register(in.Target.Register);
            reg.Value = s.Value;
            reg.ValueType = s.Type;
            return Qz::rcOK;
        }
        }
    }

    QZ_Register& reg = Register(in.Target.Register);
    const QZ_Operand d{reg.Value, reg.ValueType};
    const uint8_t code = in.Code;
    Qz::uint32_t r;
    switch (form) {
    case dfArithmetic: r = qz::Arithmetic(code, s, d, out); break;
    case dfCompare: r = qz::Compare(code, s, d, out); break;
    case dfPower: r = qz::Power(s, d, out); break;
    case dfBoolean: r = qz::Boolean(code, s, d, out); break;
    case dfBits: r = qz::Bits(code, s, d, out); break;
    case dfShift: r = qz::Shift(code, s, d, out); break;
    case dfTest:
        TestFlag = (d.Value == 0.0) ? 0 : 1;  // NaN tests true
        return Qz::rcOK;
    case dfNot: r = qz::Not(d, out); break;
    case dfBitNot: r = qz::BitNot(d, out); break;
    default: r = qz::Negate(d, out); break;  // dfNegate
    }
    if (r == Qz::rcOK) {
        reg.Value = out.Value;
        reg.ValueType = out.Type;
    }
    return r;
}

// CAL: what EnterCall does, with the frame built from the template of the
// subprogram's declarations instead of by scanning them.
Qz::uint32_t CQZ_STInterpretator_Execute::RunDecodedCall(uint32_t instruction, size_t& depth) {
    if (Decoded.Instructions[instruction - 1].TargetState == QZ_DecodedInstruction::tgUnresolved)
        ResolveTarget(instruction);
    const QZ_DecodedInstruction& in = Decoded.Instructions[instruction - 1];
    if (in.TargetState == QZ_DecodedInstruction::tgUnresolved) {
        Pending = in.Last;
        return Qz::rcLabelNotFound;
    }
    if (in.TargetState == QZ_DecodedInstruction::tgPlain) {
        Materialize();  // the keyword
        const Qz::uint32_t r = EnterCall();
        if (r == Qz::rcOK) ++depth;
        return r;
    }

    const QZ_DecodedToken& name = Decoded.Tokens[in.Last - 1];
    const QZ_FrameTemplate& frame = Decoded.Frames[in.Frame - 1];
    JumpOperandEnd = name.End;
    CallStack.push_back(QZ_FuncStackValue{uint32_t(name.NextTextPos - 1)});
    CQZ_Vars* table = AcquireFrameTable();
    for (const Var& record : frame.Records) table->AddRecord(record);
    TableStack.push_back(table);
    table->SetShape(frame.Shape);
    if (frame.HasNumber) {
        DigitValue = frame.Number;
        DigitType = frame.NumberType;
    }
    Pending = frame.BodyToken;
    PendingNext = Decoded.Tokens[frame.BodyToken - 1].Next();
    ++depth;
    return Qz::rcOK;
}
