// Every result code the interpreter returns, named once, with its meaning.
//
// The same table gives the enumerators used inside the library and the short
// texts that diagnostics (the qzrun runner, host logs) print. The table
// itself is plain preprocessor text, so the C API's header (qz_c.h) builds
// its enumeration from it in C as well.
#ifndef QZ_ST_RESULT_CODES_H
#define QZ_ST_RESULT_CODES_H

#ifdef __cplusplus
#include <cstdint>
#else
#include <stdint.h>
#endif

// X(enumerator, code, meaning)
#define QZ_RESULT_CODES(X)                                                                  \
    X(rcOK, 0, "success")                                                                    \
    X(rcEndOfText, 6, "end of program text reached where more was needed")                   \
    X(rcRetWithCallsPending, 8, "RET of MAIN reached while subprogram calls are pending")    \
    X(rcBadCharacter, 9, "no token can begin here (blank or stray separator)")               \
    X(rcBadType, 10, "type outside BOOL..LREAL in a conversion or an output")                \
    X(rcStackEmpty, 11, "POP on an empty value stack")                                       \
    X(rcNoFrame, 12, "subprogram RET with no variable table to release")                     \
    X(rcNoBuiltin, 13, "no built-in function of that name")                                  \
    X(rcNotInstruction, 14, "an instruction is expected here")                               \
    X(rcDivisionByZero, 15, "DIV or MOD by zero")                                            \
    X(rcEmptyText, 19, "empty program text")                                                 \
    X(rcNoVarOrMain, 20, "VAR or MAIN expected after the program name")                      \
    X(rcNoLabelToken, 21, "no MAIN label, or a jump or call target is not a label")          \
    X(rcLabelNotFound, 22, "jump or call target label not found")                            \
    X(rcVarNotFound, 23, "variable not found (or not a valid reference)")                    \
    X(rcNoCommand, 24, "not an instruction code")                                            \
    X(rcRetInCommand, 25, "RET cannot be executed as a command")                             \
    X(rcNotRegister, 27, "NIL read as a register, or not a register")                        \
    X(rcBadDeclKind, 30, "declaration kind not allowed here")                                \
    X(rcBadDeclType, 31, "declaration type not allowed here")                                \
    X(rcNoDeclNumber, 32, "a number is expected in the declaration")                         \
    X(rcBadNumber, 33, "malformed number (sign without digit, or base not 16, 8, 2)")        \
    X(rcBadHexDigit, 34, "16# not followed by a hexadecimal digit")                          \
    X(rcBadOctalDigit, 35, "8# not followed by an octal digit")                              \
    X(rcBadBinaryDigit, 36, "2# not followed by a binary digit")                             \
    X(rcBadDotKeyword, 38, "malformed '.' keyword")                                          \
    X(rcBadVarName, 39, "'@' or '^' not followed by a name")                                 \
    X(rcBadRefPrefix, 40, "malformed '^' reference")                                         \
    X(rcBadHashKeyword, 41, "'#' not followed by a keyword")                                 \
    X(rcBadDollarKeyword, 42, "'$' not followed by a keyword")                               \
    X(rcMovOperand, 43, "MOV/MOVA operand of a kind it does not accept")                     \
    X(rcArithOperand, 44, "ADD..MOD operand of a kind it does not accept")                   \
    X(rcModFloat, 45, "MOD with a REAL or LREAL operand")                                    \
    X(rcCompareOperand, 46, "comparison operand of a kind it does not accept")               \
    X(rcBoolOperand, 47, "OR/XOR/AND operand not a BOOL of an accepted kind")                \
    X(rcNotType, 48, "NOT on a register that is not BOOL")                                   \
    X(rcBitsOperand, 49, "BOR/BXOR/BAND operand of a kind it does not accept")               \
    X(rcBorType, 50, "BOR operands not of an integer type")                                  \
    X(rcBxorType, 51, "BXOR operands not of an integer type")                                \
    X(rcBandType, 52, "BAND operands not of an integer type")                                \
    X(rcBnotOperand, 53, "BNOT operand not an integer register")                             \
    X(rcShiftOperand, 54, "shift/rotate operand of a kind it does not accept")               \
    X(rcShiftType, 55, "SHL/SHR source not of an integer type")                              \
    X(rcRotateType, 58, "ROL/ROR source not of an integer type")                             \
    X(rcTstOperand, 59, "TST operand not a register")                                        \
    X(rcJumpOperand, 60, "jump target not a plain name")                                     \
    X(rcUnaryOperand, 61, "NOT/NG operand not a register")                                   \
    X(rcPowOperand, 62, "POW operand of a kind it does not accept")                          \
    X(rcBadStarKeyword, 63, "'*' not followed by a keyword")                                 \
    X(rcBudgetExhausted, 100, "instruction budget of the cycle exhausted")                   \
    X(rcStackLimit, 101, "value stack limit reached")                                        \
    X(rcCallDepthLimit, 102, "call depth limit reached")                                     \
    X(rcMemoryLimit, 103, "memory ceiling of the interpreter object reached")                 \
    X(rcOutOfMemory, 104, "the system refused memory; the call was abandoned")               \
    X(rcInternalFailure, 105, "an unexpected exception was stopped at the library's boundary") \
    X(rcNoProgram, 106, "no program is loaded (none was given, or its load failed)")       \
    X(rcBadHandle, 107, "a null or unknown interpreter handle")                               \
    X(rcBadArgument, 108, "a null pointer or an argument out of range")                       \
    X(rcBufferTooSmall, 109, "the buffer is too small; the size needed was reported")         \
    X(rcSnapshotCorrupt, 110, "the snapshot is truncated or altered (size or checksum wrong)") \
    X(rcSnapshotVersion, 111, "the snapshot was written in a format version this library does not read") \
    X(rcSnapshotMismatch, 112, "the snapshot is of another program (its declarations differ)") \
    X(rcUnclosedComment, 113, "a (* comment is not closed")                                  \
    X(rcInCycle, 114, "not allowed while a cycle runs (from a host callback or a trace hook)")

#ifdef __cplusplus
namespace Qz {

enum ResultCode : uint32_t {
#define QZ_RESULT_ENUM(name, code, text) name = code,
    QZ_RESULT_CODES(QZ_RESULT_ENUM)
#undef QZ_RESULT_ENUM
};

struct ResultCodeInfo {
    uint32_t Code;
    const char* Name;
    const char* Meaning;
};

inline constexpr ResultCodeInfo kResultCodes[] = {
#define QZ_RESULT_INFO(name, code, text) {code, #name, text},
    QZ_RESULT_CODES(QZ_RESULT_INFO)
#undef QZ_RESULT_INFO
};

// The meaning of a result code, or null for a code the library never returns.
inline const char* ResultMeaning(uint32_t code) {
    for (const ResultCodeInfo& info : kResultCodes)
        if (info.Code == code) return info.Meaning;
    return nullptr;
}

}  // namespace Qz
#endif  // __cplusplus

#endif
