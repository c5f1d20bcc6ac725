// Whole programs run the way a host runs them: the plug-in loaded with
// dlopen, one InitInterpretator, then Execute cycle after cycle, with every
// host call and output checked and the trace hook watching the registers.
#include "plugin.h"
#include "recording_host.h"

#include <gtest/gtest.h>

#include <cmath>
#include <set>
#include <string>
#include <vector>

namespace {

constexpr char kBOOL = 0x20;
constexpr char kINT = 0x23;
constexpr char kDINT = 0x25;
constexpr char kUDINT = 0x26;
constexpr char kLREAL = 0x28;

// Dimension codes the host receives.
constexpr int kDimBOOL = 1, kDimSINT = 2, kDimUSINT = 3, kDimINT = 4, kDimUINT = 5, kDimDINT = 6, kDimUDINT = 7,
              kDimREAL = 10, kDimLREAL = 11;

Plugin& ThePlugin() {
    static Plugin plugin;
    return plugin;
}

// One executed instruction: its keyword (read from the text at the
// instruction's offset) and what the trace hook saw after it.
struct Step {
    std::string Keyword;
    QZTraceEvent Event;
};

struct Tracer {
    const std::string* Text = nullptr;
    std::vector<Step> Steps;

    static void Hook(void* context, const QZTraceEvent* event) {
        auto* tracer = static_cast<Tracer*>(context);
        const size_t start = size_t(event->InstructionStart);
        const size_t end = tracer->Text->find(' ', start);
        tracer->Steps.push_back(Step{tracer->Text->substr(start, end - start), *event});
    }
    std::vector<std::string> Keywords() const {
        std::vector<std::string> keywords;
        for (const Step& step : Steps) keywords.push_back(step.Keyword);
        return keywords;
    }
    // The steps of one keyword, in order.
    std::vector<QZTraceEvent> Of(const std::string& keyword) const {
        std::vector<QZTraceEvent> events;
        for (const Step& step : Steps)
            if (step.Keyword == keyword) events.push_back(step.Event);
        return events;
    }
};

class Programs : public ::testing::Test {
protected:
    void SetUp() override {
        object = ThePlugin().Create();
        ASSERT_NE(object, nullptr);
        tracer.Text = &Text;
        ThePlugin().SetTrace(object, &Tracer::Hook, &tracer);
    }
    void TearDown() override { object->Destroy(); }

    Qz::uint32_t Load(const std::string& text) {
        Text = text;
        return object->InitInterpretator(text);
    }
    Qz::uint32_t Cycle() {
        host.Calls.clear();
        tracer.Steps.clear();
        return object->Execute(&host);
    }
    void ExpectEveryStepSucceeded() {
        for (const Step& step : tracer.Steps) EXPECT_EQ(step.Event.Result, 0u) << step.Keyword;
    }

    qz_st_interpretator::IQZSTInterpretator* object = nullptr;
    RecordingHost host;
    Tracer tracer;
    std::string Text;
};

// ---------------------------------------------------------------- a counting loop

const char* const kCounter =
    "PROG COUNTER VAR I V DINT 0 SUM V DINT 0 N VI DINT 0 TOTAL VO DINT 0 COUNT VO DINT 0 MAIN "
    "LOOP: MOV @I R0 ADD 1 R0 MOV R0 @I ADD @SUM R0 MOV R0 @SUM MOV @I R0 GT @N R0 TST R0 JMPT LOOP "
    "MOV @SUM @TOTAL MOV @I @COUNT RET";

TEST_F(Programs, CountingLoopWithASum) {
    ASSERT_EQ(Load(kCounter), 0u);
    struct Case {
        double N;
        double Total;
        double Count;
    };
    // The body runs once before the first test, so N <= 1 counts to 1.
    const Case cases[] = {{10, 55, 10}, {0, 1, 1}, {100, 5050, 100}, {1, 1, 1}, {-5, 1, 1}, {10, 55, 10}};
    for (const Case& c : cases) {
        SCOPED_TRACE(c.N);
        host.Inputs["N"] = c.N;
        ASSERT_EQ(Cycle(), 0u);
        EXPECT_EQ(host.Calls, (std::vector<HostCall>{In("N", c.N), Out("TOTAL", c.Total, kDimDINT, true),
                                                     Out("COUNT", c.Count, kDimDINT, true)}));
        // Nine instructions a round, then the two moves.
        EXPECT_EQ(tracer.Steps.size(), size_t(9 * c.Count + 2));
        ExpectEveryStepSucceeded();
        const std::vector<QZTraceEvent> tests = tracer.Of("TST");
        ASSERT_EQ(tests.size(), size_t(c.Count));
        for (size_t i = 0; i < tests.size(); ++i) EXPECT_EQ(tests[i].TestFlag, i + 1 < tests.size() ? 1 : 0);
    }
}

TEST_F(Programs, LoopUnderAnInstructionBudget) {
    ASSERT_EQ(Load(kCounter), 0u);
    host.Inputs["N"] = 1000;
    ThePlugin().SetBudget(object, 500);
    EXPECT_EQ(Cycle(), Qz::rcBudgetExhausted);
    EXPECT_EQ(host.Calls, (std::vector<HostCall>{In("N", 1000)}));
    EXPECT_EQ(tracer.Steps.size(), 500u);
    ThePlugin().SetBudget(object, 0);
    ASSERT_EQ(Cycle(), 0u);
    EXPECT_EQ(host.Calls, (std::vector<HostCall>{In("N", 1000), Out("TOTAL", 500500, kDimDINT, true),
                                                 Out("COUNT", 1000, kDimDINT, true)}));
}

// ---------------------------------------------------------------- recursion

const char* const kFactorial =
    "PROG FACTORIAL VAR N VI DINT 0 RESULT VO DINT 0 MAIN MOV @N PUSH CAL FACT MOV R0 @RESULT RET "
    "FACT: K V DINT 0 BODY MOV POP @K MOV @K R0 GT 2 R0 TST R0 JMPF REC MOV 1 R0 RET "
    "REC: MOV @K R0 ADD -1 R0 MOV R0 PUSH CAL FACT MUL @K R0 RET RET";

TEST_F(Programs, RecursiveFactorial) {
    ASSERT_EQ(Load(kFactorial), 0u);
    double expected = 1;
    for (int n = 0; n <= 12; ++n) {
        if (n > 0) expected *= n;
        SCOPED_TRACE(n);
        host.Inputs["N"] = n;
        ASSERT_EQ(Cycle(), 0u);
        EXPECT_EQ(host.Calls, (std::vector<HostCall>{In("N", n), Out("RESULT", expected, kDimDINT, true)}));
        ExpectEveryStepSucceeded();
        // One CAL per level: N down to 1 (and 0 for 0!).
        EXPECT_EQ(tracer.Of("CAL").size(), size_t(n == 0 ? 1 : n));
    }
    // 13! does not fit in 32 bits: 6227020800 wraps to 1932053504.
    host.Inputs["N"] = 13;
    ASSERT_EQ(Cycle(), 0u);
    EXPECT_EQ(host.Calls, (std::vector<HostCall>{In("N", 13), Out("RESULT", 1932053504, kDimDINT, true)}));
    const QZTraceEvent last = tracer.Steps.back().Event;
    EXPECT_EQ(last.R0, 1932053504);
    EXPECT_EQ(last.R0Type, kDINT);
}

const char* const kFibonacci =
    "PROG FIBONACCI VAR N VI DINT 0 F VO UDINT 0 MAIN MOV @N PUSH CAL FIB MOV R0 @F RET "
    "FIB: K V DINT 0 T V DINT 0 BODY MOV POP @K MOV @K R0 GT 2 R0 TST R0 JMPF REC MOV @K R0 RET "
    "REC: MOV @K R0 ADD -1 R0 MOV R0 PUSH CAL FIB MOV R0 @T "
    "MOV @K R0 ADD -2 R0 MOV R0 PUSH CAL FIB ADD @T R0 RET RET";

TEST_F(Programs, RecursiveFibonacciKeepsEachLevelsLocals) {
    // T holds the first partial sum across the second call of the same level.
    ASSERT_EQ(Load(kFibonacci), 0u);
    const double fib[] = {0, 1, 1, 2, 3, 5, 8, 13, 21, 34, 55};
    for (int n = 0; n <= 10; ++n) {
        SCOPED_TRACE(n);
        host.Inputs["N"] = n;
        ASSERT_EQ(Cycle(), 0u);
        EXPECT_EQ(host.Calls, (std::vector<HostCall>{In("N", n), Out("F", fib[n], kDimUDINT, true)}));
    }
    host.Inputs["N"] = 20;
    ASSERT_EQ(Cycle(), 0u);
    EXPECT_EQ(host.Calls, (std::vector<HostCall>{In("N", 20), Out("F", 6765, kDimUDINT, true)}));
    EXPECT_EQ(tracer.Of("CAL").size(), 21891u);  // 2 * fib(21) - 1 activations
    ExpectEveryStepSucceeded();
}

// ---------------------------------------------------------------- arguments and results

const char* const kArguments =
    "PROG ARGS VAR X VI LREAL 0 Y VI LREAL 0 D VO LREAL 0 H VO LREAL 0 MAIN "
    "MOV @X PUSH MOV @Y PUSH CAL DIFF MOV R0 @D "
    "MOV @X PUSH MOV @Y PUSH CAL HYPOT MOV R0 @H RET "
    "DIFF: A V LREAL 0 B V LREAL 0 BODY MOV POP @B MOV POP @A MOV @B R0 SUB @A R0 RET "
    "HYPOT: A V LREAL 0 B V LREAL 0 BODY MOV POP @B MOV POP @A MOV @A R0 MUL @A R0 MOV @B R1 MUL @B R1 "
    "ADD R1 R0 MOV R0 PUSH EXEC SQRT MOV A0 R0 RET RET";

TEST_F(Programs, ArgumentsThroughTheStackResultInR0) {
    ASSERT_EQ(Load(kArguments), 0u);
    struct Case {
        double X, Y;
    };
    for (const Case& c : {Case{7, 3}, Case{3, 4}, Case{-1.5, 2.25}, Case{0, 0}}) {
        SCOPED_TRACE(c.X);
        host.Inputs["X"] = c.X;
        host.Inputs["Y"] = c.Y;
        ASSERT_EQ(Cycle(), 0u);
        // The first value pushed is popped last: DIFF computes X - Y.
        EXPECT_EQ(host.Calls, (std::vector<HostCall>{In("X", c.X), In("Y", c.Y),
                                                     Out("D", c.X - c.Y, kDimLREAL, true),
                                                     Out("H", std::sqrt(c.X * c.X + c.Y * c.Y), kDimLREAL, true)}));
        ExpectEveryStepSucceeded();
        const QZTraceEvent last = tracer.Steps.back().Event;
        EXPECT_EQ(last.R0Type, kLREAL);
        EXPECT_EQ(last.A0Type, kLREAL);
    }
}

// ---------------------------------------------------------------- every instruction

const char* const kEverything =
    "PROG EVERYTHING VAR A VI DINT 0 B VI REAL 0 X V DINT 0 P V DINT 0 "
    "FLAGS VO BOOL 0 SUM VO DINT 0 BITS VO UDINT 0 ROOT VO LREAL 0 SH VO DINT 0 Q VO INT 0 "
    "LIM VO REAL 0 U VO USINT 0 S8 VO SINT 0 W VO UINT 0 MAIN "
    "MOV @A R0 ADD 5 R0 SUB 100 R0 MUL 2 R0 DIV 1000 R0 MOD 17 R0 MOV R0 @SUM "
    "MOV @B R1 POW 2 R1 MOV R1 PUSH EXEC sqrt MOV A0 @ROOT "
    "MOV @A R0 GT 3 R0 MOV R0 R1 MOV @A R0 LT 3 R0 OR R0 R1 "
    "MOV @A R0 EQ 10 R0 AND R0 R1 MOV @A R0 NE 10 R0 XOR R0 R1 NOT R1 "
    "MOV @A R0 GE 10 R0 MOV @A A0 LE 9 A0 AND A0 R0 XOR R1 R0 MOV R0 @FLAGS "
    "TST R0 JMPT T1 MOV 99 @SUM T1: TST R1 JMPF T2 MOV 98 @SUM T2: JMP T3 MOV 97 @SUM "
    "T3: MOV 16#F0 R0 BOR 16#0F R0 BAND 16#3C R0 BXOR 16#FF R0 MOV R0 @Q BNOT R0 NG R0 MOV R0 @W "
    "MOV 1 R0 SHL @A R0 MOV 2 R1 SHR R0 R1 MOV 1 R0 ROL R1 R0 MOV 1 R1 ROR R0 R1 MOV R1 @SH "
    "MOV 1 R0 ROL 16#80000001 R0 MOV R0 @BITS "
    "MOVA @X @P MOV 42 ^P MOV @X R0 MOV R0 @S8 "
    "MOV @A PUSH CAL TWICE MOV R0 @U "
    "MOV 3.5 @LIM RET "
    "TWICE: K V DINT 0 BODY MOV POP @K MOV @K R0 ADD @K R0 RET RET";

std::vector<HostCall> EverythingOutputs(double flags, double sum, double root, double sh, double u) {
    return {Out("FLAGS", flags, kDimBOOL, true), Out("SUM", sum, kDimDINT, true),
            Out("BITS", 3, kDimUDINT, true),     Out("ROOT", root, kDimLREAL, true),
            Out("SH", sh, kDimDINT, true),       Out("Q", 195, kDimINT, true),
            Out("LIM", 3.5, kDimREAL, true),     Out("U", u, kDimUSINT, true),
            Out("S8", 42, kDimSINT, true),       Out("W", 196, kDimUINT, true)};
}

TEST_F(Programs, EveryInstructionOfTheLanguage) {
    ASSERT_EQ(Load(kEverything), 0u);

    host.Inputs["A"] = 10;
    host.Inputs["B"] = 2.5;
    ASSERT_EQ(Cycle(), 0u);
    std::vector<HostCall> expected{In("A", 10), In("B", 2.5)};
    for (const HostCall& call : EverythingOutputs(1, 2, std::sqrt(std::pow(2.0, 2.5)), 5, 20))
        expected.push_back(call);
    EXPECT_EQ(host.Calls, expected);
    ExpectEveryStepSucceeded();

    // Every instruction ran; RET ends bodies and is never traced.
    const std::vector<std::string> keywords = tracer.Keywords();
    const std::set<std::string> ran(keywords.begin(), keywords.end());
    const std::set<std::string> all = {"CAL", "EXEC", "JMP",  "JMPF", "JMPT", "MOV", "MOVA", "ADD", "SUB",
                                       "MUL", "DIV",  "MOD",  "NE",   "EQ",   "GT",  "GE",   "LT",  "LE",
                                       "TST", "OR",   "XOR",  "AND",  "NOT",  "BOR", "BXOR", "BAND", "BNOT",
                                       "NG",  "SHL",  "SHR",  "ROL",  "ROR",  "POW"};
    EXPECT_EQ(ran, all);
    EXPECT_EQ(keywords.size(), 68u);  // the three skipped MOVs never ran

    // Registers along the way.
    const QZTraceEvent mod = tracer.Of("MOD").at(0);
    EXPECT_EQ(mod.R0, 2);
    EXPECT_EQ(mod.R0Type, kDINT);
    const QZTraceEvent pow = tracer.Of("POW").at(0);
    EXPECT_EQ(pow.R1, std::pow(2.0, 2.5));
    EXPECT_EQ(pow.R1Type, kLREAL);
    const QZTraceEvent exec = tracer.Of("EXEC").at(0);
    EXPECT_EQ(exec.A0, std::sqrt(std::pow(2.0, 2.5)));
    EXPECT_EQ(exec.A0Type, kLREAL);
    const QZTraceEvent notStep = tracer.Of("NOT").at(0);
    EXPECT_EQ(notStep.R1, 0);
    EXPECT_EQ(notStep.R1Type, kBOOL);
    const std::vector<QZTraceEvent> tests = tracer.Of("TST");
    ASSERT_EQ(tests.size(), 2u);
    EXPECT_EQ(tests[0].TestFlag, 1);
    EXPECT_EQ(tests[1].TestFlag, 0);
    const QZTraceEvent bxor = tracer.Of("BXOR").at(0);
    EXPECT_EQ(bxor.R0, 195);
    EXPECT_EQ(bxor.R0Type, kINT);
    const QZTraceEvent bnot = tracer.Of("BNOT").at(0);
    EXPECT_EQ(bnot.R0, -196);
    EXPECT_EQ(bnot.R0Type, kINT);
    const QZTraceEvent ng = tracer.Of("NG").at(0);
    EXPECT_EQ(ng.R0, 196);
    EXPECT_EQ(ng.R0Type, kINT);
    const std::vector<QZTraceEvent> rotations = tracer.Of("ROL");
    ASSERT_EQ(rotations.size(), 2u);
    EXPECT_EQ(rotations[0].R0, 10);
    EXPECT_EQ(rotations[0].R0Type, kDINT);
    EXPECT_EQ(rotations[1].R0, 3);
    EXPECT_EQ(rotations[1].R0Type, kUDINT);
    const QZTraceEvent cal = tracer.Of("CAL").at(0);
    EXPECT_EQ(cal.Result, 0u);
    EXPECT_EQ(tracer.Of("ADD").back().R0, 20);  // inside TWICE

    // Other inputs take the other branches: FLAGS false, so the MOV after JMPT runs.
    host.Inputs["A"] = 20;
    host.Inputs["B"] = 0.5;
    ASSERT_EQ(Cycle(), 0u);
    expected = {In("A", 20), In("B", 0.5)};
    for (const HostCall& call : EverythingOutputs(0, 99, std::sqrt(std::pow(2.0, 0.5)), 10, 40))
        expected.push_back(call);
    EXPECT_EQ(host.Calls, expected);
    EXPECT_EQ(tracer.Steps.size(), 69u);
    ExpectEveryStepSucceeded();

    // The first inputs again give the first outputs: nothing carries over.
    host.Inputs["A"] = 10;
    host.Inputs["B"] = 2.5;
    ASSERT_EQ(Cycle(), 0u);
    expected = {In("A", 10), In("B", 2.5)};
    for (const HostCall& call : EverythingOutputs(1, 2, std::sqrt(std::pow(2.0, 2.5)), 5, 20))
        expected.push_back(call);
    EXPECT_EQ(host.Calls, expected);
}

// ---------------------------------------------------------------- failures at the boundary

TEST_F(Programs, FailedCycleSendsNoOutputs) {
    // A zero divisor stops the cycle with 15; outputs stay unsent.
    ASSERT_EQ(Load("PROG DIVIDE VAR N VI DINT 0 Q VO DINT 0 MAIN MOV @N R0 DIV 100 R0 MOV R0 @Q RET"), 0u);
    host.Inputs["N"] = 4;
    ASSERT_EQ(Cycle(), 0u);
    EXPECT_EQ(host.Calls, (std::vector<HostCall>{In("N", 4), Out("Q", 25, kDimDINT, true)}));
    host.Inputs["N"] = 0;
    EXPECT_EQ(Cycle(), 15u);
    EXPECT_EQ(host.Calls, (std::vector<HostCall>{In("N", 0)}));
    ASSERT_EQ(tracer.Steps.size(), 2u);
    EXPECT_EQ(tracer.Steps[1].Keyword, "DIV");
    EXPECT_EQ(tracer.Steps[1].Event.Result, 15u);
    EXPECT_EQ(tracer.Steps[1].Event.R0, 0);
    host.Inputs["N"] = -3;
    ASSERT_EQ(Cycle(), 0u);
    EXPECT_EQ(host.Calls, (std::vector<HostCall>{In("N", -3), Out("Q", -33, kDimDINT, true)}));
}

}  // namespace
