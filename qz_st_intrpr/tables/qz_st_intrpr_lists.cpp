// The symbol-table layer.
#include "qz_st_intrpr_lists.h"

#include <memory>
#include <utility>

CQZ_STInterpretator_Lists::CQZ_STInterpretator_Lists() : Vars(ProgramBuckets, CQZ_Vars::kProgramBuckets) {
    Vars.SetReferenceSlots(&References);
    TableStack.reserve(64);
}

CQZ_STInterpretator_Lists::~CQZ_STInterpretator_Lists() {
    DiscardFrames();
    for (CQZ_Vars* table : FramePool) delete table;
}

CQZ_Vars* CQZ_STInterpretator_Lists::TakeFrameTable() {
    if (!FramePool.empty()) {
        CQZ_Vars* table = FramePool.back();
        FramePool.pop_back();
        return table;
    }
    return NewFrameTable();
}

CQZ_Vars* CQZ_STInterpretator_Lists::NewFrameTable() {
    FramePool.reserve(kFramePoolLimit);  // so ReleaseFrameTable never allocates
    std::unique_ptr<CQZ_Vars> table(new CQZ_Vars());
    table->SetReferenceSlots(&References);
    return table.release();
}

CQZ_Vars* CQZ_STInterpretator_Lists::AcquireFrameTable() {
    CQZ_Vars* table = TakeFrameTable();
    if (table->RecordCount() != 0) table->Clear();  // a retired table
    return table;
}

CQZ_Vars* CQZ_STInterpretator_Lists::AcquireFrameTable(uint32_t shape) {
    // Subprograms that call each other in turn would otherwise take each
    // other's retired tables and rebuild them: look a little way down the
    // pool for one of this shape.
    const size_t reach = FramePool.size() < kFrameSearch ? FramePool.size() : kFrameSearch;
    for (size_t i = 1; i <= reach; ++i) {
        CQZ_Vars*& candidate = FramePool[FramePool.size() - i];
        if (candidate->IsRetired() && candidate->Shape() == shape) {
            std::swap(candidate, FramePool.back());
            return TakeFrameTable();
        }
    }
    // None of this shape: keep the retired one on top for its own subprogram's
    // next call, and build another, as long as the pool has room for both.
    if (!FramePool.empty() && FramePool.back()->IsRetired() && FramePool.size() + TableStack.size() < kFramePoolLimit)
        return NewFrameTable();
    CQZ_Vars* table = TakeFrameTable();
    if (table->RecordCount() != 0 && !(table->IsRetired() && table->Shape() == shape)) table->Clear();
    return table;
}

void CQZ_STInterpretator_Lists::ReleaseFrameTable(CQZ_Vars* table) {
    // A table of known shape can serve the next call of its subprogram as it
    // is; any other is emptied now.
    if (table->Shape() != 0)
        table->Retire();
    else
        table->Clear();
    // The pool keeps small tables only: what it holds stays bounded whatever
    // the frames a program built (64 tables of at most 256 records).
    if (FramePool.size() < kFramePoolLimit && table->RecordsHeld() <= kPooledRecordLimit)
        FramePool.push_back(table);
    else
        delete table;
}

void CQZ_STInterpretator_Lists::DiscardFrames() {
    FrameRecordsInUse = 0;
    while (!TableStack.empty()) {
        ReleaseFrameTable(TableStack.back());
        TableStack.pop_back();
    }
    ClearFramePool();
}

void CQZ_STInterpretator_Lists::ClearFramePool() {
    for (CQZ_Vars* table : FramePool) table->Clear();
}
