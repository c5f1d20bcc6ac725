// The cost of one cycle, measured three ways in one binary: the interpreter
// plug-in through its public interface, the same logic in embedded Lua 5.4,
// and the same logic as C++. Also the cost of loading a large program.
//
// Each benchmark reports the time per cycle and, as counters, the heap
// allocations per cycle in steady state (and for the interpreter, those of
// the first cycle after loading). Before anything is timed, every workload
// runs a few hundred cycles all three ways and the outputs are compared bit
// for bit: the three ways compute the same thing.
//
// With --qz_callgrind=WORKLOAD/WAY (WAY: qz, lua or cpp) the binary instead
// runs cycles of one workload one way for valgrind's callgrind, collecting
// only inside the cycles, and prints how many program instructions those
// cycles execute (see scripts/bench --callgrind).
#include "alloc_count.h"
#include "table_reporter.h"
#include "workloads.h"

#include "qz_st_interpretator.h"

#include <benchmark/benchmark.h>
#include <lua.hpp>

#if __has_include(<valgrind/callgrind.h>)
#include <valgrind/callgrind.h>
#define QZ_HAVE_CALLGRIND 1
#else
#define QZ_HAVE_CALLGRIND 0
#define CALLGRIND_TOGGLE_COLLECT
#define RUNNING_ON_VALGRIND 0
#endif

#include <QHash>
#include <QString>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <string_view>
#include <unordered_map>

namespace qzbench {
namespace {

constexpr uint64_t kInputPatterns = 1024;  // input vectors, precomputed and cycled through
constexpr uint32_t kCycleMilliseconds = 10;

struct Inputs {
    explicit Inputs(const Workload& w) : Width(w.Inputs.size()), Values(kInputPatterns * Width) {
        for (uint64_t n = 0; n < kInputPatterns; ++n) w.InputsFor(n, &Values[n * Width]);
    }
    const double* For(uint64_t n) const { return &Values[(n % kInputPatterns) * Width]; }
    size_t Width;
    std::vector<double> Values;
};

// ---- The interpreter, through its public interface ----

class QzHost : public qz_st_interpretator::IQZExecuteInterface {
public:
    explicit QzHost(const Workload& w) : In(w.Inputs.size()), Out(w.Outputs.size()) {
        for (size_t i = 0; i < w.Inputs.size(); ++i) InputIndex.insert(QString(w.Inputs[i].Name), int(i));
        for (size_t i = 0; i < w.Outputs.size(); ++i) OutputIndex.insert(QString(w.Outputs[i].Name), int(i));
    }
    bool GetValueFrom(CQZDirection, const QString& name, double& value) override {
        value = In[size_t(InputIndex.value(name))];
        return true;
    }
    bool SetValueTo(CQZDirection, const QString& name, double value, int, bool) override {
        Out[size_t(OutputIndex.value(name))] = value;
        return true;
    }
    QHash<QString, int> InputIndex, OutputIndex;
    std::vector<double> In, Out;
};

uint32_t SimulatedClock(void*) { return gSimulatedNow; }

class QzRunner {
public:
    explicit QzRunner(const Workload& w, uint64_t budget = 0) : Host(w), Object(Create()) {
        QZSetInstructionBudget(Object, budget);
        QZSetClock(Object, SimulatedClock, nullptr);
        const Qz::uint32_t r = Object->InitInterpretator(w.Program);
        if (r != 0) Fail(w, "load", r);
        Name = w.Name;
    }
    ~QzRunner() { Object->Destroy(); }
    void Cycle(const double* inputs) {
        std::memcpy(Host.In.data(), inputs, Host.In.size() * sizeof(double));
        const Qz::uint32_t r = Object->Execute(&Host);
        if (r != 0) Fail(Name, "cycle", r);
    }
    const double* Outputs() const { return Host.Out.data(); }
    QzHost Host;
    qz_st_interpretator::IQZSTInterpretator* Object;

private:
    static void Fail(const Workload& w, const char* what, Qz::uint32_t r) { Fail(w.Name, what, r); }
    static void Fail(const char* name, const char* what, Qz::uint32_t r) {
        std::fprintf(stderr, "%s: interpreter %s failed with %u\n", name, what, r);
        std::exit(1);
    }
    const char* Name;
};

// ---- Lua 5.4, with inputs and outputs crossing C callbacks by name ----

class LuaRunner {
public:
    explicit LuaRunner(const Workload& w) : In(w.Inputs.size()), Out(w.Outputs.size()), Name(w.Name) {
        for (size_t i = 0; i < w.Inputs.size(); ++i) {
            InputIndex.emplace(w.Inputs[i].Name, int(i));
            InputInteger.push_back(w.Inputs[i].Integer);
        }
        for (size_t i = 0; i < w.Outputs.size(); ++i) OutputIndex.emplace(w.Outputs[i].Name, int(i));
        L = luaL_newstate();
        luaL_openlibs(L);
        Register("get", Get);
        Register("set", Set);
        Register("tick", Tick);
        if (luaL_dostring(L, w.Lua.c_str()) != LUA_OK) Fail();
        lua_getglobal(L, "cycle");
        CycleFunction = luaL_ref(L, LUA_REGISTRYINDEX);
    }
    ~LuaRunner() { lua_close(L); }
    void Cycle(const double* inputs) {
        std::memcpy(In.data(), inputs, In.size() * sizeof(double));
        lua_rawgeti(L, LUA_REGISTRYINDEX, CycleFunction);
        if (lua_pcall(L, 0, 0, 0) != LUA_OK) Fail();
    }
    const double* Outputs() const { return Out.data(); }

private:
    void Register(const char* name, lua_CFunction f) {
        lua_pushlightuserdata(L, this);
        lua_pushcclosure(L, f, 1);
        lua_setglobal(L, name);
    }
    static LuaRunner* Self(lua_State* L) { return static_cast<LuaRunner*>(lua_touserdata(L, lua_upvalueindex(1))); }
    static int Get(lua_State* L) {
        LuaRunner* self = Self(L);
        size_t length;
        const char* name = lua_tolstring(L, 1, &length);
        const size_t i = size_t(self->InputIndex.at(std::string_view(name, length)));
        if (self->InputInteger[i])
            lua_pushinteger(L, lua_Integer(self->In[i]));
        else
            lua_pushnumber(L, self->In[i]);
        return 1;
    }
    static int Set(lua_State* L) {
        LuaRunner* self = Self(L);
        size_t length;
        const char* name = lua_tolstring(L, 1, &length);
        self->Out[size_t(self->OutputIndex.at(std::string_view(name, length)))] = lua_tonumber(L, 2);
        return 0;
    }
    static int Tick(lua_State* L) {
        lua_pushinteger(L, lua_Integer(Self(L)->TickValue.Read()));
        return 1;
    }
    void Fail() {
        std::fprintf(stderr, "%s: Lua failed: %s\n", Name, lua_tostring(L, -1));
        std::exit(1);
    }

    lua_State* L;
    int CycleFunction;
    std::unordered_map<std::string_view, int> InputIndex, OutputIndex;
    std::vector<bool> InputInteger;
    std::vector<double> In, Out;
    TickCounter TickValue;
    const char* Name;
};

// ---- C++ ----

class NativeRunner {
public:
    explicit NativeRunner(const Workload& w) : Program(w.Native()), Out(w.Outputs.size()) {}
    void Cycle(const double* inputs) { Program->Cycle(inputs, Out.data()); }
    const double* Outputs() const { return Out.data(); }

private:
    std::unique_ptr<NativeProgram> Program;
    std::vector<double> Out;
};

// ---- Checking that the three ways agree ----

uint64_t Bits(double v) {
    uint64_t b;
    std::memcpy(&b, &v, sizeof b);
    return b;
}

// Runs `cycles` cycles all three ways and stops the process at the first
// output on which they differ. Returns the interpreter's instructions per cycle.
double CheckAgreement(const Workload& w, int cycles) {
    const Inputs inputs(w);
    QzRunner qz(w);
    LuaRunner lua(w);
    NativeRunner native(w);
    uint64_t instructions = 0;
    QZSetTraceHook(qz.Object, [](void* count, const QZTraceEvent*) { ++*static_cast<uint64_t*>(count); },
                   &instructions);
    const uint32_t start = gSimulatedNow;
    for (int n = 0; n < cycles; ++n) {
        gSimulatedNow = start + uint32_t(n) * kCycleMilliseconds;
        qz.Cycle(inputs.For(uint64_t(n)));
        lua.Cycle(inputs.For(uint64_t(n)));
        native.Cycle(inputs.For(uint64_t(n)));
        for (size_t o = 0; o < w.Outputs.size(); ++o) {
            const double a = qz.Outputs()[o], b = lua.Outputs()[o], c = native.Outputs()[o];
            if (Bits(a) != Bits(b) || Bits(a) != Bits(c)) {
                std::fprintf(stderr, "%s: cycle %d output %s differs: interpreter %.17g, Lua %.17g, C++ %.17g\n",
                             w.Name, n, w.Outputs[o].Name, a, b, c);
                std::exit(1);
            }
        }
    }
    return double(instructions) / cycles;
}

// ---- Machine instructions per program instruction, under callgrind ----

void CountInstruction(void* count, const QZTraceEvent*) { ++*static_cast<uint64_t*>(count); }

// Runs `warm` cycles, then `cycles` more with callgrind collecting only
// inside Cycle: loading, warming up and the harness's own loop are left out.
template <typename Runner>
void RunCollected(const Workload& w, const Inputs& inputs, uint64_t warm, uint64_t cycles) {
    Runner runner(w);
    for (uint64_t n = 0; n < warm + cycles; ++n) {
        gSimulatedNow += kCycleMilliseconds;
        const double* in = inputs.For(n);
        if (n < warm) {
            runner.Cycle(in);
            continue;
        }
        CALLGRIND_TOGGLE_COLLECT;
        runner.Cycle(in);
        CALLGRIND_TOGGLE_COLLECT;
    }
}

// `what` is WORKLOAD/WAY. Counts the program instructions of the cycles to
// be measured with the trace hook on an interpreter of its own, then runs
// the same cycles (same inputs, same simulated time) the chosen way. With
// `cycles` 0, as many as make a million program instructions.
int RunForCallgrind(const std::string& what, uint64_t cycles) {
    const size_t slash = what.find('/');
    const std::string name = what.substr(0, slash), way = slash == std::string::npos ? "" : what.substr(slash + 1);
    const Workload* w = nullptr;
    for (const Workload& candidate : Workloads())
        if (name == candidate.Name) w = &candidate;
    if (!w || (way != "qz" && way != "lua" && way != "cpp")) {
        std::fprintf(stderr, "--qz_callgrind=%s: expected WORKLOAD/qz, /lua or /cpp\n", what.c_str());
        return 2;
    }
    if (!QZ_HAVE_CALLGRIND || !RUNNING_ON_VALGRIND)
        std::fprintf(stderr, "not running under callgrind: only the program instructions are counted\n");

    const Inputs inputs(*w);
    const uint64_t warm = w->Period + 2;  // every input pattern once, as in the benchmarks
    const uint32_t start = gSimulatedNow;
    uint64_t instructions = 0;
    {
        QzRunner counter(*w);
        uint64_t n = 0;
        for (; n < warm; ++n) {
            gSimulatedNow += kCycleMilliseconds;
            counter.Cycle(inputs.For(n));
        }
        QZSetTraceHook(counter.Object, CountInstruction, &instructions);
        const bool fixed = cycles != 0;
        for (uint64_t c = 0; fixed ? c < cycles : instructions < 1000000; ++c, ++n) {
            gSimulatedNow += kCycleMilliseconds;
            counter.Cycle(inputs.For(n));
            if (!fixed) cycles = c + 1;
        }
    }
    gSimulatedNow = start;
    if (way == "qz")
        RunCollected<QzRunner>(*w, inputs, warm, cycles);
    else if (way == "lua")
        RunCollected<LuaRunner>(*w, inputs, warm, cycles);
    else
        RunCollected<NativeRunner>(*w, inputs, warm, cycles);
    std::printf("workload=%s way=%s cycles=%llu program_instructions=%llu\n", w->Name, way.c_str(),
                static_cast<unsigned long long>(cycles), static_cast<unsigned long long>(instructions));
    return 0;
}

// The interpreter with an instruction budget set, large enough never to stop
// a cycle: what counting instructions costs.
class QzBudgetRunner : public QzRunner {
public:
    explicit QzBudgetRunner(const Workload& w) : QzRunner(w, uint64_t(1) << 40) {}
};

// ---- Benchmarks ----

template <typename Runner>
void BenchCycle(benchmark::State& state, const Workload* w) {
    const Inputs inputs(*w);
    uint64_t firstCycleAllocations = 0;
    Runner runner(*w);
    uint64_t n = 0;
    {
        const uint64_t before = Allocations();
        gSimulatedNow += kCycleMilliseconds;
        runner.Cycle(inputs.For(n++));
        firstCycleAllocations = Allocations() - before;
    }
    // Steady state: every input pattern once, so whatever a path builds the
    // first time it is taken has been built.
    for (uint64_t warm = 0; warm < w->Period + 2; ++warm) {
        gSimulatedNow += kCycleMilliseconds;
        runner.Cycle(inputs.For(n++));
    }
    const uint64_t before = Allocations();
    for (auto _ : state) {
        gSimulatedNow += kCycleMilliseconds;
        runner.Cycle(inputs.For(n++));
    }
    state.counters["allocs_per_cycle"] = double(Allocations() - before) / double(state.iterations());
    state.counters["first_cycle_allocs"] = double(firstCycleAllocations);
}

// A program of about `bytes` characters: variables, labels, jumps and
// arithmetic, the way a large generated control program looks.
std::string LargeProgram(size_t bytes) {
    std::string text = "PROG LARGE VAR";
    const int variables = 2000;
    for (int i = 0; i < variables; ++i) text += " V" + std::to_string(i) + " VG DINT " + std::to_string(i % 100);
    text += " OUT VO DINT 0 MAIN";
    int block = 0;
    for (; text.size() < bytes; ++block) {
        const std::string a = "V" + std::to_string(block % variables);
        const std::string b = "V" + std::to_string((block * 7 + 3) % variables);
        text += " L" + std::to_string(block) + ": MOV @" + a + " R0 ADD @" + b + " R0 MOV R0 @" + b +
                " MUL 3 R0 TST R0 JMPF L" + std::to_string(block + 1) + " SUB 1.5 R0 MOV R0 @OUT";
    }
    text += " L" + std::to_string(block) + ": RET";
    return text;
}

void BenchLoad(benchmark::State& state) {
    const std::string text = LargeProgram(size_t(state.range(0)));
    qz_st_interpretator::IQZSTInterpretator* object = Create();
    for (auto _ : state) {
        const Qz::uint32_t r = object->InitInterpretator(text);
        if (r != 0) state.SkipWithError("load failed");
    }
    object->Destroy();
    state.SetBytesProcessed(int64_t(state.iterations()) * int64_t(text.size()));
    state.counters["bytes"] = double(text.size());
}

void BenchLoadAndFirstCycle(benchmark::State& state) {
    const std::string text = LargeProgram(size_t(state.range(0)));
    Workload none{"large", "", "", {}, {{"OUT", true}}, nullptr, 1, nullptr};
    QzHost host(none);
    for (auto _ : state) {
        qz_st_interpretator::IQZSTInterpretator* object = Create();
        if (object->InitInterpretator(text) != 0 || object->Execute(&host) != 0) state.SkipWithError("run failed");
        object->Destroy();
    }
    state.counters["bytes"] = double(text.size());
}

}  // namespace
}  // namespace qzbench

int main(int argc, char** argv) {
    using namespace qzbench;
    // --qz_quiet: print only the summary table.
    // --qz_workloads: print the workloads' names, one a line.
    // --qz_callgrind=WORKLOAD/WAY [--qz_cycles=N]: see RunForCallgrind.
    bool quiet = false;
    std::string callgrind;
    uint64_t cycles = 0;
    for (int i = 1; i < argc; ++i) {
        const std::string_view arg = argv[i];
        if (arg == "--qz_quiet") {
            quiet = true;
        } else if (arg == "--qz_workloads") {
            for (const Workload& w : Workloads()) std::printf("%s\n", w.Name);
            return 0;
        } else if (arg.substr(0, 15) == "--qz_callgrind=") {
            callgrind = std::string(arg.substr(15));
        } else if (arg.substr(0, 12) == "--qz_cycles=") {
            cycles = std::strtoull(argv[i] + 12, nullptr, 10);
        } else {
            continue;
        }
        for (int j = i; j + 1 < argc; ++j) argv[j] = argv[j + 1];
        --argc;
        --i;
    }
    if (!callgrind.empty()) return RunForCallgrind(callgrind, cycles);
    benchmark::Initialize(&argc, argv);
    for (const Workload& w : Workloads()) {
        const double instructions = CheckAgreement(w, 400);
        std::fprintf(stderr, "%s: the three ways agree over 400 cycles; %.1f instructions a cycle\n", w.Name,
                     instructions);
        const std::string name = w.Name;
        benchmark::RegisterBenchmark((name + "/qz").c_str(), BenchCycle<QzRunner>, &w)->Unit(benchmark::kMicrosecond);
        benchmark::RegisterBenchmark((name + "/qz_budget").c_str(), BenchCycle<QzBudgetRunner>, &w)
            ->Unit(benchmark::kMicrosecond);
        benchmark::RegisterBenchmark((name + "/lua").c_str(), BenchCycle<LuaRunner>, &w)->Unit(benchmark::kMicrosecond);
        benchmark::RegisterBenchmark((name + "/cpp").c_str(), BenchCycle<NativeRunner>, &w)
            ->Unit(benchmark::kMicrosecond);
    }
    benchmark::RegisterBenchmark("load", BenchLoad)->Arg(256 << 10)->Arg(1 << 20)->Arg(4 << 20)->Unit(benchmark::kMillisecond);
    benchmark::RegisterBenchmark("load_and_first_cycle", BenchLoadAndFirstCycle)
        ->Arg(1 << 20)
        ->Unit(benchmark::kMillisecond);
    TableReporter reporter(quiet);
    benchmark::RunSpecifiedBenchmarks(&reporter);
    benchmark::Shutdown();
    return 0;
}
