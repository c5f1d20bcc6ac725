#include "expect.h"

#include "diagnostics.h"
#include "input_file.h"
#include "stimulus.h"
#include "table.h"

#include <QString>

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <fstream>
#include <sstream>

namespace qzrun {
namespace {

std::string Upper(const std::string& text) { return QString::fromStdString(text).toUpper().toStdString(); }

bool Fail(std::string& error, const std::string& path, int line, const std::string& message) {
    error = path + ":" + std::to_string(line) + ": " + message;
    return false;
}

// "12", "12*", "TRUE", "" (don't care).
bool ParseCell(const std::string& text, ExpectedCell& cell) {
    cell.Text = text;
    cell.Any = text.empty();
    if (cell.Any) return true;
    std::string value = text;
    cell.Written = value.back() == '*';
    if (cell.Written) value.pop_back();
    return ParseValue(value, cell.Value);
}

bool ReadRow(const ExpectedTable& table, const std::vector<std::string>& fields, int line, ExpectedRow& row,
             std::string& error) {
    if (fields.size() != table.Columns.size() + 1)
        return Fail(error, table.Path, line,
                    std::to_string(fields.size()) + " fields where the header has " +
                        std::to_string(table.Columns.size() + 1));
    double cycle;
    if (!ParseValue(fields[0], cycle) || cycle < 1 || cycle != std::floor(cycle) || cycle > 1e12)
        return Fail(error, table.Path, line, "'" + fields[0] + "' is not a cycle number");
    row.Cycle = (long long)cycle;
    if (!table.Rows.empty() && row.Cycle <= table.Rows.back().Cycle)
        return Fail(error, table.Path, line, "cycle " + fields[0] + " comes after cycle " +
                                                 std::to_string(table.Rows.back().Cycle) + "; cycles must rise");
    row.Line = line;
    row.Cells.resize(table.Columns.size());
    for (size_t c = 0; c < table.Columns.size(); ++c)
        if (!ParseCell(fields[c + 1], row.Cells[c]))
            return Fail(error, table.Path, line,
                        "'" + fields[c + 1] + "' for " + table.Columns[c] + " is not a value (a number or " +
                            "TRUE/FALSE, '*' after it for written, empty for any)");
    return true;
}

bool ReadHeader(ExpectedTable& table, const std::vector<std::string>& fields, int line, std::string& error) {
    if (fields.empty() || Upper(fields[0]) != "CYCLE")
        return Fail(error, table.Path, line, "the first column must be 'cycle'");
    for (size_t c = 1; c < fields.size(); ++c) {
        if (fields[c].empty() || fields[c] == "@") return Fail(error, table.Path, line, "a column has no name");
        table.Columns.push_back(fields[c]);
    }
    return true;
}

}  // namespace

std::vector<std::string> ExpectedTable::Variables() const {
    std::vector<std::string> names;
    for (const std::string& column : Columns)
        if (column[0] == '@') names.push_back(column.substr(1));
    return names;
}

bool ReadExpected(const std::string& path, uint64_t maxBytes, ExpectedTable& table, std::string& error) {
    std::string bytes;
    if (!ReadInputFile(path, maxBytes, bytes, error)) return false;
    table.Path = path;
    std::istringstream in(bytes);
    std::string text;
    std::vector<std::string> fields;
    bool haveHeader = false;
    for (int line = 1; std::getline(in, text); ++line) {
        if (!text.empty() && text.back() == '\r') text.pop_back();
        if (text.find_first_not_of(" \t") == std::string::npos || text[0] == '#') continue;
        if (!SplitFields(text, ',', fields)) return Fail(error, path, line, "a quote is not closed");
        if (!haveHeader) {
            if (!ReadHeader(table, fields, line, error)) return false;
            haveHeader = true;
            continue;
        }
        ExpectedRow row;
        if (!ReadRow(table, fields, line, row, error)) return false;
        table.Rows.push_back(std::move(row));
    }
    if (!haveHeader) return Fail(error, path, 1, "no header row (cycle,NAME,...)");
    return true;
}

void LastWriters::Observe(const QZTraceEvent& event, long long cycle) {
    if (event.Result != 0 || event.InstructionStart < 0) return;
    auto found = Destinations_.find(event.InstructionStart);
    if (found == Destinations_.end()) {
        // Only MOV stores into a variable by name; its destination is the
        // second operand.
        std::istringstream words(Source_.Excerpt(size_t(event.InstructionStart), size_t(event.InstructionEnd)));
        std::string keyword, source, destination, more;
        words >> keyword >> source >> destination;
        const bool stores = Upper(keyword) == "MOV" && destination.size() > 1 && destination[0] == '@' &&
                            !(words >> more);
        found = Destinations_.emplace(event.InstructionStart, stores ? Upper(destination.substr(1)) : "").first;
    }
    if (!found->second.empty())
        Sites_[found->second] = WriteSite{event.InstructionStart, event.InstructionEnd, cycle};
}

const WriteSite* LastWriters::Find(const std::string& name) const {
    const auto found = Sites_.find(Upper(name));
    return found == Sites_.end() ? nullptr : &found->second;
}

bool ExpectCheck::BindColumns(const Recording& recording) {
    SignalOfColumn_.clear();
    const std::vector<size_t> shown = recording.TableSignals();
    for (size_t c = 0; c < Table_.Columns.size(); ++c) {
        const std::string wanted = Upper(Table_.Columns[c]);
        const auto match = std::find_if(shown.begin(), shown.end(), [&](size_t s) {
            return Upper(recording.Signals[s].Heading()) == wanted;
        });
        if (match == shown.end()) {
            const bool variable = wanted[0] == '@';
            std::fprintf(stderr, "qzrun: error: %s: column '%s' is %s of the program\n", Table_.Path.c_str(),
                         Table_.Columns[c].c_str(),
                         variable ? "no variable" : "no output (write @NAME for a variable that is no output)");
            return false;
        }
        SignalOfColumn_.push_back(*match);
    }
    return true;
}

bool ExpectCheck::CheckRow(const Recording& recording, const std::vector<Sample>& row, long long cycle) {
    const auto found = std::lower_bound(Table_.Rows.begin(), Table_.Rows.end(), cycle,
                                        [](const ExpectedRow& r, long long c) { return r.Cycle < c; });
    if (found == Table_.Rows.end() || found->Cycle != cycle) return true;
    for (size_t c = 0; c < found->Cells.size(); ++c) {
        const ExpectedCell& cell = found->Cells[c];
        if (cell.Any) continue;
        const Signal& signal = recording.Signals[SignalOfColumn_[c]];
        const Sample actual = Recording::SampleOf(row, SignalOfColumn_[c]);
        double shown;
        const std::string text = FormatSample(signal, actual.Value);
        const bool same = ParseValue(text, shown) && (shown == cell.Value || (std::isnan(shown) && std::isnan(cell.Value)));
        if (!same || (cell.Written && !actual.Written)) {
            ReportDifference(*found, c, signal, actual);
            Differs_ = signal.Name;
            return false;
        }
    }
    return true;
}

void ExpectCheck::ReportDifference(const ExpectedRow& expected, size_t column, const Signal& signal,
                                   Sample actual) const {
    const std::string got = FormatSample(signal, actual.Value) + (actual.Written ? "*" : "");
    std::fprintf(stderr, "%s:%d: error: cycle %lld, column %s: expected %s, got %s%s\n", Table_.Path.c_str(),
                 expected.Line, expected.Cycle, Table_.Columns[column].c_str(), expected.Cells[column].Text.c_str(),
                 got.c_str(), actual.Written ? "" : " (not written in this cycle)");
}

void ExpectCheck::ReportWriter(const LastWriters& writers) const {
    const WriteSite* site = writers.Find(Differs_);
    if (!site) {
        std::fprintf(stderr, "%s: note: no instruction has stored into %s by name so far in this run\n",
                     Source_.Path().c_str(), Differs_.c_str());
        return;
    }
    const Location at = Source_.Locate(size_t(site->Start));
    std::fprintf(stderr, "%s:%d:%d: note: %s was last written here, in cycle %lld\n", Source_.Path().c_str(), at.Line,
                 at.Column, Differs_.c_str(), site->Cycle);
    PrintSnippet(Source_, size_t(site->Start), size_t(site->End - site->Start), stderr);
}

bool ExpectCheck::CheckLength(size_t cyclesRun) const {
    if (Table_.Rows.empty() || Table_.Rows.back().Cycle <= (long long)cyclesRun) return true;
    std::fprintf(stderr, "%s:%d: error: the file expects cycle %lld, but the run ended after cycle %zu\n",
                 Table_.Path.c_str(), Table_.Rows.back().Line, Table_.Rows.back().Cycle, cyclesRun);
    return false;
}

bool WriteExpected(const std::string& path, const Recording& recording, std::string& error) {
    std::ofstream out(path, std::ios::binary | std::ios::trunc);
    if (!out) {
        error = "cannot write '" + path + "'";
        return false;
    }
    const std::vector<size_t> shown = recording.TableSignals();
    out << "cycle";
    for (size_t s : shown) out << ',' << Table::CsvField(recording.Signals[s].Heading());
    out << '\n';
    for (size_t row = 0; row < recording.Rows.size(); ++row) {
        out << row + 1;
        for (size_t s : shown) {
            const Sample sample = recording.At(row, s);
            out << ',' << FormatSample(recording.Signals[s], sample.Value) << (sample.Written ? "*" : "");
        }
        out << '\n';
    }
    out.flush();
    if (!out) {
        error = "cannot write '" + path + "'";
        return false;
    }
    return true;
}

}  // namespace qzrun
