// Where the trace hook says each instruction stands: InstructionStart is the
// offset of the keyword and InstructionEnd one past its last operand, so
// text.substr(start, end - start) is exactly the instruction as written,
// whatever the instruction did: jumped or fell through, called, failed.
//
// Every row is one program body; every traced instruction is compared with
// the text it should span, and its result code with the expected one. Each
// program runs for several cycles, so that the later ones run what the first
// remembered, and once more with the machine on its plain path.
#include "qz_st_intrpr_main.h"
#include "recording_host.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

namespace {

using qz_st_interpretator::IQZSTInterpretator;

struct Step {
    std::string Text;     // the instruction as written in the body
    uint32_t Result = 0;  // its result code in the trace
};

struct Row {
    std::string Name;         // for the test's name: letters, digits and '_'
    std::string Body;         // between MAIN and its RET
    std::string Subprograms;  // after MAIN's RET, before the final RET
    std::vector<Step> Trace;  // every instruction one cycle runs, in order
    uint32_t Result = 0;      // of each cycle
};

// The program every row runs in. X, Y, B and C are reset every cycle, P, Q
// and PB hold references made by the body, OUT goes to the host.
std::string ProgramText(const Row& row) {
    return "PROG TRACE VAR X V DINT 7 Y V REAL 2.5 B V BOOL 1 C V BOOL 0 P V DINT 0 Q V DINT 0 "
           "PB V BOOL 0 OUT VO DINT 0 MAIN " +
           row.Body + " RET " + row.Subprograms + " RET";
}

// A body that runs straight through: the trace is the body itself.
Row Straight(const std::string& name, const std::vector<std::string>& instructions, uint32_t lastResult = 0) {
    Row row;
    row.Name = name;
    for (const std::string& instruction : instructions) {
        if (!row.Body.empty()) row.Body += ' ';
        row.Body += instruction;
        row.Trace.push_back(Step{instruction, 0});
    }
    row.Trace.back().Result = lastResult;
    row.Result = lastResult;
    return row;
}

std::vector<Step> Steps(const std::vector<std::string>& instructions) {
    std::vector<Step> steps;
    for (const std::string& instruction : instructions) steps.push_back(Step{instruction, 0});
    return steps;
}

// A body whose last instruction fails at one of its operands: the span ends
// with the operand it failed at (`read`), and what follows it (`unread`) is
// not part of it.
Row Stopped(const std::string& name, std::vector<std::string> before, const std::string& read,
            const std::string& unread, uint32_t result) {
    before.push_back(read);
    Row row = Straight(name, before, result);
    row.Body += unread;
    return row;
}

// Every two-operand instruction with every kind of source it reads: a
// number, a variable, a reference, a register and the stack. The logic
// instructions take BOOL values; a literal is never one, so they refuse it.
void AddTwoOperandRows(std::vector<Row>& rows) {
    struct Family {
        std::vector<const char*> Keywords;
        std::vector<std::string> Setup;  // P refers to the variable; R0 and R1 hold values
        const char* Variable;
        const char* Reference;
        const char* Push;  // what POP will take
        uint32_t NumberResult;
    };
    const std::vector<std::string> integers = {"MOVA @X @P", "MOV 3 R1", "MOV 5 R0"};
    const std::vector<std::string> booleans = {"MOVA @B @PB", "MOV @C R1", "MOV @B R0"};
    const Family families[] = {
        {{"ADD", "SUB", "MUL", "DIV", "MOD"}, integers, "@X", "^P", "MOV 2 PUSH", 0},
        {{"NE", "EQ", "GT", "GE", "LT", "LE"}, integers, "@X", "^P", "MOV 2 PUSH", 0},
        {{"OR", "XOR", "AND"}, booleans, "@B", "^PB", "MOV @B PUSH", 47},
        {{"BOR", "BXOR", "BAND"}, integers, "@X", "^P", "MOV 2 PUSH", 0},
        {{"SHL", "SHR", "ROL", "ROR"}, integers, "@X", "^P", "MOV 2 PUSH", 0},
        {{"POW"}, integers, "@X", "^P", "MOV 2 PUSH", 0},
    };
    for (const Family& family : families) {
        for (const char* keyword : family.Keywords) {
            const std::string k = keyword;
            struct Source {
                const char* Kind;
                std::string Operand;
                uint32_t Result;
            };
            const Source sources[] = {
                {"number", "2", family.NumberResult},
                {"variable", family.Variable, 0},
                {"reference", family.Reference, 0},
                {"register", "R1", 0},
                {"stack", "POP", 0},
            };
            for (const Source& source : sources) {
                std::vector<std::string> instructions = family.Setup;
                if (source.Operand == "POP") instructions.push_back(family.Push);
                const std::string name = k + "_from_" + source.Kind;
                // A logic instruction refuses a number as soon as it has read it.
                if (source.Result != 0)
                    rows.push_back(Stopped(name, instructions, k + " " + source.Operand, " R0", source.Result));
                else {
                    instructions.push_back(k + " " + source.Operand + " R0");
                    rows.push_back(Straight(name, instructions));
                }
            }
        }
    }
}

std::vector<Row> Rows() {
    std::vector<Row> rows = {
        // ---- MOV: every source, every destination ----
        Straight("MOV_numbers",
                 {"MOV 5 R0", "MOV -5 R1", "MOV +3 A0", "MOV 16#FF R0", "MOV -16#80 R1", "MOV 8#17 R0",
                  "MOV 2#1010 R1", "MOV 2.5E-3 R0", "MOV 12. R1", "MOV 1.5e3 A0", "MOV 3000000000 R0"}),
        Straight("MOV_variables", {"MOV @X R0", "MOV @x R1", "MOV R0 @Y", "MOV @Y @X", "MOV 9 @OUT", "MOV @OUT A0"}),
        Straight("MOV_registers", {"MOV 1 A0", "MOV A0 R0", "MOV R0 R1", "MOV R1 A0", "MOV R0 NIL"}),
        Straight("MOV_stack", {"MOV 1 PUSH", "MOV @X PUSH", "MOV R0 PUSH", "MOV POP R1", "MOV POP @X", "MOV POP NIL"}),
        Straight("MOV_tick", {"MOV TICK R0", "MOV TICK @X", "MOV 100 TICK", "MOV @X TICK", "MOV TICK PUSH",
                              "MOV POP NIL"}),
        Straight("MOV_references", {"MOVA @X @P", "MOV ^P R0", "MOV 9 ^P", "MOV ^P ^P", "MOV ^P PUSH", "MOV POP ^P"}),
        Straight("MOV_with_wide_gaps", {"MOV     5   R0", "MOV  @X      @Y", "ADD   1  R0"}),
        Straight("MOV_prefixed_keywords", {"#mov 1 #r0", "$mov 2 R1", "*MOV R1 A0", "#Add #R0 R1"}),
        // A failing instruction's span ends with the operand it failed at.
        Stopped("MOV_from_an_empty_stack", {}, "MOV POP", " R0", 11),
        Stopped("MOV_from_an_unknown_variable", {}, "MOV @NOPE", " R0", 23),
        Stopped("MOV_through_a_dead_reference", {"MOV 12345 @P"}, "MOV ^P", " R0", 23),
        Straight("MOV_to_a_number", {"MOV 1 2"}, 43),
        Straight("MOV_to_an_unknown_variable", {"MOV 1 @NOPE"}, 23),

        // ---- MOVA: variables and registers on both sides ----
        Straight("MOVA_forms", {"MOVA @X @P", "MOVA @X R0", "MOVA R0 @Q", "MOVA R0 R1", "MOVA A0 NIL", "MOVA @Y A0",
                                "MOV ^Q R0"}),
        Stopped("MOVA_of_a_number", {}, "MOVA 5", " R0", 43),

        // ---- One-register instructions ----
        Straight("TST_every_register", {"MOV 1 R0", "TST R0", "TST R1", "TST A0"}),
        Straight("NOT_BNOT_NG", {"MOV @B R0", "NOT R0", "MOV @X R1", "BNOT R1", "NG R1", "MOV 2 A0", "NG A0"}),
        Straight("Two_operands_into_every_register", {"MOV 1 A0", "ADD 1 A0", "SUB @X R1", "EQ A0 R0", "POW R0 A0"}),
        Straight("ADD_into_a_variable", {"ADD 1 @X"}, 44),
        Stopped("ADD_from_the_tick", {}, "ADD TICK", " R0", 44),
        Straight("TST_of_a_number", {"TST 5"}, 59),
        Straight("NOT_of_a_number_register", {"MOV 5 R0", "NOT R0"}, 48),
        Straight("NG_of_a_variable", {"NG @X"}, 61),
        Straight("DIV_by_zero", {"MOV 0 R0", "DIV 4 R0"}, 15),
        Straight("MOD_of_a_real", {"MOV 2 R0", "MOD @Y R0"}, 45),

        // ---- EXEC ----
        Straight("EXEC_forms", {"MOV 2 PUSH", "EXEC SQRT", "MOV 2 PUSH", "MOV 10 PUSH", "EXEC pow", "MOV @Y PUSH",
                                "EXEC Round", "EXEC COS"}),
        Straight("EXEC_of_an_unknown_name", {"EXEC NOPE"}, 13),
    };

    // ---- Jumps: taken and not taken, forward and back ----
    rows.push_back(Row{"JMP_forward", "JMP L1 MOV 1 R0 L1: MOV 2 R0", "", Steps({"JMP L1", "MOV 2 R0"}), 0});
    rows.push_back(Row{"JMPF_taken", "MOV 0 R0 TST R0 JMPF L1 MOV 1 R1 L1: MOV 2 R1", "",
                       Steps({"MOV 0 R0", "TST R0", "JMPF L1", "MOV 2 R1"}), 0});
    rows.push_back(Row{"JMPF_not_taken", "MOV 1 R0 TST R0 JMPF L1 MOV 1 R1 L1: MOV 2 R1", "",
                       Steps({"MOV 1 R0", "TST R0", "JMPF L1", "MOV 1 R1", "MOV 2 R1"}), 0});
    rows.push_back(Row{"JMPT_taken", "MOV 1 R0 TST R0 JMPT L1 MOV 1 R1 L1: MOV 2 R1", "",
                       Steps({"MOV 1 R0", "TST R0", "JMPT L1", "MOV 2 R1"}), 0});
    rows.push_back(Row{"JMPT_not_taken", "MOV 0 R0 TST R0 JMPT L1 MOV 1 R1 L1: MOV 2 R1", "",
                       Steps({"MOV 0 R0", "TST R0", "JMPT L1", "MOV 1 R1", "MOV 2 R1"}), 0});
    rows.push_back(Row{"JMPF_not_taken_to_a_missing_label", "MOV 1 R0 TST R0 JMPF NOWHERE MOV 2 R1", "",
                       Steps({"MOV 1 R0", "TST R0", "JMPF NOWHERE", "MOV 2 R1"}), 0});
    rows.push_back(Row{"JMP_with_wide_gaps", "JMP     FAR   MOV 1 R0 FAR:   MOV 2 R0", "",
                       Steps({"JMP     FAR", "MOV 2 R0"}), 0});
    rows.push_back(Row{"JMP_to_the_end_of_the_body", "JMP DONE MOV 1 R0 DONE:", "", Steps({"JMP DONE"}), 0});
    rows.push_back(Row{"JMP_prefixed", "#jmp L1 MOV 1 R0 L1: MOV 0 R1 TST R1 $jmpf L2 MOV 1 R1 L2:", "",
                       Steps({"#jmp L1", "MOV 0 R1", "TST R1", "$jmpf L2"}), 0});
    {
        // Three times round a loop that jumps back while R1 < 3.
        Row loop{"JMPT_backwards", "MOV 0 R1 LOOP: ADD 1 R1 MOV 3 R0 LT R1 R0 TST R0 JMPT LOOP", "", {}, 0};
        loop.Trace = Steps({"MOV 0 R1"});
        for (int i = 0; i < 3; ++i)
            for (const char* s : {"ADD 1 R1", "MOV 3 R0", "LT R1 R0", "TST R0", "JMPT LOOP"})
                loop.Trace.push_back(Step{s, 0});
        rows.push_back(loop);
    }
    rows.push_back(Row{"JMP_to_a_missing_label", "MOV 1 R0 JMP NOWHERE", "",
                       {{"MOV 1 R0", 0}, {"JMP NOWHERE", 22}}, 22});
    rows.push_back(Row{"JMP_to_a_number", "JMP 5", "", {{"JMP 5", 60}}, 60});
    rows.push_back(Row{"JMP_to_a_variable", "JMP @X", "", {{"JMP @X", 60}}, 60});

    // ---- Calls ----
    rows.push_back(Row{"CAL_without_locals", "CAL SUBR MOV 2 R1", "SUBR: BODY MOV 1 R0 RET",
                       Steps({"CAL SUBR", "MOV 1 R0", "MOV 2 R1"}), 0});
    rows.push_back(Row{"CAL_with_locals_and_arguments", "MOV 5 PUSH CAL SQ MOV R0 @OUT",
                       "SQ: N V DINT 0 K V REAL 1.5 BODY MOV POP @N MOV @N R0 MUL @N R0 RET",
                       Steps({"MOV 5 PUSH", "CAL SQ", "MOV POP @N", "MOV @N R0", "MUL @N R0", "MOV R0 @OUT"}), 0});
    rows.push_back(Row{"CAL_nested", "CAL OUTER MOV 3 R0", "OUTER: BODY MOV 1 R0 CAL INNER MOV 2 R0 RET INNER: BODY "
                       "MOV 4 R1 RET",
                       Steps({"CAL OUTER", "MOV 1 R0", "CAL INNER", "MOV 4 R1", "MOV 2 R0", "MOV 3 R0"}), 0});
    {
        // Calls itself while R1 < 3, then returns three times.
        Row recursion{"CAL_recursive", "MOV 0 R1 CAL REC MOV 9 R0",
                      "REC: D V DINT 0 BODY ADD 1 R1 MOV 3 R0 LT R1 R0 TST R0 JMPF REC_END CAL REC REC_END: RET",
                      Steps({"MOV 0 R1"}),
                      0};
        for (int depth = 1; depth <= 3; ++depth) {
            recursion.Trace.push_back(Step{"CAL REC", 0});
            for (const char* s : {"ADD 1 R1", "MOV 3 R0", "LT R1 R0", "TST R0"}) recursion.Trace.push_back(Step{s, 0});
            recursion.Trace.push_back(Step{"JMPF REC_END", 0});  // falls through twice, then jumps
        }
        recursion.Trace.push_back(Step{"MOV 9 R0", 0});
        rows.push_back(recursion);
    }
    rows.push_back(Row{"CAL_with_wide_gaps", "CAL     SUBR  ", "SUBR: BODY MOV   1   R0 RET",
                       Steps({"CAL     SUBR", "MOV   1   R0"}), 0});
    rows.push_back(Row{"CAL_prefixed", "#cal SUBR", "SUBR: BODY RET", Steps({"#cal SUBR"}), 0});
    rows.push_back(Row{"CAL_of_a_missing_label", "CAL NOWHERE", "", {{"CAL NOWHERE", 22}}, 22});
    rows.push_back(Row{"CAL_references_into_a_subprogram", "MOVA @X R0 MOV R0 PUSH CAL REF MOV @X @OUT",
                       "REF: T VR DINT 0 L VA DINT 0 BODY MOV POP R0 MOVA R0 @T MOV ^T R1 MOV 8 ^T MOVA @T R0 "
                       "MOVA @L @L RET",
                       Steps({"MOVA @X R0", "MOV R0 PUSH", "CAL REF", "MOV POP R0", "MOVA R0 @T", "MOV ^T R1",
                              "MOV 8 ^T", "MOVA @T R0", "MOVA @L @L", "MOV @X @OUT"}),
                       0});

    AddTwoOperandRows(rows);
    return rows;
}

enum class Path { Default, Plain };

struct Case {
    Row R;
    Path P;
};

std::vector<Case> Cases() {
    std::vector<Case> cases;
    for (const Row& row : Rows())
        for (Path path : {Path::Default, Path::Plain}) cases.push_back(Case{row, path});
    return cases;
}

std::string CaseName(const ::testing::TestParamInfo<Case>& info) {
    return info.param.R.Name + (info.param.P == Path::Plain ? "_plain" : "");
}

// The body and subprograms only: the declarations are the same for every row.
void PrintTo(const Case& c, std::ostream* os) {
    *os << c.R.Body;
    if (!c.R.Subprograms.empty()) *os << " RET " << c.R.Subprograms;
}

struct Recorder {
    std::vector<QZTraceEvent> Events;
    static void Hook(void* context, const QZTraceEvent* event) {
        static_cast<Recorder*>(context)->Events.push_back(*event);
    }
};

uint32_t Clock(void* context) { return *static_cast<uint32_t*>(context) += 7; }

struct ObjectDeleter {
    void operator()(IQZSTInterpretator* o) const { o->Destroy(); }
};

class TracePositions : public ::testing::TestWithParam<Case> {};

TEST_P(TracePositions, EachInstructionSpansItsOwnText) {
    const Row& row = GetParam().R;
    const std::string text = ProgramText(row);
    std::unique_ptr<IQZSTInterpretator, ObjectDeleter> object(Create());
    static_cast<CQZ_STInterpretator*>(object.get())->PlainPath = GetParam().P == Path::Plain;
    uint32_t now = 1000;
    QZSetClock(object.get(), &Clock, &now);
    Recorder recorder;
    QZSetTraceHook(object.get(), &Recorder::Hook, &recorder);
    ASSERT_EQ(object->InitInterpretator(text), 0u);

    for (int cycle = 1; cycle <= 3; ++cycle) {
        SCOPED_TRACE("cycle " + std::to_string(cycle));
        recorder.Events.clear();
        RecordingHost host;
        EXPECT_EQ(object->Execute(&host), row.Result);
        ASSERT_EQ(recorder.Events.size(), row.Trace.size());
        for (size_t i = 0; i < row.Trace.size(); ++i) {
            const QZTraceEvent& event = recorder.Events[i];
            ASSERT_GE(event.InstructionStart, 0) << i;
            ASSERT_LE(event.InstructionStart, event.InstructionEnd) << i;
            ASSERT_LE(size_t(event.InstructionEnd), text.size()) << i;
            EXPECT_EQ(text.substr(event.InstructionStart, event.InstructionEnd - event.InstructionStart),
                      row.Trace[i].Text)
                << "instruction " << i;
            EXPECT_EQ(event.Result, row.Trace[i].Result) << "instruction " << i;
        }
    }
}

INSTANTIATE_TEST_SUITE_P(Forms, TracePositions, ::testing::ValuesIn(Cases()), CaseName);

// The offsets themselves, for a subprogram that runs from two call sites:
// the body's instructions report the same spans on each entry.
TEST(TracePositionsTable, RecursionStartsAreTheCallAndItsBodyEachTime) {
    const std::string text =
        "PROG T VAR MAIN MOV 0 R1 CAL REC RET REC: BODY ADD 1 R1 MOV 2 R0 LT R1 R0 TST R0 JMPF E CAL REC E: RET RET";
    for (bool plain : {false, true}) {
        std::unique_ptr<IQZSTInterpretator, ObjectDeleter> object(Create());
        static_cast<CQZ_STInterpretator*>(object.get())->PlainPath = plain;
        Recorder recorder;
        QZSetTraceHook(object.get(), &Recorder::Hook, &recorder);
        ASSERT_EQ(object->InitInterpretator(text), 0u);
        for (int cycle = 0; cycle < 2; ++cycle) {
            recorder.Events.clear();
            RecordingHost host;
            ASSERT_EQ(object->Execute(&host), 0u);
            const int32_t mov = int32_t(text.find("MOV 0 R1"));
            const int32_t cal = int32_t(text.find("CAL REC"));
            const int32_t add = int32_t(text.find("ADD 1 R1"));
            const int32_t jmpf = int32_t(text.find("JMPF E"));
            const int32_t inner = int32_t(text.find("CAL REC", jmpf));
            // MOV, CAL, then the body twice (R1 = 1 calls again, R1 = 2 does not).
            const std::vector<std::pair<int32_t, int32_t>> expected = {
                {mov, mov + 8},         {cal, cal + 7},
                {add, add + 8},         {add + 9, add + 17}, {add + 18, add + 26}, {add + 27, add + 33},
                {jmpf, jmpf + 6},       {inner, inner + 7},
                {add, add + 8},         {add + 9, add + 17}, {add + 18, add + 26}, {add + 27, add + 33},
                {jmpf, jmpf + 6},
            };
            ASSERT_EQ(recorder.Events.size(), expected.size()) << plain;
            for (size_t i = 0; i < expected.size(); ++i) {
                EXPECT_EQ(recorder.Events[i].InstructionStart, expected[i].first) << plain << " " << i;
                EXPECT_EQ(recorder.Events[i].InstructionEnd, expected[i].second) << plain << " " << i;
            }
        }
    }
}

}  // namespace
