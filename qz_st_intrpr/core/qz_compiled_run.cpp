// Around the dispatch loop: deciding whether a cycle runs compiled, the
// scanner snapshots, building a compiled CAL's frame, and handing an
// instruction or the rest of a cycle to the reading path.
#include "qz_compiler.h"
#include "qz_st_intrpr_execute.h"

#include <cstring>

bool CQZ_STInterpretator_Execute::PrepareCompiled() {
    if (!OwnMachineOperations || PlainPath || TraceHook) return false;
    // Frames or calls left behind by a failed cycle: names resolve in tables
    // the compiled form did not expect, so such cycles are read.
    if (!TableStack.empty() || !CallStack.empty()) return false;
    if (!Compiled.IsFor(TextVersion, Labels.size())) {
        if (CompiledVersion != TextVersion) {
            CompiledVersion = TextVersion;
            Compilations = 0;
        }
        Compiled.Reset(TextVersion, Labels.size());
        if (Compilations >= kMaxCompilations) return false;
        ++Compilations;
        QZ_Compiler(*this, Compiled).Compile();
    }
    return Compiled.Usable;
}

void CQZ_STInterpretator_Execute::RestoreSnapshot(const QZ_ScanSnapshot& s) {
    TextPos = s.TextPos;
    TokenStart = s.TokenStart;
    TokenEnd = s.TokenEnd;
    TokenLength = s.TokenLength;
    CurChar = s.CurChar;
    TokenCode = s.TokenCode;
    std::memcpy(TokenText, s.TokenText.data(), s.TokenText.size());
    TokenText[s.TokenText.size()] = 0;
}

Qz::uint32_t CQZ_STInterpretator_Execute::RunCompiled(bool& reachedEnd) {
    reachedEnd = false;
    return InstructionBudget ? RunCode<true>(reachedEnd) : RunCode<false>(reachedEnd);
}

// The table of a compiled CAL: one retired by an earlier call of the same
// subprogram, revived, or a new one built from the frame's records.
CQZ_Vars* CQZ_STInterpretator_Execute::EnterFrame(const QZ_Frame& frame) {
    const uint32_t shape = FrameShape(frame.LabelStart);
    CQZ_Vars* table = AcquireFrameTable(shape);
    try {
        if (table->RecordCount() != 0)
            table->Revive(frame.Records);
        else
            for (const Var& record : frame.Records) table->AddRecord(record);
        table->SetShape(shape);
        TableStack.push_back(table);
    } catch (...) {
        ReleaseFrameTable(table);  // out of memory half-way: nothing leaks
        throw;
    }
    FrameRecordsInUse += table->RecordCount();
    if (frame.HasNumber) {
        DigitValue = frame.Number;  // the last declaration's value, as its scan left it
        DigitType = frame.NumberType;
    }
    return table;
}

Qz::uint32_t CQZ_STInterpretator_Execute::RunDelegated(int32_t keyword) {
    SeekTo(keyword);
    if (Qz::uint32_t r = Scan(TokenText)) return r;
    return DoCommand();
}

Qz::uint32_t CQZ_STInterpretator_Execute::RunEscaped(int32_t prev, int32_t pos, bool& reachedEnd) {
    SeekTo(prev);
    SuppressLabelRegistration = true;  // registered already: the reading loop scanned it before
    Scan(TokenText);
    SuppressLabelRegistration = false;
    if (pos >= 0) SeekTo(pos);  // else the text ended right behind that token
    return RunBodyPlain(false, TableStack.size(), reachedEnd);
}
