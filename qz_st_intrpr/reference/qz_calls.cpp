// Subprogram calls and the body loop.
//
// A CAL saves the return position on the call stack and a fresh variable
// table on the table stack; RET restores both. Those two stacks hold all the
// state of a call, so the body loop follows nested calls by counting them
// instead of recursing: a program can recurse as deep as memory allows
// without touching the host thread's native stack.
#include "qz_st_intrpr_execute.h"

#include "qz_assert.h"
#include <cstring>

Qz::uint32_t CQZ_STInterpretator_Execute::RunBodyPlain(bool callBase, size_t depth, bool& reachedEnd) {
    // `depth`: calls entered (by this loop, or by the compiled code that
    // handed over to it) and not yet returned from.
    reachedEnd = false;
    for (;;) {
        if (TokenCode == ttEND) {
            reachedEnd = true;
            return Qz::rcOK;
        }
        const bool inCall = callBase || depth > 0;
        do {
            if (Qz::uint32_t r = Scan(TokenText)) return r;
            if (TokenCode == ttEND) {
                reachedEnd = true;
                return Qz::rcOK;
            }
        } while (TokenCode == ttLABEL || (inCall && TokenCode == ttBODY));

        if (TokenCode == ttRET) {
            if (!inCall) return Qz::rcOK;  // MAIN's RET
            if (Qz::uint32_t r = ReturnFromCall()) return r;
            if (depth == 0) return Qz::rcOK;  // the call that started this loop returned
            --depth;
            continue;
        }
        if (!IsInstructionCode(TokenCode)) return Qz::rcNotInstruction;
        if (InstructionBudget && InstructionsRun >= InstructionBudget) return Qz::rcBudgetExhausted;
        ++InstructionsRun;

        const int32_t start = TokenStart;
        if (TraceHook) JumpOperandEnd = -1;
        Qz::uint32_t r;
        if (TokenCode == ttCAL) {
            r = EnterCall();
            if (r == Qz::rcOK) ++depth;
        } else {
            r = DoCommand();
        }
        if (TraceHook) TraceInstruction(start, r);
        if (r != Qz::rcOK) return r;
    }
}

Qz::uint32_t CQZ_STInterpretator_Execute::DoCall() {
    if (Qz::uint32_t r = EnterCall()) return r;
    bool reachedEnd;
    return RunBody(true, reachedEnd);
}

Qz::uint32_t CQZ_STInterpretator_Execute::EnterCall() {
    if (CallDepthLimit != 0 && CallStack.size() >= CallDepthLimit) return Qz::rcCallDepthLimit;
    const int32_t callStart = TokenStart;
    if (Qz::uint32_t r = Scan(TokenText)) return r;
    const Label* label = Labels.lookup(TokenText, 0, 0, false);  // any token's text names it
    if (!label) return Qz::rcLabelNotFound;
    JumpOperandEnd = TokenEnd;
    CallStack.push_back(QZ_FuncStackValue{uint32_t(TextPos - 1), callStart, label->LabelStart});
    if (Qz::uint32_t r = SeekTo(label->LabelStart)) return r;
    if (Qz::uint32_t r = Scan(TokenText)) return r;
    if (TokenCode != ttLABEL) return Qz::rcNoLabelToken;
    if (Qz::uint32_t r = FillFuncVariablesList()) return r;
    // Every table built from the declarations at this label holds the same
    // names in the same order: a later call may revive this one.
    TableStack.back()->SetShape(FrameShape(label->LabelStart));
    return Qz::rcOK;
}

Qz::uint32_t CQZ_STInterpretator_Execute::ReturnFromCall() {
    if (CallStack.empty()) return Qz::rcOK;
    const uint32_t index = CallStack.back().ReturnIndex;
    CallStack.pop_back();
    if (Qz::uint32_t r = SeekTo(index)) return r;
    if (TableStack.empty()) return Qz::rcNoFrame;
    CQZ_Vars* varsList = TableStack.back();
    if (!varsList)
        __assert_fail("varsList", "qz_st_intrpr_execute.h", 1921,
                      "Qz::uint32_t CQZ_STInterpretator_Execute::DoCall()");
    TableStack.pop_back();
    // Releasing a frame is work in proportion to its records: it counts
    // against the budget as creating them did.
    InstructionsRun += varsList->RecordCount();
    FrameRecordsInUse -= varsList->RecordCount();
    ReleaseFrameTable(varsList);
    return Qz::rcOK;
}

Qz::uint32_t CQZ_STInterpretator_Execute::FillFuncVariablesList() {
    CQZ_Vars* table = AcquireFrameTable();
    try {
        return FillFrame(table);
    } catch (...) {
        ReleaseFrameTable(table);  // out of memory half-way: nothing leaks
        throw;
    }
}

Qz::uint32_t CQZ_STInterpretator_Execute::FillFrame(CQZ_Vars* table) {
    auto fail = [&](Qz::uint32_t code) {
        ReleaseFrameTable(table);  // a table still being filled is never pushed
        return code;
    };
    if (WouldPassMemoryLimit(kFrameTableBytes)) return fail(Qz::rcMemoryLimit);
    for (;;) {
        QZ_DeclarationRead declaration;
        if (Qz::uint32_t r = ReadDeclaration(true, declaration)) return fail(r);
        if (declaration.Ended) {
            TableStack.push_back(table);
            FrameRecordsInUse += table->RecordCount();
            return Qz::rcOK;
        }
        // A declaration is work (and memory) in proportion to nothing but
        // itself: one unit of the budget, one record of the ceiling.
        if (InstructionBudget != 0 && InstructionsRun >= InstructionBudget) return fail(Qz::rcBudgetExhausted);
        ++InstructionsRun;
        if (WouldPassMemoryLimit(kFrameTableBytes + (uint64_t(table->RecordCount()) + 1) * kFrameRecordBytes))
            return fail(Qz::rcMemoryLimit);
        table->lookup(declaration.Name, declaration.Kind, declaration.Type, declaration.Numbers[0], 0, true);
    }
}

void CQZ_STInterpretator_Execute::TraceInstruction(int32_t start, Qz::uint32_t result) {
    QZTraceEvent event;
    event.InstructionStart = start;
    event.InstructionEnd = (JumpOperandEnd >= 0 ? JumpOperandEnd : TokenEnd) + 1;
    event.Result = result;
    event.A0 = A0.Value;
    event.R0 = R0.Value;
    event.R1 = R1.Value;
    event.A0Type = A0.ValueType;
    event.R0Type = R0.ValueType;
    event.R1Type = R1.ValueType;
    event.TestFlag = TestFlag;
    TraceHook(TraceContext, &event);
}
