// The checker: reads a program text the way loading and running it would —
// the header and declarations as the loader does, then every token from MAIN
// to the final RET as the body loop does — and reports, for every
// instruction reached or not, what running it would certainly return.
#include "qz_check_internal.h"

#include "qz_source.h"

#include <algorithm>

namespace qz::check {
namespace detail {
namespace {

Range TokenRange(const Reader& m) {
    const size_t begin = size_t(std::max(m.TokenStart, 0));
    size_t end = m.TokenEnd >= m.TokenStart ? size_t(m.TokenEnd) + 1 : begin;
    if (end == begin) {
        // The scan stopped inside the token before marking its end.
        const size_t blank = m.Text.find(' ', begin);
        end = blank == std::string::npos ? m.Text.size() : blank;
    }
    return Range{begin, std::max(end, begin)};
}

void ReportAtScanner(Analysis& a, uint32_t code) {
    const Range r = TokenRange(*a.M);
    a.Error(code, r.Begin, r.End);
}

void AddDeclaration(Analysis& a, const QZ_DeclarationRead& d, size_t scope, int32_t lastEnd) {
    Declaration decl;
    decl.Name = d.Name;
    const size_t nameBegin = size_t(d.NameStart);
    size_t nameEnd = a.Text.find(' ', nameBegin);
    if (nameEnd == std::string::npos) nameEnd = a.Text.size();
    decl.NameRange = Range{nameBegin, nameEnd};
    decl.Kind = uint8_t(d.Kind);
    decl.Type = uint8_t(d.Type);
    decl.Initial = a.Text.substr(size_t(d.NumberStart), size_t(d.NumberEnd - d.NumberStart + 1));
    decl.Line = Range{nameBegin, size_t(lastEnd) + 1};
    decl.ScopeIndex = scope;
    const size_t index = a.Out.Declarations.size();
    a.Out.Declarations.push_back(std::move(decl));
    const auto [it, added] = a.Tables[scope].ByKey.emplace(VariableKey(d.Name), index);
    if (!added) {
        const Declaration& first = a.Out.Declarations[it->second];
        a.Warning("duplicate-variable", nameBegin, nameEnd,
                  "`" + first.Name + "` is declared first at " + Place(a.File, first.NameRange.Begin) +
                      "; that declaration is the one used");
    }
}

// PROG, the program's name, VAR or MAIN, the declarations: as the loader
// reads them. False when the loader refuses the text.
bool ReadHeader(Analysis& a) {
    Reader& m = *a.M;
    if (m.TextLen == 0) {
        a.Error(Qz::rcEmptyText, 0, 0);
        return false;
    }
    m.CurChar = m.Text[0];
    m.TextPos = 1;
    uint32_t r = m.SkipWhite();
    if (r == Qz::rcOK) r = m.FindProgramHeader();
    if (r != Qz::rcOK) {
        a.Error(r, 0, a.Text.size(), "no PROG in the text");
        return false;
    }
    if ((r = m.ReadProgramName()) != Qz::rcOK) {
        ReportAtScanner(a, r);
        return false;
    }
    Scope program;
    program.Name = m.ProgramName;
    program.NameRange = TokenRange(m);
    program.Extent.Begin = program.NameRange.Begin;
    a.Out.Scopes.push_back(program);
    a.Tables.emplace_back();

    if ((r = m.Scan(m.TokenText)) != Qz::rcOK) {
        ReportAtScanner(a, r);
        return false;
    }
    if (m.TokenCode != ttMAIN && m.TokenCode != ttVARSECTION) {
        ReportAtScanner(a, Qz::rcNoVarOrMain);
        return false;
    }
    a.HasVarSection = m.TokenCode == ttVARSECTION;
    if (a.HasVarSection) {
        for (;;) {
            QZ_DeclarationRead d;
            if ((r = m.ReadDeclaration(false, d)) != Qz::rcOK) {
                ReportAtScanner(a, r);
                return false;
            }
            if (d.Ended) break;
            AddDeclaration(a, d, 0, m.TokenEnd);
        }
    }
    // The body starts after the MAIN the label table holds (its first one).
    const ::Label* main = m.Labels.lookup("MAIN", 0, 0, false);
    QZ_ScannedToken token;
    if (!main || m.ScanTokenAt(main->LabelStart, token) != Qz::rcOK || token.Code != ttMAIN || token.Next < 0) {
        if (!main || token.Code != ttMAIN) a.Error(Qz::rcNoLabelToken, size_t(m.TokenStart), size_t(m.TokenStart));
        else a.Error(Qz::rcEndOfText, size_t(main->LabelStart), a.Text.size(), "the last word of a program must be RET");
        return false;
    }
    a.Out.Scopes[0].BodyStart = Range{size_t(token.Start), size_t(token.End) + 1};
    a.BodyToken.push_back(0);
    Label label;
    label.Name = "MAIN";
    label.NameRange = a.Out.Scopes[0].BodyStart;
    a.LabelIndex.emplace("MAIN", a.Out.Labels.size());
    a.Out.Labels.push_back(label);
    a.BodyPosition = size_t(token.Next);
    return true;
}

// Every token from MAIN's body to the final RET, as the body loop scans
// them; labels are entered where the scan enters them.
void Tokenise(Analysis& a) {
    Reader& m = *a.M;
    int32_t pos = int32_t(a.BodyPosition);
    while (pos >= 0 && pos < m.TextLen) {
        Token t;
        const uint32_t r = m.ScanTokenAt(pos, t.Scanned);
        if (r != Qz::rcOK) {
            const Range range = TokenRange(m);
            t.Failure = r;
            t.Begin = range.Begin;
            t.End = range.End;
            if (r == Qz::rcEndOfText) t.End = a.Text.find_last_not_of(' ') + 1;
            a.Tokens.push_back(std::move(t));
            if (r == Qz::rcEndOfText) break;
            const size_t blank = a.Text.find(' ', std::max(range.End, range.Begin + 1));
            const size_t next = blank == std::string::npos ? std::string::npos : a.Text.find_first_not_of(' ', blank);
            if (next == std::string::npos) {
                Token end;
                end.Failure = Qz::rcEndOfText;
                end.Begin = range.Begin;
                end.End = a.Text.find_last_not_of(' ') + 1;
                a.Tokens.push_back(std::move(end));
                break;
            }
            pos = int32_t(next);
            continue;
        }
        t.Begin = size_t(t.Scanned.Start);
        t.End = t.Scanned.Code == ttEND ? t.Begin + 3 : size_t(t.Scanned.End) + 1;
        if (RegistersLabel(t.Scanned.Code)) m.Labels.lookup(m.TokenText, m.TokenStart, m.TokenEnd, true);
        pos = t.Scanned.Next;
        const bool end = t.Scanned.Code == ttEND;
        a.Tokens.push_back(std::move(t));
        if (end) break;
    }
    for (size_t i = 0; i + 1 < a.Tokens.size(); ++i)
        if (!a.Tokens[i].Failure && a.Tokens[i].Scanned.Code == ttCAL && !a.Tokens[i + 1].Failure)
            a.CallTargets.emplace(a.Tokens[i + 1].Scanned.Text, true);
}

bool IsLocalKind(uint8_t code) { return code == ttV || code == ttVA || code == ttVR; }

// Per token: whether declarations of locals (name, kind, type, number), as
// many as there are, lead from it to a BODY.
std::vector<bool> LeadsToBody(const Analysis& a) {
    const size_t n = a.Tokens.size();
    auto code = [&](size_t k) { return k < n && !a.Tokens[k].Failure ? a.Tokens[k].Scanned.Code : 0; };
    std::vector<bool> leads(n + 4, false);
    for (size_t j = n; j-- > 0;)
        leads[j] = code(j) == ttBODY || (IsLocalKind(code(j + 1)) && IsValueType(char(code(j + 2))) &&
                                         code(j + 3) == ttNUMBER && leads[j + 4]);
    return leads;
}

// A label that starts a subprogram: one that is called, or one followed by
// declarations of locals and BODY.
bool StartsSubprogram(const Analysis& a, size_t i) {
    return a.CallTargets.count(a.Tokens[i].Scanned.Text) || a.LeadsToBody[i + 1];
}

size_t TokenAt(const Analysis& a, size_t begin, size_t from) {
    const auto it = std::lower_bound(a.Tokens.begin() + long(from), a.Tokens.end(), begin,
                                     [](const Token& t, size_t b) { return t.Begin < b; });
    return size_t(it - a.Tokens.begin());
}

// The locals of the subprogram whose label is token `i`, read as CAL reads
// them; returns the token after its BODY (or where reading can go on).
size_t ReadSubprogramHeader(Analysis& a, size_t i) {
    Reader& m = *a.M;
    const Token& label = a.Tokens[i];
    const size_t scope = a.Out.Scopes.size();
    Scope s;
    s.Name = label.Scanned.Text;
    s.NameRange = Range{label.Begin, label.End - 1};
    s.Extent.Begin = label.Begin;
    a.Out.Scopes.push_back(s);
    a.Tables.emplace_back();
    a.BodyToken.push_back(a.Tokens.size());
    a.Out.Labels.back().StartsSubprogram = true;
    if (label.Scanned.Next < 0) return i + 1;
    m.SeekTo(label.Scanned.Next);
    for (;;) {
        QZ_DeclarationRead d;
        const uint32_t r = m.ReadDeclaration(true, d);
        if (r != Qz::rcOK) {
            ReportAtScanner(a, r);
            const size_t failed = TokenAt(a, size_t(std::max(m.TokenStart, 0)), i + 1);
            for (size_t k = failed; k < a.Tokens.size(); ++k) {
                const uint8_t code = a.Tokens[k].Failure ? 0 : a.Tokens[k].Scanned.Code;
                if (code == ttBODY) {
                    a.BodyToken[scope] = k + 1;
                    return k + 1;
                }
                if (code == ttRET || code == ttEND || code == ttLABEL) break;
            }
            return std::max(failed + 1, i + 1);
        }
        if (d.Ended) {
            const size_t body = TokenAt(a, size_t(m.TokenStart), i + 1);
            a.Out.Scopes[scope].BodyStart = Range{size_t(m.TokenStart), size_t(m.TokenEnd) + 1};
            for (size_t k = i + 1; k <= body && k < a.TokenScope.size(); ++k) a.TokenScope[k] = scope;
            a.BodyToken[scope] = body + 1;
            return body + 1;
        }
        AddDeclaration(a, d, scope, m.TokenEnd);
    }
}

void AddLabel(Analysis& a, size_t i, size_t scope) {
    const Token& t = a.Tokens[i];
    Label label;
    label.Name = t.Scanned.Text;
    label.NameRange = Range{t.Begin, t.End - 1};
    label.ScopeIndex = scope;
    const auto [it, added] = a.LabelIndex.emplace(label.Name, a.Out.Labels.size());
    if (!added) {
        const Label& first = a.Out.Labels[it->second];
        a.Warning("duplicate-label", label.NameRange.Begin, label.NameRange.End,
                  "`" + first.Name + "` is declared first at " + Place(a.File, first.NameRange.Begin) +
                      "; jumps and calls go there");
    }
    a.Out.Labels.push_back(label);
}

bool EndsWords(uint8_t code) {
    return IsInstructionCode(code) || code == ttNAME || code == ttLABEL || code == ttBODY || code == ttEND || code == ttMAIN ||
           code == ttPROG || code == ttVARSECTION;
}

std::string NotInstructionNote(const Token& t) {
    if (t.Scanned.Code != ttNAME) return "an operand too many, or a word that belongs elsewhere";
    std::string upper = t.Scanned.Text;
    for (char& c : upper) c = AsciiUpper(c);
    if (IsInstructionCode(FindKeyword(upper.c_str()))) return "instructions are written in upper case: `" + upper + "`";
    std::vector<std::string> names;
    for (const QZ_InstructionInfo& info : kInstructionInfo) names.push_back(info.Name);
    return NearMiss(upper, names, "");
}

// For each label, the regions of text that jump to it, each named by the
// token of the subprogram label it follows (kNoHeader: the program's). Code
// after a subprogram's RET runs only when jumped to, in the frame of
// whoever jumps there.
constexpr size_t kNoHeader = size_t(-1);

std::unordered_map<std::string, std::vector<size_t>> JumpSources(const Analysis& a) {
    std::unordered_map<std::string, std::vector<size_t>> sources;
    size_t region = kNoHeader;
    for (size_t i = 0; i + 1 < a.Tokens.size(); ++i) {
        if (a.Tokens[i].Failure) continue;
        const uint8_t code = a.Tokens[i].Scanned.Code;
        if (code == ttLABEL && StartsSubprogram(a, i)) region = i;
        const bool jump = code == ttJMP || code == ttJMPF || code == ttJMPT;
        if (!jump || a.Tokens[i + 1].Failure || a.Tokens[i + 1].Scanned.Code != ttNAME) continue;
        std::vector<size_t>& list = sources[a.Tokens[i + 1].Scanned.Text];
        if (std::find(list.begin(), list.end(), region) == list.end()) list.push_back(region);
    }
    return sources;
}

// The body loop's view of every token: labels passed over, BODY passed over
// inside a subprogram, RET ending a body, anything else an instruction.
void Walk(Analysis& a) {
    a.LeadsToBody = LeadsToBody(a);
    const auto sources = JumpSources(a);
    std::unordered_map<size_t, size_t> headerScope;  // a subprogram label's token -> its scope
    const size_t n = a.Tokens.size();
    a.TokenScope.assign(n, 0);
    a.InstructionAt.assign(n, -1);
    size_t scope = 0;
    bool bodyOpen = false;  // a subprogram's body that has not met its RET
    uint8_t lastCode = 0;   // the last instruction read (0: none yet)
    int64_t lastInstruction = -1;
    size_t i = 0;
    while (i < n) {
        const Token& t = a.Tokens[i];
        a.TokenScope[i] = scope;
        if (t.Failure) {
            a.Error(t.Failure, t.Begin, t.End,
                    t.Failure == Qz::rcEndOfText ? "the last word of a program must be RET" : std::string());
            for (++i; i < n && !a.Tokens[i].Failure && !EndsWords(a.Tokens[i].Scanned.Code); ++i)
                a.TokenScope[i] = scope;
            continue;
        }
        const uint8_t code = t.Scanned.Code;
        if (code == ttEND) {
            a.Out.Scopes[scope].Extent.End = t.End;
            if (scope > 0 && bodyOpen)
                a.Warning("ret-at-end", t.Begin, t.End,
                          "end the file with a RET of its own after the last subprogram");
            break;
        }
        if (code == ttLABEL) {
            const bool header = StartsSubprogram(a, i);
            AddLabel(a, i, header ? a.Out.Scopes.size() : scope);
            if (header && lastCode != ttRET && lastCode != ttJMP && i + 1 < n && !a.Tokens[i + 1].Failure) {
                // Running goes on past the label into the locals, or into a
                // BODY that only a call passes over.
                const bool body = a.Tokens[i + 1].Scanned.Code == ttBODY;
                if (!body || scope == 0)
                    a.Falls.push_back({lastInstruction, i + 1, a.Out.Scopes.size()});
            }
            if (header) {
                scope = a.Out.Scopes.size();
                headerScope.emplace(i, scope);
                a.TokenScope[i] = scope;
                bodyOpen = true;
                i = ReadSubprogramHeader(a, i);
                continue;
            }
            const auto jumpers = sources.find(t.Scanned.Text);
            if (scope > 0 && !bodyOpen && jumpers != sources.end() && jumpers->second.size() == 1) {
                // Code past a subprogram's RET, jumped to from one body only.
                const size_t region = jumpers->second[0];
                const auto known = headerScope.find(region);
                if (region == kNoHeader) scope = 0;
                else if (known != headerScope.end()) scope = known->second;
                a.TokenScope[i] = scope;
                a.Out.Labels.back().ScopeIndex = scope;
            }
            ++i;
            continue;
        }
        if (code == ttBODY && scope > 0) {
            ++i;
            continue;
        }
        if (code == ttRET) {
            a.Out.Scopes[scope].Extent.End = t.End;
            bodyOpen = false;
        }
        if (!IsInstructionCode(code)) {
            a.Error(Qz::rcNotInstruction, t.Begin, t.End, NotInstructionNote(t));
            // What follows up to the next instruction, label or RET belongs
            // to the word that failed: one error, not one a word.
            for (++i; i < n && !a.Tokens[i].Failure && !EndsWords(a.Tokens[i].Scanned.Code); ++i)
                a.TokenScope[i] = scope;
            continue;
        }
        lastCode = code;
        lastInstruction = int64_t(a.Out.Instructions.size());
        i = ReadInstruction(a, i);
    }
    for (size_t k = 1; k < a.Out.Scopes.size(); ++k)
        if (a.Out.Scopes[k].Extent.End < a.Out.Scopes[k].Extent.Begin)
            a.Out.Scopes[k].Extent.End = a.Out.Scopes[k].Extent.Begin;
}

}  // namespace

void Analysis::Error(uint32_t code, size_t begin, size_t end, std::string note) {
    Diagnostic d;
    d.Level = Severity::Error;
    d.Code = code;
    d.Id = std::to_string(code);
    d.Where = Range{begin, std::max(begin, end)};
    const char* meaning = Qz::ResultMeaning(code);
    d.Message = meaning ? meaning : "unknown result code";
    d.Note = std::move(note);
    Out.Diagnostics.push_back(std::move(d));
}

const Declaration* Analysis::Find(const std::string& name, size_t scope, size_t* index) const {
    if (scope >= Tables.size()) return nullptr;
    const auto it = Tables[scope].ByKey.find(VariableKey(name));
    if (it == Tables[scope].ByKey.end()) return nullptr;
    if (index) *index = it->second;
    return &Out.Declarations[it->second];
}

std::string Place(std::string_view text, size_t offset) {
    size_t line = 1, lineStart = 0;
    for (size_t i = 0; i < offset && i < text.size(); ++i)
        if (text[i] == '\n') {
            ++line;
            lineStart = i + 1;
        }
    return std::to_string(line) + ":" + std::to_string(offset - lineStart + 1);
}

std::string VariableKey(const std::string& name) {
    char key[kNameKeyMax];
    const size_t length = NameKey(name.c_str(), key);
    return std::string(key, length);
}

}  // namespace detail

Model Analyse(std::string_view fileText) {
    detail::Analysis a(fileText);
    a.Text.assign(fileText.data(), fileText.size());
    size_t unclosed = 0;
    if (!BlankComments(a.Text, unclosed)) {
        Diagnostic d;
        d.Id = "comment";
        d.Where = Range{unclosed, unclosed + 2};
        d.Message = "comment not closed: '(*' without '*)'";
        a.Out.Diagnostics.push_back(std::move(d));
        return std::move(a.Out);
    }
    a.M.reset(new detail::Reader(a.Text));
    if (detail::ReadHeader(a)) {
        a.M->SuppressLabelRegistration = true;
        detail::Tokenise(a);
        detail::Walk(a);
        detail::NoteMissingVariables(a);
        detail::AnalyseFlow(a);
        detail::AnalyseUses(a);
    }
    std::stable_sort(a.Out.Diagnostics.begin(), a.Out.Diagnostics.end(),
                     [](const Diagnostic& x, const Diagnostic& y) { return x.Where.Begin < y.Where.Begin; });
    return std::move(a.Out);
}

}  // namespace qz::check
