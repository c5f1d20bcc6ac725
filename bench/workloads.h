// The benchmark workloads, each written three ways: as a program for the
// interpreter, as Lua 5.4, and as plain C++. All three compute the same
// outputs from the same inputs, cycle after cycle (checked before timing).
#ifndef QZ_BENCH_WORKLOADS_H
#define QZ_BENCH_WORKLOADS_H

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

namespace qzbench {

// The simulated millisecond clock all three ways read for TICK.
extern uint32_t gSimulatedNow;

// A millisecond counter that behaves as the interpreter's TICK: the first
// read returns 0 and starts it, later reads return the time since.
struct TickCounter {
    uint32_t Last = 0;
    double Value = 0.0;
    double Read() {
        const uint32_t now = gSimulatedNow;
        if (Last != 0) Value += double((now > Last ? now : Last) - Last);
        Last = now;
        return Value;
    }
};

struct Port {
    const char* Name;
    bool Integer;  // handed to Lua as an integer
};

// The same logic as native code: reads inputs, writes outputs, keeps its own
// state from cycle to cycle.
class NativeProgram {
public:
    virtual ~NativeProgram() = default;
    virtual void Cycle(const double* inputs, double* outputs) = 0;
};

struct Workload {
    const char* Name;
    std::string Program;  // for the interpreter
    std::string Lua;      // a chunk that defines the global function `cycle`
    std::vector<Port> Inputs;
    std::vector<Port> Outputs;
    // The inputs of cycle `n`, and after how many cycles they repeat.
    void (*InputsFor)(uint64_t n, double* values);
    uint64_t Period;
    std::unique_ptr<NativeProgram> (*Native)();
};

const std::vector<Workload>& Workloads();

}  // namespace qzbench

#endif
