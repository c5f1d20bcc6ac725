// Values, registers, the value stack, operand decoding and the TICK counter.
#include "qz_st_intrpr_execute.h"

#include <sched.h>
#include <sys/time.h>

CQZ_STInterpretator_Execute::CQZ_STInterpretator_Execute() {
    // Room for what ordinary programs need, so that cycles do not allocate.
    Stack.reserve(kInitialStackDepth);
    CallStack.reserve(kInitialStackDepth);
    ReturnStack.reserve(kInitialStackDepth);
}

CQZ_STInterpretator_Execute::~CQZ_STInterpretator_Execute() = default;

// ---- The four operations built-ins reach the machine through ----

void CQZ_STInterpretator_Execute::GrowStack() {
    uint64_t room = Stack.capacity() < kInitialStackDepth ? kInitialStackDepth : uint64_t(Stack.capacity()) * 2;
    if (StackLimit != 0 && room > StackLimit) room = StackLimit;
    if (MemoryLimit != 0) {
        const uint64_t others = MemoryInUse() - Stack.size() * sizeof(QZ_StackValue);
        const uint64_t fits = MemoryLimit > others ? (MemoryLimit - others) / sizeof(QZ_StackValue) : 0;
        if (room > fits) room = fits;
    }
    if (room > Stack.size()) Stack.reserve(size_t(room));
}

Qz::uint32_t CQZ_STInterpretator_Execute::StackPush(char type, double value) {
    if (Qz::uint32_t r = StackRoom()) return r;
    Stack.push_back(QZ_StackValue{value, type});
    return Qz::rcOK;
}

Qz::uint32_t CQZ_STInterpretator_Execute::StackPop(char& type, double& value) {
    if (Stack.empty()) return Qz::rcStackEmpty;
    type = Stack.back().ValueType;
    value = Stack.back().Value;
    Stack.pop_back();
    return Qz::rcOK;
}

Qz::uint32_t CQZ_STInterpretator_Execute::GetValueFromRegister(char reg, char& type, double& value) {
    const QZ_Register* r;
    switch (static_cast<uint8_t>(reg)) {
    case ttA0: r = &A0; break;
    case ttR0: r = &R0; break;
    case ttR1: r = &R1; break;
    default: return Qz::rcNotRegister;  // NIL included: it holds nothing
    }
    type = r->ValueType;
    value = r->Value;
    return Qz::rcOK;
}

Qz::uint32_t CQZ_STInterpretator_Execute::SetValueToRegister(char reg, char type, double value) {
    QZ_Register* r;
    switch (static_cast<uint8_t>(reg)) {
    case ttA0: r = &A0; break;
    case ttR0: r = &R0; break;
    case ttR1: r = &R1; break;
    case ttNIL: return Qz::rcOK;  // discards
    default: return Qz::rcNotRegister;
    }
    r->Value = value;
    r->ValueType = type;
    return Qz::rcOK;
}

// ---- Operands ----

Qz::uint32_t CQZ_STInterpretator_Execute::ReadSource(QZ_Operand& out, Qz::uint32_t badKind, bool acceptTick) {
    if (Qz::uint32_t r = Scan(TokenText)) return r;
    switch (TokenCode) {
    case ttVAR: {
        const Var* var = GetVar(TokenText);
        if (!var) return Qz::rcVarNotFound;
        return ReadVariable(*var, out);
    }
    case ttREF: {
        const Var* var = GetVar(TokenText);
        if (!var) return Qz::rcVarNotFound;
        return ReadReference(*var, out);
    }
    case ttA0: case ttR0: case ttR1: case ttNIL:
        return GetValueFromRegister(char(TokenCode), out.Type, out.Value);
    case ttPOP:
        return StackPop(out.Type, out.Value);
    case ttNUMBER:
        out.Value = DigitValue;
        out.Type = char(DigitType);
        return Qz::rcOK;
    case ttTICK:
        if (!acceptTick) return badKind;
        out.Value = ReadTick();
        out.Type = char(ttUDINT);
        return Qz::rcOK;
    default:
        return badKind;
    }
}

Qz::uint32_t CQZ_STInterpretator_Execute::ReadRegister(char& reg, QZ_Operand& out, Qz::uint32_t badKind) {
    if (Qz::uint32_t r = Scan(TokenText)) return r;
    if (!IsRegisterCode(TokenCode)) return badKind;
    reg = char(TokenCode);
    return GetValueFromRegister(reg, out.Type, out.Value);
}

Qz::uint32_t CQZ_STInterpretator_Execute::ReadOperands(QZ_Operand& source, char& reg, QZ_Operand& dest,
                                                       Qz::uint32_t badKind) {
    if (Qz::uint32_t r = ReadSource(source, badKind)) return r;
    return ReadRegister(reg, dest, badKind);
}

// ---- TICK ----

uint32_t CQZ_STInterpretator_Execute::ClockMilliseconds() {
    if (Clock) return Clock(ClockContext);
    timeval tv;
    gettimeofday(&tv, nullptr);
    return uint32_t(tv.tv_sec) * 1000u + uint32_t(tv.tv_usec / 1000);
}

double CQZ_STInterpretator_Execute::ReadTick() {
    const uint32_t now = ClockMilliseconds();
    // A clock that steps back adds nothing; the first read only starts it.
    if (TickLast != 0) TickValue += double((now > TickLast ? now : TickLast) - TickLast);
    const double value = TickValue;
    TickLast = ClockMilliseconds();
    // A program polling TICK in a loop gives other threads a turn; simulated
    // time has no one to wait for.
    if (!Clock) sched_yield();
    return value;
}
