#include "symbols.h"

#include "qz_tokens.h"

namespace qzls {
namespace {

bool Holds(const qz::check::Range& range, size_t offset) { return offset >= range.Begin && offset < range.End; }

}  // namespace

std::optional<SymbolRef> SymbolAt(const qz::check::Model& model, size_t offset) {
    for (const qz::check::Use& use : model.Uses)
        if (use.Resolved && Holds(use.Where, offset)) return SymbolRef{use.Kind, use.Target};
    for (size_t i = 0; i < model.Declarations.size(); ++i)
        if (Holds(model.Declarations[i].NameRange, offset)) return SymbolRef{qz::check::SymbolKind::Declaration, i};
    for (size_t i = 0; i < model.Labels.size(); ++i)
        if (Holds(model.Labels[i].NameRange, offset)) return SymbolRef{qz::check::SymbolKind::Label, i};
    return std::nullopt;
}

qz::check::Range NameRangeOf(const qz::check::Model& model, SymbolRef symbol) {
    return symbol.Kind == qz::check::SymbolKind::Declaration ? model.Declarations[symbol.Index].NameRange
                                                             : model.Labels[symbol.Index].NameRange;
}

size_t ScopeAt(const qz::check::Model& model, size_t offset) {
    size_t scope = 0;
    for (size_t i = 1; i < model.Scopes.size(); ++i)
        if (model.Scopes[i].NameRange.Begin <= offset) scope = i;
    return scope;
}

const char* KeywordText(uint8_t code) {
    for (const QZ_Token& token : TokensTable)
        if (token.Code == code) return token.Name;
    return "";
}

}  // namespace qzls
