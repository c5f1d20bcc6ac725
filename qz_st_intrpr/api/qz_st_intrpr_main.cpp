// The plug-in object: entry points, the loader and the execution cycle.
#include "qz_st_intrpr_main.h"

#include "qz_assert.h"
#include <cstring>
#include <functional>

using qz_st_interpretator::IQZExecuteInterface;
using qz_st_interpretator::IQZSTInterpretator;

// ---- Entry points ----

IQZSTInterpretator* Create() {
    // A failed allocation propagates as std::bad_alloc after the members
    // built so far have been destroyed again.
    return new CQZ_STInterpretator();
}

void Destroy() {}

void CQZ_STInterpretator::Destroy() { delete this; }

namespace {
CQZ_STInterpretator* Object(IQZSTInterpretator* object) { return ObjectOf(object); }
}  // namespace

const Var* CQZ_STInterpretator::HostDeclaration(const QString& name) const {
    // The names the cycle hands to the host are the entries' own QStrings,
    // so the reference tells which declaration it is.
    for (const std::vector<HostEntry>* entries : {&InputEntries, &OutputEntries}) {
        if (entries->empty()) continue;
        const HostEntry* first = entries->data();
        const HostEntry* last = first + entries->size() - 1;
        std::less_equal<const void*> before;
        if (!before(&first->Name, &name) || !before(&name, &last->Name)) continue;
        const size_t index = size_t(reinterpret_cast<const char*>(&name) - reinterpret_cast<const char*>(&first->Name)) /
                             sizeof(HostEntry);
        if (&(*entries)[index].Name == &name) return (*entries)[index].Declared;
    }
    return nullptr;
}

void QZSetInstructionBudget(IQZSTInterpretator* object, uint64_t maxInstructions) {
    if (object) Object(object)->InstructionBudget = maxInstructions;
}

void QZSetClock(IQZSTInterpretator* object, QZClockFunction clock, void* context) {
    if (!object) return;
    Object(object)->Clock = clock;
    Object(object)->ClockContext = clock ? context : nullptr;
}

void QZSetStackLimit(IQZSTInterpretator* object, uint64_t maxValues) {
    if (object) Object(object)->StackLimit = maxValues;
}

void QZSetCallDepthLimit(IQZSTInterpretator* object, uint64_t maxDepth) {
    if (object) Object(object)->CallDepthLimit = maxDepth;
}

void QZSetMemoryLimit(IQZSTInterpretator* object, uint64_t maxBytes) {
    if (object) Object(object)->MemoryLimit = maxBytes;
}

void QZSetTraceHook(IQZSTInterpretator* object, QZTraceFunction hook, void* context) {
    if (!object) return;
    Object(object)->TraceHook = hook;
    Object(object)->TraceContext = hook ? context : nullptr;
}

void QZGetScanPosition(IQZSTInterpretator* object, QZScanPosition* position) {
    if (!object || !position) return;
    const CQZ_STInterpretator* machine = Object(object);
    position->TokenStart = machine->TokenStart;
    position->TokenEnd = machine->TokenEnd;
    position->TextPos = machine->TextPos;
    position->TokenCode = machine->TokenCode;
}

// ---- Loader ----

// No exception leaves the library: a refused allocation (or anything else
// thrown below) ends the call with a code, and the object stays usable. What
// a failed cycle leaves is what any failed cycle leaves: a reload discards
// frames but, by the language's rules, keeps pending calls, so after a
// failure inside a subprogram a host creates a new object.
template <typename Body>
Qz::uint32_t CQZ_STInterpretator::Guarded(Body body) {
    try {
        return body();
    } catch (const std::bad_alloc&) {
        return Qz::rcOutOfMemory;
    } catch (...) {
        return Qz::rcInternalFailure;
    }
}

Qz::uint32_t CQZ_STInterpretator::InitInterpretator(std::string text) {
    return Guarded([&] { return Load(std::move(text)); });
}

Qz::uint32_t CQZ_STInterpretator::Execute(IQZExecuteInterface* exec) {
    const bool outer = !CycleRunning;  // a callback that runs a cycle itself leaves the flag to its caller
    CycleRunning = true;
    const Qz::uint32_t result = Guarded([&] { return RunCycle(exec); });
    if (outer) CycleRunning = false;
    return result;
}

Qz::uint32_t CQZ_STInterpretator::Load(std::string text) {
    LocalEntries.clear();  // they point into the table about to be cleared
    InputEntries.clear();
    OutputEntries.clear();
    SetText(std::move(text));
    Labels.Clear();
    Vars.Clear();
    DiscardFrames();
    for (int32_t& counter : DeclCounters) counter = 0;
    DeclCounters[ttVI - ttV] = 1;  // inputs are numbered from 1, everything else from 0
    DeclReserved = 0;
    ProgramLoaded = false;
    const Qz::uint32_t result = LoadProgram();
    ProgramLoaded = result == Qz::rcOK;
    BuildHostEntries();  // also after a failed load, so a stray Execute stays safe
    return result;
}

Qz::uint32_t CQZ_STInterpretator::LoadProgram() {
    if (TextLen == 0 && TokenCode != ttPROG) return Qz::rcEmptyText;
    CurChar = TextLen > 0 ? Text[0] : 0;
    TextPos = 1;
    if (Qz::uint32_t r = SkipWhite()) return r;
    if (Qz::uint32_t r = FindProgramHeader()) return r;
    if (Qz::uint32_t r = ReadProgramName()) return r;

    if (Qz::uint32_t r = Scan(TokenText)) return r;
    if (TokenCode == ttMAIN) return Qz::rcOK;  // no variables; labels register as they run
    if (TokenCode != ttVARSECTION) return Qz::rcNoVarOrMain;
    if (Qz::uint32_t r = FillVariablesList()) return r;

    const Label* main = Labels.lookup("MAIN", 0, 0, false);
    if (!main) return Qz::rcNoLabelToken;
    if (Qz::uint32_t r = SeekTo(main->LabelStart)) return r;
    if (Qz::uint32_t r = Scan(TokenText)) return r;
    if (TokenCode != ttMAIN) return Qz::rcNoLabelToken;
    if (Qz::uint32_t r = SkipWhite()) return r;
    // One pass to the final RET registers every label of the body and
    // rejects malformed tokens before the first cycle.
    while (TokenCode != ttEND)
        if (Qz::uint32_t r = Scan(TokenText)) return r;
    return Qz::rcOK;
}

Qz::uint32_t CQZ_STInterpretator::FillVariablesList() {
    double carried[3] = {0.0, 0.0, 0.0};  // the last TVR's 2nd..4th numbers, for TVG
    for (;;) {
        if (TokenCode == ttMAIN) return Qz::rcOK;
        QZ_DeclarationRead declaration;
        if (Qz::uint32_t r = ReadDeclaration(false, declaration)) return r;
        if (declaration.Ended) return Qz::rcOK;
        DeclareVariable(declaration.Name, declaration.Kind, declaration.Type, declaration.Numbers, carried);
    }
}

Qz::uint32_t CQZ_STInterpretator::DeclareVariable(const char* name, char kind, char type, const double numbers[4],
                                                  double carried[3]) {
    int32_t& counter = DeclCounters[static_cast<uint8_t>(kind) - ttV];
    // A repeated name keeps its first declaration; lookup returns it unchanged.
    switch (static_cast<uint8_t>(kind)) {
    case ttTVR:
        Vars.lookup(name, kind, type, 0.0, counter, true, numbers[0], numbers[1], numbers[2], numbers[3]);
        carried[0] = numbers[1];
        carried[1] = numbers[2];
        carried[2] = numbers[3];
        break;
    case ttTVG:
        Vars.lookup(name, kind, type, 0.0, counter, true, numbers[0], carried[0], carried[1], carried[2]);
        break;
    default:
        Vars.lookup(name, kind, type, numbers[0], counter, true);
        break;
    }
    ++counter;
    return Qz::rcOK;
}

void CQZ_STInterpretator::BuildHostEntries() {
    struct Target {
        char Kind;
        std::vector<HostEntry>* Entries;
    };
    const Target targets[] = {{char(ttV), &LocalEntries}, {char(ttVI), &InputEntries}, {char(ttVO), &OutputEntries}};
    for (const Target& target : targets) {
        target.Entries->clear();
        for (const Var& declared : *Vars.DeclaredList(target.Kind)) {
            Var* live = Vars.lookup(declared.VarName, 0, 0, 0.0, 0, false);
            // QString(const char*) is how the host has always received names.
            target.Entries->push_back(HostEntry{&declared, live, QString(declared.VarName)});
        }
    }
}

// ---- Execution cycle ----

Qz::uint32_t CQZ_STInterpretator::RunCycle(IQZExecuteInterface* exec) {
    // The compiled form knows where MAIN is and what scanning it leaves.
    const bool compiled = PrepareCompiled();
    if (compiled)
        RestoreSnapshot(Compiled.Snapshots[Compiled.MainSnapshot]);
    else if (Qz::uint32_t r = EnterMain())
        return r;
    if (Qz::uint32_t r = ExecuteInitVars()) return r;
    if (Qz::uint32_t r = UpdateInEntries(exec)) return r;

    InstructionsRun = 0;
    CompiledCycles += compiled;
    bool reachedEnd;
    if (Qz::uint32_t r = compiled ? RunCompiled(reachedEnd) : RunBodyPlain(false, 0, reachedEnd)) return r;
    // The text's final RET ends the cycle whatever calls are pending; an
    // earlier RET of MAIN does so only when every call has returned.
    if (!reachedEnd && !CallStack.empty()) return Qz::rcRetWithCallsPending;
    return UpdateOutEntries(exec);
}

Qz::uint32_t CQZ_STInterpretator::EnterMain() {
    const Label* main = Labels.lookup("MAIN", 0, 0, false);
    if (!main) return Qz::rcNoLabelToken;
    if (Qz::uint32_t r = SeekTo(main->LabelStart)) return r;
    if (Qz::uint32_t r = Scan(TokenText)) return r;
    if (TokenCode != ttMAIN) return Qz::rcNoLabelToken;
    return SkipWhite();
}

Qz::uint32_t CQZ_STInterpretator::ExecuteInitVars() {
    for (const std::vector<HostEntry>* entries : {&LocalEntries, &InputEntries}) {
        for (const HostEntry& entry : *entries) {
            Var* live = LiveRecord(entry);
            if (!live) return Qz::rcVarNotFound;
            live->VarValue = entry.Declared->VarValue;
        }
    }
    for (const HostEntry& entry : OutputEntries) {
        Var* live = LiveRecord(entry);
        if (!live) return Qz::rcVarNotFound;
        live->Rewrited = false;
    }
    return Qz::rcOK;
}

Qz::uint32_t CQZ_STInterpretator::UpdateInEntries(IQZExecuteInterface* exec) {
    for (const HostEntry& entry : InputEntries) {
        double value = 0.0;
        const bool accepted = exec->GetValueFrom(CQZDirection::tdIN, entry.Name, value);
#if QZ_HOST_CONTRACT_CHECKS
        if (!accepted)
            __assert_fail("exec->GetValueFrom(CQZDirection::tdIN, Item.VarName, Value)", "qz_st_intrpr_main.h", 203,
                          "Qz::uint32_t CQZ_STInterpretator::UpdateInEntries(qz_st_interpretator::IQZExecuteInterface*)");
#else
        (void)accepted;
#endif
        Var* live = LiveRecord(entry);
        if (!live) return Qz::rcVarNotFound;
        live->Rewrited = false;
        live->VarValue = value;  // as the host gave it: no narrowing
    }
    return Qz::rcOK;
}

Qz::uint32_t CQZ_STInterpretator::UpdateOutEntries(IQZExecuteInterface* exec) {
    for (const HostEntry& entry : OutputEntries) {
        const Var* live = LiveRecord(entry);
        // Only a subprogram frame left pushed by a call that ran into the end
        // of the text can hide an output; report it instead of reading nothing.
        if (!live) return Qz::rcVarNotFound;
        const int dimension = DimensionOfType(live->VarType);
        if (dimension == 0) return Qz::rcBadType;
        const bool accepted =
            exec->SetValueTo(CQZDirection::tdOUT, entry.Name, live->VarValue, dimension, live->Rewrited);
#if QZ_HOST_CONTRACT_CHECKS
        if (!accepted)
            __assert_fail("exec->SetValueTo(CQZDirection::tdOUT, Item.VarName, pVar->VarValue, Dimension, Rewrited)",
                          "qz_st_intrpr_main.h", 323,
                          "Qz::uint32_t CQZ_STInterpretator::UpdateOutEntries(qz_st_interpretator::IQZExecuteInterface*)");
#else
        (void)accepted;
#endif
    }
    return Qz::rcOK;
}
