#include "table.h"

#include "value_format.h"

#include <algorithm>
#include <cstdio>

namespace qzrun {

std::string FormatSample(const Signal& signal, double value) { return FormatOutput(value, signal.Dimension); }

void Table::AddRow(const Recording& recording, const std::vector<Sample>& row, long long cycle) {
    if (Header_.empty()) {
        Shown_ = recording.TableSignals();
        Header_.push_back("cycle");
        for (size_t s : Shown_) {
            const Signal& signal = recording.Signals[s];
            // Marks belong to the values; CSV headers stay plain names for a
            // spreadsheet and for --expect.
            Header_.push_back(signal.Heading() + (signal.Forced && !Csv_ ? "!" : ""));
            AnyForced_ = AnyForced_ || signal.Forced;
        }
        if (Csv_) PrintCsvRow(Header_, std::vector<bool>(Header_.size(), false));
    }
    std::vector<std::string> cells{std::to_string(cycle)};
    std::vector<bool> written{false};
    for (size_t s : Shown_) {
        const Sample sample = Recording::SampleOf(row, s);
        cells.push_back(FormatSample(recording.Signals[s], sample.Value));
        written.push_back(sample.Written);
        AnyMark_ = AnyMark_ || sample.Written;
    }
    if (Csv_) {
        PrintCsvRow(cells, written);
    } else {
        Rows_.push_back(std::move(cells));
        Written_.push_back(std::move(written));
    }
}

void Table::Finish() {
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
    if (AnyForced_) std::puts("! = held by --force");
    std::fflush(stdout);
}

std::string Table::CsvField(const std::string& text) {
    if (text.find_first_of(",\"\n") == std::string::npos) return text;
    std::string quoted = "\"";
    for (char c : text) quoted += c == '"' ? std::string("\"\"") : std::string(1, c);
    return quoted + "\"";
}

void Table::PrintCsvRow(const std::vector<std::string>& cells, const std::vector<bool>& written) {
    std::string line;
    for (size_t c = 0; c < cells.size(); ++c) {
        if (c > 0) line += ',';
        line += CsvField(cells[c]);
        if (Marks_ && written[c]) line += '*';
    }
    std::puts(line.c_str());
}

}  // namespace qzrun
