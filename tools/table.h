// The table a run prints: a row a cycle, a column an output and a watched
// variable, aligned for people or as CSV.
#ifndef QZRUN_TABLE_H
#define QZRUN_TABLE_H

#include "recording.h"

#include <string>
#include <vector>

namespace qzrun {

class Table {
public:
    Table(bool csv, bool marks) : Csv_(csv), Marks_(marks) {}

    // Takes the row of cycle `cycle`. The columns are fixed by the first row.
    void AddRow(const Recording& recording, const std::vector<Sample>& row, long long cycle);
    // Prints the aligned table (the CSV form is printed row by row).
    void Finish();

    static std::string CsvField(const std::string& text);

private:
    void PrintCsvRow(const std::vector<std::string>& cells, const std::vector<bool>& written);

    bool Csv_;
    bool Marks_;
    bool AnyMark_ = false;
    bool AnyForced_ = false;
    std::vector<size_t> Shown_;
    std::vector<std::string> Header_;
    std::vector<std::vector<std::string>> Rows_;
    std::vector<std::vector<bool>> Written_;
};

// A value as the table shows it.
std::string FormatSample(const Signal& signal, double value);

}  // namespace qzrun

#endif
