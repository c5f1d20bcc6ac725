#include "live_program.h"

#include "../value_format.h"
#include "qz_st_result_codes.h"
#include "qz_st_variables.h"

#include <algorithm>

// The checker's export arrived in the library after the live view; built
// against a library without it, the diagnostics list stays empty.
#if __has_include("qz_st_check.h")
#include "qz_st_check.h"
#define QZLIVE_HAVE_CHECKER 1
#endif

namespace qzlive {

namespace {

struct KindEntry {
    uint8_t Code;
    const char* Name;
};
constexpr KindEntry kKinds[] = {{0x14, "V"},   {0x15, "VI"},  {0x16, "VO"},  {0x17, "VIO"}, {0x18, "VG"},
                                {0x19, "TVG"}, {0x1a, "TVR"}, {0x1b, "VA"},  {0x1c, "VR"}};

void CollectVariable(void* context, const QZVariableInfo* info) {
    auto* variables = static_cast<std::vector<Variable>*>(context);
    variables->push_back(Variable{std::string(info->Name, info->NameLength), info->Kind, info->Type});
}

#ifdef QZLIVE_HAVE_CHECKER
void CollectDiagnostic(void* context, const QZDiagnostic* found) {
    auto* diagnostics = static_cast<std::vector<Diagnostic>*>(context);
    Diagnostic diagnostic;
    diagnostic.Severity = found->Severity == QZ_DIAGNOSTIC_ERROR ? "error" : "warning";
    diagnostic.Id = found->Id ? found->Id : "";
    diagnostic.Message = found->Message ? found->Message : "";
    if (found->Note && *found->Note) diagnostic.Message += std::string(" (") + found->Note + ")";
    diagnostic.Line = int(found->Line);
    diagnostic.Column = int(found->Column);
    diagnostics->push_back(std::move(diagnostic));
}
#endif

void CheckProgram(ProgramInfo& program) {
#ifdef QZLIVE_HAVE_CHECKER
    const std::string& text = program.Source.Bytes();
    QZCheckProgram(text.data(), text.size(), CollectDiagnostic, &program.Diagnostics);
#else
    (void)program;
#endif
}

}  // namespace

bool HaveChecker() {
#ifdef QZLIVE_HAVE_CHECKER
    return true;
#else
    return false;
#endif
}

const char* KindName(uint8_t kind) {
    for (const KindEntry& entry : kKinds)
        if (entry.Code == kind) return entry.Name;
    return "?";
}

const char* TypeNameOf(uint8_t type) {
    const char* name = qzrun::TypeName(char(type));
    return name ? name : "?";
}

std::string FoldName(const std::string& name) {
    std::string folded = name;
    for (char& c : folded)
        if (c >= 'a' && c <= 'z') c = char(c - 'a' + 'A');
    return folded;
}

int ProgramInfo::Find(const std::string& name) const {
    const auto found = Index_.find(FoldName(name));
    return found == Index_.end() ? -1 : found->second;
}

void ProgramInfo::IndexNames() {
    Index_.clear();
    for (size_t i = 0; i < Variables.size(); ++i) Index_.emplace(FoldName(Variables[i].Name), int(i));
}

ErrorInfo LocateSpan(const qzrun::SourceText& source, int32_t start, int32_t end) {
    ErrorInfo place;
    place.Offset = size_t(std::max(start, 0));
    place.Length = size_t(std::max(end - start, 1));
    const qzrun::Location at = source.Locate(place.Offset);
    place.Line = at.Line;
    place.Column = at.Column;
    return place;
}

ErrorInfo LocateError(const qzrun::SourceText& source, qz_st_interpretator::IQZSTInterpretator* interpreter,
                      uint32_t code, long long cycle) {
    QZScanPosition position{};
    QZGetScanPosition(interpreter, &position);
    const std::string& text = source.Flat();
    ErrorInfo error;
    const bool atEnd =
        code == Qz::rcEndOfText || position.TokenStart < 0 || size_t(position.TokenStart) >= text.size();
    if (atEnd) {
        error = LocateSpan(source, int32_t(source.EndOfProgram()), int32_t(source.EndOfProgram()) + 1);
    } else {
        // TokenEnd is the token's last character, or stale when the scanner
        // stopped inside the token.
        int32_t end = position.TokenEnd + 1;
        if (position.TokenEnd < position.TokenStart || size_t(position.TokenEnd) >= text.size()) {
            const size_t blank = text.find(' ', size_t(position.TokenStart));
            end = int32_t(blank == std::string::npos ? text.size() : blank);
        }
        error = LocateSpan(source, position.TokenStart, end);
    }
    error.Code = code;
    const char* meaning = Qz::ResultMeaning(code);
    error.Message = meaning ? meaning : "unknown result code";
    error.Cycle = cycle;
    return error;
}

void LoadProgram(ProgramInfo& program, qz_st_interpretator::IQZSTInterpretator* interpreter) {
    CheckProgram(program);
    size_t commentStart = 0;
    if (!program.Source.Flatten(commentStart)) {
        ErrorInfo error = LocateSpan(program.Source, int32_t(commentStart), int32_t(commentStart) + 2);
        error.Message = "comment not closed: '(*' without '*)'";
        program.LoadError = error;
        return;
    }
    if (const uint32_t code = interpreter->InitInterpretator(program.Source.Flat())) {
        program.LoadError = LocateError(program.Source, interpreter, code, 0);
        return;
    }
    QZListVariables(interpreter, CollectVariable, &program.Variables);
    program.IndexNames();
}

}  // namespace qzlive
