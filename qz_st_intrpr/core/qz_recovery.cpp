// Recovery after a failed cycle.
//
// A cycle that fails inside a subprogram leaves its calls open: the return
// positions on the call stack, the frames on the table stack, whatever it
// pushed on the value stack. The next cycle would look its names up in the
// leftover frame and end at MAIN's RET with calls pending. Recovering
// releases exactly that and nothing the program owns, so a host keeps every
// retained value and the next cycle runs as on a fresh object, on the
// compiled core again.
#include "qz_st_intrpr_main.h"
#include "qz_st_variables.h"

namespace {

// Storage a runaway program grew beyond what ordinary programs need is
// given back; the rest is kept so the next cycles do not allocate.
constexpr size_t kKeptCapacity = 1024;

template <typename T>
void Empty(std::vector<T>& values) {
    if (values.capacity() > kKeptCapacity)
        std::vector<T>().swap(values);
    else
        values.clear();
}

}  // namespace

void CQZ_STInterpretator_Execute::Recover() {
    while (!TableStack.empty()) {
        CQZ_Vars* table = TableStack.back();
        TableStack.pop_back();
        ReleaseFrameTable(table);  // its locals' MOVA references die with it
    }
    FrameRecordsInUse = 0;
    Empty(CallStack);
    Empty(ReturnStack);
    Empty(Stack);
}

uint32_t QZRecover(qz_st_interpretator::IQZSTInterpretator* object) {
    if (!object) return Qz::rcBadHandle;
    CQZ_STInterpretator* machine = ObjectOf(object);
    // Mid-cycle the running body still stands on what would be released.
    if (machine->InCycle()) return Qz::rcInCycle;
    machine->Recover();
    return machine->HasProgram() ? Qz::rcOK : Qz::rcNoProgram;
}
