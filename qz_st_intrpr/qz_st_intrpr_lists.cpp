// The symbol-table layer.
#include "qz_st_intrpr_lists.h"

#include <memory>

CQZ_STInterpretator_Lists::CQZ_STInterpretator_Lists() : Vars(ProgramBuckets, CQZ_Vars::kProgramBuckets) {
    Vars.SetReferenceSlots(&References);
}

CQZ_STInterpretator_Lists::~CQZ_STInterpretator_Lists() {
    DiscardFrames();
    for (CQZ_Vars* table : FramePool) delete table;
}

CQZ_Vars* CQZ_STInterpretator_Lists::AcquireFrameTable() {
    if (!FramePool.empty()) {
        CQZ_Vars* table = FramePool.back();
        FramePool.pop_back();
        return table;
    }
    FramePool.reserve(kFramePoolLimit);  // so ReleaseFrameTable never allocates
    std::unique_ptr<CQZ_Vars> table(new CQZ_Vars());
    table->SetReferenceSlots(&References);
    return table.release();
}

void CQZ_STInterpretator_Lists::ReleaseFrameTable(CQZ_Vars* table) {
    table->Clear();
    if (FramePool.size() < kFramePoolLimit)
        FramePool.push_back(table);
    else
        delete table;
}

void CQZ_STInterpretator_Lists::DiscardFrames() {
    while (!TableStack.empty()) {
        ReleaseFrameTable(TableStack.back());
        TableStack.pop_back();
    }
}
