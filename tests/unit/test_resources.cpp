// Bounded resources: what a CAL and its RET cost against the instruction
// budget, the value-stack and call-depth limits, the memory ceiling, and the
// texts that used to make a budgeted cycle build frames without end.
//
// Every test that runs a program runs it on both paths (the compiled core and
// the reading one, PlainPath) and expects the same codes and the same state;
// LimitsAgreeOnBothPaths compares everything the two leave behind.
#include "differential.h"
#include "qz_st_intrpr_main.h"
#include "recording_host.h"

#include <gtest/gtest.h>

#include <chrono>
#include <cstdio>
#include <new>
#include <stdexcept>
#include <string>
#include <vector>

namespace {

using Clock = std::chrono::steady_clock;

constexpr uint64_t kRecord = CQZ_STInterpretator_Execute::kFrameRecordBytes;
constexpr uint64_t kTable = CQZ_STInterpretator_Execute::kFrameTableBytes;
constexpr uint64_t kCall = 16;   // one pending call, as MemoryInUse counts it
constexpr uint64_t kValue = 16;  // one value on the value stack
static_assert(sizeof(QZ_StackValue) == kValue, "a stack value is counted as 16 bytes");

// `count` declarations of DINT locals named <prefix>0, <prefix>1, ...
std::string Locals(int count, const std::string& prefix = "L") {
    std::string s;
    for (int i = 0; i < count; ++i) s += prefix + std::to_string(i) + " V DINT 0 ";
    return s;
}

// A subprogram F with `locals` declarations and `body`, standing after MAIN;
// the text ends with a RET of its own so that F's RET returns.
std::string WithSubprogram(const std::string& main, int locals, const std::string& body) {
    return "PROG P VAR OUT VO DINT 0 MAIN " + main + " RET F: " + Locals(locals) + "BODY " + body + " RET RET";
}

// Subprograms F1 .. Fn, each calling the next; Fn sets R0 to 1.
std::string Chain(int n) {
    std::string s = "PROG P VAR MAIN MOV 0 R0 CAL F1 RET ";
    for (int i = 1; i <= n; ++i) {
        s += "F" + std::to_string(i) + ": BODY ";
        s += i < n ? "CAL F" + std::to_string(i + 1) + " " : "MOV 1 R0 ";
        s += "RET ";
    }
    return s + "RET";
}

struct Limits {
    uint64_t Budget = 0;
    uint64_t Stack = 0;
    uint64_t Depth = 0;
    uint64_t Memory = QZ_DEFAULT_MEMORY_LIMIT;
};

// One interpreter object on one path with its limits.
class Machine {
public:
    Machine(bool plain, const Limits& limits) {
        Object.PlainPath = plain;
        QZSetInstructionBudget(&Object, limits.Budget);
        QZSetStackLimit(&Object, limits.Stack);
        QZSetCallDepthLimit(&Object, limits.Depth);
        QZSetMemoryLimit(&Object, limits.Memory);
    }
    Qz::uint32_t Load(const std::string& text) { return Object.InitInterpretator(text); }
    Qz::uint32_t Cycle() {
        Host.Calls.clear();
        return Object.Execute(&Host);
    }
    uint64_t Memory() const { return Object.MemoryInUse(); }
    size_t Calls() const { return Object.CallStack.size(); }
    size_t Tables() const { return Object.TableStack.size(); }
    size_t Values() const { return Object.Stack.size(); }
    QZScanPosition Position() {
        QZScanPosition p;
        QZGetScanPosition(&Object, &p);
        return p;
    }

    CQZ_STInterpretator Object;
    RecordingHost Host;
};

// The two paths, by name.
class Resources : public ::testing::TestWithParam<bool> {
protected:
    bool Plain() const { return GetParam(); }
};

std::string PathName(const ::testing::TestParamInfo<bool>& info) { return info.param ? "Plain" : "Compiled"; }

// ---- What a CAL and its RET cost ----

// The smallest budget under which one cycle of `text` ends with 0, searched
// upwards from 1 on fresh objects; 0 when none up to `most` does. Every
// budget below it must end the cycle with 100.
uint64_t SmallestBudget(bool plain, const std::string& text, uint64_t most) {
    for (uint64_t budget = 1; budget <= most; ++budget) {
        Limits limits;
        limits.Budget = budget;
        Machine m(plain, limits);
        if (m.Load(text) != Qz::rcOK) return 0;
        const Qz::uint32_t r = m.Cycle();
        if (r == Qz::rcOK) return budget;
        if (r != Qz::rcBudgetExhausted) return 0;
    }
    return 0;
}

struct CostCase {
    int Declarations;       // of F, as written
    int Records;            // of F's frame: a repeated name keeps one record
    std::string Locals;     // F's declarations
};

TEST_P(Resources, CallCostsItsDeclarations) {
    std::vector<CostCase> cases;
    for (int k : {0, 1, 2, 3, 10, 100, 250}) cases.push_back({k, k, Locals(k)});
    cases.push_back({3, 1, "X V DINT 0 X V INT 1 X V REAL 2 "});
    cases.push_back({4, 2, "X V DINT 0 Y VA DINT 0 x V DINT 0 Y VR DINT 0 "});
    for (const CostCase& c : cases) {
        SCOPED_TRACE("F with " + std::to_string(c.Declarations) + " declarations: " + c.Locals);
        const std::string tail = "F: " + c.Locals + "BODY RET RET";
        // MAIN: CAL F, RET: the cycle ends right after F's RET, which is
        // charged after the fact: only the CAL and its declarations count.
        const uint64_t k = uint64_t(c.Declarations), records = uint64_t(c.Records);
        EXPECT_EQ(SmallestBudget(Plain(), "PROG P VAR MAIN CAL F RET " + tail, 1000), 1 + k);
        // One more instruction after the call: it pays for the RET's records.
        EXPECT_EQ(SmallestBudget(Plain(), "PROG P VAR MAIN CAL F MOV 1 R0 RET " + tail, 2000), 1 + k + records + 1);
        // Two calls: each builds and releases its own frame.
        EXPECT_EQ(SmallestBudget(Plain(), "PROG P VAR MAIN CAL F CAL F MOV 1 R0 RET " + tail, 3000),
                  2 * (1 + k + records) + 1);
    }
}

TEST_P(Resources, ReturnChargesAfterTheFactAndTheNextInstructionStops) {
    // F has 10 locals: CAL + declarations = 11 units, its RET 10 more. With a
    // budget of 11 the call returns, and the MOV behind it finds the budget
    // spent: the cycle ends there, with nothing pending.
    Limits limits;
    limits.Budget = 11;
    Machine m(Plain(), limits);
    const std::string text = WithSubprogram("CAL F MOV 7 @OUT", 10, "");
    ASSERT_EQ(m.Load(text), Qz::rcOK);
    EXPECT_EQ(m.Cycle(), Qz::rcBudgetExhausted);
    EXPECT_EQ(m.Calls(), 0u);
    EXPECT_EQ(m.Tables(), 0u);
    EXPECT_EQ(m.Object.FrameRecordsInUse, 0u);
    EXPECT_EQ(int(m.Position().TokenCode), int(ttMOV));
    EXPECT_EQ(m.Position().TokenStart, int32_t(text.find("MOV 7")));
    EXPECT_TRUE(m.Host.Calls.empty());
}

// ---- A frame the budget cannot pay for is never built ----

TEST_P(Resources, HugeFrameOverBudgetAddsNoFrame) {
    Limits limits;
    limits.Budget = 100;
    Machine m(Plain(), limits);
    const std::string text = WithSubprogram("CAL F MOV 1 @OUT", 20000, "MOV 1 R0");
    ASSERT_EQ(m.Load(text), Qz::rcOK);
    for (size_t cycle = 1; cycle <= 3; ++cycle) {
        EXPECT_EQ(m.Cycle(), Qz::rcBudgetExhausted);
        // The CAL and 99 declarations ran; the 100th declaration would pass
        // the budget and the half-built table is released. The call position
        // stays pushed, as the reading rules push it before the frame.
        EXPECT_EQ(m.Calls(), cycle);
        EXPECT_EQ(m.Tables(), 0u);
        EXPECT_EQ(m.Object.FrameRecordsInUse, 0u);
        EXPECT_EQ(m.Memory(), cycle * kCall);
        // Stopped at the declaration that would pass the budget, L99: the
        // frame is read declaration by declaration, never all 20,000 first.
        EXPECT_EQ(m.Position().TokenStart, int32_t(text.find(" L99 V DINT 0 ") + 12));
        EXPECT_TRUE(m.Host.Calls.empty());
    }
}

TEST_P(Resources, RecursionIntoHugeFrameUnderBudgetHoldsNoFrame) {
    Limits limits;
    limits.Budget = 1000;
    Machine m(Plain(), limits);
    ASSERT_EQ(m.Load(WithSubprogram("CAL F", 20000, "CAL F")), Qz::rcOK);
    for (size_t cycle = 1; cycle <= 5; ++cycle) {
        EXPECT_EQ(m.Cycle(), Qz::rcBudgetExhausted);
        EXPECT_EQ(m.Tables(), 0u);
        EXPECT_EQ(m.Calls(), cycle);
        EXPECT_EQ(m.Memory(), cycle * kCall);
    }
}

TEST_P(Resources, RecursionUnderBudgetHoldsWhatTheBudgetPaidFor) {
    // Each level costs its CAL and 10 declarations: 90 levels take 990 units,
    // the 91st CAL the 991st, and its declarations 992..1000; the 10th would
    // be the 1001st. 90 frames of 10 records stay, and 91 call positions.
    Limits limits;
    limits.Budget = 1000;
    Machine m(Plain(), limits);
    ASSERT_EQ(m.Load(WithSubprogram("CAL F", 10, "CAL F")), Qz::rcOK);
    EXPECT_EQ(m.Cycle(), Qz::rcBudgetExhausted);
    EXPECT_EQ(m.Tables(), 90u);
    EXPECT_EQ(m.Calls(), 91u);
    EXPECT_EQ(m.Object.FrameRecordsInUse, 900u);
    EXPECT_EQ(m.Memory(), 91 * kCall + 90 * kTable + 900 * kRecord);
}

// ---- The memory ceiling ----

TEST_P(Resources, RecursionWithoutBudgetEndsAtTheMemoryCeiling) {
    for (int locals : {0, 1, 50}) {
        SCOPED_TRACE(std::to_string(locals) + " locals");
        Limits limits;
        limits.Memory = uint64_t(4) << 20;
        Machine m(Plain(), limits);
        ASSERT_EQ(m.Load(WithSubprogram("CAL F", locals, "CAL F")), Qz::rcOK);
        Qz::uint32_t r = 0;
        EXPECT_NO_THROW(r = m.Cycle());
        EXPECT_EQ(r, Qz::rcMemoryLimit);
        // n whole levels, and the call position of the CAL whose frame did
        // not fit; one more frame would pass the ceiling.
        const uint64_t n = m.Tables();
        const uint64_t level = kCall + kTable + uint64_t(locals) * kRecord;
        EXPECT_EQ(n, limits.Memory / level);  // 4,599 levels of a frame without locals
        EXPECT_EQ(m.Calls(), n + 1);
        EXPECT_EQ(m.Object.FrameRecordsInUse, n * uint64_t(locals));
        EXPECT_EQ(m.Memory(), n * level + kCall);
        EXPECT_LE(m.Memory(), limits.Memory);
        EXPECT_GT(m.Memory() + kTable + uint64_t(locals) * kRecord, limits.Memory);
        EXPECT_TRUE(m.Host.Calls.empty());
    }
}

TEST_P(Resources, FrameThatWouldPassTheCeilingFailsAtItsDeclaration) {
    // A ceiling of 64 KB: F's 1,000 locals need more than that, and the
    // declaration that would pass it fails; the table is released.
    Limits limits;
    limits.Memory = 64 << 10;
    Machine m(Plain(), limits);
    const std::string text = WithSubprogram("CAL F", 1000, "MOV 1 R0");
    ASSERT_EQ(m.Load(text), Qz::rcOK);
    EXPECT_EQ(m.Cycle(), Qz::rcMemoryLimit);
    EXPECT_EQ(m.Tables(), 0u);
    EXPECT_EQ(m.Calls(), 1u);
    EXPECT_EQ(m.Object.FrameRecordsInUse, 0u);
    // The first declaration that does not fit: records 0..n-1 fit beside
    // the call position and the table.
    const uint64_t fits = (limits.Memory - kCall - kTable) / kRecord;
    const std::string failing = " L" + std::to_string(fits) + " V DINT 0 ";
    EXPECT_EQ(m.Position().TokenStart, int32_t(text.find(failing) + failing.size() - 2));
}

TEST(ResourcesCeiling, PushLoopWithoutBudgetEndsAtTheDefaultCeilingAndTheObjectStaysUsable) {
    Machine m(false, Limits());
    ASSERT_EQ(m.Object.MemoryLimit, QZ_DEFAULT_MEMORY_LIMIT);
    ASSERT_EQ(QZ_DEFAULT_MEMORY_LIMIT, uint64_t(256) << 20);
    ASSERT_EQ(m.Load("PROG P MAIN L: MOV 1 PUSH JMP L RET"), Qz::rcOK);
    const auto start = Clock::now();
    Qz::uint32_t r = 0;
    EXPECT_NO_THROW(r = m.Cycle());
    const double s = std::chrono::duration<double>(Clock::now() - start).count();
    EXPECT_EQ(r, Qz::rcMemoryLimit);
    // 256 MiB of 16-byte values, exactly; the storage never grew past them.
    EXPECT_EQ(m.Values(), size_t(1) << 24);
    EXPECT_EQ(m.Memory(), QZ_DEFAULT_MEMORY_LIMIT);
    EXPECT_EQ(m.Object.Stack.capacity(), size_t(1) << 24);
    std::printf("16,777,216 pushes in %.2f s\n", s);

    // A good program loads and runs; the value stack is kept across the
    // reload (the language keeps it), so it still holds the 2^24 values.
    ASSERT_EQ(m.Load("PROG P VAR OUT VO DINT 0 MAIN MOV 5 @OUT MOV POP R0 RET"), Qz::rcOK);
    EXPECT_EQ(m.Cycle(), Qz::rcOK);
    ASSERT_EQ(m.Host.Calls.size(), 1u);
    EXPECT_EQ(m.Host.Calls[0], Out("OUT", 5.0, 6, true));
    EXPECT_EQ(m.Values(), (size_t(1) << 24) - 1);
}

TEST_P(Resources, StackStorageStaysWithinTheCeiling) {
    // 1,000,000 bytes hold 62,500 values: the storage stops there instead of
    // doubling to 65,536 (1,048,576 bytes).
    Limits limits;
    limits.Memory = 1000000;
    Machine m(Plain(), limits);
    ASSERT_EQ(m.Load("PROG P MAIN L: MOV 1 PUSH JMP L RET"), Qz::rcOK);
    EXPECT_EQ(m.Cycle(), Qz::rcMemoryLimit);
    EXPECT_EQ(m.Values(), 62500u);
    EXPECT_EQ(m.Object.Stack.capacity(), 62500u);
    EXPECT_EQ(m.Memory(), 1000000u);
}

// A CAL asks the ceiling about its call position as well as its frame, on
// both paths: a ceiling with room for the frame alone fails the CAL with 103.
TEST(ResourcesCeiling, CompiledCallCountsItsCallPositionAsTheReadingRulesDo) {
    const int locals = 3;
    const uint64_t level = kCall + kTable + locals * kRecord;
    for (bool plain : {true, false}) {
        for (uint64_t n : {0u, 1u, 10u}) {
            for (uint64_t slack : {0u, 4u, 7u}) {
                SCOPED_TRACE(std::string(plain ? "plain" : "compiled") + ", room for " + std::to_string(n) +
                             " levels and one frame without its call position, slack " + std::to_string(slack));
                Limits limits;
                limits.Memory = n * level + kTable + locals * kRecord + slack;
                Machine m(plain, limits);
                ASSERT_EQ(m.Load(WithSubprogram("CAL F", locals, "CAL F")), Qz::rcOK);
                EXPECT_EQ(m.Cycle(), Qz::rcMemoryLimit);
                EXPECT_EQ(m.Tables(), n);
                EXPECT_EQ(m.Calls(), n + 1);
                EXPECT_LE(m.Memory(), limits.Memory);
            }
        }
    }
}

TEST_P(Resources, MemoryLimitZeroMeansNone) {
    Limits limits;
    limits.Memory = 0;
    limits.Budget = 300001;  // 150,000 pushes and their jumps, then the budget
    Machine m(Plain(), limits);
    ASSERT_EQ(m.Load("PROG P MAIN L: MOV 1 PUSH JMP L RET"), Qz::rcOK);
    EXPECT_EQ(m.Cycle(), Qz::rcBudgetExhausted);
    EXPECT_EQ(m.Values(), 150001u);
}

// ---- The value-stack limit ----

TEST_P(Resources, StackLimitStopsThePushBeyondItAcrossCycles) {
    Limits limits;
    limits.Stack = 7;
    Machine m(Plain(), limits);
    const std::string text = "PROG P VAR MAIN MOV 1 PUSH MOV 2 PUSH MOV 3 PUSH RET";
    ASSERT_EQ(m.Load(text), Qz::rcOK);
    EXPECT_EQ(m.Cycle(), Qz::rcOK);
    EXPECT_EQ(m.Values(), 3u);
    EXPECT_EQ(m.Cycle(), Qz::rcOK);
    EXPECT_EQ(m.Values(), 6u);
    // The 7th value fits, the 8th does not: the values pushed stay.
    EXPECT_EQ(m.Cycle(), Qz::rcStackLimit);
    ASSERT_EQ(m.Values(), 7u);
    const double expected[] = {1, 2, 3, 1, 2, 3, 1};
    for (size_t i = 0; i < 7; ++i) EXPECT_EQ(m.Object.Stack[i].Value, expected[i]) << i;
    // Stopped at the destination, PUSH of MOV 2.
    EXPECT_EQ(m.Position().TokenStart, int32_t(text.find("MOV 2 PUSH") + 6));
    // Full from the start: the first PUSH fails, nothing changes.
    EXPECT_EQ(m.Cycle(), Qz::rcStackLimit);
    EXPECT_EQ(m.Values(), 7u);
    EXPECT_EQ(m.Position().TokenStart, int32_t(text.find("MOV 1 PUSH") + 6));
    // Through the machine interface the built-ins use, too.
    EXPECT_EQ(m.Object.StackPush(char(ttDINT), 9.0), Qz::rcStackLimit);
    EXPECT_EQ(m.Values(), 7u);
    // Popping makes room again; raising the limit lets the cycle through.
    char type;
    double value;
    ASSERT_EQ(m.Object.StackPop(type, value), Qz::rcOK);
    EXPECT_EQ(m.Object.StackPush(char(ttDINT), 9.0), Qz::rcOK);
    QZSetStackLimit(&m.Object, 10);
    EXPECT_EQ(m.Cycle(), Qz::rcOK);
    EXPECT_EQ(m.Values(), 10u);
    QZSetStackLimit(&m.Object, 0);  // none
    EXPECT_EQ(m.Cycle(), Qz::rcOK);
    EXPECT_EQ(m.Values(), 13u);
}

TEST_P(Resources, StackLimitExactSizes) {
    for (uint64_t limit : {1u, 2u, 63u, 64u, 65u, 1000u}) {
        SCOPED_TRACE("limit " + std::to_string(limit));
        Limits limits;
        limits.Stack = limit;
        Machine m(Plain(), limits);
        ASSERT_EQ(m.Load("PROG P MAIN L: MOV 1 PUSH JMP L RET"), Qz::rcOK);
        EXPECT_EQ(m.Cycle(), Qz::rcStackLimit);
        EXPECT_EQ(m.Values(), limit);
        EXPECT_LE(m.Object.Stack.capacity(), std::max<size_t>(limit, 64));
    }
}

// ---- The call-depth limit ----

TEST_P(Resources, CallDepthLimitAllowsExactlyN) {
    for (int n : {1, 2, 3, 10, 100}) {
        SCOPED_TRACE(std::to_string(n) + " nested calls");
        const std::string text = Chain(n);
        {
            Limits limits;
            limits.Depth = uint64_t(n);
            Machine m(Plain(), limits);
            ASSERT_EQ(m.Load(text), Qz::rcOK);
            EXPECT_EQ(m.Cycle(), Qz::rcOK);
            EXPECT_EQ(m.Object.R0.Value, 1.0);
            EXPECT_EQ(m.Calls(), 0u);
            EXPECT_EQ(m.Tables(), 0u);
            EXPECT_EQ(m.Cycle(), Qz::rcOK);  // again, as the first cycle left nothing
        }
        if (n > 1) {  // (a limit of 0 is no limit)
            Limits limits;
            limits.Depth = uint64_t(n - 1);
            Machine m(Plain(), limits);
            ASSERT_EQ(m.Load(text), Qz::rcOK);
            EXPECT_EQ(m.Cycle(), Qz::rcCallDepthLimit);
            EXPECT_EQ(m.Object.R0.Value, 0.0);
            EXPECT_EQ(m.Calls(), size_t(n - 1));
            EXPECT_EQ(m.Tables(), size_t(n - 1));
            const std::string failing = "CAL F" + std::to_string(n) + " ";
            EXPECT_EQ(m.Position().TokenStart, int32_t(text.find(failing)));
            EXPECT_EQ(int(m.Position().TokenCode), int(ttCAL));
        }
    }
}

TEST_P(Resources, CallDepthLimitIsCheckedBeforeTheOperand) {
    const std::string text = WithSubprogram("CAL F", 0, "CAL NOSUCH");
    {
        Limits limits;
        limits.Depth = 1;
        Machine m(Plain(), limits);
        ASSERT_EQ(m.Load(text), Qz::rcOK);
        EXPECT_EQ(m.Cycle(), Qz::rcCallDepthLimit);  // not 22: the operand is never read
        EXPECT_EQ(int(m.Position().TokenCode), int(ttCAL));
        EXPECT_EQ(m.Position().TokenStart, int32_t(text.find("CAL NOSUCH")));
    }
    {
        Machine m(Plain(), Limits());
        ASSERT_EQ(m.Load(text), Qz::rcOK);
        EXPECT_EQ(m.Cycle(), Qz::rcLabelNotFound);
    }
}

TEST_P(Resources, CallDepthCountsCallsLeftOpenByEarlierCycles) {
    // A call left open by a failing cycle counts against the depth of the
    // next: with a limit of 2, the second cycle's CAL F is the third call.
    Limits limits;
    limits.Depth = 2;
    Machine m(Plain(), limits);
    // (No program variables: a frame left open would hide them, 23.)
    ASSERT_EQ(m.Load("PROG P VAR MAIN CAL F RET F: BODY MOV POP R0 RET RET"), Qz::rcOK);
    EXPECT_EQ(m.Cycle(), Qz::rcStackEmpty);
    EXPECT_EQ(m.Calls(), 1u);
    EXPECT_EQ(m.Cycle(), Qz::rcStackEmpty);
    EXPECT_EQ(m.Calls(), 2u);
    EXPECT_EQ(m.Cycle(), Qz::rcCallDepthLimit);
    EXPECT_EQ(m.Calls(), 2u);
}

INSTANTIATE_TEST_SUITE_P(Paths, Resources, ::testing::Values(false, true), PathName);

// ---- Exceptions stop at the library's boundary ----

// A trace hook that throws what it is given on the `after`-th instruction.
template <typename Exception>
struct Thrower {
    int After;
    int Seen = 0;
    static void Hook(void* context, const QZTraceEvent*) {
        Thrower* t = static_cast<Thrower*>(context);
        if (++t->Seen == t->After) throw Exception("from the host");
    }
};

struct NamedBadAlloc : std::bad_alloc {
    explicit NamedBadAlloc(const char*) {}
};

TEST(ResourcesBoundary, ExceptionsFromACallbackEndTheCallWithACode) {
    const std::string text = WithSubprogram("CAL F MOV 2 @OUT", 2, "MOV 1 R0");
    {
        Machine m(false, Limits());
        Thrower<std::runtime_error> thrower{2};
        QZSetTraceHook(&m.Object, &Thrower<std::runtime_error>::Hook, &thrower);
        ASSERT_EQ(m.Load(text), Qz::rcOK);
        Qz::uint32_t r = 0;
        EXPECT_NO_THROW(r = m.Cycle());
        EXPECT_EQ(r, Qz::rcInternalFailure);  // after MOV 1 R0, inside F
        EXPECT_TRUE(m.Host.Calls.empty());
        EXPECT_EQ(m.Calls(), 1u);
        EXPECT_EQ(m.Tables(), 1u);
    }
    {
        Machine m(false, Limits());
        Thrower<NamedBadAlloc> thrower{1};
        QZSetTraceHook(&m.Object, &Thrower<NamedBadAlloc>::Hook, &thrower);
        ASSERT_EQ(m.Load(text), Qz::rcOK);
        Qz::uint32_t r = 0;
        EXPECT_NO_THROW(r = m.Cycle());
        EXPECT_EQ(r, Qz::rcOutOfMemory);  // after the CAL
        // The frame goes with a reload; the call position stays, so this
        // program's MAIN now ends with 8, and a new object runs it normally.
        QZSetTraceHook(&m.Object, nullptr, nullptr);
        ASSERT_EQ(m.Load(text), Qz::rcOK);
        EXPECT_EQ(m.Tables(), 0u);
        EXPECT_EQ(m.Calls(), 1u);
        EXPECT_EQ(m.Cycle(), Qz::rcRetWithCallsPending);
        Machine fresh(false, Limits());
        ASSERT_EQ(fresh.Load(text), Qz::rcOK);
        EXPECT_EQ(fresh.Cycle(), Qz::rcOK);
        EXPECT_EQ(fresh.Host.Calls, std::vector<HostCall>{Out("OUT", 2.0, 6, true)});
    }
}

// ---- Both paths leave the same state ----

struct DiffCase {
    const char* Name;
    std::string Text;
    uint64_t Budget, Stack, Depth, Memory;
};

TEST(ResourcesDifferential, LimitsAgreeOnBothPaths) {
    const uint64_t none = 0;
    const std::vector<DiffCase> cases = {
        {"huge frame over budget", WithSubprogram("CAL F MOV 1 @OUT", 2000, "MOV 1 R0"), 100, none, none, none},
        {"recursion under budget", WithSubprogram("CAL F", 10, "CAL F"), 1000, none, none, none},
        {"call and return cost", WithSubprogram("CAL F MOV 1 R0 CAL F MOV 7 @OUT", 5, "MOV 1 R0"), 20, none, none, none},
        {"recursion at the ceiling", WithSubprogram("CAL F", 3, "CAL F"), none, none, none, 256 << 10},
        {"frame at the ceiling", WithSubprogram("CAL F", 1000, "MOV 1 R0"), none, none, none, 64 << 10},
        {"push loop at the ceiling", "PROG P MAIN L: MOV 1 PUSH JMP L RET", none, none, none, 100000},
        {"push loop at the stack limit", "PROG P MAIN L: MOV 1 PUSH JMP L RET", none, 100, none, QZ_DEFAULT_MEMORY_LIMIT},
        {"pushes across cycles", "PROG P VAR MAIN MOV 1 PUSH MOV 2.5 PUSH MOV 3 PUSH RET", none, 7, none, none},
        {"built-in over a full stack", "PROG P VAR MAIN MOV 4 PUSH EXEC SQRT MOV A0 PUSH MOV A0 PUSH RET", none, 3, none, none},
        {"chain at its depth", Chain(5), none, none, 5, QZ_DEFAULT_MEMORY_LIMIT},
        {"chain past its depth", Chain(6), none, none, 5, QZ_DEFAULT_MEMORY_LIMIT},
        {"depth before the operand", WithSubprogram("CAL F", 0, "CAL NOSUCH"), none, none, 1, QZ_DEFAULT_MEMORY_LIMIT},
        {"endless recursion at the depth", WithSubprogram("CAL F", 2, "CAL F"), 5000, none, 40, QZ_DEFAULT_MEMORY_LIMIT},
        {"depth over a budgeted loop", WithSubprogram("L: CAL F JMP L", 1, "MOV 1 R0"), 500, none, 1, none},
    };
    for (const DiffCase& c : cases) {
        for (bool trace : {false, true}) {
            qzdiff::Options options;
            options.Cycles = 3;
            options.Budget = c.Budget;
            options.StackLimit = c.Stack;
            options.CallDepthLimit = c.Depth;
            options.MemoryLimit = c.Memory;
            options.Trace = trace;
            EXPECT_EQ(qzdiff::Compare(c.Text, options), "") << c.Name << (trace ? ", traced" : "");
        }
    }
}

// ---- The texts that used to run a budgeted cycle out of memory ----

// About 430 KiB (440,085 bytes): MAIN calls R, which declares 20,000 locals and calls itself.
std::string Reproducer() {
    std::string text = "PROG RESOURCE_REPRO VAR OUT VO DINT 0 MAIN CAL R MOV 1 @OUT RET R: ";
    for (int i = 0; i < 20000; ++i) text += "LOCAL" + std::to_string(100000 + i) + " V LREAL 0 ";
    return text + "BODY CAL R RET RET";
}

class ResourcesReproducer : public ::testing::TestWithParam<uint64_t> {};

TEST_P(ResourcesReproducer, RecursionInto20000LocalsStopsOnTheBudget) {
    const std::string text = Reproducer();
    ASSERT_GE(text.size(), 430000u);
    ASSERT_LE(text.size(), 445000u);
    for (bool plain : {false, true}) {
        SCOPED_TRACE(plain ? "plain" : "compiled");
        Limits limits;
        limits.Budget = GetParam();
        Machine m(plain, limits);
        ASSERT_EQ(m.Load(text), Qz::rcOK);
        for (size_t cycle = 1; cycle <= 3; ++cycle) {
            Qz::uint32_t r = 0;
            EXPECT_NO_THROW(r = m.Cycle());
            EXPECT_EQ(r, Qz::rcBudgetExhausted);
            EXPECT_EQ(m.Tables(), 0u);
            EXPECT_EQ(m.Calls(), cycle);
            EXPECT_EQ(m.Memory(), cycle * kCall);
        }
    }
}

INSTANTIATE_TEST_SUITE_P(Budgets, ResourcesReproducer, ::testing::Values(uint64_t(100), uint64_t(1000)));

}  // namespace
