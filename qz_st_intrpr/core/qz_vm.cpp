// The compiled core: one dispatch loop over the compiled instructions.
//
// Every case computes from what its operands hold without changing anything
// first; when the instruction would fail (an empty stack, a divisor of 0, a
// reference to nothing, a type the operator refuses) it goes to `delegate`
// untouched, and the instruction's own handler runs it from its text and
// fails exactly as the reading interpreter does, scanner fields included.
//
// The loop is built twice: without a budget (nothing counted) and with one
// (each compiled instruction counts the instructions of the text it stands
// for). With GCC or clang it dispatches by computed goto; define
// QZ_PORTABLE_DISPATCH for a plain switch.
#include "qz_builtins.h"
#include "qz_st_intrpr_execute.h"

#include <cmath>

#if (defined(__GNUC__) || defined(__clang__)) && !defined(QZ_PORTABLE_DISPATCH)
#define QZ_COMPUTED_GOTO 1
#else
#define QZ_COMPUTED_GOTO 0
#endif

namespace {

#define QZ_INLINE inline __attribute__((always_inline))

// A variable's value as reading it yields: narrowed to its own type. Declared
// types are always value types, so the narrowing cannot fail. The two most
// frequent types are tested first, so most reads take no table jump.
QZ_INLINE double Narrowed(double value, char type) {
    if (type == char(ttLREAL)) return value;
    if (type == char(ttDINT)) return double(qz::Low32Signed(value));
    double out = value;
    qz::Narrow(value, out, type);
    return out;
}

// MOV into a variable: narrowed to its type; an output is marked written,
// even when the narrowing failed.
QZ_INLINE void Store(Var& var, double value) {
    var.VarValue = Narrowed(value, var.VarType);
    if (var.VarKind == char(ttVO)) var.Rewrited = true;
}

template <uint8_t kOp>
QZ_INLINE void ArithmeticInto(double s, char sType, QZ_Register& d) {
    // REAL and LREAL are the two codes from 0x27: one subtraction tests each.
    if (uint8_t(sType - char(ttREAL)) <= 1 || uint8_t(d.ValueType - char(ttREAL)) <= 1) {
        d.Value = kOp == ttADD ? s + d.Value : kOp == ttSUB ? s - d.Value : s * d.Value;
        d.ValueType = char(ttLREAL);
        return;
    }
    const int32_t a = qz::Low32Signed(s), b = qz::Low32Signed(d.Value);
    d.Value = kOp == ttADD ? qz::WrapAdd(a, b) : kOp == ttSUB ? qz::WrapSub(a, b) : qz::WrapMul(a, b);
    d.ValueType = char(ttDINT);
}

}  // namespace

template <bool kBudget>
Qz::uint32_t CQZ_STInterpretator_Execute::RunCode(bool& reachedEnd) {
    const QZ_Insn* const code = Compiled.Code.data();
    const QZ_Insn* pc = code + Compiled.Entry;
    Var* const* vars = Vars.RecordData();
    QZ_Register* const regs[4] = {&A0, &R0, &R1, &R1};
    const uint64_t budget = InstructionBudget;
    uint64_t left = budget;  // instructions the budget still allows
    bool single = false;  // a fused instruction the budget lets run only its first part
    Qz::uint32_t r = Qz::rcOK;
    QZ_Operand s, d, out;
    ReturnStack.clear();  // what a cycle that failed inside a call left

    // Source operands of the generic instructions, read without side effects;
    // false when reading would fail.
    auto peek = [&](const QZ_Insn& in, QZ_Operand& v) __attribute__((always_inline)) -> bool {
        switch (in.SrcKind) {
        case skVar: {
            const Var* var = vars[in.A];
            v.Type = var->VarType;
            v.Value = Narrowed(var->VarValue, var->VarType);
            return true;
        }
        case skRef: {
            const Var* var = vars[in.A];
            const double* target = References.Resolve(var->VarValue);
            if (!target) return false;
            v.Type = var->VarType;
            v.Value = Narrowed(*target, var->VarType);
            return true;
        }
        case skRegister: v.Value = regs[in.Src]->Value; v.Type = regs[in.Src]->ValueType; return true;
        case skNumber: v.Value = in.Num; v.Type = char(in.NumType); return true;
        case skPop:
            if (Stack.empty()) return false;
            v.Value = Stack.back().Value;
            v.Type = Stack.back().ValueType;
            return true;
        default: v.Value = 0.0; v.Type = char(ttUDINT); return true;  // TICK, read when committed
        }
    };
    // What reading the source does besides yielding its value.
    auto commit = [&](const QZ_Insn& in, QZ_Operand& v) __attribute__((always_inline)) {
        switch (in.SrcKind) {
        case skPop: Stack.pop_back(); break;
        case skNumber: DigitValue = in.Num; DigitType = in.NumType; break;
        case skTick: v.Value = ReadTick(); break;
        default: break;
        }
    };

#if QZ_COMPUTED_GOTO
    static void* const kDispatch[kOpCount] = {
#define QZ_OP_LABEL(name, text) &&L_##name,
        QZ_OPS(QZ_OP_LABEL)
#undef QZ_OP_LABEL
    };
#define vmdispatch(o) goto* kDispatch[o];
#define vmcase(name) L_##name:
#define vmbreak \
    vmstep();   \
    vmdispatch(pc->Op)
#else
#define vmdispatch(o) switch (o)
#define vmcase(name) case op##name:
#define vmbreak break
#endif
    // The budget is checked before an instruction runs, as the reading loop
    // checks it after reading the keyword: one comparison and one
    // subtraction (instructions that count nothing cost 0).
#define vmstep()                                              \
    if (kBudget) {                                            \
        if (pc->Cost > left) goto budget_edge;                \
        left -= pc->Cost;                                     \
    }

    for (;;) {
        vmstep();
    dispatch:
        vmdispatch(pc->Op) {
            vmcase(MOV_VR) {
                const Var* v = vars[pc->A];
                QZ_Register& dst = *regs[pc->Dst];
                dst.Value = Narrowed(v->VarValue, v->VarType);
                dst.ValueType = v->VarType;
                ++pc;
                vmbreak;
            }
            vmcase(MOV_RV) {
                Store(*vars[pc->B], regs[pc->Src]->Value);
                ++pc;
                vmbreak;
            }
            vmcase(MOV_NR) {
                DigitValue = pc->Num;
                DigitType = pc->NumType;
                regs[pc->Dst]->Value = pc->Num;
                regs[pc->Dst]->ValueType = char(pc->NumType);
                ++pc;
                vmbreak;
            }
            vmcase(MOV_NV) {
                DigitValue = pc->Num;
                DigitType = pc->NumType;
                Store(*vars[pc->B], pc->Num);
                ++pc;
                vmbreak;
            }
            vmcase(MOV_VV) {
                const Var* v = vars[pc->A];
                Store(*vars[pc->B], Narrowed(v->VarValue, v->VarType));
                ++pc;
                vmbreak;
            }
            vmcase(MOV_RR) {
                *regs[pc->Dst] = *regs[pc->Src];
                ++pc;
                vmbreak;
            }
            vmcase(MOV_VP) {
                if (StackRoom() != Qz::rcOK) goto delegate;
                const Var* v = vars[pc->A];
                Stack.push_back(QZ_StackValue{Narrowed(v->VarValue, v->VarType), v->VarType});
                ++pc;
                vmbreak;
            }
            vmcase(MOV_PV) {
                if (Stack.empty()) goto delegate;
                const double value = Stack.back().Value;
                Stack.pop_back();
                Store(*vars[pc->B], value);
                ++pc;
                vmbreak;
            }
            vmcase(MOV_G) {
                if (!peek(*pc, s)) goto delegate;
                double* target = nullptr;
                if (pc->DstKind == dkRef && !(target = References.Resolve(vars[pc->B]->VarValue))) goto delegate;
                if (pc->DstKind == dkPush && StackRoom() != Qz::rcOK) goto delegate;
                commit(*pc, s);
                switch (pc->DstKind) {
                case dkVar: Store(*vars[pc->B], s.Value); break;
                case dkRef: qz::Narrow(s.Value, *target, vars[pc->B]->VarType); break;
                case dkRegister: regs[pc->Dst]->Value = s.Value; regs[pc->Dst]->ValueType = s.Type; break;
                case dkPush: Stack.push_back(QZ_StackValue{s.Value, s.Type}); break;  // room checked above
                default: break;  // NIL
                }
                ++pc;
                vmbreak;
            }
#define QZ_ARITH_CASES(OP, TT)                                                           \
    vmcase(OP##_V) {                                                                     \
        const Var* v = vars[pc->A];                                                      \
        ArithmeticInto<TT>(Narrowed(v->VarValue, v->VarType), v->VarType, *regs[pc->Dst]); \
        ++pc;                                                                            \
        vmbreak;                                                                         \
    }                                                                                    \
    vmcase(OP##_N) {                                                                     \
        DigitValue = pc->Num;                                                            \
        DigitType = pc->NumType;                                                         \
        ArithmeticInto<TT>(pc->Num, char(pc->NumType), *regs[pc->Dst]);                  \
        ++pc;                                                                            \
        vmbreak;                                                                         \
    }                                                                                    \
    vmcase(OP##_R) {                                                                     \
        const QZ_Register src = *regs[pc->Src];                                          \
        ArithmeticInto<TT>(src.Value, src.ValueType, *regs[pc->Dst]);                    \
        ++pc;                                                                            \
        vmbreak;                                                                         \
    }
            QZ_ARITH_CASES(ADD, ttADD)
            QZ_ARITH_CASES(SUB, ttSUB)
            QZ_ARITH_CASES(MUL, ttMUL)
#undef QZ_ARITH_CASES
            vmcase(LOAD_OP_STORE) {
                // MOV into a register, ADD/SUB/MUL into it, MOV of it into a
                // variable: three instructions, one dispatch.
                QZ_Register& dst = *regs[pc->Dst];
                switch (pc->SrcKind) {
                case skVar: {
                    const Var* v = vars[pc->A];
                    dst.Value = Narrowed(v->VarValue, v->VarType);
                    dst.ValueType = v->VarType;
                    break;
                }
                case skNumber:
                    DigitValue = pc->Num;
                    DigitType = pc->NumType;
                    dst.Value = pc->Num;
                    dst.ValueType = char(pc->NumType);
                    break;
                default: dst = *regs[pc->Src]; break;
                }
                if (kBudget && single) {
                    single = false;
                    ++pc;
                    vmbreak;
                }
                const QZ_Insn& op = pc[1];
                switch (op.SrcKind) {
                case skVar: {
                    const Var* v = vars[op.A];
                    s.Value = Narrowed(v->VarValue, v->VarType);
                    s.Type = v->VarType;
                    break;
                }
                case skNumber:
                    DigitValue = op.Num;
                    DigitType = op.NumType;
                    s.Value = op.Num;
                    s.Type = char(op.NumType);
                    break;
                default: s.Value = regs[op.Src]->Value; s.Type = regs[op.Src]->ValueType; break;
                }
                switch (op.Code) {
                case ttADD: ArithmeticInto<ttADD>(s.Value, s.Type, dst); break;
                case ttSUB: ArithmeticInto<ttSUB>(s.Value, s.Type, dst); break;
                default: ArithmeticInto<ttMUL>(s.Value, s.Type, dst); break;
                }
                Store(*vars[pc[2].B], dst.Value);
                pc += 3;
                vmbreak;
            }
            vmcase(LOAD_OP_STORE_DINT) {
                // Every operand a DINT variable or a whole literal, the target
                // a DINT variable: the integer views are the values, the
                // result needs no narrowing.
                QZ_Register& dst = *regs[pc->Dst];
                if (kBudget && single) {  // the load alone
                    single = false;
                    if (pc->SrcKind == skVar) {
                        dst.Value = Narrowed(vars[pc->A]->VarValue, char(ttDINT));
                        dst.ValueType = char(ttDINT);
                    } else {
                        DigitValue = pc->Num;
                        DigitType = pc->NumType;
                        dst.Value = pc->Num;
                        dst.ValueType = char(pc->NumType);
                    }
                    ++pc;
                    vmbreak;
                }
                const QZ_Insn& op = pc[1];
                int32_t d32, s32;
                if (pc->SrcKind == skVar) {
                    d32 = qz::Low32Signed(vars[pc->A]->VarValue);
                } else {
                    DigitValue = pc->Num;
                    DigitType = pc->NumType;
                    d32 = int32_t(pc->Num);
                }
                if (op.SrcKind == skVar) {
                    s32 = qz::Low32Signed(vars[op.A]->VarValue);
                } else {
                    DigitValue = op.Num;
                    DigitType = op.NumType;
                    s32 = int32_t(op.Num);
                }
                const int32_t r = op.Code == ttADD ? qz::WrapAdd(s32, d32)
                                  : op.Code == ttSUB ? qz::WrapSub(s32, d32) : qz::WrapMul(s32, d32);
                dst.Value = r;
                dst.ValueType = char(ttDINT);
                Var& target = *vars[pc[2].B];
                target.VarValue = r;
                if (target.VarKind == char(ttVO)) target.Rewrited = true;
                pc += 3;
                vmbreak;
            }
#define QZ_GENERIC_CASE(OP, FN)                                  \
    vmcase(OP) {                                                 \
        QZ_Register& dst = *regs[pc->Dst];                       \
        if (!peek(*pc, s)) goto delegate;                        \
        d.Value = dst.Value;                                     \
        d.Type = dst.ValueType;                                  \
        if (FN != Qz::rcOK) goto delegate;                       \
        commit(*pc, s);                                          \
        dst.Value = out.Value;                                   \
        dst.ValueType = out.Type;                                \
        ++pc;                                                    \
        vmbreak;                                                 \
    }
            QZ_GENERIC_CASE(ARITH_G, qz::Arithmetic(pc->Code, s, d, out))
            QZ_GENERIC_CASE(CMP_G, qz::Compare(pc->Code, s, d, out))
            vmcase(CMP_JUMP) {
                // The comparison, then TST of its register and the jump behind it.
                QZ_Register& dst = *regs[pc->Dst];
                if (!peek(*pc, s)) goto delegate;
                d.Value = dst.Value;
                d.Type = dst.ValueType;
                qz::Compare(pc->Code, s, d, out);
                commit(*pc, s);
                dst.Value = out.Value;
                dst.ValueType = out.Type;
                if (kBudget && single) {
                    single = false;
                    ++pc;
                    vmbreak;
                }
                TestFlag = out.Value == 0.0 ? 0 : 1;
                const QZ_Insn& jump = pc[2];
                const bool taken = jump.Op == opJMP || (jump.Op == opJMPT) == (TestFlag != 0);
                pc = taken ? code + jump.B : pc + 3;
                vmbreak;
            }
            QZ_GENERIC_CASE(POW_G, qz::Power(s, d, out))
            // A source that is no BOOL fails before the register is read.
            QZ_GENERIC_CASE(BOOL_G, (s.Type != char(ttBOOL) ? Qz::rcBoolOperand : qz::Boolean(pc->Code, s, d, out)))
            QZ_GENERIC_CASE(BITS_G, qz::Bits(pc->Code, s, d, out))
            QZ_GENERIC_CASE(SHIFT_G, qz::Shift(pc->Code, s, d, out))
#undef QZ_GENERIC_CASE
            vmcase(TST) {
                TestFlag = regs[pc->Dst]->Value == 0.0 ? 0 : 1;  // NaN tests true
                ++pc;
                vmbreak;
            }
#define QZ_REGISTER_CASE(OP, FN)                                             \
    vmcase(OP) {                                                             \
        QZ_Register& dst = *regs[pc->Dst];                                   \
        d.Value = dst.Value;                                                 \
        d.Type = dst.ValueType;                                              \
        if (FN(d, out) != Qz::rcOK) goto delegate;                           \
        dst.Value = out.Value;                                               \
        dst.ValueType = out.Type;                                            \
        ++pc;                                                                \
        vmbreak;                                                             \
    }
            QZ_REGISTER_CASE(NOT, qz::Not)
            QZ_REGISTER_CASE(BNOT, qz::BitNot)
            QZ_REGISTER_CASE(NG, qz::Negate)
#undef QZ_REGISTER_CASE
            vmcase(JMP) {
                pc = code + pc->B;
                vmbreak;
            }
            vmcase(JMPF) {
                pc = TestFlag ? pc + 1 : code + pc->B;
                vmbreak;
            }
            vmcase(JMPT) {
                pc = TestFlag ? code + pc->B : pc + 1;
                vmbreak;
            }
            vmcase(GOTO) {
                pc = code + pc->B;
                vmbreak;
            }
            vmcase(MOVA_V) {
                double address;
                char type;
                if (pc->SrcKind == skRegister) {
                    address = regs[pc->Src]->Value;  // passed on as it is, with its type
                    type = regs[pc->Src]->ValueType;
                } else {
                    Var* v = vars[pc->A];
                    type = v->VarType;
                    if (v->VarKind == char(ttVR)) {
                        // A VR variable holds an address already: narrow its target in place.
                        double* target = References.Resolve(v->VarValue);
                        if (!target) goto delegate;
                        qz::Narrow(*target, *target, v->VarType);
                        address = v->VarValue;
                    } else {
                        // Narrowing in place is idempotent, so a failure after it
                        // can still be handed to the handler.
                        qz::Narrow(v->VarValue, v->VarValue, v->VarType);
                        if (!References.AddressOf(v, address)) goto delegate;
                    }
                }
                if (pc->DstKind == dkVar) {
                    vars[pc->B]->VarValue = address;  // the bits as they are
                } else if (pc->DstKind == dkRegister) {
                    regs[pc->Dst]->Value = address;
                    regs[pc->Dst]->ValueType = type;
                }
                ++pc;
                vmbreak;
            }
            vmcase(CAL) {
                const QZ_Frame& frame = Compiled.Frames[pc->A];
                // A call the limits stop is left to the reading loop, which
                // stops it where it always does.
                if ((CallDepthLimit != 0 && CallStack.size() >= CallDepthLimit) ||
                    (kBudget && frame.Declarations > left) ||
                    WouldPassMemoryLimit(kCallBytes + kFrameTableBytes + uint64_t(frame.PeakRecords) * kFrameRecordBytes)) {
                    InstructionsRun = kBudget ? budget - left - pc->Cost : 0;  // the reading loop counts the CAL again
                    return RunEscaped(pc->Pos, pc->Pos, reachedEnd);
                }
                if (kBudget) left -= frame.Declarations;
                ReturnStack.push_back(pc->B);
                CallStack.push_back(QZ_FuncStackValue{pc->C, pc->Pos, frame.LabelStart});
                vars = EnterFrame(frame)->RecordData();
                pc = code + frame.Body;
                vmbreak;
            }
            vmcase(RET) {
                LastRetPos = pc->Pos;
                pc = code + ReturnStack.back();
                ReturnStack.pop_back();
                CallStack.pop_back();
                CQZ_Vars* table = TableStack.back();
                TableStack.pop_back();
                // Releasing a frame costs what building it did; past the
                // budget, the next instruction's check stops the cycle.
                if (kBudget) left = left > table->RecordCount() ? left - table->RecordCount() : 0;
                FrameRecordsInUse -= table->RecordCount();
                ReleaseFrameTable(table);
                vars = TableStack.empty() ? Vars.RecordData() : TableStack.back()->RecordData();
                vmbreak;
            }
            vmcase(MAIN_RET) {
                RestoreSnapshot(Compiled.Snapshots[pc->Snapshot]);
                InstructionsRun = budget - left;
                return Qz::rcOK;
            }
            vmcase(EXEC) {
                const QZBuildInFunctions::BuiltinEntry& f = QZBuildInFunctions::BuiltinTable()[pc->C];
                // An empty stack is not reported: the argument reads as 0.0 of type LREAL.
                auto pop = [this](QZ_Operand& v) {
                    v.Value = 0.0;
                    v.Type = char(ttLREAL);
                    if (Stack.empty()) return;
                    v.Value = Stack.back().Value;
                    v.Type = Stack.back().ValueType;
                    Stack.pop_back();
                };
                pop(s);
                switch (f.Kind) {
                case QZBuildInFunctions::bkUnary: A0.Value = f.Unary(s.Value); A0.ValueType = s.Type; break;
                case QZBuildInFunctions::bkCeil: A0.Value = QZBuildInFunctions::CeilOrFloor(s.Value, 1); A0.ValueType = char(ttDINT); break;
                case QZBuildInFunctions::bkFloor: A0.Value = QZBuildInFunctions::CeilOrFloor(s.Value, -1); A0.ValueType = char(ttDINT); break;
                case QZBuildInFunctions::bkRound: A0.Value = std::round(s.Value); A0.ValueType = char(ttDINT); break;
                default:  // POW: the exponent was pushed last
                    pop(d);
                    A0.Value = std::pow(d.Value, s.Value);
                    A0.ValueType = d.Type;
                    break;
                }
                ++pc;
                vmbreak;
            }
            vmcase(DELEGATE) { goto delegate; }
            vmcase(ESCAPE) {
                InstructionsRun = budget - left;
                return RunEscaped(pc->Prev == kPrevIsLastRet ? LastRetPos : pc->Prev, pc->Pos, reachedEnd);
            }
#if !QZ_COMPUTED_GOTO
        default:
            goto delegate;
#endif
        }
        continue;

    delegate:
        single = false;
        r = RunDelegated(pc->Pos);
        if (r != Qz::rcOK) {
            InstructionsRun = budget - left;
            return r;
        }
        // A delegated instruction whose operands the compiler could not read
        // has no compiled successor: the reading loop goes on from here.
        if (pc->Op == opDELEGATE && pc->B == 0) {
            InstructionsRun = budget - left;
            return RunBodyPlain(false, TableStack.size(), reachedEnd);
        }
        ++pc;
        continue;

    budget_edge:
        // Too little budget for what the instruction stands for: none left
        // stops the cycle; a fused instruction runs only its first part.
        if (left == 0) goto exhausted;
        single = true;
        left -= 1;
        goto dispatch;
    }

exhausted:
    InstructionsRun = budget - left;
    SeekTo(pc->Pos);
    Scan(TokenText);  // the keyword, as the reading loop leaves it
    return Qz::rcBudgetExhausted;
#undef vmdispatch
#undef vmcase
#undef vmbreak
#undef vmstep
}

template Qz::uint32_t CQZ_STInterpretator_Execute::RunCode<false>(bool&);
template Qz::uint32_t CQZ_STInterpretator_Execute::RunCode<true>(bool&);
