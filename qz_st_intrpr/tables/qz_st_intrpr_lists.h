// The symbol-table layer of the interpreter object: the label table, the
// program's variable table, and the stack of subprogram frame tables.
#ifndef QZ_ST_INTRPR_LISTS_H
#define QZ_ST_INTRPR_LISTS_H

#include "qz_labels.h"
#include "qz_references.h"
#include "qz_st_intrpr_text.h"
#include "qz_vars.h"

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
    std::vector<CQZ_Vars*> TableStack;
    uint64_t FrameRecordsInUse = 0;  // records of the tables on TableStack
    int32_t DeclCounters[CQZ_Vars::kKindCount] = {};
    int32_t DeclReserved = 0;

protected:
    // Frame tables are recycled: a call reuses the table of an earlier one.
    // An empty table:
    CQZ_Vars* AcquireFrameTable();
    // The next table of the pool as it was retired, when it has `shape`
    // (ready to be revived), else an empty one.
    CQZ_Vars* AcquireFrameTable(uint32_t shape);
    void ReleaseFrameTable(CQZ_Vars* table);
    // Releases every table left on the table stack and empties the pooled
    // ones (their shapes belong to the text they were built from).
    void DiscardFrames();
    void ClearFramePool();

private:
    CQZ_Vars* TakeFrameTable();
    CQZ_Vars* NewFrameTable();
    static constexpr size_t kFramePoolLimit = 64;
    static constexpr uint32_t kPooledRecordLimit = 256;
    static constexpr size_t kFrameSearch = 32;
    std::vector<CQZ_Vars*> FramePool;
};

#endif
