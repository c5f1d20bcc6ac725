// Fuzz target: the checker.
//
// On any text, Analyse must end, stay within the text and describe every
// diagnostic. On a text it finds no error in, running the program (a few
// cycles under an instruction budget) must never fail with an error the
// text alone decides: an unknown word (14, 24), an operand of a kind its
// instruction does not take, a target that is no label (21, 22, unless the
// checker warned that a text without VAR meets its labels late), an unknown
// built-in (13), or a variable whose name no scope declares (23). A text
// whose jumps leave for the text before MAIN (the warning label-before-main)
// is not run: running goes on in text the checker does not read.
#include "qz_fuzz_targets.h"

#include "qz_check.h"
#include "qz_source.h"
#include "qz_st_intrpr_main.h"
#include "qz_vars.h"

#include <QString>
#include <cstring>
#include <set>
#include <string>

namespace {

class QuietHost : public qz_st_interpretator::IQZExecuteInterface {
public:
    bool GetValueFrom(CQZDirection, const QString&, double& value) override {
        value = 1.0;
        return true;
    }
    bool SetValueTo(CQZDirection, const QString&, double, int, bool) override { return true; }
};

bool DecidedByText(uint32_t code) {
    static const std::set<uint32_t> kCodes = {14, 24, 43, 44, 46, 47, 49, 53, 54, 59, 60, 61, 62, 21, 22, 13};
    return kCodes.count(code) != 0;
}

std::string Key(const std::string& name) {
    char key[kNameKeyMax];
    return std::string(key, NameKey(name.c_str(), key));
}

void CheckModel(const std::string& text, const qz::check::Model& model) {
    size_t previous = 0;
    for (const qz::check::Diagnostic& d : model.Diagnostics) {
        QZ_FUZZ_CHECK(d.Where.Begin <= d.Where.End && d.Where.End <= text.size());
        QZ_FUZZ_CHECK(d.Where.Begin >= previous);
        QZ_FUZZ_CHECK(!d.Message.empty() && !d.Id.empty());
        QZ_FUZZ_CHECK((d.Level == qz::check::Severity::Error) == (d.Code != 0 || d.Id == "comment"));
        previous = d.Where.Begin;
    }
    for (const qz::check::Use& u : model.Uses) QZ_FUZZ_CHECK(u.Where.Begin <= u.Where.End && u.Where.End <= text.size());
    for (const qz::check::Instruction& i : model.Instructions) QZ_FUZZ_CHECK(i.Extent.End <= text.size());
    for (const qz::check::Declaration& d : model.Declarations) QZ_FUZZ_CHECK(d.ScopeIndex < model.Scopes.size());
}

// The name of the @X or ^X operand running stopped at, or "".
std::string VariableAt(const std::string& text, int32_t start) {
    if (start < 0 || size_t(start) + 1 >= text.size() || (text[size_t(start)] != '@' && text[size_t(start)] != '^'))
        return {};
    size_t end = size_t(start) + 1;
    while (end < text.size() && text[end] != ' ' && !IsSeparatorChar(text[end])) ++end;
    return text.substr(size_t(start) + 1, end - size_t(start) - 1);
}

// 47 and 53 are also what a register holding a value of the wrong type
// gets: only the text's own operand kinds are the checker's to find.
bool TypeOfValue(uint32_t code, const std::string& text, int32_t start) {
    if (code != Qz::rcBoolOperand && code != Qz::rcBnotOperand) return false;
    if (start < 0 || size_t(start) >= text.size()) return false;
    if (text[size_t(start)] == '^') return true;
    for (const char* word : {"A0", "R0", "R1", "POP"}) {
        const size_t n = std::strlen(word);
        if (text.compare(size_t(start), n, word) == 0 && (size_t(start) + n == text.size() || text[size_t(start) + n] == ' '))
            return true;
    }
    return false;
}

void RunWhenClean(const std::string& file, const qz::check::Model& model) {
    bool lateLabels = false;
    for (const qz::check::Diagnostic& d : model.Diagnostics) {
        if (d.Level == qz::check::Severity::Error) return;
        if (d.Id == "forward-jump-no-var") lateLabels = true;
        if (d.Id == "label-before-main") return;  // running goes on in text the checker does not read
    }
    std::string text = file;
    size_t unclosed = 0;
    if (!qz::BlankComments(text, unclosed)) return;
    std::set<std::string> declared;
    for (const qz::check::Declaration& d : model.Declarations) declared.insert(Key(d.Name));

    CQZ_STInterpretator object;
    QZSetInstructionBudget(&object, 5000);
    QZSetStackLimit(&object, 10000);
    QZSetCallDepthLimit(&object, 1000);
    const uint32_t load = object.InitInterpretator(text);
    QZ_FUZZ_CHECK(!DecidedByText(load));
    if (load != 0) return;
    QuietHost host;
    for (int cycle = 0; cycle < 3; ++cycle) {
        const uint32_t r = object.Execute(&host);
        if (r == 0) continue;
        QZScanPosition position{};
        QZGetScanPosition(&object, &position);
        if (r == Qz::rcVarNotFound) {
            const std::string name = VariableAt(text, position.TokenStart);
            if (!name.empty() && !declared.count(Key(name))) {
                std::fprintf(stderr, "23 at %d for `%s`, declared nowhere, and the checker found no error\n",
                             position.TokenStart, name.c_str());
                std::abort();
            }
        } else if (DecidedByText(r) && !(lateLabels && (r == 21 || r == 22)) &&
                   !TypeOfValue(r, text, position.TokenStart)) {
            std::fprintf(stderr, "code %u at %d, and the checker found no error\n", r, position.TokenStart);
            std::abort();
        }
        return;
    }
}

}  // namespace

int QzFuzzCheck(const uint8_t* data, size_t size) {
    const std::string text(reinterpret_cast<const char*>(data), size);
    const qz::check::Model model = qz::check::Analyse(text);
    CheckModel(text, model);
    RunWhenClean(text, model);
    return 0;
}

#ifndef QZ_FUZZ_NO_MAIN
extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) { return QzFuzzCheck(data, size); }
#endif
