// TEMPORARY: a small reading of the text in the shape of qz::check::Model,
// until the library's checker lands. Removed on merging it.
#include "qz_check.h"
#include "qz_tokens.h"
#include "words.h"

#include <cstring>

namespace qz::check {
namespace {

struct Reader {
    std::string Flat;
    std::vector<Range> Words;
    size_t At = 0;
    Model Out;

    std::string Text(const Range& r) const { return Flat.substr(r.Begin, r.End - r.Begin); }
    bool More() const { return At < Words.size(); }
    std::string Peek(size_t ahead = 0) const { return At + ahead < Words.size() ? Text(Words[At + ahead]) : ""; }
    uint8_t Keyword(size_t ahead = 0) const { return FindKeyword(Peek(ahead).c_str()); }
};

bool IsLabelWord(const std::string& w) { return w.size() > 1 && w.back() == ':'; }
bool IsKind(uint8_t c) { return c >= ttV && c <= ttVR; }

std::string Upper(std::string s) {
    for (char& c : s) c = AsciiUpper(c);
    return s;
}

void ReadDeclarations(Reader& r, size_t scope) {
    while (r.More() && IsKind(r.Keyword(1))) {
        Declaration d;
        d.Name = r.Peek();
        d.NameRange = r.Words[r.At];
        d.Kind = r.Keyword(1);
        d.Type = r.Keyword(2);
        d.Initial = r.Peek(3);
        d.ScopeIndex = scope;
        const size_t numbers = d.Kind == ttTVR ? 4 : 1;
        const size_t last = std::min(r.At + 2 + numbers, r.Words.size() - 1);
        d.Line = {r.Words[r.At].Begin, r.Words[last].End};
        r.Out.Declarations.push_back(d);
        r.At = last + 1;
    }
}

size_t OperandCount(uint8_t code) {
    const char* ops = InstructionInfoOf(code)->Operands;
    if (*ops == 0) return 0;
    size_t n = 1;
    for (const char* p = ops; *p; ++p) n += *p == ' ';
    return n;
}

// A RET ends its scope when what follows is no more instructions of it.
bool EndsScope(const Reader& r) {
    if (!r.More()) return true;
    if (r.Keyword() == ttRET) return true;
    if (!IsLabelWord(r.Peek())) return false;
    return r.Keyword(1) == ttBODY || IsKind(r.Keyword(2));
}

void ReadOperand(Reader& r, const Instruction& in, size_t index) {
    const Range w = r.Words[r.At];
    const std::string text = r.Text(w);
    Use u;
    u.ScopeIndex = in.ScopeIndex;
    u.IsWrite = index == 1;
    if (text[0] == '@' || text[0] == '^') {
        u.Where = {w.Begin + 1, w.End};
        r.Out.Uses.push_back(u);
    } else if (in.Code == ttJMP || in.Code == ttJMPF || in.Code == ttJMPT || in.Code == ttCAL || in.Code == ttEXEC) {
        u.Where = w;
        u.Kind = SymbolKind::Label;
        u.IsWrite = false;
        u.Target = in.Code == ttEXEC ? 1 : 0;  // marks EXEC names until resolution
        r.Out.Uses.push_back(u);
    }
}

void ReadBody(Reader& r, size_t scope) {
    while (r.More()) {
        const std::string word = r.Peek();
        if (IsLabelWord(word)) {
            Label l;
            l.Name = word.substr(0, word.size() - 1);
            l.NameRange = {r.Words[r.At].Begin, r.Words[r.At].End - 1};
            l.ScopeIndex = scope;
            r.Out.Labels.push_back(l);
            ++r.At;
            continue;
        }
        const uint8_t code = r.Keyword();
        if (!IsInstructionCode(code)) {
            ++r.At;
            continue;
        }
        Instruction in;
        in.Code = code;
        in.Word = r.Words[r.At];
        in.ScopeIndex = scope;
        ++r.At;
        const size_t count = OperandCount(code);
        for (size_t i = 0; i < count && r.More(); ++i, ++r.At) ReadOperand(r, in, i);
        in.Extent = {in.Word.Begin, r.Words[r.At - 1].End};
        r.Out.Instructions.push_back(in);
        if (code == ttRET && EndsScope(r)) {
            r.Out.Scopes[scope].Extent.End = in.Word.End;
            return;
        }
    }
}

void Resolve(Model& m, const std::string& flat) {
    for (Use& u : m.Uses) {
        const std::string name = flat.substr(u.Where.Begin, u.Where.End - u.Where.Begin);
        const bool exec = u.Kind == SymbolKind::Label && u.Target == 1;
        u.Target = 0;
        if (exec) continue;
        if (u.Kind == SymbolKind::Declaration) {
            for (size_t i = 0; i < m.Declarations.size() && !u.Resolved; ++i)
                if (m.Declarations[i].ScopeIndex == u.ScopeIndex && Upper(m.Declarations[i].Name) == Upper(name))
                    u.Resolved = true, u.Target = i;
        } else {
            for (size_t i = 0; i < m.Labels.size() && !u.Resolved; ++i)
                if (m.Labels[i].Name == name) u.Resolved = true, u.Target = i;
        }
        if (!u.Resolved) {
            Diagnostic d;
            const bool var = u.Kind == SymbolKind::Declaration;
            d.Code = var ? 23 : 22;
            d.Id = var ? "23" : "22";
            d.Message = var ? "A variable is not found." : "A jump or call names a label that does not exist.";
            d.Where = u.Where;
            m.Diagnostics.push_back(d);
        }
    }
}

}  // namespace

Model Analyse(std::string_view fileText) {
    Reader r;
    r.Flat = qzls::BlankComments(fileText);
    for (size_t i = 0; i < r.Flat.size();) {
        if (r.Flat[i] == ' ') { ++i; continue; }
        const size_t b = i;
        while (i < r.Flat.size() && r.Flat[i] != ' ') ++i;
        r.Words.push_back({b, i});
    }
    while (r.More() && r.Keyword() != ttPROG) ++r.At;
    if (!r.More()) return r.Out;
    ++r.At;
    if (!r.More()) return r.Out;
    Scope program;
    program.Name = r.Peek();
    program.NameRange = r.Words[r.At];
    program.Extent = {program.NameRange.Begin, r.Flat.size()};
    r.Out.Scopes.push_back(program);
    r.Out.Labels.push_back({program.Name, program.NameRange, 0, false});
    ++r.At;
    if (r.Keyword() == ttVARSECTION) ++r.At;
    ReadDeclarations(r, 0);
    if (r.Keyword() != ttMAIN) return r.Out;
    r.Out.Scopes[0].BodyStart = r.Words[r.At];
    r.Out.Labels.push_back({"MAIN", r.Words[r.At], 0, false});
    ++r.At;
    ReadBody(r, 0);
    while (r.More() && IsLabelWord(r.Peek())) {
        Scope s;
        s.Name = r.Peek().substr(0, r.Peek().size() - 1);
        s.NameRange = {r.Words[r.At].Begin, r.Words[r.At].End - 1};
        s.Extent = {s.NameRange.Begin, r.Flat.size()};
        const size_t index = r.Out.Scopes.size();
        r.Out.Scopes.push_back(s);
        r.Out.Labels.push_back({s.Name, s.NameRange, index, true});
        ++r.At;
        ReadDeclarations(r, index);
        if (r.Keyword() != ttBODY) break;
        r.Out.Scopes[index].BodyStart = r.Words[r.At];
        ++r.At;
        ReadBody(r, index);
    }
    Resolve(r.Out, r.Flat);
    return r.Out;
}

}  // namespace qz::check
