// The front end of the compiled core: translates a loaded program text into
// a QZ_CompiledProgram by reading it exactly as the reading interpreter
// would, without changing anything it could observe (every scan is made with
// label registration off, and the scanner's fields are put back at the end).
#ifndef QZ_COMPILER_H
#define QZ_COMPILER_H

#include "qz_compiled.h"
#include "qz_st_intrpr_text.h"

#include <memory>

class CQZ_STInterpretator_Execute;

class QZ_Compiler {
public:
    QZ_Compiler(CQZ_STInterpretator_Execute& machine, QZ_CompiledProgram& program);
    ~QZ_Compiler();
    // Compiles MAIN and everything control flow reaches from it. False when
    // the text is to run on the reading interpreter (MAIN cannot be entered,
    // or the compiled form would grow beyond its bound).
    bool Compile();

private:
    // What one successful scan yields.
    struct Token : QZ_ScannedToken {
        bool WouldRegister = false;  // a label the reading scan would enter now
    };
    // A place control reaches: where the next token begins, in which context,
    // and which token the reading interpreter scanned last on the way there.
    struct Edge {
        uint32_t Context;
        int32_t Pos;
        int32_t Prev;
    };
    struct Fixup {
        uint32_t Insn;  // the instruction whose B field gets the target, or the frame
        Edge Target;
        bool FrameBody;  // the target is the frame's body
    };

    Qz::uint32_t ScanAt(int32_t pos, Token& token);
    bool ScanOperand(int32_t pos, Token& token) { return pos >= 0 && ScanAt(pos, token) == 0 && token.Code != 0x53; }
    uint32_t Emit(Edge edge);
    bool EmitInstruction(Edge& edge, const Token& keyword);
    uint32_t Push(const QZ_Insn& insn);
    void EmitEscape(const Edge& edge);
    uint32_t EmitReturn(const Edge& edge, const Token& ret);
    uint32_t Snapshot(int32_t pos);

    // Instruction families; each returns false when it emitted a fallback
    // that ends the straight line, and advances `edge` past its operands.
    bool EmitMove(QZ_Insn& in, Edge& edge, const Token& keyword);
    bool EmitAddressMove(QZ_Insn& in, Edge& edge, const Token& keyword);
    bool EmitOperator(QZ_Insn& in, Edge& edge, const Token& keyword);
    bool EmitRegisterOp(QZ_Insn& in, Edge& edge, const Token& keyword);
    bool EmitJump(QZ_Insn& in, Edge& edge, const Token& keyword);
    bool EmitCall(QZ_Insn& in, Edge& edge, const Token& keyword);
    bool EmitExec(QZ_Insn& in, Edge& edge, const Token& keyword);
    bool EmitDelegate(QZ_Insn& in, Edge& edge, bool operandsRead, int32_t next, int32_t last);
    void FuseCompareJumps();
    bool EveryLineEnds() const;

    bool SourceOperand(const Token& token, uint32_t context, QZ_Insn& in, bool acceptTick);
    bool DestOperand(const Token& token, uint32_t context, QZ_Insn& in, bool full);
    bool ScanTwoOperands(const Token& keyword, Token& source, Token& dest);
    bool FindVariable(const std::string& name, uint32_t context, uint32_t& ordinal, uint8_t* type = nullptr);
    static bool IsWholeDint(const QZ_Insn& in);
    // The target of a jump or call: where the label stands and the position
    // after its token; false when it is not a label the reading interpreter
    // would find and land on.
    bool LabelTarget(const std::string& name, int32_t& labelStart, int32_t& after);
    // The frame a CAL of the subprogram at `labelStart` builds; 0 when its
    // declarations fail (the reading interpreter then reports why).
    uint32_t FrameOf(int32_t labelStart, int32_t labelNext);

    CQZ_STInterpretator_Execute& M;
    QZ_CompiledProgram& P;
    std::unordered_map<uint64_t, uint32_t> Compiled;  // (context, keyword position) -> instruction
    std::unordered_map<int32_t, uint32_t> FrameIndex;  // label position -> 1 + frame
    std::vector<std::unique_ptr<CQZ_Vars>> FrameTables;  // names of each frame, for look-ups
    std::vector<Fixup> Pending;
    size_t Limit = 0;
    bool Overflow = false;
};

#endif
