// The decoded form of a program text: what scanning a position yields, and
// what an instruction's operands are, remembered the first time a cycle
// needs them so that later cycles replay them instead of reading the
// characters again.
//
// The text never changes while a program is loaded, so a successful scan at
// a given position always yields the same token, the same token text, the
// same number and the same next position. What depends on the machine's
// state is not remembered as fact but checked whenever it is used: which
// record a variable name designates (tables change with subprogram frames)
// and whether a label is registered yet.
#ifndef QZ_DECODED_H
#define QZ_DECODED_H

#include "qz_builtins.h"
#include "qz_vars.h"

#include <cstdint>
#include <string>
#include <vector>

// Table shapes (CQZ_Vars::Shape): the program's own table, and a frame
// table by the position of the label whose declarations built it.
constexpr uint32_t kProgramShape = 1;
inline uint32_t FrameShape(int32_t labelStart) { return uint32_t(labelStart) + 2u; }

// What a successful Scan at one position leaves in the scanner's fields.
struct QZ_DecodedToken {
    int32_t Start;        // TokenStart
    int32_t End;          // TokenEnd, when the scan wrote it
    int32_t NextTextPos;  // TextPos after the scan
    uint32_t TextOffset;  // TokenText, NUL-terminated in the text pool
    double Number;        // DigitValue, for a ttNUMBER
    uint16_t TextLength;  // TokenLength
    uint8_t Code;         // TokenCode
    char NextChar;        // CurChar after the scan
    uint8_t NumberType;   // DigitType, for a ttNUMBER
    bool EndWritten;      // false only for a final RET cut off by the end of the text
    uint32_t Instruction; // 1 + its decoded instruction, for an instruction keyword; 0 before decoding

    // Where the following token begins, or -1 once the text has ended.
    int32_t Next() const { return NextChar != 0 ? NextTextPos - 1 : -1; }
};

// One operand of a decoded instruction.
struct QZ_DecodedOperand {
    double Number = 0.0;      // for a number: its value (and NumberType its type)
    uint32_t Token = 0;       // index of its token
    uint32_t NameOffset = 0;  // the name in the text pool (variables, labels, functions)
    // For a variable: where the name was last found, as long as the current
    // table has the same shape (0: not yet found).
    uint32_t Shape = 0;
    uint32_t Ordinal = 0;
    uint8_t Kind = 0;      // its token code: ttVAR, ttREF, ttNUMBER, a register, ttPOP, ttPUSH, ttTICK, ttNAME
    uint8_t Register = 0;  // for a register: 0 A0, 1 R0, 2 R1, 3 NIL
    uint8_t NumberType = 0;
};

// How a decoded instruction is carried out.
enum QZDecodedForm : uint8_t {
    dfPlain,       // by the handler that scans the operands (rare or failing forms)
    dfMove,        // MOV
    dfArithmetic,  // ADD SUB MUL DIV MOD
    dfCompare,     // NE EQ GT GE LT LE
    dfPower,       // POW
    dfBoolean,     // OR XOR AND
    dfBits,        // BOR BXOR BAND
    dfShift,       // SHL SHR ROL ROR
    dfTest,        // TST
    dfNot,         // NOT
    dfBitNot,      // BNOT
    dfNegate,      // NG
    dfJump,        // JMP JMPF JMPT
    dfExec,        // EXEC
    dfCall,        // CAL
};

// The most frequent operand combinations, each carried out by its own short
// piece of code; everything else goes by its form.
enum QZDecodedShortcut : uint8_t {
    dsNone,
    dsMoveVarToRegister,
    dsMoveRegisterToVar,
    dsMoveNumberToRegister,
    dsMoveNumberToVar,
    dsMoveVarToVar,
    dsMoveRegisterToRegister,
    dsArithmeticVar,  // ADD..MOD with a variable, a number or a register as source
    dsArithmeticNumber,
    dsArithmeticRegister,
    dsCompareVar,  // NE..LE likewise
    dsCompareNumber,
    dsCompareRegister,
    dsMoveVarToStack,
    dsMoveStackToVar,
    dsTest,
    dsJump,  // JMP JMPF JMPT
    dsCall,
};

constexpr uint32_t kReturnSuccessor = 0x80000000u;

// Runs of shortcuts that are carried out together, without going back to the
// dispatch between them, once the successors that make them up are known.
enum QZDecodedFusion : uint8_t {
    dfuUnknown,       // not decided yet
    dfuNone,
    dfuLoadOperate,   // MOV into a register, then an operator on it
    dfuLoadOperateStore,  // ... then MOV of the register into a variable
    dfuOperateTest,   // an operator on a register, then TST of it (and a jump after it)
};

// An instruction with its operands, at the position of its keyword. A
// power-of-two size makes finding the next one a shift.
struct alignas(128) QZ_DecodedInstruction {
    uint8_t Code = 0;  // the instruction's token code
    uint8_t Form = dfPlain;
    uint8_t Shortcut = dsNone;
    uint8_t Fusion = dfuUnknown;
    uint32_t Keyword = 0;  // index of the keyword's token
    int32_t Start = 0;     // where the keyword begins (TokenStart)
    uint32_t Last = 0;     // index of the last operand's token
    int32_t Next = -1;     // where the next token begins after it
    // The instruction that follows (1 + its index; 0 until a cycle has gone
    // that way): after the operands, and after a taken jump or the BODY of a
    // called subprogram. Only labels stand between. After the operands there
    // may be a RET instead: kReturnSuccessor plus 1 + the RET's token.
    uint32_t Successor = 0;
    uint32_t TargetSuccessor = 0;
    QZ_DecodedOperand Source;
    QZ_DecodedOperand Target;
    // Jumps and calls: what stands at the label, once it is found.
    enum : uint8_t { tgUnresolved, tgResolved, tgPlain } TargetState = tgUnresolved;
    uint32_t TargetToken = 0;  // jumps: the label token at the label's position
    int32_t OperandEnd = 0;    // jumps and calls: TokenEnd of the operand, for the trace
    uint32_t ReturnIndex = 0;  // calls: where reading resumes after RET
    uint32_t Frame = 0;        // calls: index of the frame template
    QZBuiltinFunction Function = nullptr;  // EXEC
};

// What a subprogram's declarations build: the records of a fresh frame
// table, as lookup creates them, in creation order.
struct QZ_FrameTemplate {
    std::vector<Var> Records;
    uint32_t Shape = 0;      // the shape of every table built from these declarations
    uint32_t BodyToken = 0;  // the BODY token that ends them
    bool HasNumber = false;  // the last declaration's value, as the scan left it
    double Number = 0.0;
    uint8_t NumberType = 0;
};

class QZ_DecodedProgram {
public:
    static constexpr uint32_t kNotYet = 0;              // position not scanned yet
    static constexpr uint32_t kUndecodable = 0xFFFFFFFFu;  // a scan there fails: always scan it

    // Forgets everything and prepares for a text of `length` characters.
    void Reset(uint32_t version, int32_t length);
    bool IsFor(uint32_t version) const { return Version == version && Valid; }

    // The entry for a position: kNotYet, kUndecodable or 1 + token index.
    uint32_t& At(int32_t pos) { return Positions[size_t(pos)]; }
    uint32_t AddToken(const QZ_DecodedToken& token);
    uint32_t AddText(const char* text, size_t length);
    const char* TextAt(uint32_t offset) const { return Pool.data() + offset; }

    std::vector<QZ_DecodedToken> Tokens;
    std::vector<QZ_DecodedInstruction> Instructions;
    std::vector<QZ_FrameTemplate> Frames;
    int32_t MainStart = -1;  // where MAIN stands, once found

private:
    std::vector<uint32_t> Positions;
    std::string Pool;
    uint32_t Version = 0;
    bool Valid = false;
};

#endif
