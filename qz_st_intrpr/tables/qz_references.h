// MOVA addresses. A reference carried in a value's 64 bits is a checked
// handle, not a raw pointer: it names a slot that records which live variable
// it designates and in which generation. Reading or writing through a handle
// whose variable is gone (a returned frame's local, a reloaded program), or
// through any 64 bits that never were a handle (a plain number), finds nothing
// and the instruction fails with 23 instead of touching memory.
#ifndef QZ_REFERENCES_H
#define QZ_REFERENCES_H

#include <cstdint>
#include <vector>

struct Var;

class QZ_ReferenceSlots {
public:
    // The handle of `var`'s value storage, as the double that carries it;
    // false when every slot is taken.
    bool AddressOf(Var* var, double& handle);
    // The value storage a handle designates, or null.
    double* Resolve(double handle) const;
    // `var` is being freed: its handles stop resolving.
    void Release(Var* var);
    // True while some variable holds a slot (has had its address taken).
    bool AnyHeld() const { return FreeSlots.size() < Slots.size(); }

private:
    // Handles stay below 2^47, so the double that carries one is a positive
    // denormal, like a user-space address: moves keep its bits exactly.
    static constexpr int kIndexBits = 24;
    static constexpr uint64_t kIndexMask = (uint64_t(1) << kIndexBits) - 1;
    static constexpr uint64_t kGenerationMask = (uint64_t(1) << (47 - kIndexBits)) - 1;
    // Handles are scrambled with a fixed pattern so that small numbers, the
    // ones programs and hosts actually use, never spell a live handle.
    static constexpr uint64_t kScramble = 0x5A3C96E1F0B7ull & ((uint64_t(1) << 47) - 1);

    struct Slot {
        Var* Owner;
        uint32_t Generation;
    };
    std::vector<Slot> Slots;
    std::vector<uint32_t> FreeSlots;
};

#endif
