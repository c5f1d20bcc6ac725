// Operands as each instruction's handler reads them (qz_operand_rules.h):
// the result code the handler would return for each operand, the uses of
// variables and labels, and hints for near-miss names.
#include "qz_check_internal.h"

#include "qz_builtins.h"
#include "qz_operand_rules.h"

#include <QString>
#include <algorithm>

namespace qz::check::detail {
namespace {

bool IsValueRegister(uint8_t code) { return code == ttA0 || code == ttR0 || code == ttR1; }

// Tokens that cannot be meant as an operand: a missing operand is reported
// there, and the token is read again as what it is.
bool EndsOperands(uint8_t code) {
    return IsInstructionCode(code) || code == ttLABEL || code == ttBODY || code == ttEND;
}

struct Reading {
    Analysis& A;
    size_t Scope;
    size_t Instruction;
    uint32_t Result = 0;  // the first failure, as the handler meets it
};

void Fail(Reading& r, uint32_t code, const Token& t, std::string note = {}) {
    if (r.Result) return;
    r.Result = code;
    r.A.Error(code, t.Begin, t.End, std::move(note));
}

std::vector<std::string> NamesInScope(const Analysis& a, size_t scope) {
    std::vector<std::string> names;
    for (const Declaration& d : a.Out.Declarations)
        if (d.ScopeIndex == scope) names.push_back(d.Name);
    return names;
}

void UseVariable(Reading& r, const Token& t, bool write) {
    Analysis& a = r.A;
    Use use;
    use.Where = Range{t.Begin + 1, t.End};
    use.Kind = SymbolKind::Declaration;
    use.ScopeIndex = r.Scope;
    use.IsWrite = write;
    size_t index = 0;
    use.Resolved = a.Find(t.Scanned.Text, r.Scope, &index) != nullptr;
    use.Target = index;
    a.Out.Uses.push_back(use);
    if (!use.Resolved && !r.Result) {
        // The note waits for the whole text: the name may be declared further on.
        a.MissingNotes.push_back({a.Out.Diagnostics.size(), t.Scanned.Text, r.Scope, t.Scanned.Code == ttREF});
        Fail(r, Qz::rcVarNotFound, t);
    }
}

std::string LabelNote(Analysis& a, const std::string& name) {
    if (a.Suggestions >= 100) return {};
    ++a.Suggestions;
    std::vector<std::string> names;
    for (const Token& t : a.Tokens)
        if (!t.Failure && t.Scanned.Code == ttLABEL) names.push_back(t.Scanned.Text);
    return NearMiss(name, names, "");
}

// A jump or call target: a label the table holds, whose token is a label.
void UseLabel(Reading& r, const Token& t) {
    Analysis& a = r.A;
    Use use;
    use.Where = Range{t.Begin, t.End};
    use.Kind = SymbolKind::Label;
    use.ScopeIndex = r.Scope;
    const auto found = a.LabelIndex.find(t.Scanned.Text);
    use.Resolved = found != a.LabelIndex.end();
    use.Target = use.Resolved ? found->second : 0;
    a.Out.Uses.push_back(use);

    const ::Label* label = a.M->Labels.lookup(t.Scanned.Text.c_str(), 0, 0, false);
    if (!label) {
        Fail(r, Qz::rcLabelNotFound, t, LabelNote(a, t.Scanned.Text));
        return;
    }
    QZ_ScannedToken at;
    if (a.M->ScanTokenAt(label->LabelStart, at) != Qz::rcOK || at.Code != ttLABEL)
        Fail(r, Qz::rcNoLabelToken, t,
             "`" + t.Scanned.Text + "` at " + Place(a.File, size_t(label->LabelStart)) +
                 " is a keyword, not a label: running stops there");
    else if (size_t(label->LabelStart) < a.BodyPosition)
        a.Warning("label-before-main", t.Begin, t.End,
                  "the loader entered `" + t.Scanned.Text + "` at " + Place(a.File, size_t(label->LabelStart)) +
                      " while it looked for PROG or read the declarations; that one is the target");
}

void UseBuiltin(Reading& r, const Token& t) {
    Use use;
    use.Where = Range{t.Begin, t.End};
    use.Kind = SymbolKind::Label;
    use.ScopeIndex = r.Scope;
    r.A.Out.Uses.push_back(use);
    const QString name = QString::fromLatin1(t.Scanned.Text.c_str()).toUpper();
    if (QZBuildInFunctions::FindBuiltinEntry(name)) return;
    std::vector<std::string> names;
    for (int k = 0; k < 15; ++k) names.push_back(QZBuildInFunctions::BuiltinTable()[k].Name);
    Fail(r, Qz::rcNoBuiltin, t, NearMiss(name.toStdString(), names, ""));
}

// One operand under `rule`: the code its handler returns for it (0 when it
// takes it, as far as the text tells).
void ReadOperand(Reading& r, QZ_OperandRule rule, Qz::ResultCode badKind, const Token& t) {
    const uint8_t c = t.Scanned.Code;
    const bool write = rule == orMoveDestination || rule == orAddressDestination;
    switch (rule) {
    case orSource: case orMoveSource: case orBoolSource:
        if (c == ttVAR || c == ttREF) {
            UseVariable(r, t, false);
            const Declaration* d = c == ttVAR ? r.A.Find(t.Scanned.Text, r.Scope) : nullptr;
            if (rule == orBoolSource && d && d->Type != ttBOOL)
                Fail(r, badKind, t, "`" + d->Name + "` is not a BOOL");
        } else if (c == ttNIL) {
            Fail(r, Qz::rcNotRegister, t, "NIL discards what is written to it and cannot be read");
        } else if (c == ttNUMBER) {
            if (rule == orBoolSource) Fail(r, badKind, t, "a literal is never a BOOL; use a BOOL variable or register");
        } else if (!(IsValueRegister(c) || c == ttPOP || (c == ttTICK && rule == orMoveSource))) {
            Fail(r, badKind, t);
        }
        return;
    case orMoveDestination:
        if (c == ttVAR || c == ttREF) UseVariable(r, t, write);
        else if (!(IsRegisterCode(c) || c == ttPUSH || c == ttTICK)) Fail(r, badKind, t);
        return;
    case orAddressSource:
        if (c == ttVAR) UseVariable(r, t, false);
        else if (c == ttNIL) Fail(r, Qz::rcNotRegister, t, "NIL discards what is written to it and cannot be read");
        else if (!IsValueRegister(c)) Fail(r, badKind, t);
        return;
    case orAddressDestination:
        if (c == ttVAR) UseVariable(r, t, write);
        else if (!IsRegisterCode(c)) Fail(r, badKind, t);
        return;
    case orRegister:
        if (c == ttNIL) Fail(r, Qz::rcNotRegister, t, "NIL discards what is written to it and cannot be read");
        else if (!IsValueRegister(c)) Fail(r, badKind, t);
        return;
    case orLabel:
        if (c != ttNAME)
            Fail(r, badKind, t, c == ttLABEL ? "a jump names its label without the ':'" : "a jump names a label");
        else UseLabel(r, t);
        return;
    case orCallTarget:
        UseLabel(r, t);
        return;
    case orBuiltin:
        UseBuiltin(r, t);
        return;
    case orNone:
        return;
    }
}

size_t EditDistance(const std::string& x, const std::string& y) {
    std::vector<size_t> row(y.size() + 1);
    for (size_t j = 0; j <= y.size(); ++j) row[j] = j;
    for (size_t i = 1; i <= x.size(); ++i) {
        size_t diagonal = row[0];
        row[0] = i;
        for (size_t j = 1; j <= y.size(); ++j) {
            const size_t above = row[j];
            row[j] = std::min({row[j] + 1, row[j - 1] + 1, diagonal + (x[i - 1] == y[j - 1] ? 0 : 1)});
            diagonal = above;
        }
    }
    return row[y.size()];
}

}  // namespace

void NoteMissingVariables(Analysis& a) {
    std::unordered_map<std::string, size_t> declaring;  // name key -> the first scope declaring it
    for (const Declaration& d : a.Out.Declarations) declaring.emplace(VariableKey(d.Name), d.ScopeIndex);
    size_t suggestions = 0;
    for (const Analysis::MissingNote& m : a.MissingNotes) {
        std::string& note = a.Out.Diagnostics[m.Diagnostic].Note;
        const auto found = declaring.find(VariableKey(m.Name));
        if (found != declaring.end() && found->second != m.Scope) {
            const size_t s = found->second;
            if (m.Scope > 0)
                note = "`" + m.Name + "` is declared in " +
                       (s == 0 ? std::string("the program") : "`" + a.Out.Scopes[s].Name + "`") +
                       "; a subprogram sees only its own locals (pass a reference through the stack)";
            else
                note = "`" + m.Name + "` is a local of `" + a.Out.Scopes[s].Name + "`; the program does not see it";
        } else if (m.Scope == 0 && !a.HasVarSection) {
            note = "the program has no VAR section, so it has no variables";
        } else if (suggestions++ < 100) {
            note = NearMiss(m.Name, NamesInScope(a, m.Scope), m.Reference ? "^" : "@");
        }
    }
}

std::string NearMiss(const std::string& name, const std::vector<std::string>& candidates, const char* prefix) {
    const std::string key = VariableKey(name);
    size_t best = 3;
    const std::string* found = nullptr;
    for (const std::string& candidate : candidates) {
        if (candidate.size() > name.size() + 2 || candidate.size() + 2 < name.size()) continue;
        const size_t d = EditDistance(key, VariableKey(candidate));
        if (d < best && d > 0) {
            best = d;
            found = &candidate;
        } else if (d == 0 && candidate != name) {
            return "did you mean `" + std::string(prefix) + candidate + "`? labels are case-sensitive";
        }
    }
    return found ? "did you mean `" + std::string(prefix) + *found + "`?" : std::string();
}

size_t ReadInstruction(Analysis& a, size_t i) {
    const Token& word = a.Tokens[i];
    const QZ_OperandRules& rules = OperandRulesOf(word.Scanned.Code);
    Reading r{a, a.TokenScope[i], a.Out.Instructions.size()};
    Instruction insn;
    insn.Code = word.Scanned.Code;
    insn.Word = Range{word.Begin, word.End};
    insn.Extent = insn.Word;
    insn.ScopeIndex = r.Scope;
    a.InstructionAt[i] = int32_t(a.Out.Instructions.size());
    size_t next = i + 1;
    // Every operand the handler reads is read, also past the first failure,
    // so that none of them is taken for an instruction; a word that cannot
    // be an operand is a missing one, and is read again as what it is.
    for (const QZ_OperandRule rule : {rules.First, rules.Second}) {
        if (rule == orNone || next >= a.Tokens.size()) break;
        const Token& t = a.Tokens[next];
        if (t.Failure) {
            Fail(r, t.Failure, t,
                 t.Failure == Qz::rcEndOfText ? "the last word of a program must be RET" : std::string());
            insn.Extent.End = t.End;
            ++next;
            continue;
        }
        const bool missing = EndsOperands(t.Scanned.Code);
        if (missing && r.Result) break;
        a.TokenScope[next] = r.Scope;
        ReadOperand(r, rule, rules.BadKind, t);
        if (missing && r.Result) break;
        insn.Extent.End = t.End;
        ++next;
    }
    a.Out.Instructions.push_back(insn);
    a.InstructionEnd.push_back(next);
    a.Failed.push_back(r.Result != 0);
    return next;
}

}  // namespace qz::check::detail
