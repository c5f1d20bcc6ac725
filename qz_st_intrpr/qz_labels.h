// The label table: where each label (and PROG, VAR, MAIN) stands in the text.
// The first registration of a name wins; names are case-sensitive.
#ifndef QZ_LABELS_H
#define QZ_LABELS_H

#include <QHash>
#include <QString>
#include <cstdint>

struct Label {
    QString LabelName;
    int32_t LabelStart;  // index of the label token's first character
    int32_t LabelEnd;    // index of its last character (the ':' of "NAME:")
};

class CQZ_Labels {
public:
    CQZ_Labels() = default;
    ~CQZ_Labels() { Clear(); }
    CQZ_Labels(const CQZ_Labels&) = delete;
    CQZ_Labels& operator=(const CQZ_Labels&) = delete;

    // Find-or-create; an existing label is returned unchanged.
    Label* lookup(const char* name, int start, int end, bool create);
    void Clear();
    int size() const { return Table.size(); }

private:
    QHash<QString, Label*> Table;
};

#endif
