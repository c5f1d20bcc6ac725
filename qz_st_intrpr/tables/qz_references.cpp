// Checked MOVA handles.
#include "qz_references.h"

#include "qz_vars.h"

#include <cstring>

bool QZ_ReferenceSlots::AddressOf(Var* var, double& handle) {
    if (!var->ReferenceSlot) {
        uint32_t index;
        if (!FreeSlots.empty()) {
            index = FreeSlots.back();
            FreeSlots.pop_back();
        } else {
            if (Slots.size() >= kIndexMask) return false;
            Slots.push_back(Slot{nullptr, 0});
            FreeSlots.reserve(Slots.size());  // Release() must not allocate
            index = uint32_t(Slots.size() - 1);
        }
        Slots[index].Owner = var;
        var->ReferenceSlot = index + 1;
    }
    const uint32_t index = var->ReferenceSlot - 1;
    const uint64_t bits =
        (((uint64_t(Slots[index].Generation) & kGenerationMask) << kIndexBits) | (index + 1)) ^ kScramble;
    std::memcpy(&handle, &bits, sizeof handle);
    return true;
}

double* QZ_ReferenceSlots::Resolve(double handle) const {
    uint64_t bits;
    std::memcpy(&bits, &handle, sizeof bits);
    bits ^= kScramble;
    const uint64_t index = bits & kIndexMask;
    const uint64_t generation = bits >> kIndexBits;
    if (index == 0 || index > Slots.size() || generation > kGenerationMask) return nullptr;
    const Slot& slot = Slots[index - 1];
    if (!slot.Owner || (uint64_t(slot.Generation) & kGenerationMask) != generation) return nullptr;
    return &slot.Owner->VarValue;
}

void QZ_ReferenceSlots::Release(Var* var) {
    const uint32_t index = var->ReferenceSlot - 1;
    Slots[index].Owner = nullptr;
    ++Slots[index].Generation;
    FreeSlots.push_back(index);
    var->ReferenceSlot = 0;
}
