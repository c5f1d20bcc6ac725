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
    if (Pending) return Decoded.Tokens[Pending - 1].Next();
    // The fields are the scanner's: the next token starts at the current
    // character, provided that it is the text's character there.
    if (CurChar == 0 || TextPos < 1 || TextPos > TextLen || Text[size_t(TextPos - 1)] != CurChar) return -1;
    return TextPos - 1;
}

void CQZ_STInterpretator_Execute::Step(uint32_t token) {
    // A final RET cut off by the end keeps the TokenEnd of the token before it.
    if (!Decoded.Tokens[token - 1].EndWritten) Materialize();
    Pending = token;
}

// The variable a name designates in `table`: found again by ordinal when the
// table has the shape it was found in before, else looked up by name.
inline Var* CQZ_STInterpretator_Execute::ResolveVariable(QZ_DecodedOperand& operand, CQZ_Vars& table) {
    const uint32_t shape = table.Shape();
    if (shape != 0 && operand.Shape == shape) return table.Record(operand.Ordinal);
    return FindVariable(operand, table);
}

Var* CQZ_STInterpretator_Execute::FindVariable(QZ_DecodedOperand& operand, CQZ_Vars& table) {
    Var* var = table.lookup(Decoded.TextAt(operand.NameOffset), 0, 0, 0.0, 0, false);
    if (var && table.Shape() != 0) {
        operand.Shape = table.Shape();
        operand.Ordinal = var->Ordinal;
    }
    return var;
}

inline Qz::uint32_t CQZ_STInterpretator_Execute::ReadDecodedSource(QZ_DecodedOperand& operand, CQZ_Vars& table,
                                                                   QZ_Operand& out) {
    switch (operand.Kind) {
    case ttVAR: {
        const Var* var = ResolveVariable(operand, table);
        if (!var) return Qz::rcVarNotFound;
        return ReadVariable(*var, out);
    }
    case ttNUMBER:
        DigitValue = operand.Number;
        DigitType = operand.NumberType;
        out.Value = operand.Number;
        out.Type = char(operand.NumberType);
        return Qz::rcOK;
    case ttREF: {
        const Var* var = ResolveVariable(operand, table);
        if (!var) return Qz::rcVarNotFound;
        return ReadReference(*var, out);
    }
    case ttPOP:
        if (Stack.empty()) return Qz::rcStackEmpty;
        out.Type = Stack.back().ValueType;
        out.Value = Stack.back().Value;
        Stack.pop_back();
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

namespace {
// Which successor slot the next statement found is to be remembered in:
// (1 + instruction index) * 2, plus 1 for the target successor; 0 for none.
inline uint32_t FallThrough(uint32_t instruction) { return instruction * 2; }
inline uint32_t Taken(uint32_t instruction) { return instruction * 2 + 1; }
}  // namespace

// RunBodyPlain step by step, with the tokens replayed where they are decoded
// and runs of decoded instructions followed from one to the next.
Qz::uint32_t CQZ_STInterpretator_Execute::RunDecodedBody(bool callBase, bool& reachedEnd) {
    size_t depth = 0;
    uint32_t link = 0;
    reachedEnd = false;
    for (;;) {
        if ((Pending ? Decoded.Tokens[Pending - 1].Code : TokenCode) == ttEND) {
            reachedEnd = true;
            return Qz::rcOK;
        }
        const bool inCall = callBase || depth > 0;
        uint32_t token;  // 1 + the decoded token of the statement, 0 when it was scanned
        uint8_t code;
        bool onlyLabels = true;  // between the last instruction and this statement
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
                onlyLabels = false;
            }
            if (code == ttEND) {
                reachedEnd = true;
                return Qz::rcOK;
            }
            if (code == ttBODY) onlyLabels = false;
        } while (code == ttLABEL || (inCall && code == ttBODY));

        if (code == ttRET) {
            if (!inCall) return Qz::rcOK;  // MAIN's RET
            if (link && onlyLabels && token && !(link & 1))
                Decoded.Instructions[link / 2 - 1].Successor = kReturnSuccessor | token;
            Materialize();
            if (Qz::uint32_t r = ReturnFromCall()) return r;
            if (depth == 0) return Qz::rcOK;  // the call that started this loop returned
            --depth;
            link = 0;
            continue;
        }
        if (!IsInstructionCode(code)) return Qz::rcNotInstruction;

        if (!token) {  // scanned plainly: run it plainly
            link = 0;
            if (InstructionBudget && InstructionsRun >= InstructionBudget) return Qz::rcBudgetExhausted;
            ++InstructionsRun;
            const int32_t start = TokenStart;
            if (TraceHook) JumpOperandEnd = -1;
            Qz::uint32_t r;
            if (code == ttCAL) {
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
            continue;
        }

        uint32_t instruction = Decoded.Tokens[token - 1].Instruction;
        if (!instruction) instruction = DecodeInstruction(token);
        if (link && onlyLabels) {
            QZ_DecodedInstruction& from = Decoded.Instructions[link / 2 - 1];
            (link & 1 ? from.TargetSuccessor : from.Successor) = instruction;
        }
        bool returned = false;
        if (Qz::uint32_t r = RunChain(instruction, callBase, depth, link, returned)) return r;
        if (returned) return Qz::rcOK;  // the call that started this loop returned
    }
}

// Runs `instruction` and those that follow it as long as each one's
// successor is known, RETs of subprograms included. Returns when a statement
// has to be found by reading tokens, with `linkOut` naming the slot to
// remember it in (0: none), or with `returned` when the call that started a
// body loop of DoCall has returned.
Qz::uint32_t CQZ_STInterpretator_Execute::RunChain(uint32_t instruction, bool callBase, size_t& depth,
                                                   uint32_t& linkOut, bool& returned) {
    CQZ_Vars* table = &CurrentVars();
    // Nothing below decodes instructions, so they stay where they are.
    QZ_DecodedInstruction* const instructions = Decoded.Instructions.data();
    uint64_t run = InstructionsRun;  // written back on the way out; nothing in between reads it
    uint32_t link = 0;
    Qz::uint32_t r;

    // The shortcuts' pieces: the same steps as the generic code below.
    auto readVariable = [&](QZ_DecodedOperand& operand, QZ_Operand& out) -> Qz::uint32_t {
        const Var* var = ResolveVariable(operand, *table);
        return var ? ReadVariable(*var, out) : Qz::rcVarNotFound;
    };
    auto readNumber = [&](const QZ_DecodedOperand& operand, QZ_Operand& out) {
        DigitValue = operand.Number;
        DigitType = operand.NumberType;
        out.Value = operand.Number;
        out.Type = char(operand.NumberType);
    };
    auto readRegister = [&](const QZ_DecodedOperand& operand, QZ_Operand& out) {
        const QZ_Register& reg = Register(operand.Register);
        out.Value = reg.Value;
        out.Type = reg.ValueType;
    };
    auto storeVariable = [&](QZ_DecodedOperand& operand, double value) -> Qz::uint32_t {
        Var* var = ResolveVariable(operand, *table);
        return var ? StoreVariable(*var, value) : Qz::rcVarNotFound;
    };
    auto setRegister = [&](const QZ_DecodedOperand& operand, const QZ_Operand& value) {
        QZ_Register& reg = Register(operand.Register);
        reg.Value = value.Value;
        reg.ValueType = value.Type;
    };

    // The budget and the trace hook, read again after anything that runs a
    // host's code (its clock, its trace hook, a plain handler): nothing else
    // can change them. The shortcuts run no host code.
    uint64_t limit = 0;
    QZTraceFunction hook = nullptr;
    auto readSettings = [&] {
        limit = InstructionBudget ? InstructionBudget : UINT64_MAX;
        hook = TraceHook;
    };
    readSettings();

    // ADD..MOD or NE..LE on a register, with a variable, number or register source.
    auto operate = [&](QZ_DecodedInstruction& x) -> Qz::uint32_t {
        QZ_Operand source;
        const uint8_t shortcut = x.Shortcut;
        if (shortcut == dsArithmeticVar || shortcut == dsCompareVar) {
            if (Qz::uint32_t failed = readVariable(x.Source, source)) {
                Pending = x.Source.Token;
                return failed;
            }
        } else if (shortcut == dsArithmeticNumber || shortcut == dsCompareNumber) {
            readNumber(x.Source, source);
        } else {
            readRegister(x.Source, source);
        }
        Pending = x.Last;
        QZ_Register& reg = Register(x.Target.Register);
        const QZ_Operand d{reg.Value, reg.ValueType};
        QZ_Operand out;
        const Qz::uint32_t result = shortcut <= dsArithmeticRegister ? qz::Arithmetic(x.Code, source, d, out)
                                                                     : qz::Compare(x.Code, source, d, out);
        if (result == Qz::rcOK) {
            reg.Value = out.Value;
            reg.ValueType = out.Type;
        }
        return result;
    };
    // A jump whose target is resolved; sets `next` and `link`.
    auto jump = [&](QZ_DecodedInstruction& x, uint32_t index, uint32_t& next) {
        Pending = x.Last;
        next = x.Successor;
        link = FallThrough(index);
        if ((x.Code == ttJMPF && TestFlag) || (x.Code == ttJMPT && !TestFlag)) return;  // not taken
        JumpOperandEnd = x.OperandEnd;
        Pending = x.TargetToken;
        link = Taken(index);
        next = x.TargetSuccessor;
    };

    // After a MOV into a register: the operator on it, and the MOV of the
    // result into a variable, when they follow and the budget allows.
    uint32_t next = 0;
    auto loadOperate = [&](QZ_DecodedInstruction& load) {
        const uint8_t fusion = load.Fusion;
        if (fusion < dfuLoadOperate || fusion > dfuLoadOperateStore || hook) return;
        if (run + (fusion == dfuLoadOperateStore ? 2 : 1) > limit) return;
        ++run;
        instruction = load.Successor;
        QZ_DecodedInstruction& op = instructions[instruction - 1];
        link = FallThrough(instruction);
        next = op.Successor;
        r = operate(op);
        if (r != Qz::rcOK || fusion != dfuLoadOperateStore) return;
        ++run;
        instruction = op.Successor;
        QZ_DecodedInstruction& store = instructions[instruction - 1];
        link = FallThrough(instruction);
        next = store.Successor;
        Pending = store.Last;
        r = storeVariable(store.Target, Register(store.Source.Register).Value);
    };

    for (;;) {
        QZ_DecodedInstruction& in = instructions[instruction - 1];
        if (in.Fusion == dfuUnknown) DecideFusion(in);
        if (run >= limit) {
            Pending = in.Keyword;
            r = Qz::rcBudgetExhausted;
            break;
        }
        ++run;
        if (hook) JumpOperandEnd = -1;

        r = Qz::rcOK;
        next = in.Successor;  // 0 ends the run
        link = FallThrough(instruction);
        QZ_Operand s;
        switch (in.Shortcut) {
        case dsMoveVarToRegister:
            r = readVariable(in.Source, s);
            if (r != Qz::rcOK) {
                Pending = in.Source.Token;
                break;
            }
            Pending = in.Last;
            setRegister(in.Target, s);
            loadOperate(in);
            break;
        case dsMoveRegisterToVar:
            Pending = in.Last;
            r = storeVariable(in.Target, Register(in.Source.Register).Value);
            break;
        case dsMoveNumberToRegister:
            readNumber(in.Source, s);
            Pending = in.Last;
            setRegister(in.Target, s);
            loadOperate(in);
            break;
        case dsMoveNumberToVar:
            readNumber(in.Source, s);
            Pending = in.Last;
            r = storeVariable(in.Target, s.Value);
            break;
        case dsMoveVarToVar:
            r = readVariable(in.Source, s);
            if (r != Qz::rcOK) {
                Pending = in.Source.Token;
                break;
            }
            Pending = in.Last;
            r = storeVariable(in.Target, s.Value);
            break;
        case dsMoveRegisterToRegister:
            Pending = in.Last;
            readRegister(in.Source, s);
            setRegister(in.Target, s);
            loadOperate(in);
            break;
        case dsArithmeticVar: case dsArithmeticNumber: case dsArithmeticRegister:
        case dsCompareVar: case dsCompareNumber: case dsCompareRegister:
            r = operate(in);
            if (r == Qz::rcOK && in.Fusion == dfuOperateTest && !hook && run < limit) {
                // TST of the same register, and the jump behind it.
                ++run;
                QZ_DecodedInstruction& test = instructions[in.Successor - 1];
                Pending = test.Last;
                TestFlag = (Register(test.Target.Register).Value == 0.0) ? 0 : 1;
                instruction = in.Successor;
                link = FallThrough(instruction);
                next = test.Successor;
                if (next && !(next & kReturnSuccessor) && run < limit) {
                    QZ_DecodedInstruction& branch = instructions[next - 1];
                    if (branch.Shortcut == dsJump && branch.TargetState == QZ_DecodedInstruction::tgResolved) {
                        ++run;
                        instruction = next;
                        jump(branch, instruction, next);
                    }
                }
            }
            break;
        case dsMoveVarToStack:
            r = readVariable(in.Source, s);
            if (r != Qz::rcOK) {
                Pending = in.Source.Token;
                break;
            }
            Pending = in.Last;
            Stack.push_back(QZ_StackValue{s.Value, s.Type});
            break;
        case dsMoveStackToVar:
            if (Stack.empty()) {
                Pending = in.Source.Token;
                r = Qz::rcStackEmpty;
                break;
            }
            s.Value = Stack.back().Value;
            Stack.pop_back();
            Pending = in.Last;
            r = storeVariable(in.Target, s.Value);
            break;
        case dsTest:
            Pending = in.Last;
            TestFlag = (Register(in.Target.Register).Value == 0.0) ? 0 : 1;  // NaN tests true
            break;
        case dsJump:
            if (in.TargetState == QZ_DecodedInstruction::tgResolved) {
                jump(in, instruction, next);
                break;
            }
            // A target not looked up yet, or not a clean label: by the form.
            r = RunByForm(instruction, *table, depth, next, link);
            readSettings();
            break;
        case dsCall:
            if (in.TargetState == QZ_DecodedInstruction::tgResolved) {
                EnterDecodedFrame(in);
                ++depth;
                table = &CurrentVars();
                link = Taken(instruction);
                next = in.TargetSuccessor;
                break;
            }
            r = RunByForm(instruction, *table, depth, next, link);
            table = &CurrentVars();
            readSettings();
            break;
        default:
            r = RunByForm(instruction, *table, depth, next, link);
            if (in.Form == dfPlain || in.Form == dfCall) table = &CurrentVars();
            readSettings();
            break;
        }

        if (hook) {
            Materialize();
            TraceInstruction(in.Start, r);
            readSettings();
        }
        if (r != Qz::rcOK || !next) break;
        if (next & kReturnSuccessor) {
            // A subprogram's RET, as the body loop takes it; then the
            // instruction after the CAL when it is decoded already.
            link = 0;
            if (!callBase && depth == 0) break;  // reached from MAIN: the body loop's case
            const uint32_t resume = depth > 0 ? DecodedReturn() : 0;
            if (resume) {
                // The instruction's keyword is scanned right after the RET
                // and shows in every field, so the RET's own never need to.
                --depth;
                table = &CurrentVars();
                Step(resume);
                next = Decoded.Tokens[resume - 1].Instruction;
            } else {
                Pending = next & ~kReturnSuccessor;
                Materialize();
                r = ReturnFromCall();
                if (r != Qz::rcOK) break;
                if (depth == 0) {
                    returned = true;
                    break;
                }
                --depth;
                table = &CurrentVars();
                const int32_t pos = NextPosition();
                const uint32_t token = pos >= 0 ? Decoded.At(pos) : 0;
                if (token == 0 || token == QZ_DecodedProgram::kUndecodable || !Decoded.Tokens[token - 1].Instruction ||
                    !IsInstructionCode(Decoded.Tokens[token - 1].Code))
                    break;
                Step(token);
                next = Decoded.Tokens[token - 1].Instruction;
            }
        }
        instruction = next;
    }
    InstructionsRun = run;
    linkOut = link;
    return r;
}

// ReturnFromCall when it succeeds and the caller goes on with a decoded
// instruction right at the return position: the frame is released and that
// instruction's keyword token (1 + index) returned. 0, with nothing done,
// when the plain ReturnFromCall is needed.
uint32_t CQZ_STInterpretator_Execute::DecodedReturn() {
    if (CallStack.empty() || TableStack.empty() || !TableStack.back()) return 0;
    const uint32_t index = CallStack.back().ReturnIndex;
    if (index >= uint32_t(TextLen)) return 0;
    const uint32_t token = Decoded.At(int32_t(index));
    if (token == QZ_DecodedProgram::kNotYet || token == QZ_DecodedProgram::kUndecodable) return 0;
    const QZ_DecodedToken& keyword = Decoded.Tokens[token - 1];
    if (!keyword.Instruction || !IsInstructionCode(keyword.Code) || !keyword.EndWritten) return 0;
    CallStack.pop_back();
    CQZ_Vars* frame = TableStack.back();
    TableStack.pop_back();
    ReleaseFrameTable(frame);
    return token;
}

// Whether `in` starts a run of shortcuts carried out together. Decided once
// the successors involved are known; they never change afterwards.
void CQZ_STInterpretator_Execute::DecideFusion(QZ_DecodedInstruction& in) {
    auto follower = [&](const QZ_DecodedInstruction& x) -> QZ_DecodedInstruction* {
        return x.Successor && !(x.Successor & kReturnSuccessor) ? &Decoded.Instructions[x.Successor - 1] : nullptr;
    };
    auto operatesOn = [](const QZ_DecodedInstruction& x, uint8_t reg) {
        return x.Shortcut >= dsArithmeticVar && x.Shortcut <= dsCompareRegister && x.Target.Register == reg;
    };
    const uint8_t shortcut = in.Shortcut;
    const uint8_t reg = in.Target.Register;
    if (shortcut == dsMoveVarToRegister || shortcut == dsMoveNumberToRegister || shortcut == dsMoveRegisterToRegister) {
        const QZ_DecodedInstruction* op = follower(in);
        if (!op) return;  // not known yet
        if (!operatesOn(*op, reg)) {
            in.Fusion = dfuNone;
            return;
        }
        const QZ_DecodedInstruction* store = follower(*op);
        if (!store && !op->Successor) return;
        in.Fusion = store && store->Shortcut == dsMoveRegisterToVar && store->Source.Register == reg
                        ? dfuLoadOperateStore
                        : dfuLoadOperate;
        return;
    }
    if (operatesOn(in, reg)) {
        const QZ_DecodedInstruction* test = follower(in);
        if (!test) return;
        in.Fusion = test->Shortcut == dsTest && test->Target.Register == reg ? dfuOperateTest : dfuNone;
        return;
    }
    in.Fusion = dfuNone;
}

// A decoded instruction without a shortcut, by its form. Sets `next` to the
// successor to go on with (0: none) and `link` to the slot it is kept in.
Qz::uint32_t CQZ_STInterpretator_Execute::RunByForm(uint32_t instruction, CQZ_Vars& table, size_t& depth,
                                                    uint32_t& next, uint32_t& link) {
    QZ_DecodedInstruction& in = Decoded.Instructions[instruction - 1];
    const uint8_t form = in.Form;
    Qz::uint32_t r = Qz::rcOK;
    if (form <= dfShift && form != dfPlain) {
        QZ_Operand s;
        r = ReadDecodedSource(in.Source, table, s);
        if (r == Qz::rcOK && form == dfBoolean && s.Type != char(ttBOOL)) r = Qz::rcBoolOperand;
        if (r != Qz::rcOK) {  // failed before the second operand was read
            Pending = in.Source.Token;
            return r;
        }
        Pending = in.Last;
        if (form == dfMove) {
            switch (in.Target.Kind) {
            case ttVAR: {
                Var* var = ResolveVariable(in.Target, table);
                return var ? StoreVariable(*var, s.Value) : Qz::rcVarNotFound;
            }
            case ttREF: {
                const Var* var = ResolveVariable(in.Target, table);
                return var ? StoreReference(*var, s.Value) : Qz::rcVarNotFound;
            }
            case ttNIL:  // discards
                return Qz::rcOK;
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
        QZ_Operand out;
        switch (form) {
        case dfArithmetic: r = qz::Arithmetic(in.Code, s, d, out); break;
        case dfCompare: r = qz::Compare(in.Code, s, d, out); break;
        case dfPower: r = qz::Power(s, d, out); break;
        case dfBoolean: r = qz::Boolean(in.Code, s, d, out); break;
        case dfBits: r = qz::Bits(in.Code, s, d, out); break;
        default: r = qz::Shift(in.Code, s, d, out); break;  // dfShift
        }
        if (r == Qz::rcOK) {
            reg.Value = out.Value;
            reg.ValueType = out.Type;
        }
        return r;
    }

    switch (form) {
    case dfTest:
        Pending = in.Last;
        TestFlag = (Register(in.Target.Register).Value == 0.0) ? 0 : 1;  // NaN tests true
        return Qz::rcOK;
    case dfNot: case dfBitNot: case dfNegate: {
        Pending = in.Last;
        QZ_Register& reg = Register(in.Target.Register);
        const QZ_Operand d{reg.Value, reg.ValueType};
        QZ_Operand out;
        r = form == dfNot ? qz::Not(d, out) : form == dfBitNot ? qz::BitNot(d, out) : qz::Negate(d, out);
        if (r == Qz::rcOK) {
            reg.Value = out.Value;
            reg.ValueType = out.Type;
        }
        return r;
    }
    case dfJump: {
        Pending = in.Last;
        const bool stay = (in.Code == ttJMPF && TestFlag) || (in.Code == ttJMPT && !TestFlag);
        if (stay) return Qz::rcOK;
        if (in.TargetState == QZ_DecodedInstruction::tgUnresolved) ResolveTarget(instruction);
        const QZ_DecodedInstruction& jump = Decoded.Instructions[instruction - 1];
        if (jump.TargetState == QZ_DecodedInstruction::tgResolved) {
            JumpOperandEnd = jump.OperandEnd;
            Pending = jump.TargetToken;
            link = Taken(instruction);
            next = jump.TargetSuccessor;
            return Qz::rcOK;
        }
        next = 0;
        link = 0;
        if (jump.TargetState == QZ_DecodedInstruction::tgUnresolved) return Qz::rcLabelNotFound;  // not registered (yet)
        Pending = jump.Keyword;  // runs plainly from its keyword: nothing has happened yet
        Materialize();
        return DoCommand();
    }
    case dfExec:
        Pending = in.Last;
        return in.Function(this);
    case dfCall:
        r = RunDecodedCall(instruction, depth);
        link = 0;
        next = 0;
        if (r == Qz::rcOK && Decoded.Instructions[instruction - 1].TargetState == QZ_DecodedInstruction::tgResolved) {
            link = Taken(instruction);
            next = Decoded.Instructions[instruction - 1].TargetSuccessor;
        }
        return r;
    default:  // dfPlain, from its keyword
        Pending = in.Keyword;
        Materialize();
        link = 0;
        next = 0;
        if (in.Code != ttCAL) return DoCommand();
        r = EnterCall();
        if (r == Qz::rcOK) ++depth;
        return r;
    }
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
        Pending = in.Keyword;
        Materialize();
        const Qz::uint32_t r = EnterCall();
        if (r == Qz::rcOK) ++depth;
        return r;
    }

    EnterDecodedFrame(in);
    ++depth;
    return Qz::rcOK;
}

// The effects of a successful CAL whose subprogram's declarations are
// decoded: the return position, a frame with the declared values, and the
// fields as the scan of BODY leaves them.
void CQZ_STInterpretator_Execute::EnterDecodedFrame(const QZ_DecodedInstruction& in) {
    const QZ_FrameTemplate& frame = Decoded.Frames[in.Frame - 1];
    JumpOperandEnd = in.OperandEnd;
    CallStack.push_back(QZ_FuncStackValue{in.ReturnIndex});
    CQZ_Vars* table = AcquireFrameTable(frame.Shape);
    if (table->RecordCount() != 0)
        table->Revive(frame.Records);  // the table of an earlier call of the same subprogram
    else
        for (const Var& record : frame.Records) table->AddRecord(record);
    TableStack.push_back(table);
    table->SetShape(frame.Shape);
    if (frame.HasNumber) {
        DigitValue = frame.Number;
        DigitType = frame.NumberType;
    }
    Pending = frame.BodyToken;
}
