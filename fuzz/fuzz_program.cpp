// Fuzz target: whole program texts through the plug-in interface.
//
// Input layout:
//   byte 0  flags: bits 0-1 cycles - 1; bit 2 reload a prefix of the text
//           after the cycles and run once more; bit 3 trace hook on; bit 4 a
//           tight instruction budget; bit 5 load the text twice before the
//           first cycle; bit 6 the simulated clock steps back on every read.
//   byte 1  seed for the host's input values (and where the prefix is cut)
//   rest    the program text, as the host would hand it over
//
// Every cycle runs under an instruction budget and a simulated clock, so a
// run is quick and reproducible whatever the text does. The host checks what
// it is given: names are never empty, every output has a known Dimension,
// nothing is sent on a cycle that failed before its outputs, and every result
// code is one the library documents.
//
// QZ_FUZZ_UNBOUNDED=1 in the environment (read once, at the first input)
// runs every input without an instruction budget instead, so that only the
// resource limits stop what grows: a memory ceiling of 16 MiB, at most 65,536
// values on the value stack, at most 4,096 pending calls, and one or two
// cycles (bit 0 of the flags byte). What bounds the time is a probe, not the
// budget: the cycles run first on an object with a trace hook that counts
// instructions and throws once a cycle has run 100,000 of them (the library
// turns that into 105 and the input counts as too long to run unbounded).
// Only an input whose cycles all end within that runs again on the compiled
// core without any hook, where it must give the same result codes, and then
// through the plain-versus-compiled comparison, all without a budget. A
// compiled run that does not end although its plain run did shows up as a
// timeout.
#include "qz_fuzz_targets.h"

#include "differential.h"

#include "qz_st_interpretator.h"
#include "qz_st_result_codes.h"

#include <QHash>
#include <QString>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <limits>
#include <string>
#include <vector>

namespace {

// Values a host can hand over: the edges of every type, and what is not a
// number at all.
const double kHostValues[] = {
    0.0,
    -0.0,
    1.0,
    -1.0,
    0.5,
    -2.5,
    127.0,
    128.0,
    255.0,
    256.0,
    -129.0,
    32767.0,
    65535.0,
    65536.0,
    2147483647.0,
    2147483648.0,
    -2147483649.0,
    4294967295.0,
    4294967296.0,
    9223372036854775807.0,
    -9223372036854775808.0,
    18446744073709551616.0,
    3.4e38,
    3.402823466e38,
    3.5e38,
    1e308,
    -1e308,
    std::numeric_limits<double>::max(),
    -std::numeric_limits<double>::max(),
    std::numeric_limits<double>::denorm_min(),
    -std::numeric_limits<double>::denorm_min(),
    std::numeric_limits<double>::min(),
    std::numeric_limits<double>::infinity(),
    -std::numeric_limits<double>::infinity(),
    std::numeric_limits<double>::quiet_NaN(),
    -std::numeric_limits<double>::quiet_NaN(),
    std::numeric_limits<double>::signaling_NaN(),
};
constexpr size_t kHostValueCount = sizeof kHostValues / sizeof kHostValues[0];

class FuzzHost : public qz_st_interpretator::IQZExecuteInterface {
public:
    explicit FuzzHost(uint32_t seed) : Seed(seed) {}
    virtual ~FuzzHost() = default;

    bool GetValueFrom(CQZDirection dir, const QString& name, double& value) override {
        QZ_FUZZ_CHECK(dir == tdIN);
        QZ_FUZZ_CHECK(!name.isNull());
        value = kHostValues[(Seed + Cycle * 7u + uint32_t(qHash(name))) % kHostValueCount];
        ++Inputs;
        return true;
    }
    bool SetValueTo(CQZDirection dir, const QString& name, double, int dimension, bool) override {
        QZ_FUZZ_CHECK(dir == tdOUT);
        QZ_FUZZ_CHECK(!name.isNull());
        QZ_FUZZ_CHECK((dimension >= 1 && dimension <= 7) || dimension == 10 || dimension == 11);
        ++Outputs;
        return true;
    }

    uint32_t Seed;
    uint32_t Cycle = 0;
    size_t Inputs = 0;
    size_t Outputs = 0;
};

struct FuzzClock {
    uint32_t Now = 1000;
    bool StepsBack = false;
    static uint32_t Read(void* context) {
        FuzzClock* clock = static_cast<FuzzClock*>(context);
        // Wraps around 2^32 now and then, and may step back, as real clocks do.
        clock->Now += clock->StepsBack ? 0xFFFFFF00u : 17u;
        return clock->Now;
    }
};

void TraceSink(void* context, const QZTraceEvent* event) {
    const size_t length = *static_cast<const size_t*>(context);
    QZ_FUZZ_CHECK(event->InstructionStart >= 0);
    QZ_FUZZ_CHECK(size_t(event->InstructionStart) <= length);
    QZ_FUZZ_CHECK(Qz::ResultMeaning(event->Result) != nullptr);
}

void CheckResult(Qz::uint32_t result) {
    if (!Qz::ResultMeaning(result)) {
        std::fprintf(stderr, "undocumented result code %u\n", result);
        std::abort();
    }
}

// Runs one cycle and checks what the host saw.
void RunCycle(qz_st_interpretator::IQZSTInterpretator* object, FuzzHost& host, size_t textLength) {
    host.Outputs = 0;
    const Qz::uint32_t result = object->Execute(&host);
    CheckResult(result);
    // Outputs go out only at the end of a cycle that ran its body to RET;
    // only a failure while sending them (23 for a hidden output) comes after.
    if (result != Qz::rcOK && result != Qz::rcVarNotFound) QZ_FUZZ_CHECK(host.Outputs == 0);
    QZScanPosition position;
    QZGetScanPosition(object, &position);
    QZ_FUZZ_CHECK(position.TextPos >= 0);
    QZ_FUZZ_CHECK(size_t(position.TextPos) <= textLength + 1);
    ++host.Cycle;
}

// ---- The unbounded mode ----

constexpr uint64_t kUnboundedMemory = uint64_t(16) << 20;
constexpr uint64_t kUnboundedStack = 65536;
constexpr uint64_t kUnboundedDepth = 4096;
constexpr size_t kUnboundedInstructions = 100000;  // per cycle, counted by the probe's trace hook

struct ProbeGuard {};  // thrown by the probe's hook; only the library sees it

struct Probe {
    size_t Instructions = 0;
    size_t Length = 0;
    bool Fired = false;
    static void Count(void* context, const QZTraceEvent* event) {
        Probe* probe = static_cast<Probe*>(context);
        QZ_FUZZ_CHECK(event->InstructionStart >= 0);
        QZ_FUZZ_CHECK(size_t(event->InstructionStart) <= probe->Length);
        QZ_FUZZ_CHECK(Qz::ResultMeaning(event->Result) != nullptr);
        if (++probe->Instructions > kUnboundedInstructions) {
            probe->Fired = true;
            throw ProbeGuard();
        }
    }
};

void SetUnboundedLimits(qz_st_interpretator::IQZSTInterpretator* object) {
    QZSetInstructionBudget(object, 0);
    QZSetMemoryLimit(object, kUnboundedMemory);
    QZSetStackLimit(object, kUnboundedStack);
    QZSetCallDepthLimit(object, kUnboundedDepth);
}

int QzFuzzProgramUnbounded(const uint8_t* data, size_t size) {
    if (size < 2) return 0;
    const uint8_t flags = data[0];
    const uint8_t seed = data[1];
    const std::string text(reinterpret_cast<const char*>(data + 2), size - 2);
    const int cycles = 1 + (flags & 1);

    // The probe: the reading path, instructions counted.
    std::vector<Qz::uint32_t> probed;
    {
        qz_st_interpretator::IQZSTInterpretator* object = Create();
        SetUnboundedLimits(object);
        FuzzClock clock;
        QZSetClock(object, &FuzzClock::Read, &clock);
        Probe probe;
        probe.Length = text.size();
        QZSetTraceHook(object, &Probe::Count, &probe);
        FuzzHost host(seed);
        CheckResult(object->InitInterpretator(text));
        for (int i = 0; i < cycles; ++i) {
            probe.Instructions = 0;
            host.Outputs = 0;
            const Qz::uint32_t result = object->Execute(&host);
            CheckResult(result);
            if (probe.Fired) {
                // The hook's exception ended the cycle at the boundary.
                QZ_FUZZ_CHECK(result == Qz::rcInternalFailure);
                break;
            }
            QZ_FUZZ_CHECK(result != Qz::rcInternalFailure && result != Qz::rcBudgetExhausted);
            if (result != Qz::rcOK && result != Qz::rcVarNotFound) QZ_FUZZ_CHECK(host.Outputs == 0);
            probed.push_back(result);
            ++host.Cycle;
        }
        object->Destroy();  // whatever the exception left behind is released
        if (probe.Fired) return 0;
    }

    // The compiled core, no hook and no budget: the same results.
    {
        qz_st_interpretator::IQZSTInterpretator* object = Create();
        SetUnboundedLimits(object);
        FuzzClock clock;
        QZSetClock(object, &FuzzClock::Read, &clock);
        FuzzHost host(seed);
        CheckResult(object->InitInterpretator(text));
        for (int i = 0; i < cycles; ++i) {
            host.Outputs = 0;
            const Qz::uint32_t result = object->Execute(&host);
            CheckResult(result);
            if (result != probed[size_t(i)]) {
                std::fprintf(stderr, "cycle %d: %u without the probe's hook, %u with it\n", i + 1, result,
                             probed[size_t(i)]);
                std::abort();
            }
            ++host.Cycle;
        }
        object->Destroy();
    }

    qzdiff::Options options;
    options.Cycles = cycles;
    options.Budget = 0;
    options.MemoryLimit = kUnboundedMemory;
    options.StackLimit = kUnboundedStack;
    options.CallDepthLimit = kUnboundedDepth;
    const std::string difference = qzdiff::Compare(text, options);
    if (!difference.empty()) {
        std::fprintf(stderr, "plain and compiled cores differ without a budget: %s\n", difference.c_str());
        std::abort();
    }
    return 0;
}

bool UnboundedMode() {
    static const bool unbounded = [] {
        const char* value = std::getenv("QZ_FUZZ_UNBOUNDED");
        return value && std::strcmp(value, "1") == 0;
    }();
    return unbounded;
}

}  // namespace

int QzFuzzProgram(const uint8_t* data, size_t size) {
    if (UnboundedMode()) return QzFuzzProgramUnbounded(data, size);
    if (size < 2) return 0;
    const uint8_t flags = data[0];
    const uint8_t seed = data[1];
    const std::string text(reinterpret_cast<const char*>(data + 2), size - 2);

    const int cycles = 1 + (flags & 3);
    const bool reload = flags & 4;
    const bool trace = flags & 8;
    const uint64_t budget = (flags & 16) ? 64 : 4096;
    const bool loadTwice = flags & 32;

    qz_st_interpretator::IQZSTInterpretator* object = Create();
    QZSetInstructionBudget(object, budget);
    FuzzClock clock;
    clock.StepsBack = flags & 64;
    QZSetClock(object, &FuzzClock::Read, &clock);
    size_t traceLength = text.size();
    if (trace) QZSetTraceHook(object, &TraceSink, &traceLength);

    FuzzHost host(seed);
    if (loadTwice) CheckResult(object->InitInterpretator(text));
    const Qz::uint32_t loaded = object->InitInterpretator(text);
    CheckResult(loaded);
    // A host should not run a program that failed to load, but one that does
    // must not be able to hurt itself either: run it regardless.
    for (int i = 0; i < cycles; ++i) RunCycle(object, host, text.size());

    if (reload) {
        const std::string prefix = text.substr(0, text.size() * seed / 255);
        traceLength = prefix.size();
        CheckResult(object->InitInterpretator(prefix));
        RunCycle(object, host, prefix.size());
    }
    object->Destroy();

    // The compiled core must agree with the plain one on everything a host or
    // a later cycle could see.
    qzdiff::Options options;
    options.Cycles = cycles;
    options.Budget = budget;
    options.Trace = trace;
    const std::string difference =
        reload ? qzdiff::CompareSequence({text, text.substr(0, text.size() * seed / 255)}, options)
               : qzdiff::Compare(text, options);
    if (!difference.empty()) {
        std::fprintf(stderr, "plain and compiled cores differ: %s\n", difference.c_str());
        std::abort();
    }
    return 0;
}

#ifndef QZ_FUZZ_NO_MAIN
extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) { return QzFuzzProgram(data, size); }
#endif
