// The live view: runs a program in real time and serves a web page that
// shows and steers it (qzrun --serve).
#ifndef QZRUN_LIVE_VIEW_H
#define QZRUN_LIVE_VIEW_H

#include <cstdint>
#include <string>
#include <utility>
#include <vector>

namespace qzlive {

struct LiveOptions {
    std::string ProgramPath;
    std::string InputsPath;                                // --inputs: the starting point for inputs
    std::vector<std::pair<std::string, double>> Constants;  // --set
    std::string Address = "127.0.0.1";
    int Port = 0;                 // 0: any free port (printed at start)
    uint32_t PeriodMs = 100;      // a cycle every PeriodMs of real time
    bool SimulatedTime = false;   // TICK advances SimulatedStep a cycle
    uint32_t SimulatedStep = 0;
    bool StartPaused = false;
    uint64_t MaxSteps = 10'000'000;
    uint64_t MaxStack = 1'000'000;
    uint64_t MaxDepth = 10'000;
    uint64_t MaxMemoryBytes = uint64_t(256) << 20;
    uint64_t MaxFileBytes = uint64_t(64) << 20;
};

// Splits "[ADDR:]PORT" into `options`; false (with `error`) when malformed.
bool ParseServeAddress(const std::string& text, LiveOptions& options, std::string& error);

// Serves until SIGINT or SIGTERM. Returns the process exit status: 0 after a
// clean stop, 2 when a file cannot be read or the address cannot be bound.
// A program that fails to load is still served (the page shows the error).
int RunLiveView(const LiveOptions& options);

}  // namespace qzlive

#endif
