// --expect and --update-expected: a run checked against a table of the
// values it must produce, and that table written from a run.
#ifndef QZRUN_EXPECT_H
#define QZRUN_EXPECT_H

#include "qz_st_interpretator.h"
#include "recording.h"
#include "source_text.h"

#include <cstdint>
#include <string>
#include <unordered_map>
#include <vector>

namespace qzrun {

struct ExpectedCell {
    bool Any = true;       // an empty field: anything goes
    double Value = 0.0;
    bool Written = false;  // '*': the program must have written it in the cycle
    std::string Text;      // as in the file
};

struct ExpectedRow {
    long long Cycle = 0;
    int Line = 0;
    std::vector<ExpectedCell> Cells;  // a cell a column
};

struct ExpectedTable {
    std::string Path;
    std::vector<std::string> Columns;  // the headings after "cycle": NAME, or @NAME for a variable
    std::vector<ExpectedRow> Rows;     // in rising cycle order

    // The variables the file has @NAME columns for (they must be watched).
    std::vector<std::string> Variables() const;
};

// Reads an expected table. On failure, `error` reads "FILE:LINE: message"
// (or says why the file cannot be read).
bool ReadExpected(const std::string& path, uint64_t maxBytes, ExpectedTable& table, std::string& error);

// Where a variable was last written: the instruction and the cycle.
struct WriteSite {
    int32_t Start = -1;
    int32_t End = -1;
    long long Cycle = 0;
};

// Follows the instructions of a run and remembers, for every variable, the
// last MOV that stored into it by name.
class LastWriters {
public:
    explicit LastWriters(const SourceText& source) : Source_(source) {}
    void Observe(const QZTraceEvent& event, long long cycle);
    const WriteSite* Find(const std::string& name) const;

private:
    const SourceText& Source_;
    std::unordered_map<int32_t, std::string> Destinations_;  // by instruction offset; "" for none
    std::unordered_map<std::string, WriteSite> Sites_;       // by upper-case name
};

class ExpectCheck {
public:
    ExpectCheck(const ExpectedTable& table, const SourceText& source) : Table_(table), Source_(source) {}

    // Ties the file's columns to the run's signals once the first cycle has
    // shown the outputs; false (with a message printed) for a column that is
    // no signal of the run.
    bool BindColumns(const Recording& recording);
    // Compares the row of cycle `cycle`; on the first difference prints it
    // and returns false.
    bool CheckRow(const Recording& recording, const std::vector<Sample>& row, long long cycle);
    // After a difference: the instruction that last stored into its column,
    // as a run of the same cycles followed by `writers` saw it.
    void ReportWriter(const LastWriters& writers) const;
    // After the run: false (with a message) when the file expects more cycles.
    bool CheckLength(size_t cyclesRun) const;

private:
    void ReportDifference(const ExpectedRow& expected, size_t column, const Signal& signal, Sample actual) const;

    const ExpectedTable& Table_;
    const SourceText& Source_;
    std::vector<size_t> SignalOfColumn_;
    std::string Differs_;  // the variable whose column differed
};

// Writes `recording` as an expected table: the table's columns, '*' after
// the values written in their cycle.
bool WriteExpected(const std::string& path, const Recording& recording, std::string& error);

}  // namespace qzrun

#endif
