#include "options.h"

#include "help_text.h"
#include "stimulus.h"

#include <QCommandLineParser>
#include <QRegularExpression>
#include <QStringList>

#include <cerrno>
#include <cstdio>
#include <cstdlib>

#ifndef QZRUN_VERSION
#define QZRUN_VERSION "unknown"
#endif

namespace qzrun {

void UsageError(const std::string& message) {
    std::fprintf(stderr, "qzrun: error: %s\nTry 'qzrun --help' for more information.\n", message.c_str());
    std::exit(kExitUsage);
}

namespace {

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

// NAME=VALUE, as --set and --force take it; `rest` receives what follows
// the value after an '@' (for --force), or stays empty.
std::pair<std::string, double> ParseAssignment(const std::string& option, const std::string& text,
                                               std::string* rest) {
    const size_t eq = text.find('=');
    if (eq == std::string::npos || eq == 0)
        UsageError(option + " needs NAME=VALUE" + (rest ? "[@FROM[-TO]]" : "") + ", not '" + text + "'");
    std::string value = text.substr(eq + 1);
    if (rest) {
        if (const size_t at = value.find('@'); at != std::string::npos) {
            *rest = value.substr(at + 1);
            value.resize(at);
        }
    }
    double number;
    if (!ParseValue(value, number)) UsageError(option + " " + text + ": '" + value + "' is not a number");
    return {text.substr(0, eq), number};
}

Force ParseForce(const std::string& text) {
    std::string range;
    const auto [name, value] = ParseAssignment("--force", text, &range);
    Force force{name, value, 1, 0, text};
    if (text.find('@') == std::string::npos) return force;
    const size_t dash = range.find('-');
    force.From = (long long)ParseCount("--force " + text + ": FROM", range.substr(0, dash), 1'000'000'000'000ull);
    if (dash != std::string::npos)
        force.To = (long long)ParseCount("--force " + text + ": TO", range.substr(dash + 1), 1'000'000'000'000ull);
    if (force.From < 1) UsageError("--force " + text + ": cycles are numbered from 1");
    if (dash != std::string::npos && force.To < force.From)
        UsageError("--force " + text + ": the range ends before it starts");
    return force;
}

std::vector<std::string> SplitNames(const std::string& text) {
    std::vector<std::string> names;
    size_t start = 0;
    for (;;) {
        const size_t comma = text.find(',', start);
        std::string name = text.substr(start, comma == std::string::npos ? std::string::npos : comma - start);
        if (!name.empty() && name[0] == '@') name.erase(0, 1);
        if (name.empty()) UsageError("--watch needs NAME,... or all, not '" + text + "'");
        names.push_back(name);
        if (comma == std::string::npos) return names;
        start = comma + 1;
    }
}

// The options qzrun knows, for the parser; the help text is written by hand
// (help_text.cpp) so that it can be grouped and carry examples.
struct KnownOption {
    const char* Name;
    const char* ValueName;  // null: a switch
};

const KnownOption kOptions[] = {
    {"cycles", "N"},         {"inputs", "FILE"},     {"set", "NAME=VALUE"},  {"csv", nullptr},
    {"marks", nullptr},      {"stats", nullptr},     {"trace", nullptr},     {"check", nullptr},
    {"max-steps", "N"},      {"max-stack", "N"},     {"max-depth", "N"},     {"max-memory", "MB"},
    {"max-file-size", "SIZE"}, {"sim-time", "MS"},   {"period", "MS"},       {"version", nullptr},
    {"expect", "FILE"},      {"update-expected", nullptr}, {"watch", "NAMES"}, {"force", "NAME=VALUE"},
    {"vcd", "FILE"},         {"html", "FILE"},       {"debug", nullptr},
    {"serve", "[ADDR:]PORT"},
    {"werror", nullptr},     {"W", "no-ID"},         {"format", "FORMAT"},
};

// Qt's messages for an unknown option, a value missing or one too many, in
// qzrun's words. An unknown letter is shown with the word it came from:
// "-cycle", not "-c".
std::string DescribeParseError(const QCommandLineParser& parser, const QStringList& arguments) {
    const QStringList unknown = parser.unknownOptionNames();
    if (!unknown.isEmpty()) {
        const QString name = unknown.first();
        QString shown = (name.size() == 1 ? "-" : "--") + name;
        if (name.size() == 1)
            for (const QString& argument : arguments)
                if (argument.startsWith(shown) && !argument.startsWith("--")) {
                    shown = argument;
                    break;
                }
        return "unknown option '" + shown.toStdString() + "'";
    }
    const QString text = parser.errorText();
    static const QRegularExpression missing("^Missing value after '(.*)'\\.$");
    static const QRegularExpression unexpected("^Unexpected value after '(.*)'\\.$");
    if (const auto match = missing.match(text); match.hasMatch())
        return match.captured(1).toStdString() + " needs a value";
    if (const auto match = unexpected.match(text); match.hasMatch())
        return match.captured(1).toStdString() + " takes no value";
    return text.toStdString();
}

std::string Value(const QCommandLineParser& parser, const char* name) {
    return parser.value(QString::fromLatin1(name)).toStdString();
}

std::vector<std::string> Values(const QCommandLineParser& parser, const char* name) {
    std::vector<std::string> values;
    for (const QString& value : parser.values(QString::fromLatin1(name))) values.push_back(value.toStdString());
    return values;
}

void ReadLimits(const QCommandLineParser& parser, Options& options) {
    if (parser.isSet("max-steps")) options.MaxSteps = ParseCount("--max-steps", Value(parser, "max-steps"), UINT64_MAX);
    if (parser.isSet("max-stack")) options.MaxStack = ParseCount("--max-stack", Value(parser, "max-stack"), UINT64_MAX);
    if (parser.isSet("max-depth")) options.MaxDepth = ParseCount("--max-depth", Value(parser, "max-depth"), UINT64_MAX);
    if (parser.isSet("max-memory"))
        options.MaxMemoryMb = ParseCount("--max-memory", Value(parser, "max-memory"), uint64_t(1) << 40);
    if (parser.isSet("max-file-size")) options.MaxFileBytes = ParseSize("--max-file-size", Value(parser, "max-file-size"));
}

void ReadStimulusOptions(const QCommandLineParser& parser, Options& options) {
    if (parser.isSet("cycles")) {
        options.Cycles = (long long)ParseCount("--cycles", Value(parser, "cycles"), 1'000'000'000'000ull);
        if (options.Cycles < 1) UsageError("--cycles needs at least 1");
    }
    options.InputsPath = Value(parser, "inputs");
    for (const std::string& assignment : Values(parser, "set"))
        options.Constants.push_back(ParseAssignment("--set", assignment, nullptr));
    if (parser.isSet("sim-time")) {
        options.SimulatedTime = true;
        options.SimulatedStep = uint32_t(ParseCount("--sim-time", Value(parser, "sim-time"), 86'400'000));
        if (options.SimulatedStep == 0) UsageError("--sim-time needs at least 1 millisecond a cycle");
    }
    if (parser.isSet("period")) options.PeriodMs = uint32_t(ParseCount("--period", Value(parser, "period"), 86'400'000));
}

void ReadBenchOptions(const QCommandLineParser& parser, Options& options) {
    options.ExpectPath = Value(parser, "expect");
    options.UpdateExpected = parser.isSet("update-expected");
    if (options.UpdateExpected && options.ExpectPath.empty())
        UsageError("--update-expected needs --expect FILE (the file to write)");
    for (const std::string& list : Values(parser, "watch"))
        for (std::string& name : SplitNames(list)) options.Watch.push_back(std::move(name));
    for (const std::string& text : Values(parser, "force")) options.Forces.push_back(ParseForce(text));
    options.VcdPath = Value(parser, "vcd");
    options.HtmlPath = Value(parser, "html");
    options.Debug = parser.isSet("debug");
    options.Serve = parser.isSet("serve");
    options.ServeAddress = Value(parser, "serve");
    if (options.Debug && options.PeriodMs) UsageError("--debug runs cycles when told to; it takes no --period");
}

void ReadCheckOptions(const QCommandLineParser& parser, Options& options) {
    options.CheckReport.WarningsAreErrors = parser.isSet("werror");
    std::string error;
    for (const std::string& value : Values(parser, "W"))
        if (!SetWarningOption(options.CheckReport, value, error)) UsageError(error);
    if (parser.isSet("format") && !SetFormat(options.CheckReport, Value(parser, "format"), error)) UsageError(error);
}

}  // namespace

Options ParseOptions(int argc, char** argv) {
    QCommandLineParser parser;
    // Short options may carry their value attached, as -Wno-ID does.
    parser.setSingleDashWordOptionMode(QCommandLineParser::ParseAsCompactedShortOptions);
    parser.addOption(QCommandLineOption(QStringList{"h", "help"}));
    for (const KnownOption& known : kOptions) {
        QCommandLineOption option(QString::fromLatin1(known.Name));
        if (known.ValueName) option.setValueName(QString::fromLatin1(known.ValueName));
        parser.addOption(option);
    }
    QStringList arguments;
    for (int i = 0; i < argc; ++i) arguments << QString::fromLocal8Bit(argv[i]);
    if (!parser.parse(arguments)) UsageError(DescribeParseError(parser, arguments));
    if (parser.isSet("help")) {
        std::fputs(kHelp, stdout);
        std::exit(kExitOk);
    }
    if (parser.isSet("version")) {
        std::printf("qzrun %s\n", QZRUN_VERSION);
        std::exit(kExitOk);
    }

    Options options;
    const QStringList files = parser.positionalArguments();
    options.Check = parser.isSet("check");
    if (files.size() > 1 && !options.Check)
        UsageError("more than one program file: '" + files[1].toStdString() + "'");
    for (int i = 1; i < files.size(); ++i) options.MorePaths.push_back(files[i].toStdString());
    ReadStimulusOptions(parser, options);
    options.Csv = parser.isSet("csv");
    options.Marks = parser.isSet("marks");
    options.Trace = parser.isSet("trace");
    options.Stats = parser.isSet("stats");
    ReadLimits(parser, options);
    ReadBenchOptions(parser, options);
    ReadCheckOptions(parser, options);
    if (files.isEmpty()) UsageError("no program file given");
    options.ProgramPath = files[0].toStdString();
    if (options.Marks && !options.Csv) UsageError("--marks goes with --csv (the table always shows marks)");
    return options;
}

}  // namespace qzrun
