// The variable table: Var records in a chained hash keyed by the upper-cased
// name, plus one list per declaration kind holding copies of the records as
// they were declared (the declared initial values and the host exchange lists).
// The hash is keyed with a secret random key and the buckets double when the
// records outnumber them, so no choice of names makes the chains long.
#ifndef QZ_VARS_H
#define QZ_VARS_H

#include "qz_tokens.h"

#include <list>
#include <vector>

class QZ_ReferenceSlots;

struct Var {
    char VarName[kTokenBufferSize];  // 255 characters at most, always NUL-terminated
    char VarKind;
    char VarType;
    double VarValue;
    int32_t VarIndex;
    double VarParam1, VarParam2, VarParam3, VarParam4;
    bool Rewrited;
    Var* Next;
    // Bookkeeping of this implementation: the keyed hash of the name's key
    // (KeyCheck, and its low half KeyHash, which picks the bucket), the
    // reference slot it holds while a MOVA address of it may be in use, and
    // its place in the order of creation within its table.
    uint32_t KeyHash;
    uint64_t KeyCheck;
    uint32_t ReferenceSlot;
    uint32_t Ordinal;
};

class CQZ_Vars {
public:
    // Bucket counts a table starts with; either grows as records are added.
    static constexpr uint32_t kProgramBuckets = 2048;  // the program's own table
    static constexpr uint32_t kFrameBuckets = 64;      // a subprogram frame's table
    static constexpr int kKindCount = 9;               // V .. VR

    // A frame table with its own small bucket array.
    CQZ_Vars();
    // A table over `buckets` (a power of two) owned by the caller. Once the
    // records outnumber them the table moves to a larger array of its own
    // and leaves the caller's all null.
    CQZ_Vars(Var** buckets, uint32_t bucketCount);
    ~CQZ_Vars();
    CQZ_Vars(const CQZ_Vars&) = delete;
    CQZ_Vars& operator=(const CQZ_Vars&) = delete;

    // Finds `name` ignoring case; creates the record when absent and `create`.
    Var* lookup(const char* name, char kind, char type, double value, int index, bool create,
                double param1 = 0.0, double param2 = 0.0, double param3 = 0.0, double param4 = 0.0);
    // Copies of the declarations of `kind`; false (and empty) for VA, VR and others.
    bool GetVarsList(std::list<Var>& list, char kind) const;
    // The declarations of `kind` without copying; null where GetVarsList refuses.
    const std::list<Var>* DeclaredList(char kind) const;
    void Clear();
    // The most records sharing one bucket: what a look-up may have to compare.
    size_t LongestChain() const;
    // Deletes the bucket chain that begins at `var`.
    void deleteVar(Var* var);

    // Adds a copy of `prototype`, a record that lookup created in another
    // table from the same arguments, as lookup would create it here. The
    // caller knows that the name is not in this table yet.
    Var* AddRecord(const Var& prototype);
    // Records in the order they were created; Ordinal indexes it.
    uint32_t RecordCount() const { return uint32_t(Created.size()); }
    Var* Record(uint32_t ordinal) const { return Created[ordinal]; }
    Var* const* RecordData() const { return Created.data(); }
    // Records this table holds, in use or kept for reuse.
    uint32_t RecordsHeld() const { return Allocated; }

    // A table's shape is a promise that it holds the same names, created in
    // the same order, as every other table of the same nonzero shape, so a
    // name found once in one of them is found again by its ordinal. Creating
    // a record or clearing the table voids the promise (shape 0).
    uint32_t Shape() const { return ShapeId; }
    void SetShape(uint32_t shape) { ShapeId = shape; }

    // A frame table whose call returned: what its records hold outside the
    // table (MOVA reference slots) is released, but the records stay, so the
    // next call of the same subprogram can take the table as it is and only
    // put the declared values back (Revive) instead of building it anew.
    void Retire();
    bool IsRetired() const { return Retired; }
    // Puts back the values and flags of `declared`, the records a call builds,
    // in creation order; the table is a retired one of the same shape.
    void Revive(const std::vector<Var>& declared);

    // Where this table reports records it releases (for MOVA references).
    void SetReferenceSlots(QZ_ReferenceSlots* slots) { Slots = slots; }

private:
    Var* NewRecord();
    void ReserveRecordSlot();
    void ReleaseRecord(Var* var);
    // Links a filled record into its bucket and its kind's list.
    void Link(Var* var);
    void LinkIntoBucket(Var* var);
    // Doubles the buckets and links every record anew.
    void Grow();
    std::list<Var>& KindList(char kind) { return Lists[static_cast<uint8_t>(kind) - ttV]; }

    Var* FrameBuckets[kFrameBuckets] = {};
    Var** Buckets;
    uint32_t BucketMask;
    std::vector<Var*> GrownBuckets;  // the buckets once they outgrew the first array
    std::list<Var> Lists[kKindCount];
    uint32_t BucketCount() const { return BucketMask + 1; }

    // Released records and list nodes are kept for reuse (records chained
    // through Next), so a frame table that is rebuilt on every call stops
    // allocating once it has been built once.
    Var* FreeRecords = nullptr;
    uint32_t Allocated = 0;  // records this table holds, in use or free
    std::list<Var> FreeListNodes;
    QZ_ReferenceSlots* Slots = nullptr;
    std::vector<Var*> Created;
    uint32_t ShapeId = 0;
    bool Retired = false;
};

// The key a name is found by: upper-cased by Unicode rules when it is valid
// UTF-8 (ASCII letters only otherwise), whatever the process locale.
// Returns the key's length; `key` has room for kNameKeyMax bytes.
constexpr size_t kNameKeyMax = 4 * kTokenBufferSize;
size_t NameKey(const char* name, char* key);

#endif
