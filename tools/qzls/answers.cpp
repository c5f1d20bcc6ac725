#include "answers.h"

#include "qz_tokens.h"
#include "symbols.h"
#include "words.h"

#include <string>

namespace qzls {
namespace {

using qz::check::SymbolKind;

// The protocol's DiagnosticSeverity and SymbolKind numbers.
constexpr int kSymbolModule = 2;
constexpr int kSymbolFunction = 12;
constexpr int kSymbolKey = 20;

Json RangeOf(const Document& document, const qz::check::Range& range, Encoding encoding) {
    return RangeJson(document, range.Begin, range.End, encoding);
}

Json Location(const Document& document, const qz::check::Range& range, Encoding encoding) {
    return {{"uri", document.Uri}, {"range", RangeOf(document, range, encoding)}};
}

int64_t LineNumberOf(const Document& document, size_t offset) {
    return document.PositionOf(offset, Encoding::Utf8).Line + 1;
}

Json MarkdownHover(const std::string& text, const Json& range) {
    return {{"contents", {{"kind", "markdown"}, {"value", text}}}, {"range", range}};
}

std::string InstructionLine(const QZ_InstructionInfo& info) {
    std::string line = "`";
    line += info.Name;
    if (*info.Operands != 0) line += std::string(" ") + info.Operands;
    return line + "`: " + info.Description;
}

// The instruction word at `offset`: where the checker read one, or else a
// word that is an instruction keyword (a body the checker could not reach).
const QZ_InstructionInfo* InstructionAt(const Document& document, size_t offset, Span& where) {
    for (const qz::check::Instruction& instruction : document.Model.Instructions) {
        if (offset >= instruction.Word.Begin && offset < instruction.Word.End) {
            where = {instruction.Word.Begin, instruction.Word.End};
            return InstructionInfoOf(instruction.Code);
        }
    }
    where = WordAt(document.Flat, offset);
    if (where.Empty()) return nullptr;
    return InstructionInfoOf(FindKeyword(document.Flat.substr(where.Begin, where.End - where.Begin).c_str()));
}

std::string SymbolText(const Document& document, SymbolRef symbol) {
    const qz::check::Model& model = document.Model;
    if (symbol.Kind == SymbolKind::Declaration) {
        const qz::check::Declaration& d = model.Declarations[symbol.Index];
        return "variable `" + d.Name + "`: " + KeywordText(d.Kind) + " " + KeywordText(d.Type) + ", initial value " +
               d.Initial + " (line " + std::to_string(LineNumberOf(document, d.NameRange.Begin)) + ")";
    }
    const qz::check::Label& label = model.Labels[symbol.Index];
    const char* what = label.StartsSubprogram ? "subprogram" : "label";
    return std::string(what) + " `" + label.Name + "`, declared at line " +
           std::to_string(LineNumberOf(document, label.NameRange.Begin));
}

bool IsBodyMarker(const qz::check::Model& model, const qz::check::Label& label) {
    for (const qz::check::Scope& scope : model.Scopes)
        if (label.NameRange.Begin == scope.NameRange.Begin || label.NameRange.Begin == scope.BodyStart.Begin)
            return true;
    return false;
}

}  // namespace

Json RangeJson(const Document& document, size_t begin, size_t end, Encoding encoding) {
    const Position start = document.PositionOf(begin, encoding);
    const Position stop = document.PositionOf(end, encoding);
    return {{"start", {{"line", start.Line}, {"character", start.Character}}},
            {"end", {{"line", stop.Line}, {"character", stop.Character}}}};
}

Json Diagnostics(const Document& document, Encoding encoding) {
    Json list = Json::array();
    for (const qz::check::Diagnostic& d : document.Model.Diagnostics) {
        std::string message = d.Message;
        if (!d.Note.empty()) message += "\n" + d.Note;
        list.push_back({{"range", RangeOf(document, d.Where, encoding)},
                        {"severity", int(d.Level)},
                        {"code", d.Id},
                        {"source", "qz"},
                        {"message", message}});
    }
    return list;
}

Json Hover(const Document& document, size_t offset, Encoding encoding) {
    if (const auto symbol = SymbolAt(document.Model, offset)) {
        qz::check::Range where = NameRangeOf(document.Model, *symbol);
        for (const qz::check::Use& use : document.Model.Uses)
            if (use.Resolved && offset >= use.Where.Begin && offset < use.Where.End) where = use.Where;
        return MarkdownHover(SymbolText(document, *symbol), RangeOf(document, where, encoding));
    }
    const std::vector<qz::check::Scope>& scopes = document.Model.Scopes;
    if (!scopes.empty() && offset >= scopes[0].NameRange.Begin && offset < scopes[0].NameRange.End)
        return MarkdownHover("program `" + scopes[0].Name + "`", RangeOf(document, scopes[0].NameRange, encoding));
    Span where;
    if (const QZ_InstructionInfo* info = InstructionAt(document, offset, where))
        return MarkdownHover(InstructionLine(*info), RangeJson(document, where.Begin, where.End, encoding));
    return nullptr;
}

Json Definition(const Document& document, size_t offset, Encoding encoding) {
    const auto symbol = SymbolAt(document.Model, offset);
    if (!symbol) return nullptr;
    return Location(document, NameRangeOf(document.Model, *symbol), encoding);
}

Json References(const Document& document, size_t offset, bool includeDeclaration, Encoding encoding) {
    const auto symbol = SymbolAt(document.Model, offset);
    Json list = Json::array();
    if (!symbol) return list;
    if (includeDeclaration) list.push_back(Location(document, NameRangeOf(document.Model, *symbol), encoding));
    for (const qz::check::Use& use : document.Model.Uses)
        if (use.Resolved && SymbolRef{use.Kind, use.Target} == *symbol)
            list.push_back(Location(document, use.Where, encoding));
    return list;
}

Json DocumentSymbols(const Document& document, Encoding encoding) {
    const qz::check::Model& model = document.Model;
    Json scopes = Json::array();
    for (size_t i = 0; i < model.Scopes.size(); ++i) {
        const qz::check::Scope& scope = model.Scopes[i];
        Json children = Json::array();
        for (const qz::check::Label& label : model.Labels) {
            if (label.ScopeIndex != i || label.StartsSubprogram || IsBodyMarker(model, label)) continue;
            const Json range = RangeOf(document, label.NameRange, encoding);
            children.push_back({{"name", label.Name}, {"kind", kSymbolKey}, {"range", range}, {"selectionRange", range}});
        }
        scopes.push_back({{"name", scope.Name},
                          {"kind", i == 0 ? kSymbolModule : kSymbolFunction},
                          {"range", RangeOf(document, scope.Extent, encoding)},
                          {"selectionRange", RangeOf(document, scope.NameRange, encoding)},
                          {"children", children}});
    }
    // Siblings, not children: a subprogram's text lies outside the program's
    // MAIN body, and a child's range must lie inside its parent's.
    return scopes;
}

}  // namespace qzls
