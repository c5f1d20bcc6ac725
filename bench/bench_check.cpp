// How long the checker takes on a large program text: a 1 MiB program made
// of the examples' kind of instructions (variables, labels, jumps, calls of
// subprograms), checked through the public C interface as qzrun checks it.
// Reports the time per check and per MiB; no limit is asserted here.
#include "qz_st_check.h"

#include <benchmark/benchmark.h>

#include <string>

namespace {

// A program of about `bytes` bytes: one block after another, each with its
// own label, a comparison, a conditional jump and a call.
std::string LargeProgram(size_t bytes) {
    std::string text =
        "(* generated *)\nPROG LARGE\nVAR\n    START VI BOOL 0\n    COUNT VG DINT 0\n    LEVEL V REAL 0\n"
        "    LAMP VO BOOL 0\nMAIN\n";
    for (int i = 0; text.size() < bytes; ++i) {
        const std::string n = std::to_string(i);
        text += "    MOV @COUNT R0\n    ADD 1 R0\n    MOV R0 @COUNT\n    MOV @LEVEL R1\n    GT 10 R1\n"
                "    TST R1\n    JMPF SKIP" + n + "\n    MOV @START @LAMP\n    MOV @COUNT PUSH\n    CAL SCALE\n"
                "    MOV A0 @LEVEL\nSKIP" + n + ":\n";
    }
    text += "RET\n\nSCALE:\n    X V LREAL 0\nBODY\n    MOV POP @X\n    MOV @X R0\n    MUL 2.5 R0\n"
            "    MOV R0 A0\nRET\n\nRET\n";
    return text;
}

void Count(void* context, const QZDiagnostic*) { ++*static_cast<size_t*>(context); }

void CheckLargeProgram(benchmark::State& state) {
    const std::string text = LargeProgram(size_t(state.range(0)) << 20);
    size_t diagnostics = 0;
    for (auto _ : state) {
        diagnostics = 0;
        if (QZCheckProgram(text.data(), text.size(), Count, &diagnostics) != 0) state.SkipWithError("check failed");
    }
    state.SetBytesProcessed(int64_t(state.iterations()) * int64_t(text.size()));
    state.counters["diagnostics"] = double(diagnostics);
    state.counters["MiB"] = double(text.size()) / double(1 << 20);
}
BENCHMARK(CheckLargeProgram)->Arg(1)->Unit(benchmark::kMillisecond);

}  // namespace

BENCHMARK_MAIN();
