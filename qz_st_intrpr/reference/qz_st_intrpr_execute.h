// The executing machine: registers, the value stack, the call stack, the
// scanner, operand decoding, the instruction dispatch and every instruction.
// Implemented in qz_scanner.cpp (Scan), qz_machine.cpp (values, registers,
// operands, TICK), qz_commands.cpp (dispatch, moves, jumps, one-register
// instructions), qz_operators.cpp (two-operand instructions) and qz_calls.cpp
// (CAL, RET and the reading body loop); the compiled core in qz_compiler.cpp
// (translation) and qz_vm.cpp (the dispatch loop).
#ifndef QZ_ST_INTRPR_EXECUTE_H
#define QZ_ST_INTRPR_EXECUTE_H

#include "qz_compiled.h"
#include "qz_operations.h"
#include "qz_st_interface.h"
#include "qz_st_intrpr_lists.h"

#include <vector>

struct QZ_StackValue {
    double Value;
    char ValueType;
};

struct QZ_FuncStackValue {
    uint32_t ReturnIndex;  // text index at which reading resumes after RET
    int32_t CallStart = -1;   // where the CAL keyword stands, and the label it called:
    int32_t LabelStart = -1;  // what a debugger shows of a pending call
};

struct QZ_Register {
    double Value;
    char ValueType;
};

class CQZ_STInterpretator_Execute : public CQZ_STInterpretator_Lists, public CQZ_STInterpretator_Interface {
public:
    CQZ_STInterpretator_Execute();
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
    // Scans the token at text index `pos` without entering labels; the
    // scanner's fields are left as that scan leaves them (on a failure, at
    // the token where it stopped).
    Qz::uint32_t ScanTokenAt(int32_t pos, QZ_ScannedToken& token);
    // The loader's first steps, from the start of the text: the tokens up
    // to PROG are skipped (6 when there is none), then the program's name.
    Qz::uint32_t FindProgramHeader();
    Qz::uint32_t ReadProgramName();
    // Reads the next declaration: of the VAR section (kinds V..TVR, a TVR
    // with four numbers) or of a subprogram's locals (`locals`: V, VA, VR).
    Qz::uint32_t ReadDeclaration(bool locals, QZ_DeclarationRead& out);
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
    Qz::uint32_t FillFrame(CQZ_Vars* table);

    QZ_Register A0{0.0, 0};
    QZ_Register R0{0.0, 0};
    QZ_Register R1{0.0, 0};
    char TestFlag = 0;
    // Flat stacks: a vector keeps its storage when it shrinks, so pushes and
    // pops stop allocating once a program has reached its deepest point.
    std::vector<QZ_StackValue> Stack;
    std::vector<QZ_FuncStackValue> CallStack;

    // Host extensions (budget, clock, trace, limits).
    uint64_t InstructionBudget = 0;  // 0: unlimited
    uint64_t StackLimit = 0;         // values; 0: none of its own
    uint64_t CallDepthLimit = 0;     // pending calls; 0: none of its own
    uint64_t MemoryLimit = QZ_DEFAULT_MEMORY_LIMIT;  // bytes; 0: none

    // What running the program holds beyond the loaded text, as the limits
    // count it: a frame record (the record, its copy in the declarations'
    // list, their share of vectors and buckets), a frame table with its
    // buckets, a pending call (its record and compiled return point).
    static constexpr uint64_t kFrameRecordBytes = 2 * sizeof(Var) + 96;
    static constexpr uint64_t kCallBytes = sizeof(QZ_FuncStackValue) + sizeof(uint32_t);
    static constexpr uint64_t kFrameTableBytes = sizeof(CQZ_Vars) + 64;
    uint64_t MemoryInUse() const {
        return Stack.size() * sizeof(QZ_StackValue) + CallStack.size() * kCallBytes +
               TableStack.size() * kFrameTableBytes + FrameRecordsInUse * kFrameRecordBytes;
    }
    bool WouldPassMemoryLimit(uint64_t extraBytes) const {
        return MemoryLimit != 0 && MemoryInUse() + extraBytes > MemoryLimit;
    }
    // 0 when one more value fits on the value stack (and there is room
    // for it, grown within the ceiling), else the code.
    Qz::uint32_t StackRoom() {
        if (StackLimit != 0 && Stack.size() >= StackLimit) return Qz::rcStackLimit;
        if (WouldPassMemoryLimit(sizeof(QZ_StackValue))) return Qz::rcMemoryLimit;
        if (Stack.size() == Stack.capacity()) GrowStack();
        return Qz::rcOK;
    }
    // Doubles the value stack's storage, but never past what the limits let
    // it hold: a vector left to itself would double past the ceiling.
    void GrowStack();
    QZClockFunction Clock = nullptr;
    void* ClockContext = nullptr;
    QZTraceFunction TraceHook = nullptr;
    void* TraceContext = nullptr;

    // Runs every instruction by reading its text, as the reading interpreter
    // does, instead of running the compiled form. Both leave the same results,
    // host calls and machine state; the reading one is the reference the
    // compiled one is checked against.
    bool PlainPath = false;
    // Returns the machine to where a fresh cycle starts after a failed one:
    // pending calls, their frames and the value stack released down to the
    // program's own table, whose variables keep their values
    // (qz_recovery.cpp).
    void Recover();
    // Cycles that ran on the compiled core, for tests of when it is left.
    uint64_t CompiledCycles = 0;
    // For tests and diagnostics: the compiled form of the current text.
    const QZ_CompiledProgram& CompiledForm() const { return Compiled; }

protected:
    friend class QZ_Compiler;
    // True when the four virtual operations above are this class's own, so
    // the compiled core may reach registers and the stack directly. Set by
    // the plug-in object, which no class can derive from; a class that
    // overrides them runs the reading path, which calls them through their slots.
    bool OwnMachineOperations = false;

    // Runs instructions from the current token until the body that was
    // entered ends: MAIN's RET (callBase false, no call pending), the RET of
    // the subprogram whose call started the loop (callBase true), or the
    // final RET of the text (`reachedEnd`). `depth` calls are pending already
    // (entered by compiled code before it handed over). Nested CALs are
    // followed without native recursion.
    Qz::uint32_t RunBody(bool callBase, bool& reachedEnd) { return RunBodyPlain(callBase, 0, reachedEnd); }
    Qz::uint32_t RunBodyPlain(bool callBase, size_t depth, bool& reachedEnd);
    uint64_t InstructionsRun = 0;  // in the current Execute
    int32_t JumpOperandEnd = -1;   // where a jump's or call's operand ended, for traces

    // The millisecond clock behind TICK.
    uint32_t ClockMilliseconds();
    double ReadTick();

    // ---- The compiled core (qz_compiler.cpp, qz_vm.cpp) ----
    // Compiles the text when needed; true when this cycle runs compiled.
    bool PrepareCompiled();
    // Runs MAIN's body from its compiled form (the scanner is at MAIN).
    Qz::uint32_t RunCompiled(bool& reachedEnd);
    void RestoreSnapshot(const QZ_ScanSnapshot& snapshot);
    QZ_CompiledProgram Compiled;
    bool SuppressLabelRegistration = false;  // Scan without side effects, for compiling

private:
    template <bool kBudget>
    Qz::uint32_t RunCode(bool& reachedEnd);
    CQZ_Vars* EnterFrame(const QZ_Frame& frame);
    // One instruction carried out by its handler, from its keyword.
    Qz::uint32_t RunDelegated(int32_t keyword);
    // The rest of the cycle on the reading loop, from `pos`, with the fields
    // as the scan of the token at `prev` left them.
    Qz::uint32_t RunEscaped(int32_t prev, int32_t pos, bool& reachedEnd);
    // Limit on how often one text is compiled again (labels registered as a
    // text without a VAR section runs make the compiled form stale).
    static constexpr uint32_t kMaxCompilations = 8;
    static constexpr size_t kInitialStackDepth = 64;
    uint32_t CompiledVersion = 0;
    uint32_t Compilations = 0;
    std::vector<uint32_t> ReturnStack;  // compiled return points of pending calls
    int32_t LastRetPos = 0;             // the subprogram RET run last

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

    // Calls.
    Qz::uint32_t EnterCall();
    Qz::uint32_t ReturnFromCall();
    void TraceInstruction(int32_t start, Qz::uint32_t result);
};

#endif
