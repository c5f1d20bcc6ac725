// Refused allocations: InitInterpretator and Execute end with 104 and let no
// exception out, the object loads and runs normally afterwards, and nothing
// leaks; memory exhausted for real (a cap on what the allocator hands out)
// gives the same; the extension functions allocate nothing.
//
// This executable replaces the global allocation functions: it counts live
// blocks and bytes, can fail the n-th allocation from now, and can refuse
// every allocation that would take the live bytes past a cap. Qt's own
// containers allocate with malloc and are neither counted nor failed.
#include "qz_st_intrpr_main.h"

#include <gtest/gtest.h>

#include <malloc.h>

#if defined(__SANITIZE_ADDRESS__)
#define QZ_TEST_LSAN 1
#elif defined(__has_feature)
#if __has_feature(address_sanitizer)
#define QZ_TEST_LSAN 1
#endif
#endif
#if QZ_TEST_LSAN
#include <sanitizer/lsan_interface.h>
#endif

#include <cctype>
#include <cstdio>
#include <ostream>
#include <cstdlib>
#include <new>
#include <string>
#include <vector>

#include "counting_allocator.h"

namespace {

using qz_st_interpretator::IQZSTInterpretator;

// A host that allocates nothing: inputs are the length of their name, and
// the outputs of a cycle are kept in a fixed array, in the order sent.
class QuietHost : public qz_st_interpretator::IQZExecuteInterface {
public:
    virtual ~QuietHost() = default;
    bool GetValueFrom(CQZDirection, const QString& name, double& value) override {
        value = double(name.size());
        return true;
    }
    bool SetValueTo(CQZDirection, const QString&, double value, int dimension, bool rewrited) override {
        if (Count < kMost) {
            Values[Count] = value;
            Dimensions[Count] = dimension * (rewrited ? 1 : -1);
        }
        ++Count;
        return true;
    }
    static constexpr int kMost = 8;
    double Values[kMost] = {};
    int Dimensions[kMost] = {};
    int Count = 0;
};

struct CycleOutcome {
    Qz::uint32_t Result = 0;
    int Outputs = 0;
    double Values[QuietHost::kMost] = {};
    int Dimensions[QuietHost::kMost] = {};
    bool operator==(const CycleOutcome& o) const {
        if (Result != o.Result || Outputs != o.Outputs) return false;
        for (int i = 0; i < Outputs && i < QuietHost::kMost; ++i)
            if (Values[i] != o.Values[i] || Dimensions[i] != o.Dimensions[i]) return false;
        return true;
    }
};

constexpr int kMostCycles = 4;


struct Program {
    const char* Name;
    const char* Text;
    int Cycles;
    bool Trace;
    uint64_t Budget;
};

// Each kind of work that allocates: loading alone; cycles of moves; calls
// with frames, recursion and deeper calls in later cycles; references
// through MOVA into frames; built-ins; a text without VAR, whose labels are
// registered while it runs; the value stack growing several times; the same
// under the trace hook (the reading path); a budget that stops a loop after
// a call.
const Program kPrograms[] = {
    {"load only",
     "PROG LOADONLY VAR A V DINT 1 B VI REAL 0 C VO LREAL 0 T TVR REAL 1 2 3 4 G TVG REAL 5 D V BOOL 1 "
     "MAIN L1: MOV 1 R0 RET L2: MOV 2 R0 RET L3: RET",
     0, false, 0},
    {"moves",
     "PROG MOVES VAR CNT V DINT 0 START VI BOOL 0 LAMP VO BOOL 0 SUM VO DINT 0 MAIN MOV @START R0 TST R0 "
     "JMPF OFF MOV 1 @LAMP MOV 5 R1 ADD 7 R1 MOV R1 @SUM MOV @SUM @CNT RET OFF: MOV 0 @LAMP RET",
     3, false, 0},
    {"calls and recursion",
     "PROG CALLS VAR OUT VO DINT 0 DEPTH V DINT 4 MAIN MOV 0 R1 MOV @DEPTH R0 CAL F MOV R1 @OUT RET "
     "F: N V DINT 0 M V REAL 2.5 K VA INT 0 BODY MOV R0 @N TST R0 JMPF FEND ADD -1 R0 CAL F FEND: ADD 1 R1 "
     "CAL G RET G: X V DINT 0 BODY MOV 1 @X RET RET",
     3, false, 0},
    {"references",
     "PROG REFS VAR X V DINT 5 P V DINT 0 OUT VO DINT 0 MAIN MOVA @X @P MOV 7 ^P MOVA @X R0 MOV R0 PUSH "
     "CAL G MOV @X @OUT RET G: Q VR DINT 0 L V DINT 3 BODY MOV POP R0 MOVA R0 @Q MOV 9 ^Q MOVA @L R1 RET RET",
     3, false, 0},
    {"built-ins",
     "PROG EXECS VAR OUT VO LREAL 0 MAIN MOV 16.0 PUSH EXEC SQRT MOV A0 PUSH MOV 2.0 PUSH EXEC POW "
     "MOV A0 PUSH EXEC LN MOV A0 @OUT RET",
     3, false, 0},
    {"no VAR section", "PROG NOVAR MAIN MOV 1 R0 L1: ADD 1 R0 L2: MOV R0 PUSH MOV POP R1 L3: RET", 3, false, 0},
    {"value stack",
     "PROG PUSHES VAR OUT VO DINT 0 MAIN MOV 0 R0 L: MOV R0 PUSH ADD 1 R0 MOV R0 R1 GT 300 R1 TST R1 JMPT L "
     "P: MOV POP A0 ADD -1 R0 MOV R0 R1 LT 0 R1 TST R1 JMPT P MOV A0 @OUT RET",
     2, false, 0},
    {"calls traced",
     "PROG CALLS VAR OUT VO DINT 0 MAIN MOV 0 R1 MOV 3 R0 CAL F MOV R1 @OUT RET "
     "F: N V DINT 0 BODY MOV R0 @N TST R0 JMPF FEND ADD -1 R0 CAL F FEND: ADD 1 R1 RET RET",
     2, true, 0},
    {"budget after a call",
     "PROG BUDGET VAR OUT VO DINT 0 MAIN MOV 2 @OUT CAL F L: JMP L RET F: A V DINT 0 B V DINT 0 BODY MOV 1 @A "
     "RET RET",
     2, false, 20},
};

void NoTrace(void*, const QZTraceEvent*) {}

void PrintTo(const Program& program, std::ostream* out) { *out << program.Name; }

// What a run of `program` gives on `object`, loaded from scratch. The text
// is copied by the caller: its copy is the host's, not the library's.
Qz::uint32_t RunProgram(IQZSTInterpretator* object, const Program& program, std::string text, CycleOutcome* cycles,
                        int& ran, bool stopAt104) {
    const Qz::uint32_t load = object->InitInterpretator(std::move(text));
    ran = 0;
    if (load != Qz::rcOK && load != Qz::rcEndOfText) return load;
    for (int i = 0; i < program.Cycles; ++i) {
        QuietHost host;
        CycleOutcome& c = cycles[i];
        c.Result = object->Execute(&host);
        c.Outputs = host.Count;
        for (int k = 0; k < host.Count && k < QuietHost::kMost; ++k) {
            c.Values[k] = host.Values[k];
            c.Dimensions[k] = host.Dimensions[k];
        }
        ++ran;
        if (stopAt104 && c.Result == Qz::rcOutOfMemory) break;  // the host reloads
    }
    return load;
}

IQZSTInterpretator* NewObject(const Program& program) {
    IQZSTInterpretator* object = Create();
    QZSetInstructionBudget(object, program.Budget);
    if (program.Trace) QZSetTraceHook(object, &NoTrace, nullptr);
    return object;
}

// One full life of every program, so that one-time initialisations inside
// the library have happened before blocks are counted.
void WarmUp() {
    for (const Program& program : kPrograms) {
        IQZSTInterpretator* object = NewObject(program);
        CycleOutcome cycles[kMostCycles];
        int ran;
        RunProgram(object, program, program.Text, cycles, ran, false);
        object->Destroy();
    }
}

class AllocationFailures : public ::testing::TestWithParam<Program> {};

// What a refused allocation may leave behind: nothing, or (when `strict` is
// false) the one variable record that the library is known to lose when the
// allocation that fails is the one that links a new record into its table
// (CQZ_Vars::Link, after CQZ_Vars::NewRecord). `lostRecords`: how many runs
// lost it.
//
// After a 104 inside a CAL (its call position pushed, its frame not built)
// the call stays open, and a reload keeps open calls' return positions, as
// it does after any failure inside a subprogram: the reloaded program's MAIN
// then ends with 8 on every cycle that reaches it. Unless `afresh` is set, that is what is
// expected then, and a new object gives the normal run; `leftOpen` counts
// those runs.
void Sweep(const Program& program, bool strict, bool afresh, long& lostRecords, long& leftOpen) {
    WarmUp();

    // The normal run.
    CycleOutcome normal[kMostCycles];
    int normalRan = 0;
    IQZSTInterpretator* reference = NewObject(program);
    const Qz::uint32_t normalLoad = RunProgram(reference, program, program.Text, normal, normalRan, false);
    reference->Destroy();
    ASSERT_EQ(normalLoad, Qz::rcOK);
    for (int i = 0; i < normalRan; ++i) ASSERT_NE(normal[i].Result, Qz::rcOutOfMemory);

    long failedLoads = 0, failedCycles = 0;
    long n = 1;
    lostRecords = 0;
    leftOpen = 0;
    for (; n < 100000; ++n) {
        const long before = gLiveBlocks;
        const long long liveBytes = gLiveBytes;
        IQZSTInterpretator* object = NewObject(program);
        CycleOutcome cycles[kMostCycles];
        int ran = 0;
        Qz::uint32_t load = 0;
        bool escaped = false;
        std::string text(program.Text);
        gFailed = false;
        gFailCountdown = n;
        try {
            load = RunProgram(object, program, std::move(text), cycles, ran, true);
        } catch (...) {
            escaped = true;
        }
        gFailCountdown = 0;
        const bool hit = gFailed;
        ASSERT_FALSE(escaped) << "allocation " << n;

        // Every result is the normal one, or 104 (after which the host
        // reloads: the cycles after it are not run).
        if (load == Qz::rcOutOfMemory) {
            ++failedLoads;
        } else {
            ASSERT_EQ(load, normalLoad) << "allocation " << n;
            for (int i = 0; i < ran; ++i) {
                if (cycles[i].Result == Qz::rcOutOfMemory) {
                    ++failedCycles;
                    EXPECT_EQ(cycles[i].Outputs, 0) << "allocation " << n << ", cycle " << i + 1;
                    break;
                }
                ASSERT_TRUE(cycles[i] == normal[i]) << "allocation " << n << ", cycle " << i + 1 << ": result "
                                                    << cycles[i].Result << " instead of " << normal[i].Result;
            }
        }
        if (hit) {
            ASSERT_TRUE(load == Qz::rcOutOfMemory || (ran > 0 && cycles[ran - 1].Result == Qz::rcOutOfMemory) ||
                        program.Cycles == 0)
                << "allocation " << n << " failed and no call said so";
        }

        // Loading afresh gives the normal run.
        const CQZ_STInterpretator* machine = static_cast<CQZ_STInterpretator*>(object);
        const size_t openCalls = machine->CallStack.size();
        CycleOutcome again[kMostCycles];
        int againRan = 0;
        const Qz::uint32_t reload = RunProgram(object, program, program.Text, again, againRan, false);
        EXPECT_EQ(reload, normalLoad) << "allocation " << n;
        EXPECT_EQ(againRan, normalRan) << "allocation " << n;
        if (openCalls != 0 && !afresh) {
            ++leftOpen;
            EXPECT_EQ(machine->CallStack.size(), openCalls) << "allocation " << n;  // kept by the reload
            for (int i = 0; i < againRan; ++i) {
                // MAIN's RET ends with 8; a cycle stopped before it, as before.
                if (again[i].Result == Qz::rcRetWithCallsPending)
                    EXPECT_EQ(again[i].Outputs, 0) << "allocation " << n << ", cycle " << i + 1;
                else
                    EXPECT_TRUE(again[i] == normal[i]) << "allocation " << n << ", cycle " << i + 1;
            }
            IQZSTInterpretator* fresh = NewObject(program);
            againRan = 0;
            EXPECT_EQ(RunProgram(fresh, program, program.Text, again, againRan, false), normalLoad);
            fresh->Destroy();
        }
        for (int i = 0; i < againRan && i < normalRan; ++i)
            EXPECT_TRUE(again[i] == normal[i]) << "allocation " << n << ", reloaded, cycle " << i + 1 << ": result "
                                               << again[i].Result << " instead of " << normal[i].Result << " ("
                                               << openCalls << " calls open before the reload)";
        object->Destroy();
        if (strict || gLiveBlocks == before) {
            EXPECT_EQ(gLiveBlocks, before) << "allocation " << n;
        } else {
            EXPECT_EQ(gLiveBlocks, before + 1) << "allocation " << n;
            // One block of a record's size (malloc may round it up a little).
            EXPECT_GE(gLiveBytes - liveBytes, static_cast<long long>(sizeof(Var))) << "allocation " << n;
            EXPECT_LE(gLiveBytes - liveBytes, static_cast<long long>(sizeof(Var)) + 64) << "allocation " << n;
            ++lostRecords;
        }
        if (::testing::Test::HasFailure()) break;
        if (!hit) break;  // the whole run went through: every allocation has failed once
    }
    std::printf("%s: %ld allocations failed in turn, %ld during the load, %ld during a cycle; %ld lost a record, "
                "%ld left a call open\n",
                program.Name, n - 1, failedLoads, failedCycles, lostRecords, leftOpen);
    EXPECT_GT(n, 1);
    if (program.Cycles > 0 && std::string(program.Name) != "no VAR section") {
        EXPECT_GT(failedLoads, 0);
        EXPECT_GT(failedCycles, 0);
    }
}

TEST_P(AllocationFailures, EveryAllocationFailsInTurn) {
    long lost = 0, open = 0;
    Sweep(GetParam(), true, false, lost, open);
    EXPECT_EQ(lost, 0);
}

INSTANTIATE_TEST_SUITE_P(Programs, AllocationFailures, ::testing::ValuesIn(kPrograms),
                         [](const ::testing::TestParamInfo<Program>& info) {
                             std::string name;
                             for (const char* c = info.param.Name; *c; ++c)
                                 if (std::isalnum(static_cast<unsigned char>(*c))) name += *c;
                             return name;
                         });

// ---- Memory exhausted for real ----

// Caps the live bytes at what is live now plus `room`, for one scope.
class Cap {
public:
    explicit Cap(long long room) { gCapBytes = gLiveBytes + room; }
    ~Cap() { gCapBytes = 0; }
};

const char* kGood = "PROG GOOD VAR OUT VO DINT 0 MAIN MOV 3 @OUT RET";

// A good program, loaded and run once on `object`: true when it gave 3.
bool RunsGood(IQZSTInterpretator* object) {
    if (object->InitInterpretator(kGood) != Qz::rcOK) return false;
    QuietHost host;
    return object->Execute(&host) == Qz::rcOK && host.Count == 1 && host.Values[0] == 3.0;
}

TEST(MemoryExhaustion, InitInterpretatorReturns104) {
    WarmUp();
    std::string text = "PROG MANY VAR ";
    for (int i = 0; i < 50000; ++i) text += "VARIABLE" + std::to_string(i) + " V LREAL 0 ";
    text += "MAIN RET";
    const long before = gLiveBlocks;
    IQZSTInterpretator* object = Create();
    Qz::uint32_t r = 0;
    {
        std::string copy = text;
        Cap cap(4 << 20);  // the records of 50,000 variables need more
        EXPECT_NO_THROW(r = object->InitInterpretator(std::move(copy)));
    }
    EXPECT_EQ(r, Qz::rcOutOfMemory);
    EXPECT_TRUE(RunsGood(object));
    EXPECT_EQ(object->InitInterpretator(text), Qz::rcOK);  // without the cap it loads
    object->Destroy();
    EXPECT_EQ(gLiveBlocks, before);
}

TEST(MemoryExhaustion, ExecuteOfAPushLoopWithoutCeilingReturns104) {
    WarmUp();
    for (bool plain : {false, true}) {
        SCOPED_TRACE(plain ? "plain" : "compiled");
        const long before = gLiveBlocks;
        IQZSTInterpretator* object = Create();
        static_cast<CQZ_STInterpretator*>(object)->PlainPath = plain;
        QZSetMemoryLimit(object, 0);  // no ceiling: the allocator is what stops it
        ASSERT_EQ(object->InitInterpretator("PROG P MAIN L: MOV 1 PUSH JMP L RET"), Qz::rcOK);
        Qz::uint32_t r = 0;
        {
            Cap cap(16 << 20);
            QuietHost host;
            EXPECT_NO_THROW(r = object->Execute(&host));
        }
        EXPECT_EQ(r, Qz::rcOutOfMemory);
        const size_t values = static_cast<CQZ_STInterpretator*>(object)->Stack.size();
        EXPECT_GE(values, size_t(1) << 19);  // 8 MiB of values fitted, 16 MiB more did not
        EXPECT_LE(values, size_t(1) << 20);
        EXPECT_TRUE(RunsGood(object));
        object->Destroy();
        EXPECT_EQ(gLiveBlocks, before);
    }
}

TEST(MemoryExhaustion, ExecuteOfARecursionWithoutCeilingReturns104) {
    WarmUp();
    for (bool plain : {false, true}) {
        SCOPED_TRACE(plain ? "plain" : "compiled");
        const long before = gLiveBlocks;
        IQZSTInterpretator* object = Create();
        CQZ_STInterpretator* machine = static_cast<CQZ_STInterpretator*>(object);
        machine->PlainPath = plain;
        QZSetMemoryLimit(object, 0);
        ASSERT_EQ(object->InitInterpretator("PROG P VAR MAIN CAL F RET F: A V DINT 0 B V REAL 1 BODY CAL F RET RET"),
                  Qz::rcOK);
        Qz::uint32_t r = 0;
        {
            Cap cap(8 << 20);
            QuietHost host;
            EXPECT_NO_THROW(r = object->Execute(&host));
        }
        EXPECT_EQ(r, Qz::rcOutOfMemory);
        EXPECT_GT(machine->TableStack.size(), 1000u);
        // The CAL that failed pushed its call position and no frame; the
        // memory estimate still matches what is held.
        EXPECT_EQ(machine->CallStack.size(), machine->TableStack.size() + 1);
        EXPECT_EQ(machine->FrameRecordsInUse, 2 * machine->TableStack.size());
        // A reload drops the frames; the good program's MAIN ends with the
        // text's final RET, so the open call positions do not stop it.
        EXPECT_TRUE(RunsGood(object));
        EXPECT_EQ(machine->TableStack.size(), 0u);
        EXPECT_EQ(machine->FrameRecordsInUse, 0u);
        object->Destroy();
        EXPECT_EQ(gLiveBlocks, before);
    }
}

TEST(MemoryExhaustion, CreateAloneRethrows) {
    WarmUp();
    const long before = gLiveBlocks;
    bool threw = false;
    gFailCountdown = 1;
    try {
        Create();
    } catch (const std::bad_alloc&) {
        threw = true;
    }
    gFailCountdown = 0;
    EXPECT_TRUE(threw);
    EXPECT_EQ(gLiveBlocks, before);
}

uint32_t FixedClock(void*) { return 1000; }

TEST(MemoryExhaustion, ExtensionsAllocateNothing) {
    WarmUp();
    IQZSTInterpretator* object = Create();
    ASSERT_EQ(object->InitInterpretator(kGood), Qz::rcOK);
    const long before = gLiveBlocks;
    gFailed = false;
    gFailCountdown = 1;  // the first allocation would fail
    QZSetInstructionBudget(object, 10);
    QZSetStackLimit(object, 10);
    QZSetCallDepthLimit(object, 10);
    QZSetMemoryLimit(object, 1 << 20);
    QZSetClock(object, &FixedClock, nullptr);
    QZSetTraceHook(object, &NoTrace, nullptr);
    QZSetTraceHook(object, nullptr, nullptr);
    QZScanPosition position;
    QZGetScanPosition(object, &position);
    QZSetStackLimit(nullptr, 1);
    QZSetCallDepthLimit(nullptr, 1);
    QZSetMemoryLimit(nullptr, 1);
    gFailCountdown = 0;
    EXPECT_FALSE(gFailed);
    EXPECT_EQ(gLiveBlocks, before);
    object->Destroy();
}

// ---- The 430 KB reproducer: what it holds ----

TEST(MemoryExhaustion, ReproducerWith20000LocalsHoldsLittleUnderABudget) {
    WarmUp();
    std::string text = "PROG RESOURCE_REPRO VAR OUT VO DINT 0 MAIN CAL R MOV 1 @OUT RET R: ";
    for (int i = 0; i < 20000; ++i) text += "LOCAL" + std::to_string(100000 + i) + " V LREAL 0 ";
    text += "BODY CAL R RET RET";
    for (uint64_t budget : {100u, 1000u}) {
        for (bool plain : {false, true}) {
            SCOPED_TRACE((plain ? "plain, budget " : "compiled, budget ") + std::to_string(budget));
            const long before = gLiveBlocks;
            IQZSTInterpretator* object = Create();
            static_cast<CQZ_STInterpretator*>(object)->PlainPath = plain;
            QZSetInstructionBudget(object, budget);
            ASSERT_EQ(object->InitInterpretator(text), Qz::rcOK);
            const long long loaded = gLiveBytes;
            gPeakBytes = gLiveBytes;
            Qz::uint32_t results[3];
            for (Qz::uint32_t& r : results) {
                QuietHost host;
                r = object->Execute(&host);
            }
            const long long peak = gPeakBytes - loaded, kept = gLiveBytes - loaded;
            for (Qz::uint32_t r : results) EXPECT_EQ(r, Qz::rcBudgetExhausted);
            // The compiled path translates the text once (its frame keeps
            // the subprogram's 20,000 records); the cycles build no frame.
            EXPECT_LT(peak, plain ? (1 << 20) : (64 << 20));
            std::printf("%zu-byte text, budget %llu, %s: %lld bytes at most and %lld kept beyond the loaded text\n",
                        text.size(), static_cast<unsigned long long>(budget), plain ? "plain" : "compiled", peak,
                        kept);
            object->Destroy();
            EXPECT_EQ(gLiveBlocks, before);
        }
    }
}

}  // namespace

namespace {

// What a recursion without budget really holds when it stops at a ceiling of
// 4 MiB, in bytes allocated beyond the loaded program, with F declaring
// `locals` locals; `estimate` receives what the ceiling counted.
long long HeldAtTheCeiling(int locals, bool plain, uint64_t& estimate) {
    std::string text = "PROG P VAR MAIN CAL F RET F: ";
    for (int i = 0; i < locals; ++i) text += "L" + std::to_string(i) + " V DINT 0 ";
    text += "BODY CAL F RET RET";
    IQZSTInterpretator* object = Create();
    CQZ_STInterpretator* machine = static_cast<CQZ_STInterpretator*>(object);
    machine->PlainPath = plain;
    QZSetMemoryLimit(object, 4 << 20);
    EXPECT_EQ(object->InitInterpretator(text), Qz::rcOK);
    const long long before = gLiveBytes;
    QuietHost host;
    EXPECT_EQ(object->Execute(&host), Qz::rcMemoryLimit);
    const long long held = gLiveBytes - before;
    estimate = machine->MemoryInUse();
    std::printf("%d locals, %s: ceiling 4194304, counted %llu, held %lld\n", locals, plain ? "plain" : "compiled",
                static_cast<unsigned long long>(estimate), held);
    object->Destroy();
    return held;
}

// The ceiling is an estimate with fixed sizes per item: a frame record
// counts sizeof(Var) + 64 bytes, but holds its record and the copy in its
// table's list of its kind. Frames full of locals hold up to about 1.8 times
// the ceiling; never twice.
TEST(MemoryExhaustion, FramesHoldLessThanTwiceTheCeiling) {
    WarmUp();
    for (int locals : {0, 1, 10, 50})
        for (bool plain : {false, true}) {
            uint64_t estimate = 0;
            const long long held = HeldAtTheCeiling(locals, plain, estimate);
            EXPECT_LE(estimate, uint64_t(4) << 20);
            EXPECT_LT(held, 8ll << 20) << locals << " locals";
        }
}

// What frames really hold (records, their copies in the declarations' lists,
// tables) stays within the ceiling the estimate enforces.
TEST(MemoryExhaustion, FramesHoldNoMoreThanTheCeiling) {
    WarmUp();
    for (int locals : {0, 1, 10, 50})
        for (bool plain : {false, true}) {
            uint64_t estimate = 0;
            EXPECT_LE(HeldAtTheCeiling(locals, plain, estimate), (4ll << 20) + (64 << 10)) << locals << " locals";
        }
}

// Once a program has run every path of its cycle, later cycles allocate
// nothing: the compiled form, frames (also of subprograms called in turn),
// references and the stacks are built once and reused.
TEST(CycleAllocations, CyclesAfterTheFirstAllocateNothing) {
    const char* const programs[] = {
        "PROG LOOP VAR I V DINT 0 SUM V DINT 0 OUT VO DINT 0 MAIN MOV 0 @SUM MOV 0 @I L: MOV @SUM R0 ADD @I R0 "
        "MOV R0 @SUM MOV @I R1 ADD 1 R1 MOV R1 @I GT 100 R1 TST R1 JMPT L MOV @SUM @OUT RET",
        "PROG CALLS VAR K V DINT 0 ACC V LREAL 0 OUT VO LREAL 0 MAIN L: MOV @K PUSH CAL F MOV @K PUSH CAL G "
        "ADD @ACC A0 MOV A0 @ACC MOV @K R1 ADD 1 R1 MOV R1 @K GT 50 R1 TST R1 JMPT L MOV @ACC @OUT RET "
        "F: X V DINT 0 Y V LREAL 0 BODY MOV POP @X MOV @X R0 MUL 0.5 R0 MOV R0 @Y RET "
        "G: Z V DINT 0 BODY MOV POP @Z MOV @Z A0 RET RET",
        "PROG REFS VAR X V DINT 3 P V DINT 0 OUT VO DINT 0 MAIN MOVA @X @P MOV 7 ^P MOV ^P R0 MOV @X PUSH "
        "EXEC SQRT MOV 2 PUSH MOV 10 PUSH EXEC POW MOV R0 @OUT RET",
    };
    for (const char* text : programs) {
        CQZ_STInterpretator object;
        ASSERT_EQ(object.InitInterpretator(text), 0u) << text;
        QuietHost host;
        for (int cycle = 0; cycle < 3; ++cycle) ASSERT_EQ(object.Execute(&host), 0u) << text;
        ASSERT_GT(object.CompiledForm().Code.size(), 0u) << "the cycles ran compiled";
        const long before = gAllocations;
        for (int cycle = 0; cycle < 20; ++cycle) ASSERT_EQ(object.Execute(&host), 0u) << text;
        EXPECT_EQ(gAllocations, before) << text;
    }
}

}  // namespace
