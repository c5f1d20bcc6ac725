#include "trace_stats.h"

#include "diagnostics.h"
#include "value_format.h"

#include <algorithm>
#include <string>

namespace qzrun {

void PrintTraceHeading() {
    std::fputs("cycle  line:col  instruction             registers and test flag after it\n", stderr);
}

void PrintTraceLine(const SourceText& source, long long cycle, const QZTraceEvent& event) {
    const size_t start = size_t(std::max(event.InstructionStart, 0));
    const size_t end = size_t(std::max(event.InstructionEnd, event.InstructionStart));
    const Location at = source.Locate(start);
    const std::string place = std::to_string(at.Line) + ":" + std::to_string(at.Column);
    std::string line = std::to_string(cycle);
    line.insert(0, line.size() < 6 ? 6 - line.size() : 0, ' ');
    line += "  " + place;
    line.append(place.size() < 8 ? 8 - place.size() : 1, ' ');
    std::string instruction = ShownInstruction(source, start, end);
    instruction.append(instruction.size() < 24 ? 24 - instruction.size() : 1, ' ');
    line += instruction;
    line += "A0=" + FormatRegister(event.A0, event.A0Type);
    line += " R0=" + FormatRegister(event.R0, event.R0Type);
    line += " R1=" + FormatRegister(event.R1, event.R1Type);
    line += " TF=" + std::to_string(int(event.TestFlag));
    if (event.Result != 0) line += "  => error " + std::to_string(event.Result);
    std::fprintf(stderr, "%s\n", line.c_str());
}

namespace {

std::string FormatDuration(std::chrono::nanoseconds duration) {
    const double ns = double(duration.count());
    char buffer[32];
    if (ns < 1e3) std::snprintf(buffer, sizeof buffer, "%.0f ns", ns);
    else if (ns < 1e6) std::snprintf(buffer, sizeof buffer, "%.1f us", ns / 1e3);
    else std::snprintf(buffer, sizeof buffer, "%.2f ms", ns / 1e6);
    return buffer;
}

}  // namespace

void PrintStats(std::vector<std::chrono::nanoseconds> times, FILE* out) {
    if (times.empty()) return;
    std::sort(times.begin(), times.end());
    const size_t n = times.size();
    const auto median = n % 2 ? times[n / 2] : (times[n / 2 - 1] + times[n / 2]) / 2;
    std::fprintf(out, "cycle time over %zu cycle%s: min %s, median %s, max %s\n", n, n == 1 ? "" : "s",
                 FormatDuration(times.front()).c_str(), FormatDuration(median).c_str(),
                 FormatDuration(times.back()).c_str());
}

}  // namespace qzrun
