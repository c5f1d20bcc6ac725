// The benchmark summary table.
#include "table_reporter.h"

#include <algorithm>
#include <cstdio>
#include <fstream>
#include <unistd.h>

namespace qzbench {
namespace {

double ToMicroseconds(double value, benchmark::TimeUnit unit) {
    switch (unit) {
    case benchmark::kNanosecond: return value / 1e3;
    case benchmark::kMicrosecond: return value;
    case benchmark::kMillisecond: return value * 1e3;
    default: return value * 1e6;  // seconds
    }
}

std::string CpuModel() {
    std::ifstream in("/proc/cpuinfo");
    std::string line;
    while (std::getline(in, line))
        if (line.compare(0, 10, "model name") == 0) return line.substr(line.find(':') + 2);
    return "unknown CPU";
}

std::string Time(double microseconds) {
    char text[32];
    if (microseconds >= 1000)
        std::snprintf(text, sizeof text, "%.2f ms", microseconds / 1000);
    else if (microseconds >= 10)
        std::snprintf(text, sizeof text, "%.1f us", microseconds);
    else
        std::snprintf(text, sizeof text, "%.3f us", microseconds);
    return text;
}

std::string Number(double value) {
    char text[32];
    std::snprintf(text, sizeof text, value == double(long(value)) ? "%.0f" : "%.4f", value);
    return text;
}

}  // namespace

bool TableReporter::ReportContext(const Context& context) {
    return Quiet ? true : ConsoleReporter::ReportContext(context);
}

void TableReporter::ReportRuns(const std::vector<Run>& runs) {
    if (!Quiet) ConsoleReporter::ReportRuns(runs);
    for (const Run& run : runs) {
        if (run.error_occurred) continue;
        const bool aggregate = run.run_type == Run::RT_Aggregate;
        if (aggregate && run.aggregate_name != "median") continue;
        Result& result = Results[run.run_name.str()];
        if (!aggregate && result.Repetitions++ > 0) continue;  // repeated: the median follows
        result.Microseconds = ToMicroseconds(run.GetAdjustedCPUTime(), run.time_unit);
        for (const auto& counter : run.counters) result.Counters[counter.first] = counter.second.value;
    }
}

void TableReporter::Finalize() {
    if (!Quiet) ConsoleReporter::Finalize();
    std::printf("\nMachine: %ld cores, %s. CPU time per cycle, median of the repetitions.\n\n",
                sysconf(_SC_NPROCESSORS_ONLN), CpuModel().c_str());
    std::printf("| Workload | Interpreter | Lua 5.4 | C++ | vs Lua | Target | vs C++ | With a budget | Allocations per cycle "
                "(interpreter / Lua / C++) | Interpreter's first cycle |\n");
    std::printf("|---|---|---|---|---|---|---|---|---|---|\n");
    struct Target {
        const char* Name;
        double MaxRatio;
    };
    // The goals: no workload slower than Lua, loops and calls well below it.
    const Target targets[] = {{"scan", 1.0}, {"loop", 0.7}, {"call", 0.7}, {"builtin", 1.0}, {"mixed", 1.0}};
    for (const Target& target : targets) {
        const std::string name = target.Name;
        const auto qz = Results.find(name + "/qz"), lua = Results.find(name + "/lua"), cpp = Results.find(name + "/cpp");
        if (qz == Results.end() || lua == Results.end() || cpp == Results.end()) continue;
        const double vsLua = qz->second.Microseconds / lua->second.Microseconds;
        const double vsCpp = qz->second.Microseconds / cpp->second.Microseconds;
        const double allocations = qz->second.Counters["allocs_per_cycle"];
        // What an instruction budget costs, as a change of the interpreter's time.
        const auto budgeted = Results.find(name + "/qz_budget");
        char budget[32] = "-";
        if (budgeted != Results.end())
            std::snprintf(budget, sizeof budget, "%+.1f%%",
                          100.0 * (budgeted->second.Microseconds / qz->second.Microseconds - 1.0));
        const bool met = vsLua <= target.MaxRatio && allocations == 0;
        char goal[64] = "none";
        if (target.MaxRatio > 0)
            std::snprintf(goal, sizeof goal, "<= %.1fx, 0 allocations: %s", target.MaxRatio, met ? "met" : "NOT met");
        std::printf("| %s | %s | %s | %s | %.2fx | %s | %.0fx | %s | %s / %s / %s | %s allocations |\n",
                    target.Name, Time(qz->second.Microseconds).c_str(), Time(lua->second.Microseconds).c_str(),
                    Time(cpp->second.Microseconds).c_str(), vsLua, goal, vsCpp, budget,
                    Number(allocations).c_str(), Number(lua->second.Counters["allocs_per_cycle"]).c_str(),
                    Number(cpp->second.Counters["allocs_per_cycle"]).c_str(),
                    Number(qz->second.Counters["first_cycle_allocs"]).c_str());
    }
    // Loading, by size: the time per MiB stays flat when loading is linear.
    std::vector<std::pair<double, std::string>> loads;
    for (const auto& entry : Results)
        if (entry.first.compare(0, 4, "load") == 0 && entry.second.Counters.count("bytes"))
            loads.emplace_back(entry.second.Counters.at("bytes"), entry.first);
    std::sort(loads.begin(), loads.end());
    if (!loads.empty()) std::printf("\n| Loading | Size | Time | Time per MiB |\n|---|---|---|---|\n");
    for (const auto& load : loads) {
        const Result& result = Results[load.second];
        std::printf("| %s | %.0f KiB | %s | %s |\n",
                    load.second.compare(0, 5, "load/") == 0 ? "InitInterpretator" : "InitInterpretator + first cycle",
                    load.first / 1024, Time(result.Microseconds).c_str(),
                    Time(result.Microseconds / (load.first / (1 << 20))).c_str());
    }
    std::fflush(stdout);
}

}  // namespace qzbench
