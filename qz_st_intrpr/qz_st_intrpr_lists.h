// The symbol-table layer of the interpreter object: the label table, the
// program's variable table, and the stack of subprogram frame tables.
#ifndef QZ_ST_INTRPR_LISTS_H
#define QZ_ST_INTRPR_LISTS_H

#include "qz_labels.h"
#include "qz_references.h"
#include "qz_st_intrpr_text.h"
#include "qz_vars.h"

#include <deque>
#include <vector>

class CQZ_STInterpretator_Lists : public CQZ_STInterpretator_Digit {
public:
    CQZ_STInterpretator_Lists();
    ~CQZ_STInterpretator_Lists() override;

    // The variable `name` in the current table (the innermost frame while a
    // subprogram runs, else the program's own); null when absent.
    Var* GetVar(const char* name) { return CurrentVars().lookup(name, 0, 0, 0.0, 0, false); }
    CQZ_Vars& CurrentVars() { return TableStack.empty() ? Vars : *TableStack.back(); }

    QZ_ReferenceSlots References;  // outlives every table that reports to it
    CQZ_Labels Labels;
    Var* ProgramBuckets[CQZ_Vars::kProgramBuckets];
    CQZ_Vars Vars;
    std::deque<CQZ_Vars*> TableStack;
    int32_t DeclCounters[CQZ_Vars::kKindCount] = {};
    int32_t DeclReserved = 0;

protected:
    // Frame tables are recycled: a call reuses the table of an earlier one.
    CQZ_Vars* AcquireFrameTable();
    void ReleaseFrameTable(CQZ_Vars* table);
    // Deletes every table left on the table stack.
    void DiscardFrames();

private:
    static constexpr size_t kFramePoolLimit = 256;
    std::vector<CQZ_Vars*> FramePool;
};

#endif
