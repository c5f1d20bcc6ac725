// Completion from what the cursor follows: a variable after '@' or '^', a
// label after a jump, a subprogram after CAL, a built-in after EXEC, a kind
// and then a type in declarations, an instruction where one starts.
#include "answers.h"

#include "qz_builtins.h"
#include "qz_tokens.h"
#include "symbols.h"
#include "words.h"

namespace qzls {
namespace {

// The protocol's CompletionItemKind numbers.
constexpr int kItemFunction = 3;
constexpr int kItemVariable = 6;
constexpr int kItemKeyword = 14;
constexpr int kItemReference = 18;

struct Context {
    const Document& Doc;
    Encoding Enc;
    Span Partial;  // the part of the word before the cursor that the item replaces
    Json Items = Json::array();

    void Add(const std::string& label, int kind, const std::string& detail = "", const std::string& doc = "") {
        Json item = {{"label", label},
                     {"kind", kind},
                     {"textEdit", {{"range", RangeJson(Doc, Partial.Begin, Partial.End, Enc)}, {"newText", label}}}};
        if (!detail.empty()) item["detail"] = detail;
        if (!doc.empty()) item["documentation"] = doc;
        Items.push_back(item);
    }
};

std::string WordText(const Document& document, Span span) {
    return document.Flat.substr(span.Begin, span.End - span.Begin);
}

void AddVariables(Context& c, size_t scope) {
    for (const qz::check::Declaration& d : c.Doc.Model.Declarations)
        if (d.ScopeIndex == scope)
            c.Add(d.Name, kItemVariable, std::string(KeywordText(d.Kind)) + " " + KeywordText(d.Type));
}

void AddLabels(Context& c, bool subprograms) {
    const qz::check::Model& model = c.Doc.Model;
    for (const qz::check::Label& label : model.Labels) {
        if (label.StartsSubprogram != subprograms) continue;
        bool marker = false;
        for (const qz::check::Scope& scope : model.Scopes)
            marker |= label.NameRange.Begin == scope.NameRange.Begin || label.NameRange.Begin == scope.BodyStart.Begin;
        if (!marker || subprograms) c.Add(label.Name, subprograms ? kItemFunction : kItemReference,
                                          subprograms ? "subprogram" : "label");
    }
}

void AddBuiltins(Context& c) {
    const QZBuildInFunctions::BuiltinEntry* table = QZBuildInFunctions::BuiltinTable();
    for (int i = 0; i < QZBuildInFunctions::BuiltinCount(); ++i) c.Add(table[i].Name, kItemFunction, "built-in");
}

void AddInstructions(Context& c) {
    for (const QZ_InstructionInfo& info : kInstructionInfo) c.Add(info.Name, kItemKeyword, info.Operands, info.Description);
}

void AddKinds(Context& c, bool subprogram) {
    static const uint8_t kProgramKinds[] = {ttV, ttVI, ttVO, ttVIO, ttVG, ttTVG, ttTVR};
    static const uint8_t kLocalKinds[] = {ttV, ttVA, ttVR};
    if (subprogram) for (uint8_t code : kLocalKinds) c.Add(KeywordText(code), kItemKeyword, "kind");
    else for (uint8_t code : kProgramKinds) c.Add(KeywordText(code), kItemKeyword, "kind");
}

void AddTypes(Context& c) {
    for (int code = ttBOOL; code <= ttLREAL; ++code) c.Add(KeywordText(uint8_t(code)), kItemKeyword, "type");
}

void AddOperandKeywords(Context& c) {
    static const uint8_t kOperands[] = {ttA0, ttR0, ttR1, ttNIL, ttPUSH, ttPOP, ttTICK};
    for (uint8_t code : kOperands) c.Add(KeywordText(code), kItemKeyword, "operand");
}

// How many operands the instruction table gives an instruction.
size_t OperandCount(const QZ_InstructionInfo& info) {
    if (*info.Operands == 0) return 0;
    size_t count = 1;
    for (const char* p = info.Operands; *p != 0; ++p) count += *p == ' ';
    return count;
}

// Declarations come before the body's MAIN or BODY.
bool InDeclarations(const qz::check::Model& model, size_t scope, size_t offset) {
    if (model.Scopes.empty()) return false;
    const qz::check::Scope& s = model.Scopes[scope];
    if (offset < s.NameRange.End) return false;
    return s.BodyStart.End == 0 || offset <= s.BodyStart.Begin;
}

void CompleteInBody(Context& c, const std::vector<Span>& before) {
    std::vector<Span> words;  // on this line, in order, labels left out
    for (auto it = before.rbegin(); it != before.rend(); ++it)
        if (c.Doc.Flat[it->End - 1] != ':') words.push_back(*it);
    if (words.empty()) return AddInstructions(c);
    const uint8_t code = FindKeyword(WordText(c.Doc, words[0]).c_str());
    const QZ_InstructionInfo* info = InstructionInfoOf(code);
    if (!info || words.size() > OperandCount(*info)) return;  // no operand is due here
    if (code == ttJMP || code == ttJMPF || code == ttJMPT) return AddLabels(c, false);
    if (code == ttCAL) return AddLabels(c, true);
    if (code == ttEXEC) return AddBuiltins(c);
    AddOperandKeywords(c);
}

}  // namespace

Json Completion(const Document& document, size_t offset, Encoding encoding) {
    Context c{document, encoding, {offset, offset}};
    const Span word = WordAt(document.Flat, offset > 0 ? offset - 1 : 0);
    if (offset > 0 && !word.Empty() && word.End >= offset) c.Partial = {word.Begin, offset};
    const qz::check::Model& model = document.Model;
    const size_t scope = ScopeAt(model, offset);
    const char first = c.Partial.Empty() ? ' ' : document.Flat[c.Partial.Begin];
    if (first == '@' || first == '^') {
        ++c.Partial.Begin;
        AddVariables(c, scope);
        return {{"isIncomplete", false}, {"items", c.Items}};
    }
    const std::vector<Span> before = WordsBefore(document.Text, document.Flat, c.Partial.Begin, 4);
    if (InDeclarations(model, scope, offset)) {
        if (before.size() == 1) AddKinds(c, scope > 0);
        else if (before.size() == 2) AddTypes(c);
    } else {
        CompleteInBody(c, before);
    }
    return {{"isIncomplete", false}, {"items", c.Items}};
}

}  // namespace qzls
