// The executing machine: registers, the value stack, the call stack, the
// scanner, operand decoding, the instruction dispatch and every instruction.
// Implemented in qz_scanner.cpp (Scan), qz_machine.cpp (values, registers,
// operands, TICK), qz_commands.cpp (dispatch, moves, jumps, one-register
// instructions), qz_operators.cpp (two-operand instructions) and qz_calls.cpp
// (CAL, RET and the body loop).
#ifndef QZ_ST_INTRPR_EXECUTE_H
#define QZ_ST_INTRPR_EXECUTE_H

#include "qz_decoded.h"
#include "qz_operations.h"
#include "qz_st_interface.h"
#include "qz_st_intrpr_lists.h"

#include <deque>

struct QZ_StackValue {
    double Value;
    char ValueType;
};

struct QZ_FuncStackValue {
    uint32_t ReturnIndex;  // text index at which reading resumes after RET
};

struct QZ_Register {
    double Value;
    char ValueType;
};

class CQZ_STInterpretator_Execute : public CQZ_STInterpretator_Lists, public CQZ_STInterpretator_Interface {
public:
    CQZ_STInterpretator_Execute() = default;
    ~CQZ_STInterpretator_Execute() override;

    // Declared in this order: it is the order of their slots in the object's
    // primary virtual table.
    Qz::uint32_t StackPush(char type, double value) override;
    Qz::uint32_t StackPop(char& type, double& value) override;
    Qz::uint32_t GetValueFromRegister(char reg, char& type, double& value) override;
    Qz::uint32_t SetValueToRegister(char reg, char type, double value) override;

    // Narrows `value` to `type` into `out`; 10 (out untouched) for a non-value type.
    static Qz::uint32_t ConvertDim(double value, double& out, char type) { return qz::Narrow(value, out, type); }

    // Reads one token at CurChar into TokenText (the only buffer ever passed).
    Qz::uint32_t Scan(char* buffer);
    // Executes the instruction whose code is in TokenCode.
    Qz::uint32_t DoCommand();
    Qz::uint32_t DoMOV();
    Qz::uint32_t DoArithmetic(char code);
    Qz::uint32_t DoCompare(char code);
    Qz::uint32_t DoPow();
    Qz::uint32_t DoBoolean(char code);
    Qz::uint32_t DoBits(char code);
    Qz::uint32_t DoShift(char code);
    Qz::uint32_t DoCall();
    Qz::uint32_t FillFuncVariablesList();

    QZ_Register A0{0.0, 0};
    QZ_Register R0{0.0, 0};
    QZ_Register R1{0.0, 0};
    char TestFlag = 0;
    std::deque<QZ_StackValue> Stack;
    std::deque<QZ_FuncStackValue> CallStack;

    // Host extensions (budget, clock, trace).
    uint64_t InstructionBudget = 0;  // 0: unlimited
    QZClockFunction Clock = nullptr;
    void* ClockContext = nullptr;
    QZTraceFunction TraceHook = nullptr;
    void* TraceContext = nullptr;

    // Runs every instruction by scanning its text, as the first cycle does,
    // instead of replaying what earlier cycles decoded. Both ways leave the
    // same results, host calls and machine state; the plain one is the
    // reference the decoded one is checked against.
    bool PlainPath = false;
    // For tests and diagnostics: what the decoded path remembers, and
    // whether the scanner's fields show the last token read (always, except
    // inside a body the decoded path is running).
    const QZ_DecodedProgram& DecodedForm() const { return Decoded; }
    bool ScannerFieldsCurrent() const { return Pending == 0; }

protected:
    // True when the four virtual operations above are this class's own, so
    // the decoded path may reach registers and the stack directly. Set by the
    // plug-in object, which no class can derive from; a class that overrides
    // them runs the plain path, which calls them through their slots.
    bool OwnMachineOperations = false;
    bool UseDecodedPath() const { return OwnMachineOperations && !PlainPath && TextLen <= kDecodedTextLimit; }
    // The decoded form keeps an entry per character; longer texts run plainly.
    static constexpr int32_t kDecodedTextLimit = 1 << 24;

    // Runs instructions from the current token until the body that was
    // entered ends: MAIN's RET (callBase false), the RET of the subprogram
    // whose call started the loop (callBase true), or the final RET of the
    // text (`reachedEnd`). Nested CALs are followed without native recursion.
    Qz::uint32_t RunBody(bool callBase, bool& reachedEnd);
    Qz::uint32_t RunBodyPlain(bool callBase, bool& reachedEnd);
    Qz::uint32_t RunBodyDecoded(bool callBase, bool& reachedEnd);
    uint64_t InstructionsRun = 0;  // in the current Execute
    int32_t JumpOperandEnd = -1;   // where a jump's or call's operand ended, for traces

    // The millisecond clock behind TICK.
    uint32_t ClockMilliseconds();
    double ReadTick();

    // ---- The decoded path (qz_decoder.cpp, qz_fast_path.cpp) ----
    // Makes the decoded form belong to the current text.
    void PrepareDecoded();
    // The token at `pos` (1 + its index), scanned once and then remembered;
    // 0 when it has to be scanned (the scan fails there, or would register
    // a label that is not registered yet).
    uint32_t DecodedTokenAt(int32_t pos);
    // The fields as the last scan left them; the decoded path keeps them
    // pending in `Pending` (1 + token index) while it runs.
    void ShowToken(const QZ_DecodedToken& token);
    // Makes `token` the pending one: the last token the fields should show.
    void Step(uint32_t token);
    void Materialize() {
        if (Pending) {
            ShowToken(Decoded.Tokens[Pending - 1]);
            Pending = 0;
        }
    }
    // The position where the next token begins, or -1 when the next scan is
    // to be left to Scan (end of text, or a position the fields do not match).
    int32_t NextPosition() const;
    QZ_DecodedProgram Decoded;
    uint32_t Pending = 0;
    bool SuppressLabelRegistration = false;  // Scan without side effects, for decoding

private:
    typedef Qz::uint32_t (CQZ_STInterpretator_Execute::*Handler)(char code);
    static const Handler kHandlers[ttRET - ttCAL + 1];

    // Scanner pieces.
    Qz::uint32_t ScanName();
    Qz::uint32_t ScanNumber();
    Qz::uint32_t ScanVariable(uint8_t code);
    Qz::uint32_t ScanPrefixedKeyword(bool digitsAllowed, Qz::uint32_t failure);
    Qz::uint32_t EndOfText();
    Qz::uint32_t SkipWhiteOrEnd();

    // Operands: the parts shared by both paths.
    Qz::uint32_t ReadReference(const Var& var, QZ_Operand& out) {
        const double* target = ReferencedValue(&var);
        if (!target) return Qz::rcVarNotFound;
        out.Type = var.VarType;
        return ConvertDim(*target, out.Value, var.VarType);
    }
    static Qz::uint32_t ReadVariable(const Var& var, QZ_Operand& out) {
        out.Type = var.VarType;
        return ConvertDim(var.VarValue, out.Value, var.VarType);
    }
    static Qz::uint32_t StoreVariable(Var& var, double value) {
        const Qz::uint32_t r = ConvertDim(value, var.VarValue, var.VarType);
        if (var.VarKind == char(ttVO)) var.Rewrited = true;  // even when the conversion failed
        return r;
    }
    Qz::uint32_t StoreReference(const Var& var, double value) {
        double* target = ReferencedValue(&var);
        if (!target) return Qz::rcVarNotFound;
        return ConvertDim(value, *target, var.VarType);
    }
    Qz::uint32_t WriteResult(char reg, Qz::uint32_t result, const QZ_Operand& value);

    // Operands read from the text.
    Qz::uint32_t ReadSource(QZ_Operand& out, Qz::uint32_t badKind, bool acceptTick = false);
    Qz::uint32_t ReadRegister(char& reg, QZ_Operand& out, Qz::uint32_t badKind);
    Qz::uint32_t ReadOperands(QZ_Operand& source, char& reg, QZ_Operand& dest, Qz::uint32_t badKind);
    double* ReferencedValue(const Var* var) { return References.Resolve(var->VarValue); }

    // Instructions, one handler each, in the order of the instruction table.
    Qz::uint32_t DoCallCommand(char code);
    Qz::uint32_t DoExec(char code);
    Qz::uint32_t DoJump(char code);
    Qz::uint32_t DoMOVCommand(char code);
    Qz::uint32_t DoMOVA(char code);
    Qz::uint32_t DoTest(char code);
    Qz::uint32_t DoNot(char code);
    Qz::uint32_t DoBitNot(char code);
    Qz::uint32_t DoNegate(char code);
    Qz::uint32_t DoPowCommand(char code);
    Qz::uint32_t DoRetCommand(char code);

    // The decoded path.
    uint32_t DecodeInstruction(uint32_t keyword);
    bool DecodeOperand(int32_t pos, QZ_DecodedOperand& operand);
    void ResolveTarget(uint32_t instruction);
    uint32_t DecodeFrame(int32_t labelStart);
    Qz::uint32_t RunDecodedBody(bool callBase, bool& reachedEnd);
    Qz::uint32_t RunChain(uint32_t instruction, bool callBase, size_t& depth, uint32_t& link, bool& returned);
    Qz::uint32_t RunByForm(uint32_t instruction, CQZ_Vars& table, size_t& depth, uint32_t& next, uint32_t& link);
    Qz::uint32_t RunDecodedCall(uint32_t instruction, size_t& depth);
    void EnterDecodedFrame(const QZ_DecodedInstruction& in);
    void DecideFusion(QZ_DecodedInstruction& in);
    uint32_t DecodedReturn();
    Qz::uint32_t ReadDecodedSource(QZ_DecodedOperand& operand, CQZ_Vars& table, QZ_Operand& out);
    Var* ResolveVariable(QZ_DecodedOperand& operand, CQZ_Vars& table);
    Var* FindVariable(QZ_DecodedOperand& operand, CQZ_Vars& table);
    QZ_Register& Register(uint8_t index) { return this->*kRegisters[index]; }
    static QZ_Register CQZ_STInterpretator_Execute::* const kRegisters[3];

    // Calls.
    Qz::uint32_t EnterCall();
    Qz::uint32_t ReturnFromCall();
    void TraceInstruction(int32_t start, Qz::uint32_t result);
};

#endif
