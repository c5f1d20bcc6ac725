// What --trace and --stats print.
#ifndef QZRUN_TRACE_STATS_H
#define QZRUN_TRACE_STATS_H

#include "qz_st_interpretator.h"
#include "source_text.h"

#include <chrono>
#include <cstdio>
#include <vector>

namespace qzrun {

// The heading of the --trace lines.
void PrintTraceHeading();
// One executed instruction: cycle, line:column, text, registers and test flag.
void PrintTraceLine(const SourceText& source, long long cycle, const QZTraceEvent& event);

// Minimum, median and maximum of the measured cycle times.
void PrintStats(std::vector<std::chrono::nanoseconds> times, FILE* out);

}  // namespace qzrun

#endif
