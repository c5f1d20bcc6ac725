// The built-in mathematical functions called by EXEC. Each pops its
// arguments, leaves its result in A0 and returns 0; an empty stack is not
// reported, the missing argument reads as 0.0 of type LREAL.
#include "qz_builtins.h"
#include "qz_numeric.h"
#include "qz_tokens.h"

#include <cmath>

namespace QZBuildInFunctions {
namespace {

struct Argument {
    char Type = char(ttLREAL);
    double Value = 0.0;
};

Argument Pop(CQZ_STInterpretator_Interface* machine) {
    Argument a;
    machine->StackPop(a.Type, a.Value);  // on an empty stack `a` keeps its defaults
    return a;
}

// Result in A0 with the argument's own type, not converted to it.
Qz::uint32_t Unary(CQZ_STInterpretator_Interface* machine, double (*f)(double)) {
    const Argument x = Pop(machine);
    machine->SetValueToRegister(char(ttA0), x.Type, f(x.Value));
    return Qz::rcOK;
}

Qz::uint32_t Rounded(CQZ_STInterpretator_Interface* machine, int direction) {
    const Argument x = Pop(machine);
    machine->SetValueToRegister(char(ttA0), char(ttDINT), CeilOrFloor(x.Value, direction));
    return Qz::rcOK;
}

double Cos(double x) { return std::cos(x); }
double Sin(double x) { return std::sin(x); }
double Tan(double x) { return std::tan(x); }
double ACos(double x) { return std::acos(x); }
double ASin(double x) { return std::asin(x); }
double ATan(double x) { return std::atan(x); }
double Exp(double x) { return std::exp(x); }
double Fabs(double x) { return std::fabs(x); }
double Ln(double x) { return std::log(x); }
double Log10(double x) { return std::log10(x); }
double Sqrt(double x) { return std::sqrt(x); }

// Tried in this order.
const BuiltinEntry kFunctions[] = {
    {"COS", DoCos, Cos, bkUnary},       {"SIN", DoSin, Sin, bkUnary},       {"TAN", DoTan, Tan, bkUnary},
    {"ACOS", DoACos, ACos, bkUnary},    {"ASIN", DoASin, ASin, bkUnary},    {"ATAN", DoATan, ATan, bkUnary},
    {"CEIL", DoCeil, nullptr, bkCeil},  {"FLOOR", DoFloor, nullptr, bkFloor}, {"ROUND", DoRound, nullptr, bkRound},
    {"EXP", DoExp, Exp, bkUnary},       {"FABS", DoFabs, Fabs, bkUnary},    {"LN", DoLn, Ln, bkUnary},
    {"LOG10", DoLog10, Log10, bkUnary}, {"POW", DoPow, nullptr, bkPow},     {"SQRT", DoSqrt, Sqrt, bkUnary},
};

}  // namespace

// CEIL and FLOOR step from the truncated value, then keep 32 bits
// (NaN and values out of range give -2^31).
double CeilOrFloor(double v, int direction) {
    if (std::fabs(v) < 4503599627370496.0) {  // 2^52: below it doubles may have a fraction
        const double whole = std::trunc(v);
        if (direction > 0 && v > whole) v = whole + 1.0;
        else if (direction < 0 && v < whole) v = whole - 1.0;
        else v = whole;
    }
    return qz::TruncToInt32(v);
}

const BuiltinEntry* BuiltinTable() { return kFunctions; }
int BuiltinCount() { return int(sizeof(kFunctions) / sizeof(kFunctions[0])); }

const BuiltinEntry* FindBuiltinEntry(const QString& name) {
    for (const BuiltinEntry& entry : kFunctions)
        if (name.compare(QLatin1String(entry.Name), Qt::CaseInsensitive) == 0) return &entry;
    return nullptr;
}

QZBuiltinFunction FindBuiltin(const QString& name) {
    const BuiltinEntry* entry = FindBuiltinEntry(name);
    return entry ? entry->Function : nullptr;
}

Qz::uint32_t DoBildInFunctions(CQZ_STInterpretator_Interface* machine, QString& name) {
    const QZBuiltinFunction function = FindBuiltin(name);
    return function ? function(machine) : Qz::rcNoBuiltin;
}

Qz::uint32_t DoCos(CQZ_STInterpretator_Interface* m) { return Unary(m, Cos); }
Qz::uint32_t DoSin(CQZ_STInterpretator_Interface* m) { return Unary(m, Sin); }
Qz::uint32_t DoTan(CQZ_STInterpretator_Interface* m) { return Unary(m, Tan); }
Qz::uint32_t DoACos(CQZ_STInterpretator_Interface* m) { return Unary(m, ACos); }
Qz::uint32_t DoASin(CQZ_STInterpretator_Interface* m) { return Unary(m, ASin); }
Qz::uint32_t DoATan(CQZ_STInterpretator_Interface* m) { return Unary(m, ATan); }
Qz::uint32_t DoCeil(CQZ_STInterpretator_Interface* m) { return Rounded(m, +1); }
Qz::uint32_t DoFloor(CQZ_STInterpretator_Interface* m) { return Rounded(m, -1); }
Qz::uint32_t DoExp(CQZ_STInterpretator_Interface* m) { return Unary(m, Exp); }
Qz::uint32_t DoFabs(CQZ_STInterpretator_Interface* m) { return Unary(m, Fabs); }
Qz::uint32_t DoLn(CQZ_STInterpretator_Interface* m) { return Unary(m, Ln); }
Qz::uint32_t DoLog10(CQZ_STInterpretator_Interface* m) { return Unary(m, Log10); }
Qz::uint32_t DoSqrt(CQZ_STInterpretator_Interface* m) { return Unary(m, Sqrt); }

Qz::uint32_t DoRound(CQZ_STInterpretator_Interface* machine) {
    // Halves away from zero, kept as a floating value: ROUND 1e12 is 1e12.
    const Argument x = Pop(machine);
    machine->SetValueToRegister(char(ttA0), char(ttDINT), std::round(x.Value));
    return Qz::rcOK;
}

Qz::uint32_t DoPow(CQZ_STInterpretator_Interface* machine) {
    const Argument y = Pop(machine);  // the exponent was pushed last
    const Argument x = Pop(machine);
    machine->SetValueToRegister(char(ttA0), x.Type, std::pow(x.Value, y.Value));
    return Qz::rcOK;
}

}  // namespace QZBuildInFunctions
