// Selecting a built-in function by name, for the library's own callers.
#ifndef QZ_BUILTINS_H
#define QZ_BUILTINS_H

#include "qz_st_interface.h"

typedef Qz::uint32_t (*QZBuiltinFunction)(CQZ_STInterpretator_Interface* machine);

namespace QZBuildInFunctions {
// The function DoBildInFunctions calls for `name`, or null (it returns 13).
QZBuiltinFunction FindBuiltin(const QString& name);

// What a built-in computes, for callers that carry it out themselves (the
// compiled core pops and writes the machine's own stack and A0).
enum BuiltinKind : uint8_t {
    bkUnary,  // one argument; the result keeps the argument's type
    bkCeil,   // one argument; a DINT
    bkFloor,
    bkRound,  // one argument; the rounded double, typed DINT
    bkPow,    // exponent on top, then the base; the base's type
};
struct BuiltinEntry {
    const char* Name;
    QZBuiltinFunction Function;
    double (*Unary)(double);  // bkUnary only
    BuiltinKind Kind;
};
// The table in the order names are tried, and the entry for `name` (null: 13).
const BuiltinEntry* BuiltinTable();
int BuiltinCount();
const BuiltinEntry* FindBuiltinEntry(const QString& name);
// CEIL (direction 1) and FLOOR (-1) as the DINT they leave in A0.
double CeilOrFloor(double v, int direction);
}  // namespace QZBuildInFunctions

#endif
