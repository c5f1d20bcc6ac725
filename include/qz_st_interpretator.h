// Host-facing interface of the control-program interpreter plug-in.
//
// A host loads libqz_st_intrpr.so, calls Create() for an interpreter object,
// hands it one program text with InitInterpretator() and then calls Execute()
// once per control cycle, passing its own IQZExecuteInterface through which
// the interpreter reads inputs and writes outputs. The object is released with
// Destroy() on the interface pointer that Create() returned.
//
// The virtual slot order of both interfaces is part of the binary contract
// with existing hosts: do not reorder, insert or add virtual destructors.
#ifndef QZ_ST_INTERPRETATOR_H
#define QZ_ST_INTERPRETATOR_H

#include "qz_st_result_codes.h"

#include <QString>
#include <cstdint>
#include <string>

#if defined(QZ_ST_INTRPR_BUILDING)
#define QZ_EXPORT __attribute__((visibility("default")))
#else
#define QZ_EXPORT
#endif

namespace Qz {
typedef ::uint32_t uint32_t;
}

// Direction of a value crossing the host boundary.
enum CQZDirection : int32_t {
    tdIN = 0,   // host to program (GetValueFrom)
    tdOUT = 1,  // program to host (SetValueTo)
};

namespace qz_st_interpretator {

// Implemented by the host; borrowed for the duration of one Execute() call.
class IQZExecuteInterface {
public:
    // Writes the current value of input `name` into `value`; false means the
    // host does not know the name (a contract violation).
    virtual bool GetValueFrom(CQZDirection dir, const QString& name, double& value) = 0;
    // Takes the value of output `name`. `Dimension` is the host type code of
    // the value, `Rewrited` tells whether the program wrote it this cycle.
    virtual bool SetValueTo(CQZDirection dir, const QString& name, double value, int Dimension,
                            bool Rewrited) = 0;

protected:
    ~IQZExecuteInterface() = default;  // no destructor slot: hosts delete their own objects
};

// Implemented by the library; obtained from Create().
class IQZSTInterpretator {
public:
    virtual Qz::uint32_t InitInterpretator(std::string text) = 0;
    virtual void Destroy() = 0;
    virtual Qz::uint32_t Execute(IQZExecuteInterface* exec) = 0;

protected:
    ~IQZSTInterpretator() = default;  // released only through Destroy()
};

}  // namespace qz_st_interpretator

extern "C" {

// Creates one interpreter object. Never returns null: allocation failure
// propagates as std::bad_alloc after everything built so far is released.
QZ_EXPORT qz_st_interpretator::IQZSTInterpretator* Create();

// Does nothing, on purpose. Release objects with Destroy() on the interface.
QZ_EXPORT void Destroy();

// ---- Extensions. Hosts that never call these see the classic behaviour. ----

// Limits the number of instructions one Execute() may run. 0 (the default)
// means unlimited. A cycle that would run one more instruction than the budget
// stops with Qz::rcBudgetExhausted (100), leaving the state as after any
// failing instruction. A null object is ignored.
QZ_EXPORT void QZSetInstructionBudget(qz_st_interpretator::IQZSTInterpretator* object,
                                      uint64_t maxInstructions);

// Host-supplied millisecond clock for the TICK counter: `clock(context)` is
// called wherever the wall clock would be read. Passing a null `clock`
// restores the wall clock (gettimeofday). A null object is ignored.
typedef uint32_t (*QZClockFunction)(void* context);
QZ_EXPORT void QZSetClock(qz_st_interpretator::IQZSTInterpretator* object, QZClockFunction clock,
                          void* context);

// What a trace hook sees after each executed instruction.
struct QZTraceEvent {
    int32_t InstructionStart;  // text offset of the instruction keyword
    int32_t InstructionEnd;    // text offset one past its last operand (for an instruction
                               // that failed at an operand, one past that operand)
    uint32_t Result;           // the instruction's result code
    double A0, R0, R1;         // registers after the instruction
    char A0Type, R0Type, R1Type;
    char TestFlag;
};
typedef void (*QZTraceFunction)(void* context, const QZTraceEvent* event);

// Calls `hook(context, event)` after every executed instruction (for
// debuggers and the command-line runner). Null removes the hook.
QZ_EXPORT void QZSetTraceHook(qz_st_interpretator::IQZSTInterpretator* object, QZTraceFunction hook,
                              void* context);

// Resource limits. Each failing check ends the cycle with its own code and
// leaves the state as after any failing instruction; a null object is ignored.
//
// At most `maxValues` values on the value stack (0, the default: no limit of
// its own). A PUSH beyond it fails with Qz::rcStackLimit (101).
QZ_EXPORT void QZSetStackLimit(qz_st_interpretator::IQZSTInterpretator* object, uint64_t maxValues);
// At most `maxDepth` pending subprogram calls (0, the default: no limit of its
// own). A CAL beyond it fails with Qz::rcCallDepthLimit (102) before reading
// its operand.
QZ_EXPORT void QZSetCallDepthLimit(qz_st_interpretator::IQZSTInterpretator* object, uint64_t maxDepth);
// A ceiling on the memory that running the program may add (value stack,
// pending calls, subprogram frames); QZ_DEFAULT_MEMORY_LIMIT (256 MiB) unless
// set, 0 for none. What would pass it fails with Qz::rcMemoryLimit (103).
#define QZ_DEFAULT_MEMORY_LIMIT (uint64_t(256) << 20)
QZ_EXPORT void QZSetMemoryLimit(qz_st_interpretator::IQZSTInterpretator* object, uint64_t maxBytes);

// Where the scanner stands, for diagnostics after a failed load or cycle:
// the last token read (or being read when a failure stopped it) spans
// TokenStart..TokenEnd, and TextPos is one past the current character.
struct QZScanPosition {
    int32_t TokenStart;
    int32_t TokenEnd;
    int32_t TextPos;
    uint8_t TokenCode;
};
QZ_EXPORT void QZGetScanPosition(qz_st_interpretator::IQZSTInterpretator* object, QZScanPosition* position);

}  // extern "C"

#endif
