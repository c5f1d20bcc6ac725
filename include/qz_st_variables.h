// Extensions for hosts that look inside a running program: recovery after a
// failed cycle, the program's variables, retained-value snapshots and the
// machine state a debugger shows. C linkage; a host that never calls them
// sees no change. All of them are for use between cycles or from inside a
// trace hook (a debugger stopped at an instruction), never from the input and
// output callbacks, and on the thread that runs the object. Names are looked
// up where the running body looks them up: between cycles, the program's
// table; in a trace hook inside a subprogram, that subprogram's frame.
//
// Every function returns 0 or a result code (qz_st_result_codes.h): 107 for a
// null object, 108 for a null pointer where a result is to be written, 106
// where a loaded program is needed and there is none.
#ifndef QZ_ST_VARIABLES_H
#define QZ_ST_VARIABLES_H

#include "qz_st_interpretator.h"

#include <stddef.h>
#include <stdint.h>

extern "C" {

// Returns the object to the state of a fresh cycle after a failed one: pending
// calls, subprogram frames and the value stack are released down to the
// program's own table; every variable keeps its value. Returns 0, or a result
// code when there is no loaded program (106, the stacks emptied all the same)
// or when called while a cycle runs (114, nothing done).
QZ_EXPORT uint32_t QZRecover(qz_st_interpretator::IQZSTInterpretator* object);

// One declared variable of the loaded program, as QZListVariables reports it.
// `Name` is UTF-8, NUL-terminated, valid only during the callback.
struct QZVariableInfo {
    const char* Name;
    uint32_t NameLength;  // bytes, without the NUL
    uint8_t Kind;         // declaration kind keyword code (V 0x14 ... VR 0x1c)
    uint8_t Type;         // type keyword code (BOOL 0x20 ... LREAL 0x28)
    uint32_t Ordinal;     // position among the program's declarations, from 0
    double Value;         // current value
};
typedef void (*QZVariableFunction)(void* context, const QZVariableInfo* info);

// Calls `visit` once per declaration of the program (its VAR section), in the
// order of the text. Returns 0 or a result code.
QZ_EXPORT uint32_t QZListVariables(qz_st_interpretator::IQZSTInterpretator* object, QZVariableFunction visit,
                                   void* context);
// Calls `visit` once per local of the innermost pending call's frame, in the
// order of its declarations (none when no call is pending); Ordinal is the
// place in that frame.
QZ_EXPORT uint32_t QZListLocals(qz_st_interpretator::IQZSTInterpretator* object, QZVariableFunction visit,
                                void* context);

// Reads / writes one program variable by name (UTF-8, `length` bytes; the
// same case rules as the program's own look-up). A write is narrowed to the
// variable's type as a MOV into it would be.
QZ_EXPORT uint32_t QZGetVariable(qz_st_interpretator::IQZSTInterpretator* object, const char* name, size_t length,
                                 double* value, uint8_t* type);
QZ_EXPORT uint32_t QZSetVariable(qz_st_interpretator::IQZSTInterpretator* object, const char* name, size_t length,
                                 double value);

// Retained values (VG, VIO, TVG, TVR, VO) as a versioned snapshot that records
// the program's declarations. QZSaveRetained writes at most `capacity` bytes
// and always sets `*needed`; a buffer too small writes nothing. A snapshot
// from another program, or one truncated or altered, is refused with its own
// result code and nothing is restored.
QZ_EXPORT uint32_t QZSaveRetained(qz_st_interpretator::IQZSTInterpretator* object, void* buffer, size_t capacity,
                                  size_t* needed);
QZ_EXPORT uint32_t QZRestoreRetained(qz_st_interpretator::IQZSTInterpretator* object, const void* snapshot,
                                     size_t size);

// What a debugger shows between instructions (from a trace hook) or cycles:
// the value stack, top last, and the pending calls, innermost last.
struct QZStackValue {
    double Value;
    uint8_t Type;
};
struct QZMachineState {
    double A0, R0, R1;
    uint8_t A0Type, R0Type, R1Type;
    uint8_t TestFlag;
    size_t StackDepth;      // values on the stack
    size_t CallDepth;       // pending calls
};
QZ_EXPORT uint32_t QZGetMachineState(qz_st_interpretator::IQZSTInterpretator* object, QZMachineState* state);
// Copies the top `capacity` stack values (all of them when fewer), top last,
// and sets `*count` to how many it copied; returns 0 or a result code.
QZ_EXPORT uint32_t QZGetStack(qz_st_interpretator::IQZSTInterpretator* object, QZStackValue* values,
                              size_t capacity, size_t* count);
// The text offset of the CAL of pending call `index` (0 = outermost) and of
// the subprogram's label it called; 108 for an index of no pending call.
QZ_EXPORT uint32_t QZGetCall(qz_st_interpretator::IQZSTInterpretator* object, size_t index, int32_t* callOffset,
                             int32_t* labelOffset);

}  // extern "C"

#endif
