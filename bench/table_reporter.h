// Prints the benchmark summary: per workload the interpreter's time per
// cycle next to Lua's and C++'s, the ratios with their targets, and heap
// allocations per cycle; then the loading times.
#ifndef QZ_BENCH_TABLE_REPORTER_H
#define QZ_BENCH_TABLE_REPORTER_H

#include <benchmark/benchmark.h>

#include <map>
#include <string>
#include <vector>

namespace qzbench {

class TableReporter : public benchmark::ConsoleReporter {
public:
    // `quiet`: only the summary, not Google Benchmark's own lines.
    explicit TableReporter(bool quiet) : Quiet(quiet) {}
    bool ReportContext(const Context& context) override;
    void ReportRuns(const std::vector<Run>& runs) override;
    void Finalize() override;

private:
    struct Result {
        double Microseconds = 0;  // CPU time per iteration
        std::map<std::string, double> Counters;
        int Repetitions = 0;
    };
    bool Quiet;
    std::map<std::string, Result> Results;  // by benchmark name (median where repeated)
};

}  // namespace qzbench

#endif
