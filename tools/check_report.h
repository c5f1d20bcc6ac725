// What qzrun says about a program without running it: the library's checker
// (QZCheckProgram) on each file, as compiler-style text with the source line
// and a caret, as SARIF 2.1.0, or as a plain JSON list.
#ifndef QZRUN_CHECK_REPORT_H
#define QZRUN_CHECK_REPORT_H

#include <cstdint>
#include <set>
#include <string>
#include <vector>

namespace qzrun {

struct CheckOptions {
    enum class Format { Text, Json, Sarif };
    Format Output = Format::Text;
    bool WarningsAreErrors = false;    // --werror
    std::set<std::string> Silenced;    // -W no-ID
};

// Applies one of --werror, -W VALUE, --format VALUE. Returns false with
// `error` set for a value it does not know.
bool SetWarningOption(CheckOptions& options, const std::string& value, std::string& error);
bool SetFormat(CheckOptions& options, const std::string& value, std::string& error);

// qzrun --check FILE...: every diagnostic of every file. Exit status 1 when
// any file has an error (or, with --werror, a warning), 2 when a file cannot
// be read, else 0.
int CheckFiles(const std::vector<std::string>& paths, const CheckOptions& options, uint64_t maxFileBytes);

// Before a run: the program's warnings on standard error, in text form.
// Returns how many were printed.
int PrintWarnings(const std::string& path, const std::string& bytes, const CheckOptions& options);

}  // namespace qzrun

#endif
