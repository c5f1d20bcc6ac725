#include "documents.h"

#include "qz_tokens.h"
#include "words.h"

#include <algorithm>
#include <string_view>
#include <unordered_map>

namespace qzls {

namespace {

// The instruction whose operands hold `offset`: instructions are in the
// order of the text.
const qz::check::Instruction* InstructionHolding(const qz::check::Model& model, size_t offset) {
    const auto after = std::upper_bound(model.Instructions.begin(), model.Instructions.end(), offset,
                                        [](size_t o, const qz::check::Instruction& in) { return o < in.Extent.Begin; });
    if (after == model.Instructions.begin()) return nullptr;
    const qz::check::Instruction& in = *(after - 1);
    return offset < in.Extent.End ? &in : nullptr;
}

// The checker resolves a jump or call target against the labels read so
// far, so a jump forward stays unresolved in its model although the label
// exists (the diagnostics are right: they come from the loader's complete
// table). Resolve those here, by the language's rule: the first label of
// exactly that name. EXEC names are no labels and stay as they are.
void ResolveForwardLabels(const std::string& flat, qz::check::Model& model) {
    std::unordered_map<std::string_view, size_t> first;
    for (size_t i = model.Labels.size(); i-- > 0;) first[model.Labels[i].Name] = i;
    for (qz::check::Use& use : model.Uses) {
        if (use.Resolved || use.Kind != qz::check::SymbolKind::Label) continue;
        const qz::check::Instruction* in = InstructionHolding(model, use.Where.Begin);
        if (in && in->Code == ttEXEC) continue;
        const auto found = first.find(std::string_view(flat.data() + use.Where.Begin, use.Where.End - use.Where.Begin));
        if (found == first.end()) continue;
        use.Resolved = true;
        use.Target = found->second;
    }
}

}  // namespace

void DocumentStore::Refresh(Document& document) {
    document.Lines = LineIndex(document.Text);
    document.Flat = BlankComments(document.Text);
    document.Model = qz::check::Analyse(document.Text);
    ResolveForwardLabels(document.Flat, document.Model);
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
