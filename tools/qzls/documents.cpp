#include "documents.h"

#include "words.h"

#include <algorithm>

namespace qzls {

void DocumentStore::Refresh(Document& document) {
    document.Lines = LineIndex(document.Text);
    document.Flat = BlankComments(document.Text);
    document.Model = qz::check::Analyse(document.Text);
}

Document& DocumentStore::Open(const std::string& uri, int64_t version, std::string text) {
    Document& document = Documents_[uri];
    document.Uri = uri;
    document.Version = version;
    document.Text = std::move(text);
    Refresh(document);
    return document;
}

Document* DocumentStore::Change(const std::string& uri, int64_t version, const std::vector<TextChange>& changes,
                                Encoding encoding) {
    const auto found = Documents_.find(uri);
    if (found == Documents_.end()) return nullptr;
    Document& document = found->second;
    for (size_t i = 0; i < changes.size(); ++i) {
        const TextChange& change = changes[i];
        if (!change.Start || !change.End) {
            document.Text = change.Text;
        } else {
            // Each change is relative to the text as the previous one left it.
            if (i > 0) document.Lines = LineIndex(document.Text);
            size_t begin = document.OffsetOf(*change.Start, encoding);
            size_t end = document.OffsetOf(*change.End, encoding);
            if (end < begin) std::swap(begin, end);
            document.Text.replace(begin, end - begin, change.Text);
        }
    }
    document.Version = version;
    Refresh(document);
    return &document;
}

const Document* DocumentStore::Find(const std::string& uri) const {
    const auto found = Documents_.find(uri);
    return found == Documents_.end() ? nullptr : &found->second;
}

}  // namespace qzls
