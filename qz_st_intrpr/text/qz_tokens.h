// The language's vocabulary: keyword codes, the exported keyword table, the
// character classes, and the bounded string copies used for names.
//
// The keyword lists below drive the token-code enumeration, the exported
// TokensTable (in table order) and, for instructions, the dispatch table of
// the machine. Codes are fixed by the binary contract: hosts read TokensTable.
#ifndef QZ_TOKENS_H
#define QZ_TOKENS_H

#include "qz_st_interpretator.h"

#include <cstdint>

// X(enumerator suffix, code, text): the VAR keyword is ttVARSECTION, since
// ttVAR names the '@name' operand.
#define QZ_SECTION_KEYWORDS(X) X(PROG, 0x10, "PROG") X(VARSECTION, 0x11, "VAR") X(MAIN, 0x12, "MAIN") X(BODY, 0x13, "BODY")

// X(name, code)
#define QZ_DECLARATION_KINDS(X) \
    X(V, 0x14) X(VI, 0x15) X(VO, 0x16) X(VIO, 0x17) X(VG, 0x18) X(TVG, 0x19) X(TVR, 0x1a) X(VA, 0x1b) X(VR, 0x1c)

// X(name, code, host Dimension code; 0 where a type never reaches the host)
#define QZ_TYPES(X)                                                                             \
    X(BOOL, 0x20, 1) X(SINT, 0x21, 2) X(USINT, 0x22, 3) X(INT, 0x23, 4) X(UINT, 0x24, 5)        \
    X(DINT, 0x25, 6) X(UDINT, 0x26, 7) X(REAL, 0x27, 10) X(LREAL, 0x28, 11) X(STRING, 0x29, 0) \
    X(ARRAY, 0x2a, 0)

// X(name, code, handler, operands, description): the handler is the machine
// member that runs it; the operands and the one-line description are what
// help texts, hover and the manual show.
#define QZ_INSTRUCTIONS(X)  \
    X(CAL, 0x31, DoCallCommand, "LABEL", "calls the subprogram declared at LABEL; its RET returns after the CAL") \
    X(EXEC, 0x32, DoExec, "NAME", "runs the built-in function NAME on arguments pushed on the value stack; result in A0") \
    X(JMP, 0x33, DoJump, "LABEL", "continues after LABEL") \
    X(JMPF, 0x34, DoJump, "LABEL", "continues after LABEL when the test flag is clear (0)") \
    X(JMPT, 0x35, DoJump, "LABEL", "continues after LABEL when the test flag is set (1)") \
    X(MOV, 0x36, DoMOVCommand, "SOURCE DESTINATION", "DESTINATION := SOURCE, narrowed to the type of a variable destination") \
    X(MOVA, 0x37, DoMOVA, "SOURCE DESTINATION", "DESTINATION := reference to the variable SOURCE (or the reference SOURCE holds)") \
    X(ADD, 0x38, DoArithmetic, "SOURCE REGISTER", "REGISTER := SOURCE + REGISTER (DINT, or LREAL with a real operand)") \
    X(SUB, 0x39, DoArithmetic, "SOURCE REGISTER", "REGISTER := SOURCE - REGISTER (source first: SUB @A R0 is A - R0)") \
    X(MUL, 0x3a, DoArithmetic, "SOURCE REGISTER", "REGISTER := SOURCE * REGISTER (DINT, or LREAL with a real operand)") \
    X(DIV, 0x3b, DoArithmetic, "SOURCE REGISTER", "REGISTER := SOURCE / REGISTER (source first: DIV @A R0 is A / R0)") \
    X(MOD, 0x3c, DoArithmetic, "SOURCE REGISTER", "REGISTER := SOURCE MOD REGISTER (integers only; sign of SOURCE)") \
    X(NE, 0x3d, DoCompare, "SOURCE REGISTER", "REGISTER := SOURCE <> REGISTER, as BOOL") \
    X(EQ, 0x3e, DoCompare, "SOURCE REGISTER", "REGISTER := SOURCE = REGISTER, as BOOL") \
    X(GT, 0x3f, DoCompare, "SOURCE REGISTER", "REGISTER := SOURCE > REGISTER, as BOOL (source first)") \
    X(GE, 0x40, DoCompare, "SOURCE REGISTER", "REGISTER := SOURCE >= REGISTER, as BOOL (source first)") \
    X(LT, 0x41, DoCompare, "SOURCE REGISTER", "REGISTER := SOURCE < REGISTER, as BOOL (source first)") \
    X(LE, 0x42, DoCompare, "SOURCE REGISTER", "REGISTER := SOURCE <= REGISTER, as BOOL (source first)") \
    X(TST, 0x43, DoTest, "REGISTER", "test flag := 1 when REGISTER is not 0, else 0") \
    X(OR, 0x44, DoBoolean, "SOURCE REGISTER", "REGISTER := SOURCE OR REGISTER, both BOOL") \
    X(XOR, 0x45, DoBoolean, "SOURCE REGISTER", "REGISTER := SOURCE XOR REGISTER, both BOOL") \
    X(AND, 0x46, DoBoolean, "SOURCE REGISTER", "REGISTER := SOURCE AND REGISTER, both BOOL") \
    X(NOT, 0x47, DoNot, "REGISTER", "REGISTER := NOT REGISTER (a BOOL)") \
    X(BOR, 0x48, DoBits, "SOURCE REGISTER", "REGISTER := SOURCE BOR REGISTER, bit by bit on integers") \
    X(BXOR, 0x49, DoBits, "SOURCE REGISTER", "REGISTER := SOURCE BXOR REGISTER, bit by bit on integers") \
    X(BAND, 0x4a, DoBits, "SOURCE REGISTER", "REGISTER := SOURCE BAND REGISTER, bit by bit on integers") \
    X(BNOT, 0x4b, DoBitNot, "REGISTER", "REGISTER := bitwise complement of REGISTER (an integer)") \
    X(NG, 0x4c, DoNegate, "REGISTER", "REGISTER := -REGISTER, type unchanged") \
    X(SHL, 0x4d, DoShift, "SOURCE REGISTER", "REGISTER := SOURCE shifted left by REGISTER bits") \
    X(SHR, 0x4e, DoShift, "SOURCE REGISTER", "REGISTER := SOURCE shifted right by REGISTER bits (arithmetic when signed)") \
    X(ROL, 0x4f, DoShift, "SOURCE REGISTER", "REGISTER := SOURCE rotated left by REGISTER bits") \
    X(ROR, 0x50, DoShift, "SOURCE REGISTER", "REGISTER := SOURCE rotated right by REGISTER bits") \
    X(POW, 0x51, DoPowCommand, "SOURCE REGISTER", "REGISTER := SOURCE to the power REGISTER, as LREAL") \
    X(RET, 0x52, DoRetCommand, "", "ends the body: the cycle in MAIN, the subprogram otherwise")

#define QZ_OPERAND_KEYWORDS(X) \
    X(A0, 0x81) X(R0, 0x82) X(R1, 0x83) X(NIL, 0x84) X(PUSH, 0x91) X(POP, 0x92) X(TICK, 0xa1)

// Token codes: keywords by their table code, plus the scanner's own kinds.
enum QZTokenCode : uint8_t {
    ttNONE = 0,
    ttLABEL = 2,   // a name written directly before ':'
    ttNAME = 3,    // a name that is no keyword
    ttNUMBER = 4,  // a numeric literal
    ttVAR = 5,     // '@name'
    ttREF = 6,     // '^name'
#define QZ_TOKEN_ENUM2(name, code) tt##name = code,
#define QZ_TOKEN_ENUM3(name, code, ...) tt##name = code,
    QZ_SECTION_KEYWORDS(QZ_TOKEN_ENUM3) QZ_DECLARATION_KINDS(QZ_TOKEN_ENUM2) QZ_TYPES(QZ_TOKEN_ENUM3)
        QZ_INSTRUCTIONS(QZ_TOKEN_ENUM3) QZ_OPERAND_KEYWORDS(QZ_TOKEN_ENUM2)
#undef QZ_TOKEN_ENUM2
#undef QZ_TOKEN_ENUM3
    ttEND = 0x53,  // "RET" as the last token of the text
};

constexpr int kKeywordCount = 65;
constexpr int kNameLimit = 255;                   // characters kept of a name or token
constexpr int kTokenBufferSize = kNameLimit + 1;  // with its NUL

// One entry of the exported keyword table: 256 bytes, as hosts expect.
struct QZ_Token {
    unsigned char Code;
    char Name[255];
};
static_assert(sizeof(QZ_Token) == 256, "keyword table entries are 256 bytes");

extern "C++" QZ_EXPORT QZ_Token TokensTable[kKeywordCount];

// strncpy / strncat with the historic exported names.
QZ_EXPORT char* _qzcscpy(char* dest, unsigned long n, const char* src);
QZ_EXPORT char* _qzcscat(char* dest, unsigned long n, const char* src);

// One instruction as help texts show it: the keyword, its operands and what
// it does, from the instruction list above.
struct QZ_InstructionInfo {
    const char* Name;
    uint8_t Code;
    const char* Operands;
    const char* Description;
};
constexpr int kInstructionCount = ttRET - ttCAL + 1;
extern const QZ_InstructionInfo kInstructionInfo[kInstructionCount];
// The entry of an instruction code, or null for any other code.
const QZ_InstructionInfo* InstructionInfoOf(uint8_t code);

// The keyword code of `text` (exact, case-sensitive), or ttNONE.
uint8_t FindKeyword(const char* text);

// ---- Character classes (single bytes, locale-independent) ----

inline bool IsDigitChar(char c) { return c >= '0' && c <= '9'; }

// The space and the separators end a name; every other byte belongs to it.
inline bool IsSeparatorChar(char c) {
    switch (c) {
    case '!': case '"': case '#': case '$': case '%': case '&': case '\'': case '*':
    case '+': case '-': case '/': case ':': case '<': case '=': case '>': case '?':
    case '@': case '|': case '^': case '~':
        return true;
    default:
        return false;
    }
}

// The language upper-cases only ASCII letters, whatever the process locale.
inline char AsciiUpper(char c) { return (c >= 'a' && c <= 'z') ? char(c - 'a' + 'A') : c; }

// Tokens the scanner enters in the label table.
inline bool RegistersLabel(uint8_t code) {
    return code == ttLABEL || code == ttPROG || code == ttVARSECTION || code == ttMAIN;
}
inline bool IsInstructionCode(uint8_t code) { return code >= ttCAL && code <= ttRET; }
inline bool IsRegisterCode(uint8_t code) { return code >= ttA0 && code <= ttNIL; }
inline bool IsValueType(char type) { return type >= char(ttBOOL) && type <= char(ttLREAL); }
inline bool IsIntegerType(char type) { return type >= char(ttSINT) && type <= char(ttUDINT); }
inline bool IsFloatingType(char type) { return type == char(ttREAL) || type == char(ttLREAL); }

// Host Dimension code of a value type, 0 for types that never reach the host.
int DimensionOfType(char type);

#endif
