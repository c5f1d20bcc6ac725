// The label table.
#include "qz_labels.h"

#include <algorithm>

#include <cstring>
#include <memory>

namespace {
constexpr size_t kFirstBuckets = 64;
}

CQZ_Labels::CQZ_Labels() : Key(QZ_NewHashKey()) {}

Label* CQZ_Labels::lookup(const char* name, int start, int end, bool create) {
    if (!name) name = "";
    const size_t length = std::strlen(name);
    const uint64_t hash = QZ_SipHash(Key, name, length);
    if (Entry* found = Find(name, length, hash)) return &found->Value;
    if (!create) return nullptr;
    // Latin-1 maps every byte to its own character, so the QString holds
    // the name byte for byte.
    std::unique_ptr<Entry> entry(
        new Entry{Label{QString::fromLatin1(name, int(length)), start, end}, std::string(name, length), hash, nullptr});
    if (Count >= Buckets.size()) Grow();
    Insert(entry.get());
    ++Count;
    return &entry.release()->Value;
}

CQZ_Labels::Entry* CQZ_Labels::Find(const char* name, size_t length, uint64_t hash) const {
    if (Buckets.empty()) return nullptr;
    for (Entry* entry = Buckets[hash & (Buckets.size() - 1)]; entry; entry = entry->Next)
        if (entry->Hash == hash && entry->Name.size() == length && std::memcmp(entry->Name.data(), name, length) == 0)
            return entry;
    return nullptr;
}

void CQZ_Labels::Insert(Entry* entry) {
    Entry*& head = Buckets[entry->Hash & (Buckets.size() - 1)];
    entry->Next = head;
    head = entry;
}

void CQZ_Labels::Grow() {
    std::vector<Entry*> old(Buckets.empty() ? kFirstBuckets : 2 * Buckets.size(), nullptr);
    old.swap(Buckets);
    for (Entry* chain : old)
        while (chain) {
            Entry* next = chain->Next;
            Insert(chain);
            chain = next;
        }
}

void CQZ_Labels::Clear() {
    for (Entry*& chain : Buckets) {
        while (chain) {
            Entry* next = chain->Next;
            delete chain;
            chain = next;
        }
    }
    Buckets.clear();
    Count = 0;
}

size_t CQZ_Labels::LongestChain() const {
    size_t longest = 0;
    for (const Entry* head : Buckets) {
        size_t length = 0;
        for (const Entry* e = head; e; e = e->Next) ++length;
        longest = std::max(longest, length);
    }
    return longest;
}
