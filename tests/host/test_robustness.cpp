// The plug-in as a host sees it, under hostile programs and values: a
// 1 MB program, 100,000 objects, every extreme double from the host into
// every type and through every instruction, recursion 100,000 levels deep on
// a small thread stack, and endless loops under the instruction budget.
//
// Each case ends with a result code, reads and writes nothing out of bounds
// and leaks nothing; the ASan build (scripts/sanitize) runs this file too.
#include "plugin.h"
#include "recording_host.h"

#include <gtest/gtest.h>

#include <pthread.h>

#include <cmath>
#include <cstring>
#include <limits>
#include <string>
#include <vector>

#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
#define QZ_SANITIZED_BUILD 1
#elif defined(__has_feature)
#if __has_feature(address_sanitizer) || __has_feature(thread_sanitizer)
#define QZ_SANITIZED_BUILD 1
#endif
#endif

namespace {

using qz_st_interpretator::IQZSTInterpretator;

Plugin& Lib() {
    static Plugin plugin;
    return plugin;
}

struct Object {
    Object() : Ptr(Lib().Create()) {}
    ~Object() { Ptr->Destroy(); }
    Object(const Object&) = delete;
    Object& operator=(const Object&) = delete;
    IQZSTInterpretator* operator->() const { return Ptr; }
    IQZSTInterpretator* Ptr;
};

uint32_t CountingClock(void* context) { return *static_cast<uint32_t*>(context) += 5; }

bool SameDouble(double a, double b) {
    if (std::isnan(a) || std::isnan(b)) return std::isnan(a) && std::isnan(b);
    return a == b && std::signbit(a) == std::signbit(b);
}

const HostCall* FindOutput(const RecordingHost& host, const std::string& name) {
    for (const HostCall& call : host.Calls)
        if (call.Direction == tdOUT && call.Name == name) return &call;
    return nullptr;
}

// ---- Size ----

TEST(RobustnessSize, MegabyteProgramLoadsQuicklyAndRuns) {
    // 2,000 variables, then straight-line blocks with labels and forward
    // jumps until the text passes 1 MB.
    std::string text = "PROG BIG VAR OUT VO DINT 0 ";
    const int vars = 2000;
    for (int i = 0; i < vars; ++i) text += "V" + std::to_string(i) + " V DINT " + std::to_string(i) + " ";
    text += "MAIN ";
    int blocks = 0;
    while (text.size() < 1024 * 1024) {
        const std::string n = std::to_string(blocks);
        text += "MOV @V" + std::to_string(blocks % vars) + " R0 ADD " + n + " R0 MOV R0 @OUT JMP L" + n + " MOV 0 @OUT L" +
                n + ": ";
        ++blocks;
    }
    text += "RET";
    ASSERT_GE(text.size(), 1024u * 1024u);

    Object o;
    Lib().SetBudget(o.Ptr, 0);
    ASSERT_EQ(o->InitInterpretator(text), 0u);  // how long it takes: scripts/bench
    RecordingHost host;
    for (int cycle = 0; cycle < 2; ++cycle) {
        host.Calls.clear();
        ASSERT_EQ(o->Execute(&host), 0u);
        const int last = blocks - 1;
        ASSERT_EQ(host.Calls.size(), 1u);
        EXPECT_EQ(host.Calls[0], Out("OUT", double(last % vars + last), 6, true));
    }
}

TEST(RobustnessSize, MegabyteOfBlanksAndOfOneName) {
    const std::string blanks(1024 * 1024, ' ');
    const std::string name(1024 * 1024, 'N');
    const struct {
        std::string Text;
        Qz::uint32_t Load, Run;
    } cases[] = {
        {"PROG P VAR X V DINT 0 MAIN" + blanks + "MOV 1 R0" + blanks + "RET", 0, 0},
        {blanks + "PROG P MAIN RET", 0, 0},
        {blanks, Qz::rcEndOfText, Qz::rcNoLabelToken},
        {"PROG " + name + " MAIN RET", 0, 0},
        {"PROG P VAR " + name + " V DINT 0 MAIN MOV 1 @" + name + " RET", 0, 0},
        {"PROG P VAR X V DINT 0 MAIN JMP " + name + " RET", 0, Qz::rcLabelNotFound},
        {"PROG P VAR X V DINT 0 MAIN MOV " + std::string(1024 * 1024, '7') + " R0 RET", 0, 0},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.Text.substr(0, 40));
        Object o;
        EXPECT_EQ(o->InitInterpretator(c.Text), c.Load);
        RecordingHost host;
        EXPECT_EQ(o->Execute(&host), c.Run);
    }
}

// ---- Lifetime ----

TEST(RobustnessLifetime, HundredThousandObjects) {
    const std::string text = "PROG P VAR IN VI DINT 0 OUT VO DINT 0 MAIN MOVA @IN R1 MOV @IN R0 ADD 1 R0 MOV R0 @OUT "
                             "MOV R0 PUSH CAL F RET F: X V DINT 0 BODY MOV POP @X RET RET";
    RecordingHost host;
    host.Inputs["IN"] = 1;
    for (int i = 0; i < 100000; ++i) {
        IQZSTInterpretator* o = Lib().Create();
        ASSERT_NE(o, nullptr);
        // Every fourth object is released without ever running, every
        // eighth with a program that failed to load.
        if (i % 4 != 0) {
            ASSERT_EQ(o->InitInterpretator(i % 8 == 1 ? "PROG P VAR X V INT 16#G MAIN RET" : text),
                      i % 8 == 1 ? Qz::rcBadHexDigit : 0u);
            if (i % 8 != 1) {
                ASSERT_EQ(o->Execute(&host), 0u);
            }
        }
        o->Destroy();
        host.Calls.clear();
    }
    Lib().Destroy();  // the exported one does nothing
}

// ---- Values from the host ----

const char* const kTypes[] = {"BOOL", "SINT", "USINT", "INT", "UINT", "DINT", "UDINT", "REAL", "LREAL"};
const int kDimensions[] = {1, 2, 3, 4, 5, 6, 7, 10, 11};

// A host value and what it becomes in a variable of every type.
struct Narrowed {
    double In;
    double Out[9];  // BOOL SINT USINT INT UINT DINT UDINT REAL LREAL
};

std::vector<Narrowed> NarrowingCases() {
    const double nan = std::numeric_limits<double>::quiet_NaN();
    const double inf = std::numeric_limits<double>::infinity();
    const double den = std::numeric_limits<double>::denorm_min();
    // Reading clamps to the double 3.402823466e38; writing that into a REAL
    // rounds it to single precision, which is the largest float.
    const double realMax = double(std::numeric_limits<float>::max());
    return {
        {nan, {1, 0, 0, 0, 0, 0, 0, nan, nan}},
        {inf, {1, 0, 0, 0, 0, 0, 0, realMax, inf}},
        {-inf, {1, 0, 0, 0, 0, 0, 0, -realMax, -inf}},
        {0.0, {0, 0, 0, 0, 0, 0, 0, 0.0, 0.0}},
        {-0.0, {0, 0, 0, 0, 0, 0, 0, -0.0, -0.0}},
        {den, {1, 0, 0, 0, 0, 0, 0, 0.0, den}},
        {-den, {1, 0, 0, 0, 0, 0, 0, -0.0, -den}},
        {1e308, {1, 0, 0, 0, 0, 0, 0, realMax, 1e308}},
        {-1e308, {1, 0, 0, 0, 0, 0, 0, -realMax, -1e308}},
        {300.7, {1, 44, 44, 300, 300, 300, 300, double(300.7f), 300.7}},
        {-1.5, {1, -1, 255, -1, 65535, -1, 4294967295.0, -1.5, -1.5}},
        {-1.0, {1, -1, 255, -1, 65535, -1, 4294967295.0, -1.0, -1.0}},
        // -2^31: its low 8 and 16 bits are 0.
        {-2147483648.0, {1, 0, 0, 0, 0, -2147483648.0, 2147483648.0, -2147483648.0, -2147483648.0}},
        {9223372036854774784.0, {1, 0, 0, -1024, 64512, -1024, 4294966272.0, double(9223372036854774784.0f),
                                 9223372036854774784.0}},
        {9223372036854775808.0, {1, 0, 0, 0, 0, 0, 0, double(9223372036854775808.0f), 9223372036854775808.0}},
    };
}

TEST(RobustnessValues, ExtremeDoublesFromTheHostIntoEveryType) {
    const std::vector<Narrowed> cases = NarrowingCases();
    // One input and one output of every type; the body copies each input to
    // the output of its type (narrowed on reading and on writing).
    std::string text = "PROG VALUES VAR ";
    for (const char* t : kTypes) text += std::string("I_") + t + " VI " + t + " 0 O_" + t + " VO " + t + " 0 ";
    text += "MAIN ";
    for (const char* t : kTypes) text += std::string("MOV @I_") + t + " @O_" + t + " ";
    text += "RET";
    Object o;
    ASSERT_EQ(o->InitInterpretator(text), 0u);
    for (const auto& c : cases) {
        SCOPED_TRACE(::testing::Message() << c.In);
        RecordingHost host;
        for (const char* t : kTypes) host.Inputs[QString("I_") + t] = c.In;
        ASSERT_EQ(o->Execute(&host), 0u);
        for (int i = 0; i < 9; ++i) {
            SCOPED_TRACE(kTypes[i]);
            const HostCall* out = FindOutput(host, std::string("O_") + kTypes[i]);
            ASSERT_NE(out, nullptr);
            EXPECT_TRUE(SameDouble(out->Value, c.Out[i])) << out->Value << " expected " << c.Out[i];
            EXPECT_EQ(out->Dimension, kDimensions[i]);
            EXPECT_TRUE(out->Rewrited);
        }
    }
}

// The result code of one instruction of the sweep below, by the language's
// rules: R0 holds Y (an LREAL), the source @X and R1 hold X narrowed to the
// type (`xs`). Types by index: 0 BOOL, 1..6 SINT..UDINT, 7 REAL, 8 LREAL.
Qz::uint32_t ExpectedResult(const std::string& instruction, int type, double xs, double y) {
    const bool integer = type >= 1 && type <= 6;
    const bool real = type >= 7;
    const std::string keyword = instruction.substr(0, instruction.find(' '));
    const bool intoR1 = instruction.size() > 2 && instruction.compare(instruction.size() - 2, 2, "R1") == 0;
    if (keyword == "DIV" || keyword == "MOD") {
        if ((intoR1 ? xs : y) == 0) return 15;  // the register is the divisor; zero is found first
        return keyword == "MOD" && (!intoR1 || real) ? 45 : 0;  // MOD of an LREAL Y or a real X
    }
    if (keyword == "OR" || keyword == "XOR" || keyword == "AND") return 47;  // Y is no BOOL
    if (keyword == "NOT") return 48;
    if (keyword == "BOR") return 50;  // Y is a real
    if (keyword == "BXOR") return 51;
    if (keyword == "BAND") return 52;
    if (keyword == "BNOT") return 53;
    if (keyword == "SHL" || keyword == "SHR") return integer ? 0 : 55;
    if (keyword == "ROL" || keyword == "ROR") return integer ? 0 : 58;
    return 0;
}

// What OUT receives from R1 after an instruction of the sweep succeeded:
// X narrowed, unless the instruction wrote R1. False where the value is left
// to the shift and rotation tests.
bool ExpectedR1(const std::string& instruction, double xs, double& expected) {
    if (instruction == "DIV @X R1") {
        // X / X: integers give 1; reals 1 too, except NaN (and, for LREAL,
        // infinity, which REAL holds at its largest value).
        expected = std::isnan(xs) || std::isinf(xs) ? std::numeric_limits<double>::quiet_NaN() : 1.0;
        return true;
    }
    if (instruction == "MOD @X R1") {
        expected = 0.0;  // only integers get here
        return true;
    }
    if (instruction == "SHL @X R1" || instruction == "ROR @X R1") return false;
    expected = xs;
    return true;
}

TEST(RobustnessValues, ExtremeDoublesThroughEveryInstruction) {
    const double values[] = {std::numeric_limits<double>::quiet_NaN(),
                             std::numeric_limits<double>::infinity(),
                             -std::numeric_limits<double>::infinity(),
                             0.0,
                             -0.0,
                             std::numeric_limits<double>::denorm_min(),
                             -std::numeric_limits<double>::denorm_min(),
                             1e308,
                             -1e308,
                             -2147483648.0,
                             -1.0};
    // Each instruction gets the host's value as its source (read through a
    // variable of the type) and as the register it works on.
    const char* const instructions[] = {
        "ADD @X R0", "SUB @X R0", "MUL @X R0", "DIV @X R0", "MOD @X R0", "DIV @X R1", "MOD @X R1",
        "NE @X R0",  "EQ @X R0",  "GT @X R0",  "GE @X R0",  "LT @X R0",  "LE @X R0",  "POW @X R0",
        "OR @X R0",  "XOR @X R0", "AND @X R0", "NOT R0",    "BOR @X R0", "BXOR @X R0", "BAND @X R0",
        "BNOT R0",   "NG R0",     "TST R0",    "SHL @X R0", "SHR @X R0", "ROL @X R0", "ROR @X R0",
        "SHL @X R1", "ROR @X R1", "MOVA @X R0", "MOV R0 TICK", "MOV @X PUSH EXEC COS", "MOV @X PUSH EXEC SIN",
        "MOV @X PUSH EXEC TAN", "MOV @X PUSH EXEC ACOS", "MOV @X PUSH EXEC ASIN", "MOV @X PUSH EXEC ATAN",
        "MOV @X PUSH EXEC CEIL", "MOV @X PUSH EXEC FLOOR", "MOV @X PUSH EXEC ROUND", "MOV @X PUSH EXEC EXP",
        "MOV @X PUSH EXEC FABS", "MOV @X PUSH EXEC LN", "MOV @X PUSH EXEC LOG10", "MOV @X PUSH MOV R0 PUSH EXEC POW",
        "MOV @X PUSH EXEC SQRT", "EXEC CEIL", "EXEC POW",
    };
    const std::vector<Narrowed> narrowing = NarrowingCases();
    auto narrowed = [&](double x, int type) {
        for (const Narrowed& n : narrowing)
            if (SameDouble(n.In, x)) return n.Out[type];
        ADD_FAILURE() << "no narrowing case for " << x;
        return 0.0;
    };
    for (int type = 0; type < 9; ++type) {
        for (const char* instruction : instructions) {
            const std::string text = std::string("PROG P VAR X VI ") + kTypes[type] + " 0 Y VI LREAL 0 OUT VO " +
                                     kTypes[type] + " 0 MAIN MOV @Y R0 MOV @X R1 " + instruction +
                                     " MOV R0 @OUT MOV R1 @OUT RET";
            Object o;
            uint32_t now = 0;
            Lib().SetClock(o.Ptr, CountingClock, &now);
            ASSERT_EQ(o->InitInterpretator(text), 0u) << text;
            for (double x : values) {
                for (double y : values) {
                    SCOPED_TRACE(::testing::Message() << text << " with X " << x << ", Y " << y);
                    RecordingHost host;
                    host.Inputs["X"] = x;
                    host.Inputs["Y"] = y;
                    const double xs = narrowed(x, type);
                    const Qz::uint32_t r = o->Execute(&host);
                    ASSERT_EQ(r, ExpectedResult(instruction, type, xs, y));
                    // Both inputs are asked for; OUT is sent only after a
                    // cycle that succeeded, holding what R1 held.
                    ASSERT_EQ(host.Calls.size(), r == 0 ? 3u : 2u);
                    EXPECT_EQ(host.Calls[0].Direction, tdIN);
                    EXPECT_EQ(host.Calls[0].Name, "X");
                    EXPECT_TRUE(SameDouble(host.Calls[0].Value, x));
                    EXPECT_EQ(host.Calls[1].Direction, tdIN);
                    EXPECT_EQ(host.Calls[1].Name, "Y");
                    EXPECT_TRUE(SameDouble(host.Calls[1].Value, y));
                    if (r != 0) continue;
                    const HostCall& out = host.Calls[2];
                    EXPECT_EQ(out.Direction, tdOUT);
                    EXPECT_EQ(out.Name, "OUT");
                    EXPECT_EQ(out.Dimension, kDimensions[type]);
                    EXPECT_TRUE(out.Rewrited);
                    double expected;
                    if (ExpectedR1(instruction, xs, expected)) {
                        EXPECT_TRUE(SameDouble(out.Value, expected)) << out.Value << " expected " << expected;
                    }
                }
            }
        }
    }
}

// ---- Depth and endless loops ----

struct ThreadRun {
    IQZSTInterpretator* Object;
    RecordingHost* Host;
    Qz::uint32_t Result;
};

void* ExecuteOnThread(void* argument) {
    ThreadRun* run = static_cast<ThreadRun*>(argument);
    run->Result = run->Object->Execute(run->Host);
    return nullptr;
}

// Runs one cycle on a thread whose native stack is only `stackBytes`.
Qz::uint32_t ExecuteOnSmallStack(IQZSTInterpretator* object, RecordingHost& host, size_t stackBytes) {
    ThreadRun run{object, &host, 0xFFFFFFFFu};
    pthread_attr_t attributes;
    pthread_attr_init(&attributes);
    pthread_attr_setstacksize(&attributes, stackBytes);
    pthread_t thread;
    EXPECT_EQ(pthread_create(&thread, &attributes, ExecuteOnThread, &run), 0);
    pthread_join(thread, nullptr);
    pthread_attr_destroy(&attributes);
    return run.Result;
}

TEST(RobustnessDepth, RecursionHundredThousandDeepOnASmallStack) {
    // DOWN calls itself until R0 reaches 100,000, then every level returns.
    const char* text =
        "PROG REC VAR DEPTH VO DINT 0 BACK VO DINT 0 MAIN MOV 0 R0 MOV 0 A0 CAL DOWN MOV R0 @DEPTH MOV A0 @BACK JMP END "
        "DOWN: LOCAL V DINT 0 BODY ADD 1 R0 MOV R0 R1 GT 100000 R1 TST R1 JMPF UP CAL DOWN "
        "UP: ADD 1 A0 RET END: RET";
    Object o;
    ASSERT_EQ(o->InitInterpretator(text), 0u);
    for (int cycle = 0; cycle < 2; ++cycle) {
        RecordingHost host;
        ASSERT_EQ(ExecuteOnSmallStack(o.Ptr, host, 1024 * 1024), 0u);
        ASSERT_EQ(host.Calls.size(), 2u);
        EXPECT_EQ(host.Calls[0], Out("DEPTH", 100000, 6, true));
        EXPECT_EQ(host.Calls[1], Out("BACK", 100000, 6, true));
    }
}

TEST(RobustnessDepth, EndlessRecursionStopsAtTheBudget) {
    Object o;
    Lib().SetBudget(o.Ptr, 100000);
    ASSERT_EQ(o->InitInterpretator("PROG P VAR N VG DINT 0 MAIN CAL F RET F: BODY CAL F RET RET"), 0u);
    RecordingHost host;
    EXPECT_EQ(ExecuteOnSmallStack(o.Ptr, host, 1024 * 1024), Qz::rcBudgetExhausted);
    // The 100,000 frames stay pushed until the next load; releasing the
    // object frees them (LeakSanitizer checks).
}

struct TraceCount {
    uint64_t Instructions = 0;
    static void Hook(void* context, const QZTraceEvent*) { ++static_cast<TraceCount*>(context)->Instructions; }
};

TEST(RobustnessLoops, EndlessLoopsStopAtTheBudgetEveryCycle) {
    const struct {
        std::string Text;
        uint64_t Budget;
    } cases[] = {
        {"PROG P VAR X V DINT 0 MAIN L: JMP L RET", 1000},
        {"PROG P MAIN L: JMP L RET", 1000},  // no VAR: L registers as it is passed
        {"PROG P VAR X V DINT 0 MAIN L: MOV TICK R0 JMP L RET", 5000},
        {"PROG P VAR N VG DINT 0 MAIN CAL F RET F: BODY L: MOV 1 PUSH MOV POP R0 JMPT L JMP L RET RET", 7777},
        {"PROG P VAR X V DINT 0 MAIN L: TST R0 JMPF L RET", 1},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.Text);
        Object o;
        Lib().SetBudget(o.Ptr, c.Budget);
        uint32_t now = 0;
        Lib().SetClock(o.Ptr, CountingClock, &now);
        TraceCount trace;
        Lib().SetTrace(o.Ptr, TraceCount::Hook, &trace);
        ASSERT_EQ(o->InitInterpretator(c.Text), 0u);
        for (int cycle = 1; cycle <= 3; ++cycle) {
            RecordingHost host;
            EXPECT_EQ(o->Execute(&host), Qz::rcBudgetExhausted);
            EXPECT_EQ(trace.Instructions, c.Budget * uint64_t(cycle));
            EXPECT_TRUE(host.Calls.empty());
        }
    }
}

TEST(RobustnessLoops, NullObjectsAreIgnoredByTheExtensions) {
    uint32_t now = 0;
    TraceCount trace;
    Lib().SetBudget(nullptr, 5);
    Lib().SetClock(nullptr, CountingClock, &now);
    Lib().SetTrace(nullptr, TraceCount::Hook, &trace);
    auto position = Lib().Symbol<decltype(&QZGetScanPosition)>("QZGetScanPosition");
    QZScanPosition p{1, 2, 3, 4};
    position(nullptr, &p);
    EXPECT_EQ(p.TokenStart, 1);
    EXPECT_EQ(p.TokenEnd, 2);
    EXPECT_EQ(p.TextPos, 3);
    EXPECT_EQ(p.TokenCode, 4);
    // A new object has none of what was set on the null object: no budget
    // (ten instructions run), no host clock, no trace hook.
    Object o;
    position(o.Ptr, nullptr);
    position(o.Ptr, &p);
    EXPECT_EQ(p.TokenStart, 0);
    EXPECT_EQ(p.TokenEnd, 0);
    EXPECT_EQ(p.TextPos, 0);
    EXPECT_EQ(p.TokenCode, 0);
    std::string text = "PROG P VAR T VO UDINT 0 MAIN MOV TICK @T";
    for (int i = 0; i < 9; ++i) text += " MOV " + std::to_string(i) + " R0";
    ASSERT_EQ(o->InitInterpretator(text + " RET"), 0u);
    RecordingHost host;
    EXPECT_EQ(o->Execute(&host), 0u);
    const std::vector<HostCall> expected = {Out("T", 0, 7, true)};  // a first read is 0
    EXPECT_EQ(host.Calls, expected);
    EXPECT_EQ(now, 0u);
    EXPECT_EQ(trace.Instructions, 0u);
}

}  // namespace
