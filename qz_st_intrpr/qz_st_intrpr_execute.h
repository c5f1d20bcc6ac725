// The executing machine: registers, the value stack, the call stack, the
// scanner, operand decoding, the instruction dispatch and every instruction.
// Implemented in qz_scanner.cpp (Scan), qz_machine.cpp (values, registers,
// operands, TICK), qz_commands.cpp (dispatch, moves, jumps, one-register
// instructions), qz_operators.cpp (two-operand instructions) and qz_calls.cpp
// (CAL, RET and the body loop).
#ifndef QZ_ST_INTRPR_EXECUTE_H
#define QZ_ST_INTRPR_EXECUTE_H

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

// A decoded operand value.
struct QZ_Operand {
    double Value = 0.0;
    char Type = 0;
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
    static Qz::uint32_t ConvertDim(double value, double& out, char type);

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

protected:
    // Runs instructions from the current token until the body that was
    // entered ends: MAIN's RET (callBase false), the RET of the subprogram
    // whose call started the loop (callBase true), or the final RET of the
    // text (`reachedEnd`). Nested CALs are followed without native recursion.
    Qz::uint32_t RunBody(bool callBase, bool& reachedEnd);
    uint64_t InstructionsRun = 0;  // in the current Execute
    int32_t JumpOperandEnd = -1;   // where a jump's or call's operand ended, for traces

    // The millisecond clock behind TICK.
    uint32_t ClockMilliseconds();
    double ReadTick();

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

    // Operands.
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

    // Calls.
    Qz::uint32_t EnterCall();
    Qz::uint32_t ReturnFromCall();
    void TraceInstruction(int32_t start, Qz::uint32_t result);
};

#endif
