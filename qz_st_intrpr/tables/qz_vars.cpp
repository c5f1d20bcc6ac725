// The variable table.
#include "qz_vars.h"

#include <algorithm>

#include "qz_hash.h"
#include "qz_references.h"

#include <QByteArray>
#include <QString>
#include <cstring>

namespace {

bool IsAscii(const char* s) {
    for (; *s; ++s)
        if (static_cast<unsigned char>(*s) >= 0x80) return false;
    return true;
}

size_t AsciiKey(const char* name, char* key) {
    size_t n = 0;
    for (; name[n] && n < kNameKeyMax; ++n) key[n] = AsciiUpper(name[n]);
    return n;
}

// The keyed hash of a name's key. Every variable table of the process uses
// the same key: AddRecord takes a record built in another table (a frame's
// declarations, decoded once) together with its hash, so building a frame on
// every call hashes no names.
uint64_t KeyCheckOf(const char* key, size_t length) { return QZ_SipHash(QZ_ProcessHashKey(), key, length); }

// Copies a record onto another. Every record has nothing but NULs behind its
// name (lookup pads the name, and copies keep it so), so only the name's own
// characters and the old name's longer tail need writing to give the same
// bytes as a full copy of the 255-character buffer: a frame built on every
// call copies a few bytes a name instead of the whole buffer.
void CopyRecord(Var& to, const Var& from) {
    const size_t oldLength = strnlen(to.VarName, sizeof to.VarName);
    const size_t newLength = strnlen(from.VarName, sizeof from.VarName);
    std::memcpy(to.VarName, from.VarName, newLength);
    if (oldLength > newLength) std::memset(to.VarName + newLength, 0, oldLength - newLength);
    to.VarKind = from.VarKind;
    to.VarType = from.VarType;
    to.VarValue = from.VarValue;
    to.VarIndex = from.VarIndex;
    to.VarParam1 = from.VarParam1;
    to.VarParam2 = from.VarParam2;
    to.VarParam3 = from.VarParam3;
    to.VarParam4 = from.VarParam4;
    to.Rewrited = from.Rewrited;
    to.Next = from.Next;
    to.KeyHash = from.KeyHash;
    to.KeyCheck = from.KeyCheck;
    to.ReferenceSlot = from.ReferenceSlot;
    to.Ordinal = from.Ordinal;
}

}  // namespace

size_t NameKey(const char* name, char* key) {
    // Pure ASCII needs no Unicode tables and no allocation; the result is the
    // same as QString's upper-casing.
    if (IsAscii(name)) return AsciiKey(name, key);
    const QByteArray bytes(name);
    const QString text = QString::fromUtf8(bytes);
    if (text.toUtf8() != bytes) return AsciiKey(name, key);  // not UTF-8: bytes as they are
    const QByteArray upper = text.toUpper().toUtf8();
    const size_t n = std::min(size_t(upper.size()), kNameKeyMax);
    std::memcpy(key, upper.constData(), n);
    return n;
}

CQZ_Vars::CQZ_Vars() : Buckets(FrameBuckets), BucketMask(kFrameBuckets - 1) {}

CQZ_Vars::CQZ_Vars(Var** buckets, uint32_t bucketCount) : Buckets(buckets), BucketMask(bucketCount - 1) {
    std::memset(Buckets, 0, sizeof(Var*) * bucketCount);
}

CQZ_Vars::~CQZ_Vars() {
    Clear();
    while (FreeRecords) {
        Var* next = FreeRecords->Next;
        delete FreeRecords;
        FreeRecords = next;
    }
}

Var* CQZ_Vars::NewRecord() {
    if (!FreeRecords) {
        Var* var = new Var();
        ++Allocated;
        return var;
    }
    Var* var = FreeRecords;
    FreeRecords = var->Next;
    return var;
}

void CQZ_Vars::ReleaseRecord(Var* var) {
    if (Slots && var->ReferenceSlot) Slots->Release(var);
    var->Next = FreeRecords;
    FreeRecords = var;
}

Var* CQZ_Vars::lookup(const char* name, char kind, char type, double value, int index, bool create,
                      double param1, double param2, double param3, double param4) {
    if (!name) name = "";
    // A record keeps 255 characters of its name, so the key is made from the
    // same 255: a longer name then finds the record it created.
    char kept[kTokenBufferSize];
    const size_t keptLength = strnlen(name, kNameLimit);
    std::memcpy(kept, name, keptLength);
    kept[keptLength] = 0;
    name = kept;
    char key[kNameKeyMax];
    const size_t keyLength = NameKey(name, key);
    const uint64_t check = KeyCheckOf(key, keyLength);
    for (Var* var = Buckets[uint32_t(check) & BucketMask]; var; var = var->Next) {
        if (var->KeyCheck != check) continue;
        char other[kNameKeyMax];
        const size_t otherLength = NameKey(var->VarName, other);
        if (otherLength == keyLength && std::memcmp(key, other, keyLength) == 0) return var;
    }
    if (!create) return nullptr;

    ReserveRecordSlot();
    Var* var = NewRecord();
    _qzcscpy(var->VarName, kNameLimit, name);
    var->VarName[kNameLimit] = 0;
    var->VarKind = kind;
    var->VarType = type;
    var->VarValue = value;
    var->VarIndex = index;
    var->VarParam1 = param1;
    var->VarParam2 = param2;
    var->VarParam3 = param3;
    var->VarParam4 = param4;
    var->Rewrited = false;
    var->KeyHash = uint32_t(check);
    var->KeyCheck = check;
    Link(var);
    return var;
}

Var* CQZ_Vars::AddRecord(const Var& prototype) {
    ReserveRecordSlot();
    Var* var = NewRecord();
    CopyRecord(*var, prototype);
    Link(var);
    return var;
}

// Makes room in the creation order before a record is taken: a refused
// allocation there then leaves nothing half-linked (Link only stores).
void CQZ_Vars::ReserveRecordSlot() {
    if (Created.size() == Created.capacity()) Created.reserve(Created.empty() ? 8 : Created.size() * 2);
}

void CQZ_Vars::Link(Var* var) {
    ShapeId = 0;
    Retired = false;
    var->ReferenceSlot = 0;
    var->Ordinal = uint32_t(Created.size());
    Created.push_back(var);
    LinkIntoBucket(var);
    if (Created.size() > BucketCount()) Grow();

    const uint8_t code = static_cast<uint8_t>(var->VarKind);
    if (code >= ttV && code <= ttVR) {
        std::list<Var>& list = KindList(var->VarKind);
        if (FreeListNodes.empty()) {
            list.push_back(*var);
        } else {
            list.splice(list.end(), FreeListNodes, FreeListNodes.begin());
            CopyRecord(list.back(), *var);
        }
    }
}

void CQZ_Vars::LinkIntoBucket(Var* var) {
    Var*& head = Buckets[var->KeyHash & BucketMask];
    var->Next = head;
    head = var;
}

void CQZ_Vars::Grow() {
    if (BucketMask >= 0x7fffffffu) return;  // 2^32 buckets cannot be indexed by KeyHash
    const uint32_t count = 2 * BucketCount();
    std::vector<Var*> grown(count, nullptr);  // first: a failure leaves the table as it was
    std::memset(Buckets, 0, sizeof(Var*) * BucketCount());  // no stale chains in the caller's array
    GrownBuckets.swap(grown);
    Buckets = GrownBuckets.data();
    BucketMask = count - 1;
    // In creation order, so each chain keeps its newest record first.
    for (Var* var : Created)
        if (var) LinkIntoBucket(var);
}

const std::list<Var>* CQZ_Vars::DeclaredList(char kind) const {
    const uint8_t code = static_cast<uint8_t>(kind);
    if (code < ttV || code > ttTVR) return nullptr;  // VA and VR lists are kept but not listed
    return &Lists[code - ttV];
}

bool CQZ_Vars::GetVarsList(std::list<Var>& list, char kind) const {
    list.clear();
    const std::list<Var>* declared = DeclaredList(kind);
    if (!declared) return false;
    list = *declared;
    return true;
}

void CQZ_Vars::Retire() {
    // Programs that never take an address (MOVA) skip the walk.
    if (Slots && Slots->AnyHeld())
        for (Var* var : Created)
            if (var && var->ReferenceSlot) Slots->Release(var);
    Retired = true;
}

void CQZ_Vars::Revive(const std::vector<Var>& declared) {
    for (size_t i = 0; i < declared.size(); ++i) {
        Created[i]->VarValue = declared[i].VarValue;
        Created[i]->Rewrited = declared[i].Rewrited;
    }
    Retired = false;
}

void CQZ_Vars::Clear() {
    ShapeId = 0;
    Retired = false;
    for (std::list<Var>& list : Lists) FreeListNodes.splice(FreeListNodes.end(), list);
    // Every record was created through Link, so the creation order reaches
    // them all without walking every bucket: a frame table is cleared on each
    // RET, in time proportional to its own records.
    for (Var* var : Created) {
        if (!var) continue;  // already released by deleteVar
        Buckets[var->KeyHash & BucketMask] = nullptr;
        ReleaseRecord(var);
    }
    Created.clear();
}

void CQZ_Vars::deleteVar(Var* var) {
    if (!var) return;
    // Detach the chain from whatever points at it, then release it record by
    // record: iterative, so a long chain cannot exhaust the native stack.
    Var*& head = Buckets[var->KeyHash & BucketMask];
    if (head == var) {
        head = nullptr;
    } else {
        for (Var* p = head; p; p = p->Next) {
            if (p->Next == var) {
                p->Next = nullptr;
                break;
            }
        }
    }
    ShapeId = 0;
    while (var) {
        Var* next = var->Next;
        Created[var->Ordinal] = nullptr;
        ReleaseRecord(var);
        var = next;
    }
}

size_t CQZ_Vars::LongestChain() const {
    size_t longest = 0;
    for (uint32_t b = 0; b < BucketCount(); ++b) {
        size_t length = 0;
        for (const Var* var = Buckets[b]; var; var = var->Next) ++length;
        longest = std::max(longest, length);
    }
    return longest;
}
