// Selecting a built-in function by name, for the library's own callers.
#ifndef QZ_BUILTINS_H
#define QZ_BUILTINS_H

#include "qz_st_interface.h"

typedef Qz::uint32_t (*QZBuiltinFunction)(CQZ_STInterpretator_Interface* machine);

namespace QZBuildInFunctions {
// The function DoBildInFunctions calls for `name`, or null (it returns 13).
QZBuiltinFunction FindBuiltin(const QString& name);
}  // namespace QZBuildInFunctions

#endif
