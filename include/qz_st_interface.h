// The machine as the built-in function library sees it, and the library.
//
// Built-ins reach arguments and results only through the four operations of
// CQZ_STInterpretator_Interface, so they can be called directly with any
// implementation of it (a host's own machine, a test double).
#ifndef QZ_ST_INTERFACE_H
#define QZ_ST_INTERFACE_H

#include "qz_st_interpretator.h"

// Slot order is part of the binary contract; no destructor slot.
class CQZ_STInterpretator_Interface {
public:
    virtual Qz::uint32_t GetValueFromRegister(char reg, char& type, double& value) = 0;
    virtual Qz::uint32_t SetValueToRegister(char reg, char type, double value) = 0;
    virtual Qz::uint32_t StackPop(char& type, double& value) = 0;
    virtual Qz::uint32_t StackPush(char type, double value) = 0;

protected:
    ~CQZ_STInterpretator_Interface() = default;
};

// Mathematical built-ins called by EXEC. Each pops its arguments from the
// value stack and leaves its result in A0; each returns 0.
namespace QZBuildInFunctions {
// Selects a function by name, ignoring case; 13 when there is none.
QZ_EXPORT Qz::uint32_t DoBildInFunctions(CQZ_STInterpretator_Interface* machine, QString& name);
QZ_EXPORT Qz::uint32_t DoCos(CQZ_STInterpretator_Interface* machine);
QZ_EXPORT Qz::uint32_t DoSin(CQZ_STInterpretator_Interface* machine);
QZ_EXPORT Qz::uint32_t DoTan(CQZ_STInterpretator_Interface* machine);
QZ_EXPORT Qz::uint32_t DoACos(CQZ_STInterpretator_Interface* machine);
QZ_EXPORT Qz::uint32_t DoASin(CQZ_STInterpretator_Interface* machine);
QZ_EXPORT Qz::uint32_t DoATan(CQZ_STInterpretator_Interface* machine);
QZ_EXPORT Qz::uint32_t DoCeil(CQZ_STInterpretator_Interface* machine);
QZ_EXPORT Qz::uint32_t DoFloor(CQZ_STInterpretator_Interface* machine);
QZ_EXPORT Qz::uint32_t DoRound(CQZ_STInterpretator_Interface* machine);
QZ_EXPORT Qz::uint32_t DoExp(CQZ_STInterpretator_Interface* machine);
QZ_EXPORT Qz::uint32_t DoFabs(CQZ_STInterpretator_Interface* machine);
QZ_EXPORT Qz::uint32_t DoLn(CQZ_STInterpretator_Interface* machine);
QZ_EXPORT Qz::uint32_t DoLog10(CQZ_STInterpretator_Interface* machine);
QZ_EXPORT Qz::uint32_t DoPow(CQZ_STInterpretator_Interface* machine);
QZ_EXPORT Qz::uint32_t DoSqrt(CQZ_STInterpretator_Interface* machine);
}  // namespace QZBuildInFunctions

#endif
