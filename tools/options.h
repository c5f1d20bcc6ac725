// The command line of qzrun: what a run is asked to do.
#ifndef QZRUN_OPTIONS_H
#define QZRUN_OPTIONS_H

#include "check_report.h"
#include "input_file.h"
#include "qz_st_interpretator.h"

#include <cstdint>
#include <string>
#include <utility>
#include <vector>

namespace qzrun {

constexpr int kExitOk = 0;
constexpr int kExitProgramError = 1;
constexpr int kExitUsage = 2;

constexpr uint64_t kDefaultMaxSteps = 10'000'000;
// Far beyond what a control program needs, near enough to stop a runaway
// PUSH loop or recursion with a message long before the memory ceiling.
constexpr uint64_t kDefaultMaxStack = 1'000'000;
constexpr uint64_t kDefaultMaxDepth = 10'000;

// A value held by --force, in cycles From..To (inclusive; To 0: to the end).
struct Force {
    std::string Name;
    double Value = 0.0;
    long long From = 1;
    long long To = 0;
    std::string Text;  // as given, for messages

    bool Covers(long long cycle) const { return cycle >= From && (To == 0 || cycle <= To); }
};

struct Options {
    std::string ProgramPath;
    std::string InputsPath;
    long long Cycles = -1;  // -1: one a row of the inputs (or of the expected file), or 1
    std::vector<std::pair<std::string, double>> Constants;
    bool Csv = false;
    bool Marks = false;
    bool Check = false;
    bool Trace = false;
    bool Stats = false;
    uint64_t MaxSteps = kDefaultMaxSteps;
    uint64_t MaxStack = kDefaultMaxStack;
    uint64_t MaxDepth = kDefaultMaxDepth;
    uint64_t MaxMemoryMb = QZ_DEFAULT_MEMORY_LIMIT >> 20;
    uint64_t MaxFileBytes = kDefaultMaxFileBytes;
    bool SimulatedTime = false;
    uint32_t SimulatedStep = 0;
    uint32_t PeriodMs = 0;

    // The test bench.
    std::string ExpectPath;
    bool UpdateExpected = false;
    std::vector<std::string> Watch;  // "all" stands for every variable
    std::vector<Force> Forces;
    std::string VcdPath;
    std::string HtmlPath;
    bool Debug = false;

    // The live view: --serve [ADDR:]PORT.
    bool Serve = false;
    std::string ServeAddress;

    // --check takes several files, and its report has options of its own.
    std::vector<std::string> MorePaths;
    CheckOptions CheckReport;
};

// Parses argv; prints help or version and exits, or exits with status 2 and
// a message for a bad command line.
Options ParseOptions(int argc, char** argv);

[[noreturn]] void UsageError(const std::string& message);

}  // namespace qzrun

#endif
