// What each instruction's handler reads as its operands, and the code it
// returns for an operand of a kind it does not take: the table the checker
// is driven by. Each row restates its handler (qz_commands.cpp,
// qz_operators.cpp, qz_calls.cpp); the checker's differential tests run a
// program through the handler for every rule and kind and compare.
#ifndef QZ_OPERAND_RULES_H
#define QZ_OPERAND_RULES_H

#include "qz_st_result_codes.h"
#include "qz_tokens.h"

enum QZ_OperandRule : uint8_t {
    orNone,
    orSource,              // @X ^X A0 R0 R1 POP number (NIL: 27)
    orMoveSource,          // orSource and TICK
    orMoveDestination,     // @X ^X A0 R0 R1 NIL PUSH TICK
    orAddressSource,       // @X A0 R0 R1 (NIL: 27)
    orAddressDestination,  // @X A0 R0 R1 NIL
    orRegister,            // A0 R0 R1 (NIL: 27)
    orBoolSource,          // orSource, and its type must be BOOL
    orLabel,               // a plain name that is a label
    orCallTarget,          // any token whose text is a label starting a subprogram
    orBuiltin,             // any token whose text names a built-in function
};

struct QZ_OperandRules {
    uint8_t Code;
    QZ_OperandRule First;
    QZ_OperandRule Second;
    Qz::ResultCode BadKind;  // for an operand of a kind the handler does not take
};

// X(instruction, first operand, second operand, code for a bad kind)
#define QZ_OPERAND_RULE_ROWS(X)                                      \
    X(CAL, orCallTarget, orNone, rcOK)                               \
    X(EXEC, orBuiltin, orNone, rcOK)                                 \
    X(JMP, orLabel, orNone, rcJumpOperand)                           \
    X(JMPF, orLabel, orNone, rcJumpOperand)                          \
    X(JMPT, orLabel, orNone, rcJumpOperand)                          \
    X(MOV, orMoveSource, orMoveDestination, rcMovOperand)            \
    X(MOVA, orAddressSource, orAddressDestination, rcMovOperand)     \
    X(ADD, orSource, orRegister, rcArithOperand)                     \
    X(SUB, orSource, orRegister, rcArithOperand)                     \
    X(MUL, orSource, orRegister, rcArithOperand)                     \
    X(DIV, orSource, orRegister, rcArithOperand)                     \
    X(MOD, orSource, orRegister, rcArithOperand)                     \
    X(NE, orSource, orRegister, rcCompareOperand)                    \
    X(EQ, orSource, orRegister, rcCompareOperand)                    \
    X(GT, orSource, orRegister, rcCompareOperand)                    \
    X(GE, orSource, orRegister, rcCompareOperand)                    \
    X(LT, orSource, orRegister, rcCompareOperand)                    \
    X(LE, orSource, orRegister, rcCompareOperand)                    \
    X(TST, orRegister, orNone, rcTstOperand)                         \
    X(OR, orBoolSource, orRegister, rcBoolOperand)                   \
    X(XOR, orBoolSource, orRegister, rcBoolOperand)                  \
    X(AND, orBoolSource, orRegister, rcBoolOperand)                  \
    X(NOT, orRegister, orNone, rcUnaryOperand)                       \
    X(BOR, orSource, orRegister, rcBitsOperand)                      \
    X(BXOR, orSource, orRegister, rcBitsOperand)                     \
    X(BAND, orSource, orRegister, rcBitsOperand)                     \
    X(BNOT, orRegister, orNone, rcBnotOperand)                       \
    X(NG, orRegister, orNone, rcUnaryOperand)                        \
    X(SHL, orSource, orRegister, rcShiftOperand)                     \
    X(SHR, orSource, orRegister, rcShiftOperand)                     \
    X(ROL, orSource, orRegister, rcShiftOperand)                     \
    X(ROR, orSource, orRegister, rcShiftOperand)                     \
    X(POW, orSource, orRegister, rcPowOperand)                       \
    X(RET, orNone, orNone, rcOK)

inline constexpr QZ_OperandRules kOperandRules[kInstructionCount] = {
#define QZ_OPERAND_RULE_ROW(name, first, second, bad) {tt##name, first, second, Qz::bad},
    QZ_OPERAND_RULE_ROWS(QZ_OPERAND_RULE_ROW)
#undef QZ_OPERAND_RULE_ROW
};

constexpr bool OperandRulesInOrder() {
    for (int i = 0; i < kInstructionCount; ++i)
        if (kOperandRules[i].Code != ttCAL + i) return false;
    return true;
}
static_assert(OperandRulesInOrder(), "one row per instruction, in the order of the instruction table");

inline const QZ_OperandRules& OperandRulesOf(uint8_t instruction) { return kOperandRules[instruction - ttCAL]; }

#endif
