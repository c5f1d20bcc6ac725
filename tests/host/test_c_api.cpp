// The C interface (qz_c.h) through the .so as a foreign-function host loads
// it: every qz_ function resolved with dlsym, names as UTF-8 bytes, hostile
// handles and arguments.
#include "plugin.h"
#include "qz_c.h"

#include <gtest/gtest.h>

#include <cstring>
#include <map>
#include <string>
#include <vector>

namespace {

#define QZ_C_FUNCTIONS(X)                                                                                   \
    X(qz_version) X(qz_result_message) X(qz_result_name) X(qz_new) X(qz_close) X(qz_load) X(qz_load_source)   \
    X(qz_run) X(qz_where) X(qz_recover) X(qz_set_budget) X(qz_set_clock) X(qz_set_trace) X(qz_set_stack_limit) \
    X(qz_set_call_depth_limit) X(qz_set_memory_limit) X(qz_list_variables) X(qz_list_locals)                 \
    X(qz_get_variable) X(qz_set_variable) X(qz_save_retained) X(qz_restore_retained) X(qz_get_machine)        \
    X(qz_get_stack) X(qz_get_call) X(qz_check)

struct CApi {
    explicit CApi(const Plugin& plugin) {
#define QZ_RESOLVE(name) name = plugin.Symbol<decltype(&::name)>(#name);
        QZ_C_FUNCTIONS(QZ_RESOLVE)
#undef QZ_RESOLVE
    }
#define QZ_MEMBER(name) decltype(&::name) name;
    QZ_C_FUNCTIONS(QZ_MEMBER)
#undef QZ_MEMBER
};

// What a cycle's callbacks saw.
struct Exchange {
    std::map<std::string, double> Inputs;
    std::vector<std::string> Asked;
    struct Output {
        std::string Name;
        double Value;
        int Type, Written;
    };
    std::vector<Output> Outputs;
    double Out(const std::string& name) const {
        for (const Output& o : Outputs)
            if (o.Name == name) return o.Value;
        return -12345.0;
    }
};

void Input(void* context, const char* name, size_t length, double* value) {
    Exchange& x = *static_cast<Exchange*>(context);
    const std::string key(name, length);
    EXPECT_EQ(name[length], '\0');
    x.Asked.push_back(key);
    const auto found = x.Inputs.find(key);
    if (found != x.Inputs.end()) *value = found->second;
}

void Output(void* context, const char* name, size_t length, double value, int type, int written) {
    static_cast<Exchange*>(context)->Outputs.push_back({std::string(name, length), value, type, written});
}

const std::string kDivider =
    "PROG DIVIDER VAR DIVISOR VI DINT 1 TOTAL VG DINT 0 RESULT VO DINT 0 MAIN "
    "MOV @DIVISOR PUSH CAL SAFEDIV MOV R0 @RESULT MOV @TOTAL R0 ADD 1 R0 MOV R0 @TOTAL RET "
    "SAFEDIV: D V DINT 0 BODY MOV POP @D MOV @D R0 DIV 100 R0 RET RET";

class CInterface : public ::testing::Test {
protected:
    void SetUp() override { Q = c.qz_new(); }
    void TearDown() override { c.qz_close(Q); }
    int Run(double divisor) {
        x.Inputs["DIVISOR"] = divisor;
        x.Outputs.clear();
        return c.qz_run(Q, Input, Output, &x);
    }

    Plugin plugin;
    CApi c{plugin};
    qz_state* Q = nullptr;
    Exchange x;
};

TEST_F(CInterface, ACycleWithCallbacks) {
    ASSERT_NE(Q, nullptr);
    ASSERT_EQ(c.qz_load(Q, kDivider.data(), kDivider.size()), QZ_rcOK);
    ASSERT_EQ(Run(8), QZ_rcOK);
    EXPECT_EQ(x.Asked, std::vector<std::string>{"DIVISOR"});
    ASSERT_EQ(x.Outputs.size(), 1u);
    EXPECT_EQ(x.Outputs[0].Name, "RESULT");
    EXPECT_EQ(x.Outputs[0].Value, 12.0);
    EXPECT_EQ(x.Outputs[0].Type, QZ_TYPE_DINT);
    EXPECT_EQ(x.Outputs[0].Written, 1);
    EXPECT_EQ(c.qz_run(Q, nullptr, nullptr, nullptr), QZ_rcDivisionByZero) << "without callbacks inputs read 0";
}

// What qz_check reported, copied out of the callback.
struct Seen {
    uint32_t Severity, Code, Line, Column;
    std::string Id, Range, Message;
};

void Collect(void* context, const qz_diagnostic* d) {
    auto& pair = *static_cast<std::pair<const std::string*, std::vector<Seen>*>*>(context);
    pair.second->push_back({d->Severity, d->Code, d->Line, d->Column, d->Id,
                            pair.first->substr(d->Begin, d->End - d->Begin), d->Message});
}

TEST_F(CInterface, CheckNeedsNoHandleAndReportsWhereRunningWouldStop) {
    const std::string text = "PROG P (* a comment *)\nVAR X VG DINT 0\nMAIN\n  MOV @X R0\n  JMP LATER\nRET\n";
    std::vector<Seen> seen;
    std::pair<const std::string*, std::vector<Seen>*> context{&text, &seen};
    ASSERT_EQ(c.qz_check(text.data(), text.size(), Collect, &context), QZ_rcOK);
    ASSERT_EQ(seen.size(), 1u);
    EXPECT_EQ(seen[0].Severity, uint32_t(QZ_DIAGNOSTIC_ERROR));
    EXPECT_EQ(seen[0].Code, uint32_t(QZ_rcLabelNotFound));
    EXPECT_EQ(seen[0].Id, "22");
    EXPECT_EQ(seen[0].Range, "LATER");
    EXPECT_EQ(seen[0].Line, 5u);
    EXPECT_EQ(seen[0].Column, 7u);
    EXPECT_EQ(seen[0].Message, c.qz_result_message(QZ_rcLabelNotFound));
    EXPECT_EQ(c.qz_check(text.data(), text.size(), nullptr, nullptr), QZ_rcOK) << "no callback: checked all the same";
    EXPECT_EQ(c.qz_check(nullptr, 5, Collect, &context), QZ_rcEmptyText);
    EXPECT_EQ(c.qz_check(nullptr, 0, Collect, &context), QZ_rcOK);
}

TEST_F(CInterface, NamesReachTheCallbacksAsTheProgramsBytes) {
    // A Cyrillic input and a name that is not UTF-8: both arrive byte for byte.
    const std::string text = "PROG P VAR \xd0\x92\xd0\xa5\xd0\x9e\xd0\x94 VI DINT 0 T\xe9MP VO DINT 0 MAIN "
                             "MOV @\xd0\xb2\xd1\x85\xd0\xbe\xd0\xb4 R0 MOV R0 @T\xe9MP RET";
    ASSERT_EQ(c.qz_load(Q, text.data(), text.size()), QZ_rcOK);
    x.Inputs["\xd0\x92\xd0\xa5\xd0\x9e\xd0\x94"] = 7;
    ASSERT_EQ(c.qz_run(Q, Input, Output, &x), QZ_rcOK);
    ASSERT_EQ(x.Outputs.size(), 1u);
    EXPECT_EQ(x.Outputs[0].Name, "T\xe9MP");
    EXPECT_EQ(x.Outputs[0].Value, 7.0);
}

TEST_F(CInterface, SourceWithCommentsAndWhereAFailureStands) {
    // examples/tests/division_by_zero.qz: qzrun reports 8:25 for it.
    const std::string source =
        "(* Fails in the cycle where DIVISOR is 0. *)\nPROG DIVIDE\nVAR\n    DIVISOR VI  DINT 1\n"
        "    RESULT  VO  DINT 0\nMAIN\n    MOV     @DIVISOR    R0\n"
        "    DIV     100         R0      (* R0 := 100 / DIVISOR *)\n    MOV     R0          @RESULT\nRET\n";
    ASSERT_EQ(c.qz_load_source(Q, source.data(), source.size()), QZ_rcOK);
    EXPECT_EQ(Run(4), QZ_rcOK);
    EXPECT_EQ(x.Out("RESULT"), 25.0);
    ASSERT_EQ(Run(0), QZ_rcDivisionByZero);
    qz_location where{};
    ASSERT_EQ(c.qz_where(Q, &where), QZ_rcOK);
    EXPECT_EQ(where.line, 8);
    EXPECT_EQ(where.column, 25);
    EXPECT_EQ(source.substr(where.offset, where.end - where.offset), "R0");
}

TEST_F(CInterface, UnclosedCommentAndEndOfText) {
    ASSERT_EQ(c.qz_load(Q, kDivider.data(), kDivider.size()), QZ_rcOK);
    const std::string open = "PROG P\nVAR X VO DINT 0\n  (* never closed\nMAIN RET\n";
    EXPECT_EQ(c.qz_load_source(Q, open.data(), open.size()), QZ_rcUnclosedComment);
    qz_location where{};
    ASSERT_EQ(c.qz_where(Q, &where), QZ_rcOK);
    EXPECT_EQ(where.line, 3);
    EXPECT_EQ(where.column, 3);
    EXPECT_EQ(where.offset, open.find("(*"));
    EXPECT_EQ(c.qz_run(Q, nullptr, nullptr, nullptr), QZ_rcNoLabelToken) << "no program runs after it";

    const std::string noRet = "PROG P\nVAR X VO DINT 0\nMAIN\n  MOV 1 @X\n\n";
    EXPECT_EQ(c.qz_load_source(Q, noRet.data(), noRet.size()), QZ_rcEndOfText);
    ASSERT_EQ(c.qz_where(Q, &where), QZ_rcOK);
    EXPECT_EQ(where.line, 4);
    EXPECT_EQ(where.column, 11) << "just past the last word";
}

TEST_F(CInterface, RecoveryVariablesAndSnapshots) {
    ASSERT_EQ(c.qz_load(Q, kDivider.data(), kDivider.size()), QZ_rcOK);
    ASSERT_EQ(Run(4), QZ_rcOK);
    ASSERT_EQ(Run(0), QZ_rcDivisionByZero);
    qz_machine m{};
    ASSERT_EQ(c.qz_get_machine(Q, &m), QZ_rcOK);
    EXPECT_EQ(m.call_depth, 1u);
    int32_t call = 0, label = 0;
    ASSERT_EQ(c.qz_get_call(Q, 0, &call, &label), QZ_rcOK);
    EXPECT_EQ(call, int32_t(kDivider.find("CAL SAFEDIV")));
    EXPECT_EQ(label, int32_t(kDivider.find("SAFEDIV:")));
    EXPECT_EQ(Run(5), QZ_rcVarNotFound);
    ASSERT_EQ(c.qz_recover(Q), QZ_rcOK);
    ASSERT_EQ(Run(5), QZ_rcOK);
    EXPECT_EQ(x.Out("RESULT"), 20.0);

    double total = 0;
    int type = 0;
    ASSERT_EQ(c.qz_get_variable(Q, "total", 5, &total, &type), QZ_rcOK);
    EXPECT_EQ(total, 2.0);
    EXPECT_EQ(type, QZ_TYPE_DINT);
    size_t needed = 0;
    ASSERT_EQ(c.qz_save_retained(Q, nullptr, 0, &needed), QZ_rcBufferTooSmall);
    std::vector<unsigned char> saved(needed);
    ASSERT_EQ(c.qz_save_retained(Q, saved.data(), saved.size(), &needed), QZ_rcOK);
    ASSERT_EQ(c.qz_set_variable(Q, "TOTAL", 5, 1000.7), QZ_rcOK);
    ASSERT_EQ(c.qz_get_variable(Q, "TOTAL", 5, &total, nullptr), QZ_rcOK);
    EXPECT_EQ(total, 1000.0);
    EXPECT_EQ(c.qz_restore_retained(Q, saved.data(), saved.size() - 1), QZ_rcSnapshotCorrupt);
    ASSERT_EQ(c.qz_restore_retained(Q, saved.data(), saved.size()), QZ_rcOK);
    ASSERT_EQ(c.qz_get_variable(Q, "TOTAL", 5, &total, nullptr), QZ_rcOK);
    EXPECT_EQ(total, 2.0);

    std::vector<std::string> names;
    auto collect = [](void* context, const qz_variable* v) {
        static_cast<std::vector<std::string>*>(context)->push_back(std::string(v->name, v->length));
    };
    ASSERT_EQ(c.qz_list_variables(Q, collect, &names), QZ_rcOK);
    EXPECT_EQ(names, (std::vector<std::string>{"DIVISOR", "TOTAL", "RESULT"}));
}

uint32_t SimulatedClock(void* context) { return *static_cast<uint32_t*>(context); }

TEST_F(CInterface, ClockBudgetLimitsAndTrace) {
    // The counter reads 0 at its first reading and counts on from there.
    const std::string timer = "PROG T VAR ELAPSED VO UDINT 0 MAIN MOV TICK R0 MOV R0 @ELAPSED RET";
    ASSERT_EQ(c.qz_load(Q, timer.data(), timer.size()), QZ_rcOK);
    uint32_t now = 1000;
    ASSERT_EQ(c.qz_set_clock(Q, SimulatedClock, &now), QZ_rcOK);
    ASSERT_EQ(c.qz_run(Q, nullptr, Output, &x), QZ_rcOK);
    now += 250;
    x.Outputs.clear();
    ASSERT_EQ(c.qz_run(Q, nullptr, Output, &x), QZ_rcOK);
    EXPECT_EQ(x.Out("ELAPSED"), 250.0);

    const std::string loop = "PROG L VAR X VG DINT 0 MAIN A: MOV 1 PUSH JMP A RET";
    ASSERT_EQ(c.qz_load(Q, loop.data(), loop.size()), QZ_rcOK);
    ASSERT_EQ(c.qz_set_budget(Q, 1000), QZ_rcOK);
    EXPECT_EQ(c.qz_run(Q, nullptr, nullptr, nullptr), QZ_rcBudgetExhausted);
    ASSERT_EQ(c.qz_recover(Q), QZ_rcOK);
    ASSERT_EQ(c.qz_set_budget(Q, 0), QZ_rcOK);
    ASSERT_EQ(c.qz_set_stack_limit(Q, 300), QZ_rcOK);
    EXPECT_EQ(c.qz_run(Q, nullptr, nullptr, nullptr), QZ_rcStackLimit);
    qz_stack_value top[2];
    size_t count = 0;
    ASSERT_EQ(c.qz_get_stack(Q, top, 2, &count), QZ_rcOK);
    EXPECT_EQ(count, 2u);
    EXPECT_EQ(top[1].value, 1.0);
    ASSERT_EQ(c.qz_recover(Q), QZ_rcOK);
    ASSERT_EQ(c.qz_set_stack_limit(Q, 0), QZ_rcOK);
    ASSERT_EQ(c.qz_set_memory_limit(Q, 4096), QZ_rcOK);
    EXPECT_EQ(c.qz_run(Q, nullptr, nullptr, nullptr), QZ_rcMemoryLimit);
    ASSERT_EQ(c.qz_recover(Q), QZ_rcOK);
    ASSERT_EQ(c.qz_set_call_depth_limit(Q, 3), QZ_rcOK);

    struct Traced {
        CApi* C;
        qz_state* Q;
        std::vector<int> Starts;
        std::vector<double> X;
    } traced{&c, Q, {}, {}};
    const std::string body = "PROG B VAR X VG DINT 0 MAIN MOV 5 @X MOV 6 R0 RET";
    ASSERT_EQ(c.qz_load(Q, body.data(), body.size()), QZ_rcOK);
    auto hook = [](void* context, const qz_trace_event* event) {
        Traced& t = *static_cast<Traced*>(context);
        t.Starts.push_back(event->start);
        double value = 0;
        t.C->qz_get_variable(t.Q, "X", 1, &value, nullptr);
        t.X.push_back(value);
    };
    ASSERT_EQ(c.qz_set_trace(Q, hook, &traced), QZ_rcOK);
    ASSERT_EQ(c.qz_run(Q, nullptr, nullptr, nullptr), QZ_rcOK);
    EXPECT_EQ(traced.Starts, (std::vector<int>{int(body.find("MOV 5")), int(body.find("MOV 6"))}));
    EXPECT_EQ(traced.X, (std::vector<double>{5.0, 5.0}));
    ASSERT_EQ(c.qz_set_trace(Q, nullptr, nullptr), QZ_rcOK);
    ASSERT_EQ(c.qz_run(Q, nullptr, nullptr, nullptr), QZ_rcOK);
    EXPECT_EQ(traced.Starts.size(), 2u);
}

TEST_F(CInterface, ResultMessagesAndVersion) {
    EXPECT_STREQ(c.qz_version(), "1.0.0");
    EXPECT_STREQ(c.qz_result_message(0), "success");
    EXPECT_STREQ(c.qz_result_message(QZ_rcSnapshotMismatch), Qz::ResultMeaning(Qz::rcSnapshotMismatch));
    EXPECT_STREQ(c.qz_result_message(7), "unknown result code");
    EXPECT_STREQ(c.qz_result_message(-1), "unknown result code");
    EXPECT_STREQ(c.qz_result_name(QZ_rcDivisionByZero), "rcDivisionByZero");
    EXPECT_EQ(c.qz_result_name(7), nullptr);
    for (const Qz::ResultCodeInfo& info : Qz::kResultCodes) EXPECT_STREQ(c.qz_result_name(int(info.Code)), info.Name);
}

// Every function with a null handle, and with a pointer that is no handle.
TEST_F(CInterface, NullAndWrongHandles) {
    alignas(16) unsigned char notAHandle[256] = {};
    std::memset(notAHandle, 0x5a, sizeof notAHandle);
    for (qz_state* bad : {static_cast<qz_state*>(nullptr), reinterpret_cast<qz_state*>(notAHandle)}) {
        double value = 0;
        int type = 0;
        size_t size = 0;
        qz_location where;
        qz_machine m;
        qz_stack_value v[1];
        int32_t a, b;
        EXPECT_EQ(c.qz_load(bad, "PROG P MAIN RET", 15), QZ_rcBadHandle);
        EXPECT_EQ(c.qz_load_source(bad, "PROG P MAIN RET", 15), QZ_rcBadHandle);
        EXPECT_EQ(c.qz_run(bad, Input, Output, &x), QZ_rcBadHandle);
        EXPECT_EQ(c.qz_where(bad, &where), QZ_rcBadHandle);
        EXPECT_EQ(c.qz_recover(bad), QZ_rcBadHandle);
        EXPECT_EQ(c.qz_set_budget(bad, 1), QZ_rcBadHandle);
        EXPECT_EQ(c.qz_set_clock(bad, SimulatedClock, nullptr), QZ_rcBadHandle);
        EXPECT_EQ(c.qz_set_trace(bad, nullptr, nullptr), QZ_rcBadHandle);
        EXPECT_EQ(c.qz_set_stack_limit(bad, 1), QZ_rcBadHandle);
        EXPECT_EQ(c.qz_set_call_depth_limit(bad, 1), QZ_rcBadHandle);
        EXPECT_EQ(c.qz_set_memory_limit(bad, 1), QZ_rcBadHandle);
        EXPECT_EQ(c.qz_list_variables(bad, nullptr, nullptr), QZ_rcBadHandle);
        EXPECT_EQ(c.qz_list_locals(bad, nullptr, nullptr), QZ_rcBadHandle);
        EXPECT_EQ(c.qz_get_variable(bad, "X", 1, &value, &type), QZ_rcBadHandle);
        EXPECT_EQ(c.qz_set_variable(bad, "X", 1, 1.0), QZ_rcBadHandle);
        EXPECT_EQ(c.qz_save_retained(bad, nullptr, 0, &size), QZ_rcBadHandle);
        EXPECT_EQ(c.qz_restore_retained(bad, "QZRV", 4), QZ_rcBadHandle);
        EXPECT_EQ(c.qz_get_machine(bad, &m), QZ_rcBadHandle);
        EXPECT_EQ(c.qz_get_stack(bad, v, 1, &size), QZ_rcBadHandle);
        EXPECT_EQ(c.qz_get_call(bad, 0, &a, &b), QZ_rcBadHandle);
        c.qz_close(bad);
    }
    EXPECT_EQ(notAHandle[0], 0x5a) << "nothing was written through it";
}

TEST_F(CInterface, HostileArguments) {
    qz_location where;
    qz_machine m;
    size_t count = 0;
    EXPECT_EQ(c.qz_load(Q, nullptr, 5), QZ_rcBadArgument);
    EXPECT_EQ(c.qz_load(Q, nullptr, 0), QZ_rcEmptyText);
    EXPECT_EQ(c.qz_where(Q, nullptr), QZ_rcBadArgument);
    EXPECT_EQ(c.qz_get_machine(Q, nullptr), QZ_rcBadArgument);
    EXPECT_EQ(c.qz_get_stack(Q, nullptr, 3, &count), QZ_rcBadArgument);
    EXPECT_EQ(c.qz_list_variables(Q, nullptr, nullptr), QZ_rcBadArgument);

    // A length that overstates a NUL-terminated text ends it at the NUL.
    const char text[] = "PROG P VAR X VG DINT 3 MAIN RET";
    EXPECT_EQ(c.qz_load(Q, text, size_t(-1)), QZ_rcOK);
    double value = 0;
    EXPECT_EQ(c.qz_get_variable(Q, "X", 1, &value, nullptr), QZ_rcOK);
    EXPECT_EQ(value, 3.0);
    // A length that cuts it short loads what it covers.
    EXPECT_EQ(c.qz_load(Q, text, 20), QZ_rcEndOfText);
    EXPECT_EQ(c.qz_where(Q, &where), QZ_rcOK);
    EXPECT_EQ(where.column, 21);
    ASSERT_EQ(c.qz_load(Q, text, sizeof text - 1), QZ_rcOK);
    EXPECT_EQ(c.qz_get_variable(Q, "X", 2, &value, nullptr), QZ_rcVarNotFound) << "the NUL inside";
    EXPECT_EQ(c.qz_get_variable(Q, "\xff\xfe", 2, &value, nullptr), QZ_rcVarNotFound);
    EXPECT_EQ(c.qz_get_variable(Q, nullptr, 2, &value, nullptr), QZ_rcBadArgument);
    EXPECT_EQ(c.qz_get_call(Q, 0, nullptr, nullptr), QZ_rcBadArgument);
    EXPECT_EQ(c.qz_get_machine(Q, &m), QZ_rcOK);
    const unsigned char garbage[40] = {'Q', 'Z', 'R', 'V', 1, 0, 0, 0, 40};
    EXPECT_EQ(c.qz_restore_retained(Q, garbage, sizeof garbage), QZ_rcSnapshotCorrupt);
    EXPECT_EQ(c.qz_restore_retained(Q, nullptr, 0), QZ_rcSnapshotCorrupt);
}

}  // namespace

namespace {

// A callback that tries to reload, rerun, recover or close the handle that
// is running it gets 114 and changes nothing.
struct Reentry {
    CApi* C;
    qz_state* Q;
    std::vector<int> Codes;
};

void ReenterFromInput(void* context, const char*, size_t, double* value) {
    Reentry& r = *static_cast<Reentry*>(context);
    r.Codes.push_back(r.C->qz_load(r.Q, "PROG P MAIN RET", 15));
    r.Codes.push_back(r.C->qz_load_source(r.Q, "PROG P MAIN RET", 15));
    r.Codes.push_back(r.C->qz_run(r.Q, nullptr, nullptr, nullptr));
    r.Codes.push_back(r.C->qz_recover(r.Q));
    r.C->qz_close(r.Q);
    *value = 4;
}

TEST_F(CInterface, CallbacksCannotPullTheCycleFromUnderItself) {
    ASSERT_EQ(c.qz_load(Q, kDivider.data(), kDivider.size()), QZ_rcOK);
    Reentry r{&c, Q, {}};
    ASSERT_EQ(c.qz_run(Q, ReenterFromInput, nullptr, &r), QZ_rcOK);
    EXPECT_EQ(r.Codes, (std::vector<int>{QZ_rcInCycle, QZ_rcInCycle, QZ_rcInCycle, QZ_rcInCycle}));
    double result = 0;
    ASSERT_EQ(c.qz_get_variable(Q, "RESULT", 6, &result, nullptr), QZ_rcOK) << "the handle is still open";
    EXPECT_EQ(result, 25.0);
    ASSERT_EQ(c.qz_run(Q, nullptr, nullptr, nullptr), QZ_rcDivisionByZero) << "and runs again afterwards";
}

}  // namespace
