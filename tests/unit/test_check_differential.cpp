// Every error the checker reports is what running the program reports: for
// each kind, a program that reaches it runs through the interpreter, and the
// result code and the token where it stopped must be the checker's.
#include "qz_check.h"
#include "qz_st_intrpr_main.h"
#include "qz_source.h"
#include "recording_host.h"

#include <gtest/gtest.h>

namespace {

struct Case {
    const char* Name;
    const char* Text;
    uint32_t Code;
};

// Each text has exactly one error, and running it from MAIN reaches it in
// the first cycle.
const Case kCases[] = {
    {"misspelt instruction", "PROG P VAR MAIN MOVE 1 R0 RET", 14},
    {"lower-case instruction", "PROG P VAR MAIN mov 1 R0 RET", 14},
    {"extra operand", "PROG P VAR MAIN MOV 1 R0 R1 RET", 14},
    {"declaration word in a body", "PROG P VAR MAIN BODY RET", 14},
    {"MOV source kind", "PROG P VAR MAIN MOV PUSH R0 RET", 43},
    {"MOV destination kind", "PROG P VAR MAIN MOV 1 POP RET", 43},
    {"MOV missing operand", "PROG P VAR MAIN MOV 1 RET RET", 43},
    {"MOVA source kind", "PROG P VAR X V DINT 0 MAIN MOVA 5 @X RET", 43},
    {"MOVA reference source", "PROG P VAR X V DINT 0 MAIN MOVA ^X R0 RET", 43},
    {"MOVA destination kind", "PROG P VAR X V DINT 0 MAIN MOVA @X PUSH RET", 43},
    {"MOVA NIL source", "PROG P VAR X V DINT 0 MAIN MOVA NIL @X RET", 27},
    {"arithmetic register", "PROG P VAR X V DINT 0 MAIN ADD 1 @X RET", 44},
    {"arithmetic source", "PROG P VAR MAIN SUB PUSH R0 RET", 44},
    {"arithmetic TICK", "PROG P VAR MAIN MUL TICK R0 RET", 44},
    {"compare register", "PROG P VAR MAIN EQ 1 2 RET", 46},
    {"boolean literal", "PROG P VAR MAIN AND 1 R0 RET", 47},
    {"boolean variable type", "PROG P VAR X V DINT 0 MAIN OR @X R0 RET", 47},
    {"boolean register", "PROG P VAR X V BOOL 0 MAIN XOR @X PUSH RET", 47},
    {"bits register", "PROG P VAR MAIN BAND 1 5 RET", 49},
    {"bit not", "PROG P VAR MAIN BNOT 5 RET", 53},
    {"shift", "PROG P VAR MAIN SHL 1 POP RET", 54},
    {"test", "PROG P VAR MAIN TST 1 RET", 59},
    {"test NIL", "PROG P VAR MAIN TST NIL RET", 27},
    {"jump operand", "PROG P VAR MAIN JMP @X RET", 60},
    {"jump to a label with its colon", "PROG P VAR MAIN L: JMP L: RET", 60},
    {"NOT operand", "PROG P VAR MAIN NOT 1 RET", 61},
    {"NG operand", "PROG P VAR MAIN NG @X RET", 61},
    {"POW operand", "PROG P VAR MAIN POW 2 TICK RET", 62},
    {"NIL read", "PROG P VAR MAIN ADD NIL R0 RET", 27},
    {"undeclared variable", "PROG P VAR X V DINT 0 MAIN MOV @Y R0 RET", 23},
    {"undeclared destination", "PROG P VAR MAIN MOV 1 @Y RET", 23},
    {"reference to an undeclared variable", "PROG P VAR MAIN MOV ^Q R0 RET", 23},
    {"program variable in a subprogram", "PROG P VAR X V DINT 0 MAIN CAL S RET S: BODY MOV @X R0 RET RET", 23},
    {"local outside its subprogram", "PROG P VAR MAIN MOV @L R0 CAL S RET S: L V DINT 0 BODY RET RET", 23},
    {"no variables without VAR", "PROG P MAIN MOV @X R0 RET", 23},
    {"jump to no label", "PROG P VAR MAIN JMP NOWHERE RET", 22},
    {"conditional jump to no label", "PROG P VAR MAIN JMPF NOWHERE RET", 22},
    {"call of no label", "PROG P VAR MAIN CAL NOWHERE RET", 22},
    {"call of MAIN", "PROG P VAR MAIN CAL MAIN RET", 21},
    {"unknown built-in", "PROG P VAR MAIN EXEC SINE RET", 13},
    {"local kind", "PROG P VAR MAIN CAL S RET S: X VI DINT 0 BODY RET RET", 30},
    {"local type", "PROG P VAR MAIN CAL S RET S: X V STRING 0 BODY RET RET", 31},
    {"local number", "PROG P VAR MAIN CAL S RET S: X V DINT BODY RET RET", 32},
    {"local misspelt kind", "PROG P VAR MAIN CAL S RET S: X VV DINT 0 BODY RET RET", 30},
    {"declaration kind", "PROG P VAR X VA DINT 0 MAIN RET", 30},
    {"declaration type", "PROG P VAR X V ARRAY 0 MAIN RET", 31},
    {"declaration number", "PROG P VAR X V DINT Y MAIN RET", 32},
    {"TVR numbers", "PROG P VAR X TVR REAL 1 2 3 MAIN RET", 32},
    {"neither VAR nor MAIN", "PROG P X V DINT 0 MAIN RET", 20},
    {"empty text", "", 19},
    {"no PROG", "MAIN RET", 6},
    {"no final RET", "PROG P VAR MAIN MOV 1 R0", 6},
    {"bad number", "PROG P VAR MAIN MOV 16#G R0 RET", 34},
    {"bad octal", "PROG P VAR MAIN MOV 8#9 R0 RET", 35},
    {"bad binary", "PROG P VAR MAIN MOV 2#3 R0 RET", 36},
    {"bad base", "PROG P VAR MAIN MOV 3#1 R0 RET", 33},
    {"sign alone", "PROG P VAR MAIN MOV - R0 RET", 33},
    {"variable name", "PROG P VAR MAIN MOV @1 R0 RET", 39},
    {"stray separator", "PROG P VAR MAIN MOV 1 R0 ! RET", 9},
    {"hash keyword", "PROG P VAR MAIN #FOO 1 R0 RET", 41},
    {"dollar keyword", "PROG P VAR MAIN $FOO 1 R0 RET", 42},
    {"star keyword", "PROG P VAR MAIN *FOO 1 R0 RET", 63},
    {"scan error without VAR", "PROG P MAIN MOV 16#G R0 RET", 34},
    {"operand error without VAR", "PROG P MAIN MOV 1 POP RET", 43},
    {"program name at the end", "PROG P", 6},
    {"falling into locals", "PROG P VAR MAIN MOV 1 R0 S: X V DINT 0 BODY RET RET", 14},
    {"falling into BODY", "PROG P VAR MAIN MOV 1 R0 S: BODY RET RET", 14},
    {"falling from a subprogram", "PROG P VAR MAIN CAL S RET S: BODY MOV 1 R0 T: X V DINT 0 BODY RET RET", 14},
    {"non-ASCII names keep their offsets", "PROG Ü VAR СЧЕТ V DINT 0 MAIN MOV 1 @СЧЁТ RET", 23},
};

struct Outcome {
    uint32_t Code = 0;
    int32_t TokenStart = -1;
};

Outcome RunProgram(const std::string& text) {
    CQZ_STInterpretator machine;
    Outcome run;
    run.Code = machine.InitInterpretator(text);
    if (run.Code == 0) {
        QZSetInstructionBudget(&machine, 1000);
        RecordingHost host;
        run.Code = machine.Execute(&host);
    }
    QZScanPosition position{};
    QZGetScanPosition(&machine, &position);
    run.TokenStart = position.TokenStart;
    return run;
}

class CheckerAgrees : public ::testing::TestWithParam<Case> {};

TEST_P(CheckerAgrees, SameCodeAtTheSameToken) {
    const Case& c = GetParam();
    const qz::check::Model model = qz::check::Analyse(c.Text);
    std::vector<qz::check::Diagnostic> errors;
    for (const auto& d : model.Diagnostics)
        if (d.Level == qz::check::Severity::Error) errors.push_back(d);
    ASSERT_EQ(errors.size(), 1u) << c.Text;
    const Outcome run = RunProgram(c.Text);
    EXPECT_EQ(run.Code, c.Code) << c.Text;
    EXPECT_EQ(errors[0].Code, run.Code) << c.Text;
    EXPECT_EQ(errors[0].Id, std::to_string(run.Code));
    // At the end of the text the scanner's position tells nothing more.
    // A target that is no label is shown at the operand; the note names the
    // place where running stops.
    if (run.Code == Qz::rcNoLabelToken) {
        EXPECT_NE(errors[0].Note.find("1:" + std::to_string(run.TokenStart + 1)), std::string::npos) << errors[0].Note;
    } else if (run.Code != Qz::rcEndOfText && run.Code != Qz::rcEmptyText) {
        EXPECT_EQ(errors[0].Where.Begin, size_t(run.TokenStart)) << c.Text;
    }
}

INSTANTIATE_TEST_SUITE_P(EveryErrorKind, CheckerAgrees, ::testing::ValuesIn(kCases),
                         [](const ::testing::TestParamInfo<Case>& info) {
                             std::string name;
                             for (const char* p = info.param.Name; *p; ++p)
                                 name += std::isalnum(static_cast<unsigned char>(*p)) ? *p : '_';
                             return name;
                         });

// Unclosed comments are refused before any reading, as the runner refuses them.
TEST(CheckerText, UnclosedCommentIsAnErrorOfItsOwn) {
    const qz::check::Model model = qz::check::Analyse("PROG P VAR MAIN (* RET");
    ASSERT_EQ(model.Diagnostics.size(), 1u);
    EXPECT_EQ(model.Diagnostics[0].Id, "comment");
    EXPECT_EQ(model.Diagnostics[0].Where.Begin, 16u);
}

// Comments are blanked in place: ranges are those of the file.
TEST(CheckerText, CommentsKeepOffsets) {
    const std::string text = "(* über *) PROG P VAR\n(* x *) MAIN MOV @Y R0 RET";
    const qz::check::Model model = qz::check::Analyse(text);
    ASSERT_EQ(model.Diagnostics.size(), 1u);
    EXPECT_EQ(text.substr(model.Diagnostics[0].Where.Begin, 2), "@Y");
}

}  // namespace

namespace {

bool Warns(const std::string& text, const std::string& id) {
    for (const auto& d : qz::check::Analyse(text).Diagnostics)
        if (d.Level == qz::check::Severity::Warning && d.Id == id) return true;
    return false;
}

// What a warning says happens, happens when the program runs.
TEST(CheckerWarnings, ForwardJumpWithoutVarFailsWith22) {
    const std::string text = "PROG P MAIN JMP LATER LATER: RET";
    EXPECT_TRUE(Warns(text, "forward-jump-no-var"));
    EXPECT_EQ(RunProgram(text).Code, 22u);
    EXPECT_FALSE(Warns("PROG P VAR MAIN JMP LATER LATER: RET", "forward-jump-no-var"));
    EXPECT_EQ(RunProgram("PROG P VAR MAIN JMP LATER LATER: RET").Code, 0u);
}

TEST(CheckerWarnings, RetAtEndLeavesTheCallOpen) {
    const std::string text = "PROG P VAR OUT VO DINT 0 MAIN CAL S MOV R0 @OUT RET S: BODY MOV 1 R0 RET";
    EXPECT_TRUE(Warns(text, "ret-at-end"));
    EXPECT_EQ(RunProgram(text).Code, 23u);
    EXPECT_FALSE(Warns(text + " RET", "ret-at-end"));
    EXPECT_EQ(RunProgram(text + " RET").Code, 0u);
}

TEST(CheckerWarnings, StackGrowthReachesTheStackLimit) {
    const std::string text = "PROG P VAR MAIN L: MOV 1 PUSH JMP L RET";
    EXPECT_TRUE(Warns(text, "stack-growth"));
    CQZ_STInterpretator machine;
    ASSERT_EQ(machine.InitInterpretator(text), 0u);
    QZSetStackLimit(&machine, 100);
    RecordingHost host;
    EXPECT_EQ(machine.Execute(&host), uint32_t(Qz::rcStackLimit));
}

TEST(CheckerWarnings, StackUnderflowFailsWith11) {
    const std::string text = "PROG P VAR MAIN MOV POP R0 RET";
    EXPECT_TRUE(Warns(text, "stack-underflow"));
    EXPECT_EQ(RunProgram(text).Code, 11u);
    EXPECT_FALSE(Warns("PROG P VAR MAIN MOV 1 PUSH MOV POP R0 RET", "stack-underflow"));
}

TEST(CheckerWarnings, LiteralRangeWraps) {
    const std::string text = "PROG P VAR SMALL VO USINT 0 MAIN MOV 300 @SMALL RET";
    const qz::check::Model model = qz::check::Analyse(text);
    ASSERT_EQ(model.Diagnostics.size(), 1u);
    EXPECT_EQ(model.Diagnostics[0].Id, "literal-range");
    EXPECT_EQ(model.Diagnostics[0].Note, "300 stored as USINT is 44");
    CQZ_STInterpretator machine;
    ASSERT_EQ(machine.InitInterpretator(text), 0u);
    RecordingHost host;
    ASSERT_EQ(machine.Execute(&host), 0u);
    ASSERT_EQ(host.Calls.size(), 1u);
    EXPECT_EQ(host.Calls[0].Value, 44.0);
}

}  // namespace
