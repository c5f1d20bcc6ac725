// qzrun: runs a control program from a file, cycle by cycle, the way a host
// runs it, and shows what it writes.
//
// The runner is an ordinary host of the interpreter library: it sees only the
// public headers, serves inputs from the command line and a CSV file, and
// collects the outputs of every cycle into a table.
#include "qz_st_interpretator.h"
#include "qz_st_result_codes.h"
#include "check_report.h"
#include "input_file.h"
#include "source_text.h"
#include "stimulus.h"
#include "value_format.h"

#include <QHash>
#include <QSet>
#include <QString>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <exception>
#include <new>
#include <string>
#include <thread>
#include <vector>

#ifndef QZRUN_VERSION
#define QZRUN_VERSION "unknown"
#endif

namespace {

using qzrun::SourceText;

constexpr int kExitOk = 0;
constexpr int kExitProgramError = 1;
constexpr int kExitUsage = 2;

constexpr uint64_t kDefaultMaxSteps = 10'000'000;
// Far beyond what a control program needs, near enough to stop a runaway
// PUSH loop or recursion with a message long before the memory ceiling.
constexpr uint64_t kDefaultMaxStack = 1'000'000;
constexpr uint64_t kDefaultMaxDepth = 10'000;
// The simulated clock's reading in the first cycle. The tick counter takes a
// reading of 0 for "never read", so simulated time must not start there.
constexpr uint32_t kSimulatedClockStart = 1000;

const char kHelp[] = R"(Usage: qzrun [OPTIONS] PROGRAM

Runs the control program in the file PROGRAM for a number of cycles, the way a
host runs it, and prints a table with a row a cycle and a column an output.
A '*' after a value marks an output the program wrote in that cycle.

Stimulus:
  --cycles N         Run N cycles (N >= 1). Default: one cycle a row of the
                     --inputs file, or 1 without one.
                       qzrun motor_latch.qz --cycles 10
  --inputs FILE      Read input values from a CSV file: a header row of input
                     names, then a row of values a cycle. The last row is held
                     when there are more cycles than rows. Values are numbers
                     or TRUE/FALSE; an empty field repeats the value above it;
                     lines starting with '#' are skipped.
                       qzrun motor_latch.qz --inputs motor_latch.inputs.csv
  --set NAME=VALUE   Give input NAME the value VALUE in every cycle, before
                     anything from --inputs. Repeat for more inputs.
                       qzrun tank_level.qz --set LEVEL=42.5 --cycles 3
                     An input that the program reads and that is given nowhere
                     reads 0; qzrun warns once for each such input.

Output:
  --csv              Print the table as CSV (header "cycle,<outputs>"), without
                     marks, ready for a spreadsheet or a diff.
                       qzrun tank_level.qz --inputs tank_level.inputs.csv --csv
  --marks            With --csv: keep the '*' marks on written values.
                       qzrun part_counter.qz --cycles 5 --csv --marks
  --stats            After the table, print the real time one cycle took:
                     minimum, median and maximum over the run (on standard
                     error with --csv).
                       qzrun pid_loop.qz --cycles 10000 --stats
  --trace            Print every executed instruction on standard error: its
                     cycle, line:column, text, and the registers A0 R0 R1 and
                     the test flag after it.
                       qzrun part_counter.qz --cycles 2 --trace

Checking:
  --check            Check the program files without running them: every
                     error running would meet (with its result code) and
                     every warning, with the source line. Exit status 1 on
                     an error, else 0. More than one file may be given.
                       qzrun --check motor_latch.qz pid_loop.qz
  --werror           With --check: warnings count as errors (exit status 1).
  -W no-ID           Silence the warning ID (e.g. -W no-unread-variable).
  --format FORMAT    With --check: text (default), json (a list) or sarif
                     (SARIF 2.1.0), the last two on standard output.
  --max-steps N      Stop a cycle that runs more than N instructions with error
                     100 (default 10000000; 0 = no limit), so that a program
                     caught in a loop ends with a message instead of hanging.
                       qzrun endless_loop.qz --max-steps 1000
  --max-stack N      Stop a PUSH beyond N values on the value stack with error
                     101 (default 1000000; 0 = no limit of its own).
  --max-depth N      Stop a CAL beyond N pending calls with error 102
                     (default 10000; 0 = no limit of its own).
  --max-memory MB    The interpreter's memory ceiling for the value stack,
                     calls and frames: error 103 beyond it (default 256).
  --max-file-size SIZE
                     Refuse a program or --inputs file larger than SIZE:
                     megabytes, or a number with K, M or G (default 64).
                       qzrun generated.qz --max-file-size 512

Time:
  --sim-time MS      Simulated time: the clock that TICK reads advances by MS
                     milliseconds from one cycle to the next (it reads 1000 in
                     the first cycle), so timers give the same table on every
                     run and a minute of plant time takes a moment. Without it
                     TICK reads the wall clock.
                       qzrun traffic_light.qz --sim-time 100 --cycles 600
  --period MS        Start a cycle every MS milliseconds of real time instead
                     of running the cycles back to back.
                       qzrun beacon.qz --set ENABLE=1 --period 50 --csv

Other:
  -h, --help         Show this help.
  --version          Show the version.

Program files may use line breaks, tabs and indentation freely, and comments
(* like this *) or // to the end of the line.

The program and the --inputs file must be regular files: a directory, a
device or a FIFO is refused.

Errors are reported like a compiler's, as FILE:LINE:COLUMN: error CODE: MEANING
with the offending token, and for a failing cycle its number. The source line
is shown with a caret under the error; of a line longer than 200 characters
only the 200 around the error are shown, with '...' where it is cut.

Exit status: 0 when every cycle ran (or --check found no error), 1 when the
program failed to load, a cycle failed or --check found an error, 2 for a bad
command line, a file that cannot be read or is too large, or running out of
memory.
)";

struct Options {
    std::string ProgramPath;
    std::string InputsPath;
    long long Cycles = -1;  // -1: one a row of the inputs, or 1
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
    uint64_t MaxFileBytes = qzrun::kDefaultMaxFileBytes;
    bool SimulatedTime = false;
    uint32_t SimulatedStep = 0;
    uint32_t PeriodMs = 0;
    std::vector<std::string> MorePaths;  // --check takes several files
    qzrun::CheckOptions CheckReport;
};

[[noreturn]] void UsageError(const std::string& message) {
    std::fprintf(stderr, "qzrun: error: %s\nTry 'qzrun --help' for more information.\n", message.c_str());
    std::exit(kExitUsage);
}

uint64_t ParseCount(const std::string& option, const std::string& text, uint64_t max) {
    if (text.empty() || text.find_first_not_of("0123456789") != std::string::npos)
        UsageError(option + " needs a whole number, not '" + text + "'");
    errno = 0;
    const unsigned long long value = std::strtoull(text.c_str(), nullptr, 10);
    if (errno == ERANGE || value > max) UsageError(option + " " + text + " is too large");
    return value;
}

// A size in megabytes, or with a unit: "64", "512K", "2M", "1G".
uint64_t ParseSize(const std::string& option, const std::string& text) {
    constexpr uint64_t kLargest = 1ull << 40;
    std::string digits = text;
    uint64_t unit = 1ull << 20;
    if (!digits.empty()) {
        switch (digits.back()) {
            case 'k': case 'K': unit = 1ull << 10; digits.pop_back(); break;
            case 'm': case 'M': unit = 1ull << 20; digits.pop_back(); break;
            case 'g': case 'G': unit = 1ull << 30; digits.pop_back(); break;
            default: break;
        }
    }
    if (digits.empty() || digits.find_first_not_of("0123456789") != std::string::npos)
        UsageError(option + " needs a size such as 64 (megabytes), 512K or 1G, not '" + text + "'");
    const uint64_t count = ParseCount(option, digits, kLargest / unit);
    if (count == 0) UsageError(option + " needs a size above 0");
    return count * unit;
}

Options ParseOptions(int argc, char** argv) {
    Options options;
    std::vector<std::string> args(argv + 1, argv + argc);
    bool onlyFiles = false;
    for (size_t i = 0; i < args.size(); ++i) {
        std::string arg = args[i];
        if (onlyFiles || arg.empty() || arg[0] != '-' || arg == "-") {
            if (!options.ProgramPath.empty()) options.MorePaths.push_back(arg);
            else options.ProgramPath = arg;
            continue;
        }
        if (arg == "--") {
            onlyFiles = true;
            continue;
        }
        std::string value;
        bool hasInlineValue = false;
        if (const size_t eq = arg.find('='); arg.compare(0, 2, "--") == 0 && eq != std::string::npos) {
            value = arg.substr(eq + 1);
            arg = arg.substr(0, eq);
            hasInlineValue = true;
        }
        auto takeValue = [&]() -> std::string {
            if (hasInlineValue) return value;
            if (i + 1 >= args.size()) UsageError(arg + " needs a value");
            return args[++i];
        };
        auto noValue = [&]() {
            if (hasInlineValue) UsageError(arg + " takes no value");
        };

        if (arg == "-h" || arg == "--help") {
            std::fputs(kHelp, stdout);
            std::exit(kExitOk);
        } else if (arg == "--version") {
            std::printf("qzrun %s\n", QZRUN_VERSION);
            std::exit(kExitOk);
        } else if (arg == "--cycles") {
            options.Cycles = (long long)ParseCount(arg, takeValue(), 1'000'000'000'000ull);
            if (options.Cycles < 1) UsageError("--cycles needs at least 1");
        } else if (arg == "--inputs") {
            options.InputsPath = takeValue();
        } else if (arg == "--set") {
            const std::string assignment = takeValue();
            const size_t eq = assignment.find('=');
            if (eq == std::string::npos || eq == 0) UsageError("--set needs NAME=VALUE, not '" + assignment + "'");
            double number;
            if (!qzrun::ParseValue(assignment.substr(eq + 1), number))
                UsageError("--set " + assignment + ": '" + assignment.substr(eq + 1) + "' is not a number");
            options.Constants.emplace_back(assignment.substr(0, eq), number);
        } else if (arg == "--csv") {
            noValue();
            options.Csv = true;
        } else if (arg == "--marks") {
            noValue();
            options.Marks = true;
        } else if (arg == "--check") {
            noValue();
            options.Check = true;
        } else if (arg == "--werror") {
            noValue();
            options.CheckReport.WarningsAreErrors = true;
        } else if (arg == "-W" || arg.compare(0, 2, "-W") == 0 || arg == "--format") {
            const std::string given = arg.size() > 2 && arg[1] == 'W' ? arg.substr(2) : takeValue();
            std::string error;
            const bool ok = arg == "--format" ? qzrun::SetFormat(options.CheckReport, given, error)
                                              : qzrun::SetWarningOption(options.CheckReport, given, error);
            if (!ok) UsageError(error);
        } else if (arg == "--trace") {
            noValue();
            options.Trace = true;
        } else if (arg == "--stats") {
            noValue();
            options.Stats = true;
        } else if (arg == "--max-steps") {
            options.MaxSteps = ParseCount(arg, takeValue(), UINT64_MAX);
        } else if (arg == "--max-stack") {
            options.MaxStack = ParseCount(arg, takeValue(), UINT64_MAX);
        } else if (arg == "--max-depth") {
            options.MaxDepth = ParseCount(arg, takeValue(), UINT64_MAX);
        } else if (arg == "--max-memory") {
            options.MaxMemoryMb = ParseCount(arg, takeValue(), uint64_t(1) << 40);
        } else if (arg == "--max-file-size") {
            options.MaxFileBytes = ParseSize(arg, takeValue());
        } else if (arg == "--sim-time") {
            options.SimulatedTime = true;
            options.SimulatedStep = uint32_t(ParseCount(arg, takeValue(), 86'400'000));
            if (options.SimulatedStep == 0) UsageError("--sim-time needs at least 1 millisecond a cycle");
        } else if (arg == "--period") {
            options.PeriodMs = uint32_t(ParseCount(arg, takeValue(), 86'400'000));
        } else {
            UsageError("unknown option '" + arg + "'");
        }
    }
    if (options.ProgramPath.empty()) UsageError("no program file given");
    if (!options.Check && !options.MorePaths.empty())
        UsageError("more than one program file: '" + options.MorePaths.front() + "'");
    if (options.Marks && !options.Csv) UsageError("--marks goes with --csv (the table always shows marks)");
    return options;
}

// ---- Diagnostics ----

std::string Quote(const std::string& token) {
    constexpr size_t kLimit = 40;
    if (token.size() <= kLimit) return "'" + token + "'";
    return "'" + token.substr(0, kLimit) + "...'";
}

// Of a long source line, the part shown: the error and what surrounds it.
constexpr size_t kSnippetWidth = 200;
constexpr size_t kSnippetLead = 60;  // characters shown before the error when cut
constexpr char kCut[] = "...";

bool IsContinuationByte(char c) { return (static_cast<unsigned char>(c) & 0xC0) == 0x80; }

// [begin, end) of `line` to show for an error at byte `column`: the whole
// line when it is short, else kSnippetWidth bytes starting a little before
// the error, moved off the middle of UTF-8 characters.
std::pair<size_t, size_t> SnippetWindow(std::string_view line, size_t column) {
    if (line.size() <= kSnippetWidth) return {0, line.size()};
    size_t begin = column > kSnippetLead ? column - kSnippetLead : 0;
    begin = std::min(begin, line.size() - kSnippetWidth);
    size_t end = begin + kSnippetWidth;
    while (begin > 0 && begin < line.size() && IsContinuationByte(line[begin])) ++begin;
    while (end < line.size() && end > begin && IsContinuationByte(line[end])) --end;
    return {begin, end};
}

// The source line (or its part around the error) and a caret under
// [offset, offset + length).
void PrintSnippet(const SourceText& source, size_t offset, size_t length) {
    const qzrun::Location at = source.Locate(offset);
    const std::string_view line = source.Line(at.Line);
    const size_t column = size_t(at.Column - 1);
    const auto [begin, end] = SnippetWindow(line, std::min(column, line.size()));
    const std::string_view shown = line.substr(begin, end - begin);
    const char* before = begin > 0 ? kCut : "";
    const char* after = end < line.size() ? kCut : "";
    std::fprintf(stderr, "%5d | %s%.*s%s\n", at.Line, before, int(shown.size()), shown.data(), after);

    std::string marker(std::strlen(before), ' ');
    for (size_t i = begin; i < column && i < end; ++i) {
        const char c = line[i];
        if (c == '\t') marker += '\t';
        else if (!IsContinuationByte(c)) marker += ' ';  // one column a UTF-8 character
    }
    marker += '^';
    const size_t visible = std::min(length, end > column ? end - column : size_t(0));
    for (size_t i = 1; i < visible; ++i)
        if (!IsContinuationByte(line[column + i])) marker += '~';
    std::fprintf(stderr, "      | %s\n", marker.c_str());
}

void ReportFailure(const SourceText& source, qz_st_interpretator::IQZSTInterpretator* interpreter,
                   Qz::uint32_t code, long long cycle) {
    QZScanPosition position{};
    QZGetScanPosition(interpreter, &position);
    const std::string& text = source.Flat();
    const char* meaning = Qz::ResultMeaning(code);
    if (!meaning) meaning = "unknown result code";

    const bool atEnd =
        code == Qz::rcEndOfText || position.TokenStart < 0 || size_t(position.TokenStart) >= text.size();
    size_t offset;
    size_t length;
    std::string where;
    if (atEnd) {
        offset = source.EndOfProgram();
        length = 1;
        where = "at the end of the program";
    } else {
        offset = size_t(position.TokenStart);
        size_t end;  // one past the token
        if (position.TokenEnd >= position.TokenStart && size_t(position.TokenEnd) < text.size()) {
            end = size_t(position.TokenEnd) + 1;
        } else {
            // The scanner stopped inside the token before marking its end.
            end = text.find(' ', offset);
            if (end == std::string::npos) end = text.size();
        }
        length = std::max<size_t>(end - offset, 1);
        where = "at " + Quote(text.substr(offset, end - offset));
    }
    if (cycle > 0) where += " in cycle " + std::to_string(cycle);

    const qzrun::Location at = source.Locate(offset);
    std::fprintf(stderr, "%s:%d:%d: error %u: %s, %s\n", source.Path().c_str(), at.Line, at.Column, code, meaning,
                 where.c_str());
    PrintSnippet(source, offset, length);

    // A subprogram whose RET is the last word of the text runs into the end
    // of the text instead of returning; the cycle then stops with the call
    // still open and fails on whatever comes next.
    const size_t end = source.EndOfProgram();
    if (cycle > 0 && !atEnd && offset + 3 == end && text.compare(offset, 3, "RET") == 0 &&
        (" " + text + " ").find(" BODY ") != std::string::npos)
        std::fprintf(stderr,
                     "%s:%d:%d: note: this RET ends the program text and returns from no subprogram; "
                     "close the file with a RET of its own after the last subprogram\n",
                     source.Path().c_str(), at.Line, at.Column);

    if (code == Qz::rcEndOfText && cycle == 0) {
        if (end < 3 || text.compare(end - 3, 3, "RET") != 0 || (end > 3 && text[end - 4] != ' '))
            std::fprintf(stderr, "%s:%d:%d: note: the last word of a program must be RET\n", source.Path().c_str(),
                         at.Line, at.Column);
    }
}

// ---- The host side ----

struct OutputColumn {
    QString Name;
    double Value = 0.0;
    int Dimension = 0;
    bool Rewrited = false;
};

class RunnerHost : public qz_st_interpretator::IQZExecuteInterface {
public:
    virtual ~RunnerHost() = default;

    void SetConstants(const std::vector<std::pair<std::string, double>>& constants) {
        for (const auto& [name, value] : constants) {
            const QString key = QString::fromStdString(name).toUpper();
            Constants_.insert(key, value);
            GivenNames_.push_back({QString::fromStdString(name), "--set"});
        }
    }

    void SetStimulus(const qzrun::Stimulus* stimulus, const std::string& path) {
        Stimulus_ = stimulus;
        for (size_t i = 0; i < stimulus->Names.size(); ++i) {
            const QString name = QString::fromStdString(stimulus->Names[i]);
            Columns_.insert(name.toUpper(), int(i));
            GivenNames_.push_back({name, path});
        }
    }

    // Chooses the stimulus row of cycle `cycle` (from 1); the last row is held.
    void StartCycle(long long cycle) {
        Row_ = nullptr;
        if (Stimulus_ && !Stimulus_->Rows.empty())
            Row_ = &Stimulus_->Rows[size_t(std::min<long long>(cycle, (long long)Stimulus_->Rows.size()) - 1)];
    }

    // Values given for names the program never asked for are probably typos.
    void WarnUnusedInputs() const {
        for (const auto& [name, origin] : GivenNames_)
            if (!Asked_.contains(name.toUpper()))
                std::fprintf(stderr, "qzrun: warning: the program has no input '%s' (given by %s)\n",
                             name.toStdString().c_str(), origin.c_str());
    }

    bool GetValueFrom(CQZDirection, const QString& name, double& value) override {
        const QString key = name.toUpper();
        Asked_.insert(key);
        if (const auto constant = Constants_.constFind(key); constant != Constants_.constEnd()) {
            value = constant.value();
            return true;
        }
        if (const auto column = Columns_.constFind(key); column != Columns_.constEnd() && Row_) {
            value = (*Row_)[size_t(column.value())];
            return true;
        }
        value = 0.0;
        if (!Warned_.contains(key)) {
            Warned_.insert(key);
            std::fprintf(stderr, "qzrun: warning: no value given for input '%s'; it reads 0 (give one with --set or --inputs)\n",
                         name.toStdString().c_str());
        }
        return true;
    }

    bool SetValueTo(CQZDirection, const QString& name, double value, int dimension, bool rewrited) override {
        auto index = OutputIndex_.constFind(name);
        if (index == OutputIndex_.constEnd()) {
            index = OutputIndex_.insert(name, int(Outputs.size()));
            Outputs.push_back(OutputColumn{name, 0.0, 0, false});
        }
        OutputColumn& column = Outputs[size_t(index.value())];
        column.Value = value;
        column.Dimension = dimension;
        column.Rewrited = rewrited;
        return true;
    }

    std::vector<OutputColumn> Outputs;  // in the order the interpreter hands them over

private:
    QHash<QString, double> Constants_;
    QHash<QString, int> Columns_;
    const qzrun::Stimulus* Stimulus_ = nullptr;
    const std::vector<double>* Row_ = nullptr;
    QSet<QString> Asked_;
    QSet<QString> Warned_;
    QHash<QString, int> OutputIndex_;
    std::vector<std::pair<QString, std::string>> GivenNames_;
};

// ---- The output table ----

class Table {
public:
    Table(bool csv, bool marks) : Csv_(csv), Marks_(marks) {}

    void AddRow(long long cycle, const std::vector<OutputColumn>& outputs) {
        if (Header_.empty()) {
            Header_.push_back("cycle");
            for (const OutputColumn& output : outputs) Header_.push_back(output.Name.toStdString());
            if (Csv_) PrintCsvRow(Header_, std::vector<bool>(Header_.size(), false));
        }
        std::vector<std::string> cells{std::to_string(cycle)};
        std::vector<bool> written{false};
        for (const OutputColumn& output : outputs) {
            cells.push_back(qzrun::FormatOutput(output.Value, output.Dimension));
            written.push_back(output.Rewrited);
            AnyMark_ = AnyMark_ || output.Rewrited;
        }
        if (Csv_) {
            PrintCsvRow(cells, written);
        } else {
            Rows_.push_back(std::move(cells));
            Written_.push_back(std::move(written));
        }
    }

    // Prints the aligned table (the CSV form is printed row by row).
    void Finish() {
        std::fflush(stdout);
        if (Csv_ || Header_.empty()) return;
        std::vector<size_t> width(Header_.size());
        for (size_t c = 0; c < Header_.size(); ++c) {
            width[c] = Header_[c].size();
            for (const auto& row : Rows_) width[c] = std::max(width[c], row[c].size());
        }
        std::string line;
        auto emit = [&](const std::vector<std::string>& cells, const std::vector<bool>* written) {
            line.clear();
            for (size_t c = 0; c < cells.size(); ++c) {
                if (c > 0) line += "  ";
                line.append(width[c] - cells[c].size(), ' ');
                line += cells[c];
                // Every value column has room for a mark so the columns stay aligned.
                if (c > 0) line += written && (*written)[c] ? '*' : ' ';
            }
            while (!line.empty() && line.back() == ' ') line.pop_back();
            std::puts(line.c_str());
        };
        emit(Header_, nullptr);
        for (size_t r = 0; r < Rows_.size(); ++r) emit(Rows_[r], &Written_[r]);
        if (AnyMark_) std::puts("* = written by the program in that cycle");
        std::fflush(stdout);
    }

private:
    static std::string CsvField(const std::string& text) {
        if (text.find_first_of(",\"\n") == std::string::npos) return text;
        std::string quoted = "\"";
        for (char c : text) quoted += c == '"' ? std::string("\"\"") : std::string(1, c);
        return quoted + "\"";
    }

    void PrintCsvRow(const std::vector<std::string>& cells, const std::vector<bool>& written) {
        std::string line;
        for (size_t c = 0; c < cells.size(); ++c) {
            if (c > 0) line += ',';
            line += CsvField(cells[c]);
            if (Marks_ && written[c]) line += '*';
        }
        std::puts(line.c_str());
    }

    bool Csv_;
    bool Marks_;
    bool AnyMark_ = false;
    std::vector<std::string> Header_;
    std::vector<std::vector<std::string>> Rows_;
    std::vector<std::vector<bool>> Written_;
};

// ---- Trace, clock, statistics ----

struct TraceState {
    const SourceText* Source;
    long long Cycle;
};

void TraceInstruction(void* context, const QZTraceEvent* event) {
    const auto* state = static_cast<const TraceState*>(context);
    const SourceText& source = *state->Source;
    const size_t start = size_t(std::max(event->InstructionStart, 0));
    const size_t end = size_t(std::max(event->InstructionEnd, event->InstructionStart));
    const qzrun::Location at = source.Locate(start);
    const std::string place = std::to_string(at.Line) + ":" + std::to_string(at.Column);
    std::string line = std::to_string(state->Cycle);
    line.insert(0, line.size() < 6 ? 6 - line.size() : 0, ' ');
    line += "  " + place;
    line.append(place.size() < 8 ? 8 - place.size() : 1, ' ');
    std::string instruction = source.Excerpt(start, end);
    if (instruction.size() > kSnippetWidth) {
        size_t cut = kSnippetWidth;
        while (cut > 0 && IsContinuationByte(instruction[cut])) --cut;
        instruction.resize(cut);
        instruction += kCut;
    }
    instruction.append(instruction.size() < 24 ? 24 - instruction.size() : 1, ' ');
    line += instruction;
    line += "A0=" + qzrun::FormatRegister(event->A0, event->A0Type);
    line += " R0=" + qzrun::FormatRegister(event->R0, event->R0Type);
    line += " R1=" + qzrun::FormatRegister(event->R1, event->R1Type);
    line += " TF=" + std::to_string(int(event->TestFlag));
    if (event->Result != 0) line += "  => error " + std::to_string(event->Result);
    std::fprintf(stderr, "%s\n", line.c_str());
}

uint32_t ReadSimulatedClock(void* context) { return *static_cast<const uint32_t*>(context); }

std::string FormatDuration(std::chrono::nanoseconds duration) {
    const double ns = double(duration.count());
    char buffer[32];
    if (ns < 1e3) std::snprintf(buffer, sizeof buffer, "%.0f ns", ns);
    else if (ns < 1e6) std::snprintf(buffer, sizeof buffer, "%.1f us", ns / 1e3);
    else std::snprintf(buffer, sizeof buffer, "%.2f ms", ns / 1e6);
    return buffer;
}

void PrintStats(std::vector<std::chrono::nanoseconds> times, FILE* out) {
    if (times.empty()) return;
    std::sort(times.begin(), times.end());
    const size_t n = times.size();
    const auto median = n % 2 ? times[n / 2] : (times[n / 2 - 1] + times[n / 2]) / 2;
    std::fprintf(out, "cycle time over %zu cycle%s: min %s, median %s, max %s\n", n, n == 1 ? "" : "s",
                 FormatDuration(times.front()).c_str(), FormatDuration(median).c_str(),
                 FormatDuration(times.back()).c_str());
}

// Releases the interpreter however the run ends.
struct InterpreterHandle {
    qz_st_interpretator::IQZSTInterpretator* Object = Create();
    ~InterpreterHandle() { Object->Destroy(); }
};

int Run(const Options& options) {
    if (options.Check) {
        std::vector<std::string> paths{options.ProgramPath};
        paths.insert(paths.end(), options.MorePaths.begin(), options.MorePaths.end());
        return qzrun::CheckFiles(paths, options.CheckReport, options.MaxFileBytes);
    }
    std::string bytes;
    std::string error;
    if (!qzrun::ReadInputFile(options.ProgramPath, options.MaxFileBytes, bytes, error)) {
        std::fprintf(stderr, "qzrun: error: %s\n", error.c_str());
        return kExitUsage;
    }
    SourceText source(options.ProgramPath, std::move(bytes));
    size_t commentStart = 0;
    if (!source.Flatten(commentStart)) {
        const qzrun::Location at = source.Locate(commentStart);
        std::fprintf(stderr, "%s:%d:%d: error: comment not closed: '(*' without '*)'\n", source.Path().c_str(),
                     at.Line, at.Column);
        PrintSnippet(source, commentStart, 2);
        return kExitProgramError;
    }

    qzrun::Stimulus stimulus;
    if (!options.InputsPath.empty()) {
        if (!qzrun::ReadStimulus(options.InputsPath, options.MaxFileBytes, stimulus, error)) {
            std::fprintf(stderr, "qzrun: error: %s\n", error.c_str());
            return kExitUsage;
        }
    }

    InterpreterHandle interpreter;
    if (const Qz::uint32_t code = interpreter.Object->InitInterpretator(source.Flat())) {
        ReportFailure(source, interpreter.Object, code, 0);
        return kExitProgramError;
    }
    qzrun::PrintWarnings(source.Path(), source.Bytes(), options.CheckReport);

    QZSetInstructionBudget(interpreter.Object, options.MaxSteps);
    QZSetStackLimit(interpreter.Object, options.MaxStack);
    QZSetCallDepthLimit(interpreter.Object, options.MaxDepth);
    QZSetMemoryLimit(interpreter.Object, options.MaxMemoryMb << 20);
    uint32_t simulatedNow = kSimulatedClockStart;
    if (options.SimulatedTime) QZSetClock(interpreter.Object, ReadSimulatedClock, &simulatedNow);
    TraceState trace{&source, 0};
    if (options.Trace) {
        std::fputs("cycle  line:col  instruction             registers and test flag after it\n", stderr);
        QZSetTraceHook(interpreter.Object, TraceInstruction, &trace);
    }

    RunnerHost host;
    host.SetConstants(options.Constants);
    if (!options.InputsPath.empty()) host.SetStimulus(&stimulus, options.InputsPath);

    long long cycles = options.Cycles;
    if (cycles < 0) cycles = std::max<long long>(1, (long long)stimulus.Rows.size());

    Table table(options.Csv, options.Marks);
    std::vector<std::chrono::nanoseconds> times;
    if (options.Stats) times.reserve(size_t(std::min<long long>(cycles, 1'000'000)));
    const auto runStart = std::chrono::steady_clock::now();

    for (long long cycle = 1; cycle <= cycles; ++cycle) {
        if (options.PeriodMs)
            std::this_thread::sleep_until(runStart + std::chrono::milliseconds(options.PeriodMs) * (cycle - 1));
        host.StartCycle(cycle);
        trace.Cycle = cycle;
        simulatedNow = kSimulatedClockStart + uint32_t(uint64_t(cycle - 1) * options.SimulatedStep);

        const auto before = std::chrono::steady_clock::now();
        const Qz::uint32_t code = interpreter.Object->Execute(&host);
        const auto after = std::chrono::steady_clock::now();
        if (code != 0) {
            table.Finish();
            ReportFailure(source, interpreter.Object, code, cycle);
            return kExitProgramError;
        }
        if (options.Stats) times.push_back(std::chrono::duration_cast<std::chrono::nanoseconds>(after - before));
        if (cycle == 1) host.WarnUnusedInputs();
        table.AddRow(cycle, host.Outputs);
        if (options.PeriodMs) std::fflush(stdout);
    }
    table.Finish();
    if (options.Stats) PrintStats(std::move(times), options.Csv ? stderr : stdout);
    return kExitOk;
}

}  // namespace

// Whatever goes wrong, the runner ends with a message and status 2 rather
// than an abort: a program or table too large for memory, or any other
// exception from the library or the standard library.
int main(int argc, char** argv) {
    try {
        return Run(ParseOptions(argc, argv));
    } catch (const std::bad_alloc&) {
        std::fputs("qzrun: error: out of memory\n", stderr);
    } catch (const std::exception& e) {
        std::fprintf(stderr, "qzrun: error: %s\n", e.what());
    } catch (...) {
        std::fputs("qzrun: error: unexpected failure\n", stderr);
    }
    return kExitUsage;
}
