// Subprogram calls: frames with their own variable tables, declarations,
// the body loop, returns, what failures leave pushed, and deep recursion.
//
// The last RET of a text is the end of the text, not a return: a subprogram
// standing last runs into it and returns nothing (tested below). Texts whose
// last subprogram must return normally therefore end with one more RET.
#include "qz_st_intrpr_main.h"
#include "recording_host.h"
#include "test_machine.h"

#include <gtest/gtest.h>

#include <malloc.h>
#include <pthread.h>

#include <atomic>
#include <cstdio>
#include <cstdlib>
#include <functional>
#include <memory>
#include <new>
#include <string>
#include <vector>

// Bytes handed out by operator new and not yet deleted, for the deep
// recursion test. Every other form of new and delete ends up in these two.
static std::atomic<long long> gLiveNewBytes{0};

void* operator new(std::size_t size) {
    void* p = std::malloc(size ? size : 1);
    if (!p) throw std::bad_alloc();
    gLiveNewBytes += static_cast<long long>(malloc_usable_size(p));
    return p;
}

void operator delete(void* p) noexcept {
    if (!p) return;
    gLiveNewBytes -= static_cast<long long>(malloc_usable_size(p));
    std::free(p);
}

void operator delete(void* p, std::size_t) noexcept { operator delete(p); }

namespace {

constexpr char kSINT = char(ttSINT);
constexpr char kDINT = char(ttDINT);
constexpr char kREAL = char(ttREAL);

class Calls : public ::testing::Test {
protected:
    Qz::uint32_t Load(const std::string& text) {
        Text = text;
        return object->InitInterpretator(text);
    }
    Qz::uint32_t Cycle() {
        host.Calls.clear();
        return object->Execute(&host);
    }
    size_t CallDepth() const { return object->CallStack.size(); }
    size_t Frames() const { return object->TableStack.size(); }
    // Values left on the value stack, bottom first.
    std::vector<double> StackValues() const {
        std::vector<double> values;
        for (const QZ_StackValue& v : object->Stack) values.push_back(v.Value);
        return values;
    }

    std::unique_ptr<CQZ_STInterpretator> object = std::make_unique<CQZ_STInterpretator>();
    RecordingHost host;
    std::string Text;
};

// Collects, after each executed instruction, how deep the calls are.
struct DepthProbe {
    CQZ_STInterpretator* Object = nullptr;
    size_t MaxCalls = 0;
    size_t MaxFrames = 0;
    std::vector<std::pair<size_t, size_t>> After;  // (calls, frames) after each instruction

    static void Hook(void* context, const QZTraceEvent*) {
        auto* probe = static_cast<DepthProbe*>(context);
        const size_t calls = probe->Object->CallStack.size();
        const size_t frames = probe->Object->TableStack.size();
        probe->MaxCalls = std::max(probe->MaxCalls, calls);
        probe->MaxFrames = std::max(probe->MaxFrames, frames);
        probe->After.emplace_back(calls, frames);
    }
    void Attach(CQZ_STInterpretator* object) {
        Object = object;
        object->TraceHook = &DepthProbe::Hook;
        object->TraceContext = this;
    }
};

// ---------------------------------------------------------------- frames

TEST_F(Calls, BodyWithoutDeclarationsSeesNoVariables) {
    ASSERT_EQ(Load("PROG P VAR G V DINT 5 MAIN CAL S RET S: BODY MOV 1 R0 MOV @G R1 RET"), 0u);
    EXPECT_EQ(Cycle(), 23u);
    EXPECT_EQ(object->R0.Value, 1.0);  // the body ran up to the global
    // The failed call leaves its return position and its (empty) frame.
    EXPECT_EQ(CallDepth(), 1u);
    EXPECT_EQ(Frames(), 1u);
    // The frame hides the program's variables from the next cycle as well.
    EXPECT_EQ(Cycle(), 23u);
    EXPECT_TRUE(host.Calls.empty());
}

TEST_F(Calls, BodyWithDeclarationsStillSeesNoGlobals) {
    ASSERT_EQ(Load("PROG P VAR G VG DINT 5 MAIN CAL S RET S: X V DINT 1 BODY MOV @X R0 MOV @G R1 RET"), 0u);
    object->R1 = {-1, kDINT};
    EXPECT_EQ(Cycle(), 23u);
    EXPECT_EQ(object->R0.Value, 1.0);
    EXPECT_EQ(object->R1.Value, -1.0);
}

TEST_F(Calls, CalleeDoesNotSeeItsCallersVariables) {
    ASSERT_EQ(Load("PROG P VAR G VG DINT 0 MAIN CAL A RET A: X V DINT 1 BODY CAL B RET "
                   "B: Y V DINT 2 BODY MOV @Y R0 MOV @X R1 RET"),
              0u);
    EXPECT_EQ(Cycle(), 23u);
    EXPECT_EQ(object->R0.Value, 2.0);
    EXPECT_EQ(CallDepth(), 2u);
    EXPECT_EQ(Frames(), 2u);
}

TEST_F(Calls, CallerSeesItsOwnVariablesAgainAfterTheReturn) {
    ASSERT_EQ(Load("PROG P VAR G VG DINT 0 MAIN CAL A MOV @G R1 RET A: X V DINT 1 BODY CAL B MOV @X R0 RET "
                   "B: X V DINT 2 BODY MOV @X A0 RET RET"),
              0u);
    object->R1 = {0, 0};
    ASSERT_EQ(Cycle(), 0u);
    EXPECT_EQ(object->A0.Value, 2.0);
    EXPECT_EQ(object->R0.Value, 1.0);
    EXPECT_EQ(object->R1.Value, 0.0);
    EXPECT_EQ(object->R1.ValueType, kDINT);
    EXPECT_EQ(CallDepth(), 0u);
    EXPECT_EQ(Frames(), 0u);
}

TEST_F(Calls, LocalsStartAtTheirDeclaredValuesOnEveryCall) {
    ASSERT_EQ(Load("PROG P VAR G VG DINT 0 MAIN CAL S CAL S RET "
                   "S: X V DINT 7 Y V REAL 1.5 BODY MOV @X R0 ADD 1 R0 MOV R0 @X "
                   "MOV @X PUSH MOV @Y PUSH MOV 0 @Y RET RET"),
              0u);
    ASSERT_EQ(Cycle(), 0u);
    EXPECT_EQ(StackValues(), (std::vector<double>{8, 1.5, 8, 1.5}));
    ASSERT_EQ(Cycle(), 0u);
    EXPECT_EQ(StackValues(), (std::vector<double>{8, 1.5, 8, 1.5, 8, 1.5, 8, 1.5}));
    EXPECT_EQ(object->Stack.back().ValueType, kREAL);
    EXPECT_EQ(object->Stack[object->Stack.size() - 2].ValueType, kDINT);
}

TEST_F(Calls, LocalsAreNarrowedWhenRead) {
    ASSERT_EQ(Load("PROG P VAR G VG DINT 0 MAIN CAL S RET S: X V SINT 200 BODY MOV @X R0 RET RET"), 0u);
    ASSERT_EQ(Cycle(), 0u);
    EXPECT_EQ(object->R0.Value, -56.0);
    EXPECT_EQ(object->R0.ValueType, kSINT);
}

TEST_F(Calls, DuplicateLocalKeepsTheFirstDeclaration) {
    ASSERT_EQ(Load("PROG P VAR G VG DINT 0 MAIN CAL S RET S: X V DINT 1 x V REAL 2.5 BODY MOV @X R0 RET RET"), 0u);
    ASSERT_EQ(Cycle(), 0u);
    EXPECT_EQ(object->R0.Value, 1.0);
    EXPECT_EQ(object->R0.ValueType, kDINT);
}

TEST_F(Calls, EveryAcceptedKindAndType) {
    const char* kinds[] = {"V", "VA", "VR"};
    const char* types[] = {"BOOL", "SINT", "USINT", "INT", "UINT", "DINT", "UDINT", "REAL", "LREAL"};
    for (const char* kind : kinds) {
        for (const char* type : types) {
            const std::string text = std::string("PROG P VAR G VG DINT 0 MAIN CAL S RET S: X ") + kind + " " + type +
                                     " 1 BODY MOV @X R0 RET RET";
            SCOPED_TRACE(text);
            object = std::make_unique<CQZ_STInterpretator>();
            ASSERT_EQ(Load(text), 0u);
            EXPECT_EQ(Cycle(), 0u);
            EXPECT_EQ(object->R0.Value, 1.0);
            EXPECT_EQ(object->R0.ValueType, FindKeyword(type));
        }
    }
}

TEST_F(Calls, RecursionHoldsOneFramePerActivation) {
    // Each activation pushes its L (declared 42) and then clears it: a shared
    // table would push 0 from the second level on.
    ASSERT_EQ(Load("PROG P VAR G VG DINT 0 MAIN MOV 5 PUSH CAL REC RET "
                   "REC: K V DINT 0 L V DINT 42 BODY MOV POP @K MOV @L PUSH MOV 0 @L "
                   "MOV @K R0 EQ 1 R0 TST R0 JMPT DONE MOV @K R0 ADD -1 R0 MOV R0 PUSH CAL REC DONE: RET RET"),
              0u);
    DepthProbe probe;
    probe.Attach(object.get());
    ASSERT_EQ(Cycle(), 0u);
    EXPECT_EQ(probe.MaxCalls, 5u);
    EXPECT_EQ(probe.MaxFrames, 5u);
    EXPECT_EQ(StackValues(), (std::vector<double>{42, 42, 42, 42, 42}));
    EXPECT_EQ(CallDepth(), 0u);
    EXPECT_EQ(Frames(), 0u);
}

// ---------------------------------------------------------------- CAL failures

TEST_F(Calls, UnknownNameGives22AndPushesNothing) {
    ASSERT_EQ(Load("PROG P VAR G VG DINT 0 MAIN CAL NOPE RET S: BODY RET"), 0u);
    EXPECT_EQ(Cycle(), 22u);
    EXPECT_EQ(CallDepth(), 0u);
    EXPECT_EQ(Frames(), 0u);
}

TEST_F(Calls, LabelsAreFoundByTheOperandTextWithCase) {
    // '@s' is scanned as the upper-cased text "S"; a bare 's' is another label.
    ASSERT_EQ(Load("PROG P VAR G VG DINT 0 MAIN CAL @s RET S: BODY MOV 3 R0 RET RET"), 0u);
    ASSERT_EQ(Cycle(), 0u);
    EXPECT_EQ(object->R0.Value, 3.0);
    ASSERT_EQ(Load("PROG P VAR G VG DINT 0 MAIN CAL s RET S: BODY MOV 3 R0 RET"), 0u);
    EXPECT_EQ(Cycle(), 22u);
    EXPECT_EQ(CallDepth(), 0u);
}

TEST_F(Calls, TargetThatIsNoLabelTokenGives21) {
    for (const char* target : {"MAIN", "VAR", "PROG", "#MAIN"}) {
        const std::string text = std::string("PROG P VAR G VG DINT 0 MAIN CAL ") + target + " RET";
        SCOPED_TRACE(text);
        object = std::make_unique<CQZ_STInterpretator>();
        ASSERT_EQ(Load(text), 0u);
        EXPECT_EQ(Cycle(), 21u);
        // The return position was pushed before the target was checked; no frame was.
        ASSERT_EQ(CallDepth(), 1u);
        EXPECT_EQ(object->CallStack.back().ReturnIndex, Text.rfind("RET"));
        EXPECT_EQ(Frames(), 0u);
    }
}

struct BadDeclaration {
    const char* Declarations;
    Qz::uint32_t Rc;
};

TEST_F(Calls, BadDeclarationsLeaveTheReturnPositionButNoFrame) {
    const BadDeclaration cases[] = {
        {"X VI DINT 0", 30},          {"X VO DINT 0", 30},        {"X VIO DINT 0", 30},
        {"X VG DINT 0", 30},          {"X TVR DINT 0", 30},       {"X DINT V 0", 30},
        {"X 5 DINT 0", 30},           {"X V STRING 0", 31},       {"X V ARRAY 0", 31},
        {"X V V 0", 31},              {"X V 5 0", 31},            {"X V DINT @Y", 32},
        {"X V DINT Y", 32},           {"X V DINT R0", 32},        {"X V DINT BODY", 32},
        {"A V DINT 1 X VI DINT 0", 30}, {"A V DINT 1 X V STRING 0", 31}, {"A V DINT 1 X V DINT NIL", 32},
    };
    for (const BadDeclaration& bad : cases) {
        const std::string text =
            std::string("PROG P VAR G VG DINT 0 MAIN CAL S RET S: ") + bad.Declarations + " BODY MOV 1 R0 RET";
        SCOPED_TRACE(text);
        object = std::make_unique<CQZ_STInterpretator>();
        object->R0 = {0, 0};
        ASSERT_EQ(Load(text), 0u);
        EXPECT_EQ(Cycle(), bad.Rc);
        EXPECT_EQ(CallDepth(), 1u);
        EXPECT_EQ(Frames(), 0u);
        EXPECT_EQ(object->R0.Value, 0.0);  // the body never ran
        // Nothing cleans up: the next cycle fails the same way and leaves one more.
        EXPECT_EQ(Cycle(), bad.Rc);
        EXPECT_EQ(CallDepth(), 2u);
        EXPECT_EQ(Frames(), 0u);
    }
}

TEST_F(Calls, ListedDeclarationFailures) {
    const BadDeclaration cases[] = {{"X VI INT 0", 30}, {"X V STRING 0", 31}, {"X V INT @Y", 32}};
    for (const BadDeclaration& bad : cases) {
        object = std::make_unique<CQZ_STInterpretator>();
        ASSERT_EQ(Load(std::string("PROG P VAR Y VG INT 0 MAIN CAL S RET S: ") + bad.Declarations +
                       " BODY RET"),
                  0u);
        EXPECT_EQ(Cycle(), bad.Rc) << bad.Declarations;
    }
}

TEST_F(Calls, FailingInstructionInTheBodyLeavesBothEntries) {
    ASSERT_EQ(Load("PROG P VAR G VG DINT 0 MAIN CAL S RET S: X V DINT 0 BODY MOV POP R0 RET"), 0u);
    EXPECT_EQ(Cycle(), 11u);
    EXPECT_EQ(CallDepth(), 1u);
    EXPECT_EQ(Frames(), 1u);
}

TEST_F(Calls, StrayDeclarationKeywordInTheBodyGives14) {
    for (const char* stray : {"V", "VI", "VR", "DINT", "VAR", "X", "5", "@G"}) {
        const std::string text =
            std::string("PROG P VAR G VG DINT 0 MAIN CAL S RET S: BODY MOV 1 R0 ") + stray + " MOV 2 R0 RET";
        SCOPED_TRACE(text);
        object = std::make_unique<CQZ_STInterpretator>();
        ASSERT_EQ(Load(text), 0u);
        EXPECT_EQ(Cycle(), 14u);
        EXPECT_EQ(object->R0.Value, 1.0);
        EXPECT_EQ(CallDepth(), 1u);
        EXPECT_EQ(Frames(), 1u);
    }
}

// ---------------------------------------------------------------- bodies and returns

TEST_F(Calls, BodyRunsItsLabelsAndJumps) {
    // Counts its local I up to 5, then leaves it in R1.
    ASSERT_EQ(Load("PROG P VAR G VG DINT 0 MAIN CAL S RET "
                   "S: I V DINT 0 BODY LOOP: MOV @I R0 ADD 1 R0 MOV R0 @I GT 5 R0 TST R0 JMPT LOOP "
                   "JMP OUT MOV 99 R1 OUT: MOV @I R1 LAST: RET RET"),
              0u);
    ASSERT_EQ(Cycle(), 0u);
    EXPECT_EQ(object->R1.Value, 5.0);
    EXPECT_EQ(object->R1.ValueType, kDINT);
    EXPECT_EQ(CallDepth(), 0u);
    EXPECT_EQ(Frames(), 0u);
}

TEST_F(Calls, BodyKeywordInsideTheBodyIsPassedOver) {
    ASSERT_EQ(Load("PROG P VAR G VG DINT 0 MAIN CAL S RET S: BODY MOV 1 R0 BODY MOV 2 R1 RET RET"), 0u);
    ASSERT_EQ(Cycle(), 0u);
    EXPECT_EQ(object->R0.Value, 1.0);
    EXPECT_EQ(object->R1.Value, 2.0);
}

TEST_F(Calls, ReadingResumesRightAfterTheOperand) {
    ASSERT_EQ(Load("PROG P VAR G VG DINT 0 MAIN MOV 1 R0 CAL S ADD 10 R0 CAL S ADD 100 R0 RET "
                   "S: BODY MUL 2 R0 RET RET"),
              0u);
    ASSERT_EQ(Cycle(), 0u);
    EXPECT_EQ(object->R0.Value, 2.0 * (2.0 * 1 + 10) + 100);
}

TEST_F(Calls, NormalReturnRestoresBothStackSizes) {
    // B's return is observed from inside A and from MAIN; a position left
    // behind by an earlier failed cycle stays where it is.
    ASSERT_EQ(Load("PROG P VAR G VG DINT 0 MAIN TST R1 JMPF FAIL CAL A MOV 0 NIL RET FAIL: MOV 1 R1 CAL MAIN RET "
                   "A: X V DINT 0 BODY CAL B MOV 0 NIL RET B: Y V DINT 0 BODY MOV 0 NIL RET RET"),
              0u);
    object->R1 = {0, kDINT};
    ASSERT_EQ(Cycle(), 21u);
    ASSERT_EQ(CallDepth(), 1u);
    ASSERT_EQ(Frames(), 0u);

    DepthProbe probe;
    probe.Attach(object.get());
    ASSERT_EQ(Cycle(), 8u);  // MAIN's RET with the stale position still there
    // TST JMPF CAL(A) CAL(B) MOV(in B) MOV(in A) MOV(in MAIN)
    ASSERT_EQ(probe.After.size(), 7u);
    EXPECT_EQ(probe.After[2], std::make_pair(size_t(2), size_t(1)));
    EXPECT_EQ(probe.After[3], std::make_pair(size_t(3), size_t(2)));
    EXPECT_EQ(probe.After[4], std::make_pair(size_t(3), size_t(2)));
    EXPECT_EQ(probe.After[5], std::make_pair(size_t(2), size_t(1)));  // B returned
    EXPECT_EQ(probe.After[6], std::make_pair(size_t(1), size_t(0)));  // A returned
    EXPECT_EQ(CallDepth(), 1u);
    EXPECT_EQ(Frames(), 0u);
}

TEST_F(Calls, BodyRunningIntoTheFinalRetLeavesItsEntries) {
    ASSERT_EQ(Load("PROG P VAR G VG DINT 0 MAIN TST R1 JMPT SECOND MOV 1 R1 CAL S MOV 9 R0 RET SECOND: RET "
                   "S: X V DINT 4 BODY MOV @X A0 RET"),
              0u);
    object->R0 = {0, kDINT};
    object->R1 = {0, kDINT};
    EXPECT_EQ(Cycle(), 0u);
    EXPECT_EQ(object->A0.Value, 4.0);
    EXPECT_EQ(object->R0.Value, 0.0);  // the caller did not go on after CAL
    EXPECT_EQ(CallDepth(), 1u);
    EXPECT_EQ(Frames(), 1u);
    // The next cycle reaches MAIN's RET with that call still pending.
    EXPECT_EQ(Cycle(), 8u);
    EXPECT_EQ(CallDepth(), 1u);
    EXPECT_EQ(Frames(), 1u);
}

TEST_F(Calls, NestedBodiesRunningIntoTheFinalRetLeaveEveryEntry) {
    ASSERT_EQ(Load("PROG P VAR G VG DINT 0 MAIN CAL A MOV 9 R0 RET A: BODY CAL B MOV 8 R0 RET "
                   "B: BODY MOV 5 A0 RET"),
              0u);
    object->R0 = {0, kDINT};
    EXPECT_EQ(Cycle(), 0u);
    EXPECT_EQ(object->A0.Value, 5.0);
    EXPECT_EQ(object->R0.Value, 0.0);
    EXPECT_EQ(CallDepth(), 2u);
    EXPECT_EQ(Frames(), 2u);
}

TEST_F(Calls, ReloadDropsLeftFramesButNotLeftCalls) {
    ASSERT_EQ(Load("PROG P VAR G VG DINT 0 MAIN CAL S RET S: BODY RET"), 0u);
    ASSERT_EQ(Cycle(), 0u);
    ASSERT_EQ(CallDepth(), 1u);
    ASSERT_EQ(Frames(), 1u);
    ASSERT_EQ(Load("PROG Q VAR OUT VO DINT 0 MAIN MOV 1 @OUT RET RET"), 0u);
    EXPECT_EQ(Frames(), 0u);
    EXPECT_EQ(CallDepth(), 1u);
    // The new program's variables are visible again, but its RET finds a call pending.
    EXPECT_EQ(Cycle(), 8u);
    EXPECT_TRUE(host.Calls.empty());
}

TEST_F(Calls, OutputsHiddenByALeftFrameGive23) {
    ASSERT_EQ(Load("PROG P VAR OUT VO DINT 0 MAIN MOV 3 @OUT CAL S RET S: BODY RET"), 0u);
    EXPECT_EQ(Cycle(), 23u);
    EXPECT_TRUE(host.Calls.empty());
    EXPECT_EQ(Frames(), 1u);
}

TEST_F(Calls, MainRetWithPendingCallGives8AndSendsNoOutputs) {
    ASSERT_EQ(Load("PROG P VAR IN VI DINT 0 OUT VO DINT 0 MAIN MOV @IN R0 TST R0 JMPF SKIP CAL MAIN "
                   "SKIP: MOV 1 @OUT RET RET"),
              0u);
    host.Inputs["IN"] = 1;
    EXPECT_EQ(Cycle(), 21u);
    EXPECT_EQ(host.Calls, (std::vector<HostCall>{In("IN", 1)}));
    host.Inputs["IN"] = 0;
    EXPECT_EQ(Cycle(), 8u);
    EXPECT_EQ(host.Calls, (std::vector<HostCall>{In("IN", 0)}));
    EXPECT_EQ(CallDepth(), 1u);
}

TEST_F(Calls, MainEndingAtTheFinalRetIgnoresPendingCalls) {
    // The same MAIN without a RET of its own ends at the end of the text.
    ASSERT_EQ(Load("PROG P VAR IN VI DINT 0 OUT VO DINT 0 MAIN MOV @IN R0 TST R0 JMPF SKIP CAL MAIN "
                   "SKIP: MOV 1 @OUT RET"),
              0u);
    host.Inputs["IN"] = 1;
    EXPECT_EQ(Cycle(), 21u);
    host.Inputs["IN"] = 0;
    EXPECT_EQ(Cycle(), 0u);
    EXPECT_EQ(host.Calls, (std::vector<HostCall>{In("IN", 0), Out("OUT", 1, 6, true)}));
    EXPECT_EQ(CallDepth(), 1u);
}

TEST_F(Calls, JumpOutOfABodyIntoMainKeepsTheFrame) {
    // After the jump, MAIN's text runs with S's frame: X is S's local, and
    // the RET there returns from S to the instruction after CAL.
    ASSERT_EQ(Load("PROG P VAR G V DINT 1 MAIN CAL S MOV 7 R1 RET BACK: MOV @X R0 RET "
                   "S: X V DINT 3 BODY JMP BACK RET"),
              0u);
    DepthProbe probe;
    probe.Attach(object.get());
    ASSERT_EQ(Cycle(), 0u);
    EXPECT_EQ(object->R0.Value, 3.0);
    EXPECT_EQ(object->R1.Value, 7.0);
    // CAL JMP MOV(@X) MOV(7)
    ASSERT_EQ(probe.After.size(), 4u);
    EXPECT_EQ(probe.After[2], std::make_pair(size_t(1), size_t(1)));
    EXPECT_EQ(probe.After[3], std::make_pair(size_t(0), size_t(0)));
}

TEST_F(Calls, JumpOutOfABodyStillHidesTheGlobals) {
    ASSERT_EQ(Load("PROG P VAR G V DINT 1 MAIN CAL S RET BACK: MOV @G R0 RET S: BODY JMP BACK RET"), 0u);
    EXPECT_EQ(Cycle(), 23u);
    EXPECT_EQ(CallDepth(), 1u);
    EXPECT_EQ(Frames(), 1u);
}

// ---------------------------------------------------------------- RET in the body loop itself

TEST(CallReturn, RetWithoutAFrameGives12) {
    TestMachine m;
    m.SetProgram("RET MOV 1 R0 RET");
    m.CallStack.push_back(QZ_FuncStackValue{4});
    bool reachedEnd = true;
    EXPECT_EQ(m.RunBody(true, reachedEnd), 12u);
    EXPECT_FALSE(reachedEnd);
    EXPECT_TRUE(m.CallStack.empty());  // popped before the table was looked for
    EXPECT_EQ(m.CurChar, 'M');
}

TEST(CallReturn, RetWithAnEmptyCallStackEndsTheBody) {
    TestMachine m;
    m.SetProgram("RET MOV 1 R0 RET");
    m.TableStack.push_back(new CQZ_Vars());
    bool reachedEnd = true;
    EXPECT_EQ(m.RunBody(true, reachedEnd), 0u);
    EXPECT_FALSE(reachedEnd);
    EXPECT_EQ(m.TableStack.size(), 1u);
    EXPECT_EQ(m.CurChar, 'M');
}

TEST(CallReturn, RetToAPositionPastTheEndGives6AndKeepsTheFrame) {
    TestMachine m;
    m.SetProgram("RET MOV 1 R0 RET");
    m.CallStack.push_back(QZ_FuncStackValue{uint32_t(m.TextLen)});
    m.TableStack.push_back(new CQZ_Vars());
    bool reachedEnd = true;
    EXPECT_EQ(m.RunBody(true, reachedEnd), 6u);
    EXPECT_TRUE(m.CallStack.empty());
    EXPECT_EQ(m.TableStack.size(), 1u);
    EXPECT_EQ(m.CurChar, 0);
}

TEST(CallReturn, CalRunAsASingleCommand) {
    TestMachine m;
    m.SetProgram("CAL S MOV 1 R1 RET S: X V DINT 4 BODY MOV @X R0 RET RET");
    // Register the labels the way the loader's pass does.
    for (;;) {
        ASSERT_EQ(m.Scan(m.TokenText), 0u);
        if (m.TokenCode == ttEND) break;
    }
    m.SetProgram("CAL S MOV 1 R1 RET S: X V DINT 4 BODY MOV @X R0 RET RET");
    ASSERT_EQ(m.Run(), 0u);
    EXPECT_EQ(m.R0.Value, 4.0);
    EXPECT_TRUE(m.CallStack.empty());
    EXPECT_TRUE(m.TableStack.empty());
    EXPECT_EQ(m.CurChar, 'M');  // right after the operand
    EXPECT_EQ(m.TextPos, 7);
}

// ---------------------------------------------------------------- deep recursion

// Heap bytes in use by the allocator's count (chunks with their headers,
// mmapped blocks included); 0 where the allocator is replaced (sanitizers).
size_t HeapInUse() {
    const struct mallinfo2 info = mallinfo2();
    return info.uordblks + info.hblkhd;
}

struct DeepProbe {
    CQZ_STInterpretator* Object = nullptr;
    size_t Target = 0;
    size_t MaxFrames = 0;
    size_t MaxCalls = 0;
    bool HaveShallow = false, HaveDeep = false;
    size_t ShallowHeap = 0, DeepHeap = 0;
    long long ShallowNew = 0, DeepNew = 0;
    const void* ShallowFrame = nullptr;
    const void* DeepFrame = nullptr;

    static void Hook(void* context, const QZTraceEvent*) {
        auto* probe = static_cast<DeepProbe*>(context);
        const size_t frames = probe->Object->TableStack.size();
        probe->MaxFrames = std::max(probe->MaxFrames, frames);
        probe->MaxCalls = std::max(probe->MaxCalls, probe->Object->CallStack.size());
        if (frames == 1 && !probe->HaveShallow) {
            probe->HaveShallow = true;
            probe->ShallowFrame = __builtin_frame_address(0);
            probe->ShallowHeap = HeapInUse();
            probe->ShallowNew = gLiveNewBytes;
        } else if (frames == probe->Target && !probe->HaveDeep) {
            probe->HaveDeep = true;
            probe->DeepFrame = __builtin_frame_address(0);
            probe->DeepHeap = HeapInUse();
            probe->DeepNew = gLiveNewBytes;
        }
    }
};

// Runs `work` on a thread whose stack is far too small for one native
// frame per call level.
void RunOnSmallStack(size_t bytes, const std::function<void()>& work) {
    pthread_attr_t attributes;
    ASSERT_EQ(pthread_attr_init(&attributes), 0);
    ASSERT_EQ(pthread_attr_setstacksize(&attributes, bytes), 0);
    pthread_t thread;
    auto body = [](void* argument) -> void* {
        (*static_cast<const std::function<void()>*>(argument))();
        return nullptr;
    };
    ASSERT_EQ(pthread_create(&thread, &attributes, body, const_cast<std::function<void()>*>(&work)), 0);
    pthread_attr_destroy(&attributes);
    ASSERT_EQ(pthread_join(thread, nullptr), 0);
}

TEST_F(Calls, HundredThousandLevelsDeepOnTheHeapOnly) {
    constexpr size_t kLevels = 100000;
    // DOWN pops N; at 0 it sets R1 to 0, otherwise it calls itself with N - 1
    // and adds 1 to R1 on the way back.
    ASSERT_EQ(Load("PROG DEEP VAR D VG DINT 0 MAIN MOV 100000 PUSH CAL DOWN RET "
                   "DOWN: N V DINT 0 BODY MOV POP @N MOV @N R0 EQ 0 R0 TST R0 JMPF DEEPER MOV 0 R1 RET "
                   "DEEPER: MOV @N R0 ADD -1 R0 MOV R0 PUSH CAL DOWN ADD 1 R1 RET RET"),
              0u);
    DeepProbe probe;
    probe.Object = object.get();
    probe.Target = kLevels + 1;  // N = 100000 down to 0
    object->TraceHook = &DeepProbe::Hook;
    object->TraceContext = &probe;

    Qz::uint32_t rc = 1;
    RunOnSmallStack(256 * 1024, [&] { rc = object->Execute(&host); });
    EXPECT_EQ(rc, 0u);
    EXPECT_EQ(object->R1.Value, double(kLevels));
    EXPECT_EQ(object->R1.ValueType, kDINT);
    EXPECT_EQ(probe.MaxFrames, kLevels + 1);
    EXPECT_EQ(probe.MaxCalls, kLevels + 1);
    EXPECT_EQ(CallDepth(), 0u);
    EXPECT_EQ(Frames(), 0u);
    EXPECT_TRUE(object->Stack.empty());

    // The hook is called from the same native frame at every call depth.
    ASSERT_TRUE(probe.HaveShallow);
    ASSERT_TRUE(probe.HaveDeep);
    EXPECT_EQ(probe.ShallowFrame, probe.DeepFrame);

    // What one level costs: a frame table, its one record with its
    // declaration copy, and the two stack entries.
    ASSERT_GT(probe.DeepNew, probe.ShallowNew);
    const double newPerLevel = double(probe.DeepNew - probe.ShallowNew) / double(kLevels);
    std::printf("operator new bytes per call level: %.1f\n", newPerLevel);
    RecordProperty("NewBytesPerCallLevel", std::to_string(newPerLevel));
    EXPECT_LT(newPerLevel, 4096.0);
    if (probe.DeepHeap > probe.ShallowHeap) {
        const double heapPerLevel = double(probe.DeepHeap - probe.ShallowHeap) / double(kLevels);
        std::printf("heap bytes per call level (allocator count): %.1f\n", heapPerLevel);
        RecordProperty("HeapBytesPerCallLevel", std::to_string(heapPerLevel));
        EXPECT_LT(heapPerLevel, 4096.0);
    }

    // A second cycle goes as deep again.
    probe.HaveShallow = probe.HaveDeep = false;
    probe.MaxFrames = probe.MaxCalls = 0;
    RunOnSmallStack(256 * 1024, [&] { rc = object->Execute(&host); });
    EXPECT_EQ(rc, 0u);
    EXPECT_EQ(object->R1.Value, double(kLevels));
    EXPECT_EQ(probe.MaxFrames, kLevels + 1);
}

}  // namespace
