// Finding the symbol (a declaration or a label) at a place of a document,
// and naming keyword codes, on top of the checker's model.
#ifndef QZLS_SYMBOLS_H
#define QZLS_SYMBOLS_H

#include "qz_check.h"

#include <cstddef>
#include <cstdint>
#include <optional>

namespace qzls {

struct SymbolRef {
    qz::check::SymbolKind Kind = qz::check::SymbolKind::Declaration;
    size_t Index = 0;  // into Declarations or Labels
    bool operator==(const SymbolRef& other) const { return Kind == other.Kind && Index == other.Index; }
};

// The symbol whose name or resolved use holds `offset`.
std::optional<SymbolRef> SymbolAt(const qz::check::Model& model, size_t offset);
qz::check::Range NameRangeOf(const qz::check::Model& model, SymbolRef symbol);

// The scope whose text holds `offset`: the last one starting at or before it.
size_t ScopeAt(const qz::check::Model& model, size_t offset);

// The keyword's text, "" for a code that is none.
const char* KeywordText(uint8_t code);

}  // namespace qzls

#endif
