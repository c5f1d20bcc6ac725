// The label table: where each label (and PROG, VAR, MAIN) stands in the text.
// The first registration of a name wins; names are case-sensitive.
#ifndef QZ_LABELS_H
#define QZ_LABELS_H

#include "qz_hash.h"

#include <QString>
#include <cstdint>
#include <string>
#include <vector>

struct Label {
    QString LabelName;
    int32_t LabelStart;  // index of the label token's first character
    int32_t LabelEnd;    // index of its last character (the ':' of "NAME:")
};

class CQZ_Labels {
public:
    CQZ_Labels();
    ~CQZ_Labels() { Clear(); }
    CQZ_Labels(const CQZ_Labels&) = delete;
    CQZ_Labels& operator=(const CQZ_Labels&) = delete;

    // Find-or-create; an existing label is returned unchanged.
    Label* lookup(const char* name, int start, int end, bool create);
    void Clear();
    int size() const { return int(Count); }
    // The most labels sharing one bucket: what a look-up may have to compare.
    size_t LongestChain() const;

private:
    // A label with its name's bytes (compared without building a QString)
    // and their keyed hash, chained in its bucket.
    struct Entry {
        Label Value;
        std::string Name;
        uint64_t Hash;
        Entry* Next;
    };
    Entry* Find(const char* name, size_t length, uint64_t hash) const;
    void Insert(Entry* entry);
    void Grow();

    // Chained buckets under a key of this table's own, doubled whenever the
    // labels outnumber them, so chains stay short whatever the names.
    QZ_HashKey Key;
    std::vector<Entry*> Buckets;
    size_t Count = 0;
};

#endif
