// The compiled form of a program: the text translated once into a linear
// array of instructions whose operands are resolved (register indexes,
// numbers with their types, variable ordinals in the table the code runs
// with, jump targets, called subprograms' frames, built-in functions).
//
// Code is compiled per context: the program's own table (context 0) or the
// frame of one subprogram (context 1 + its frame index). Control flow decides
// the context of every instruction (a jump keeps the caller's table, a CAL
// enters the subprogram's), so the same stretch of text reached with two
// different tables is compiled twice; a variable operand is then an ordinal
// in exactly the table that is current when it runs.
//
// Whatever the compiler does not translate (failing operands, rare forms,
// labels not registered yet, scan failures) stays with the reading
// interpreter: a DELEGATE instruction hands one instruction to its handler,
// an ESCAPE hands the rest of the cycle to the reading body loop. Both put
// the scanner where the reading interpreter would have it first, so every
// result code, error position and left-behind state is the same.
#ifndef QZ_COMPILED_H
#define QZ_COMPILED_H

#include "qz_vars.h"

#include <cstdint>
#include <string>
#include <unordered_map>
#include <vector>

// X(name, description): every compiled operation. The suffix tells the
// source operand: V a variable, N a number, R a register, G any kind.
#define QZ_OPS(X)                                                                  \
    X(MOV_VR, "MOV @var reg")                                                      \
    X(MOV_RV, "MOV reg @var")                                                      \
    X(MOV_NR, "MOV number reg")                                                    \
    X(MOV_NV, "MOV number @var")                                                   \
    X(MOV_VV, "MOV @var @var")                                                     \
    X(MOV_RR, "MOV reg reg")                                                       \
    X(MOV_VP, "MOV @var PUSH")                                                     \
    X(MOV_PV, "MOV POP @var")                                                      \
    X(MOV_G, "MOV, any other source and destination")                              \
    X(ADD_V, "ADD @var reg")                                                       \
    X(ADD_N, "ADD number reg")                                                     \
    X(ADD_R, "ADD reg reg")                                                        \
    X(SUB_V, "SUB @var reg")                                                       \
    X(SUB_N, "SUB number reg")                                                     \
    X(SUB_R, "SUB reg reg")                                                        \
    X(MUL_V, "MUL @var reg")                                                       \
    X(MUL_N, "MUL number reg")                                                     \
    X(MUL_R, "MUL reg reg")                                                        \
    X(ARITH_G, "ADD SUB MUL DIV MOD, any source")                                  \
    X(LOAD_OP_STORE, "MOV into a register, ADD SUB or MUL into it, MOV of it out") \
    X(LOAD_OP_STORE_DINT, "the same, all operands whole 32-bit numbers")          \
    X(CMP_G, "NE EQ GT GE LT LE")                                                  \
    X(CMP_JUMP, "a comparison, TST of its register and a jump, as one")           \
    X(POW_G, "POW")                                                                \
    X(BOOL_G, "OR XOR AND")                                                        \
    X(BITS_G, "BOR BXOR BAND")                                                     \
    X(SHIFT_G, "SHL SHR ROL ROR")                                                  \
    X(TST, "TST reg")                                                              \
    X(NOT, "NOT reg")                                                              \
    X(BNOT, "BNOT reg")                                                            \
    X(NG, "NG reg")                                                                \
    X(JMP, "JMP label")                                                            \
    X(JMPF, "JMPF label")                                                          \
    X(JMPT, "JMPT label")                                                          \
    X(GOTO, "continue at code compiled before (no instruction of the text)")       \
    X(MOVA_V, "MOVA @var or reg to a variable or register")                        \
    X(CAL, "CAL subprogram")                                                       \
    X(RET, "RET of a subprogram")                                                  \
    X(MAIN_RET, "RET of MAIN: the cycle ends")                                     \
    X(EXEC, "EXEC built-in")                                                       \
    X(DELEGATE, "one instruction carried out by the reading interpreter")          \
    X(ESCAPE, "the rest of the cycle carried out by the reading interpreter")

enum QZOp : uint8_t {
#define QZ_OP_ENUM(name, text) op##name,
    QZ_OPS(QZ_OP_ENUM)
#undef QZ_OP_ENUM
        kOpCount
};
const char* OpDescription(uint8_t op);

// Source operand kinds of the generic instructions.
enum QZSourceKind : uint8_t { skVar, skRef, skRegister, skNumber, skPop, skTick };
// Destination kinds of MOV_G and MOVA_V.
enum QZDestKind : uint8_t { dkVar, dkRef, dkRegister, dkNil, dkPush };

// Frame tables built from the declarations after one subprogram label hold
// the same names in the same order; a returned call's table is kept with
// this shape and revived by the next call of the same subprogram.
inline uint32_t FrameShape(int32_t labelStart) { return uint32_t(labelStart) + 2u; }

// Where ESCAPE finds the token the reading interpreter scanned last.
constexpr int32_t kPrevIsLastRet = -2;

// One compiled instruction: 48 bytes.
struct QZ_Insn {
    uint8_t Op = opESCAPE;
    uint8_t Cost = 0;     // instructions of the text it stands for (budget)
    uint8_t Code = 0;     // the instruction's token code (ADD, JMPF, ...)
    uint8_t SrcKind = 0;  // QZSourceKind
    uint8_t Src = 0;      // source register index (0 A0, 1 R0, 2 R1)
    uint8_t Dst = 0;      // destination register index, 3 for NIL
    uint8_t DstKind = 0;  // QZDestKind
    uint8_t NumType = 0;  // the number's type code
    uint32_t A = 0;       // source variable ordinal; CAL: frame index
    uint32_t B = 0;       // destination variable ordinal; jump target; CAL: return
    int32_t Pos = 0;      // where the keyword begins; ESCAPE: where to continue
    uint32_t C = 0;       // CMP_JUMP: jump target; CAL: return text index; EXEC: function
    int32_t Prev = 0;     // ESCAPE: the token scanned last
    uint32_t Snapshot = 0;  // MAIN_RET: scanner fields after its RET
    uint8_t SrcType = 0;    // declared type of a source variable, or the number's type
    uint8_t DstType = 0;    // declared type of a destination variable
    double Num = 0.0;
};

// The scanner's fields after one successful scan, to put back without
// scanning (at MAIN and at MAIN's RET).
struct QZ_ScanSnapshot {
    int32_t TextPos = 0, TokenStart = 0, TokenEnd = 0, TokenLength = 0;
    char CurChar = 0;
    uint8_t TokenCode = 0;
    std::string TokenText;
};

// What a subprogram's declarations build: the records of a fresh frame
// table, in creation order.
struct QZ_Frame {
    std::vector<Var> Records;
    int32_t LabelStart = 0;
    uint32_t Body = 0;      // first instruction of its body
    uint32_t Declarations = 0;  // what building it costs the budget
    uint32_t PeakRecords = 0;   // the most records the memory ceiling is asked about
    bool HasNumber = false;  // the last declaration's value, as the scan left it
    double Number = 0.0;
    uint8_t NumberType = 0;
};

class QZ_CompiledProgram {
public:
    bool IsFor(uint32_t version, int labelCount) const {
        return Version == version && Labels == labelCount && Built;
    }
    void Reset(uint32_t version, int labelCount) {
        *this = QZ_CompiledProgram();
        Version = version;
        Labels = labelCount;
        Built = true;
    }

    std::vector<QZ_Insn> Code;
    std::vector<QZ_Frame> Frames;
    std::vector<QZ_ScanSnapshot> Snapshots;
    bool Usable = false;    // false: this text runs on the reading interpreter
    uint32_t Entry = 0;     // first instruction of MAIN's body
    uint32_t MainSnapshot = 0;  // the scanner after MAIN, as a cycle starts

private:
    uint32_t Version = 0;
    int Labels = -1;
    bool Built = false;
};

#endif
