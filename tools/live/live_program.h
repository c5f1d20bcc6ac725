// What the live view knows about the program before it runs: its text, its
// declarations, and where an error lies in the file.
#ifndef QZRUN_LIVE_PROGRAM_H
#define QZRUN_LIVE_PROGRAM_H

#include "../source_text.h"
#include "qz_st_interpretator.h"

#include <cstdint>
#include <optional>
#include <string>
#include <unordered_map>
#include <vector>

namespace qzlive {

// Declaration kind codes as QZListVariables reports them.
enum : uint8_t { kKindV = 0x14, kKindVI = 0x15, kKindVO = 0x16 };

struct Variable {
    std::string Name;
    uint8_t Kind = 0;
    uint8_t Type = 0;
};

// An error at a place in the file.
struct ErrorInfo {
    uint32_t Code = 0;
    std::string Message;
    long long Cycle = 0;  // 0: while loading
    size_t Offset = 0;
    size_t Length = 1;
    int Line = 0;
    int Column = 0;
};

// A finding of the checker, shown in the page's diagnostics list.
struct Diagnostic {
    std::string Severity;  // "error" or "warning"
    std::string Id;        // errors: the result code; warnings: their name
    std::string Message;
    int Line = 0;
    int Column = 0;
};

struct ProgramInfo {
    explicit ProgramInfo(qzrun::SourceText source) : Source(std::move(source)) {}
    qzrun::SourceText Source;
    std::vector<Variable> Variables;  // in the order of the declarations
    std::optional<ErrorInfo> LoadError;
    std::vector<Diagnostic> Diagnostics;

    // Index of a variable by name (ASCII case folded, as the program finds
    // names), or -1.
    int Find(const std::string& name) const;
    void IndexNames();

private:
    std::unordered_map<std::string, int> Index_;
};

// Whether this build has the library's checker (else no diagnostics).
bool HaveChecker();

const char* KindName(uint8_t kind);
const char* TypeNameOf(uint8_t type);
std::string FoldName(const std::string& name);

// Flattens and loads the source into `interpreter`, filling the
// declarations, or the load error, and the checker's diagnostics when the
// library has the checker.
void LoadProgram(ProgramInfo& program, qz_st_interpretator::IQZSTInterpretator* interpreter);

// The error the interpreter reports after a failed load or cycle, placed in
// the file from its scan position.
ErrorInfo LocateError(const qzrun::SourceText& source, qz_st_interpretator::IQZSTInterpretator* interpreter,
                      uint32_t code, long long cycle);

// An instruction span reported by the trace hook, as a place in the file.
ErrorInfo LocateSpan(const qzrun::SourceText& source, int32_t start, int32_t end);

}  // namespace qzlive

#endif
