// The open documents: their text as the editor holds it, and what the
// checker read from that text, rebuilt on every change.
#ifndef QZLS_DOCUMENTS_H
#define QZLS_DOCUMENTS_H

#include "positions.h"
#include "qz_check.h"

#include <cstdint>
#include <optional>
#include <string>
#include <unordered_map>

namespace qzls {

struct Document {
    std::string Uri;
    int64_t Version = 0;
    std::string Text;
    std::string Flat;  // Text with comments blanked, for the words around the cursor
    LineIndex Lines;
    qz::check::Model Model;

    size_t OffsetOf(Position position, Encoding encoding) const { return Lines.OffsetOf(Text, position, encoding); }
    Position PositionOf(size_t offset, Encoding encoding) const { return Lines.PositionOf(Text, offset, encoding); }
};

// One entry of a didChange: a replacement of a range, or of the whole text
// when no range is given.
struct TextChange {
    std::optional<Position> Start;
    std::optional<Position> End;
    std::string Text;
};

class DocumentStore {
public:
    Document& Open(const std::string& uri, int64_t version, std::string text);
    // Applies the changes in order; null when the document is not open.
    Document* Change(const std::string& uri, int64_t version, const std::vector<TextChange>& changes,
                     Encoding encoding);
    void Close(const std::string& uri) { Documents_.erase(uri); }
    const Document* Find(const std::string& uri) const;

private:
    static void Refresh(Document& document);
    std::unordered_map<std::string, Document> Documents_;
};

}  // namespace qzls

#endif
