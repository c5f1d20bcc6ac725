// The label table.
#include "qz_labels.h"

#include <memory>

Label* CQZ_Labels::lookup(const char* name, int start, int end, bool create) {
    // Latin-1 maps every byte to its own character: keys compare byte for byte.
    const QString key = QString::fromLatin1(name ? name : "");
    const auto found = Table.constFind(key);
    if (found != Table.constEnd()) return found.value();
    if (!create) return nullptr;
    std::unique_ptr<Label> label(new Label{key, start, end});
    Table.insert(key, label.get());
    return label.release();
}

void CQZ_Labels::Clear() {
    qDeleteAll(Table);
    Table.clear();
}
