// Every specialised instruction of the compiled core against the plain path.
// Each test builds its programs from tables: the operations, the kinds of
// source and destination operand, the nine variable types and values at
// the edges of their ranges. Every program is a short one-line text and runs
// through both paths under several budgets (unlimited for programs that
// surely end, 1..7 to stop inside fused runs, 2000); differential.h compares
// everything after the load and after every cycle.
//
// Everything is deterministic: values and types rotate through their tables
// by the program's index, and the few random choices use fixed seeds.
#include "differential.h"
#include "qz_compiled.h"

#include <gtest/gtest.h>

#include <QHash>
#include <QString>

#include <chrono>
#include <cstdio>
#include <map>
#include <random>
#include <string>
#include <vector>

namespace {

// ---- Tables ----

const char* const kTypes[] = {"BOOL", "SINT", "USINT", "INT", "UINT", "DINT", "UDINT", "REAL", "LREAL"};
constexpr size_t kTypeCount = sizeof kTypes / sizeof kTypes[0];

// A value a variable holds when an instruction reads it: written in its
// declaration, made by NG of a 0 at the top of MAIN (-0.0), or served by
// the host to an input (qzdiff::Host serves NaN, 1e10 and -0.0 among others).
enum class Origin { Declared, Negated, Input };
struct EdgeValue {
    const char* Written;  // in the declaration
    Origin From;
    int HostIndex;  // Input: which of qzdiff::Host's values it gets in the first cycle
};
const EdgeValue kEdges[] = {
    {"0", Origin::Declared, 0},           {"0", Origin::Negated, 0},
    {"1", Origin::Declared, 0},           {"-1", Origin::Declared, 0},
    {"127", Origin::Declared, 0},         {"128", Origin::Declared, 0},
    {"255", Origin::Declared, 0},         {"256", Origin::Declared, 0},
    {"32767", Origin::Declared, 0},       {"65535", Origin::Declared, 0},
    {"2147483647", Origin::Declared, 0},  {"-2147483648", Origin::Declared, 0},
    {"4294967295", Origin::Declared, 0},  {"1.5", Origin::Declared, 0},
    {"-2.5", Origin::Declared, 0},        {"1.0E39", Origin::Declared, 0},
    {"0", Origin::Input, 8 /* NaN */},    {"0", Origin::Input, 7 /* 1e10 */},
    {"0", Origin::Input, 6 /* -0.0 */},
};
constexpr size_t kEdgeCount = sizeof kEdges / sizeof kEdges[0];

// Number literals of every literal type and notation.
const char* const kLiterals[] = {"0",          "1",          "-1",          "127",        "128",
                                 "-129",       "255",        "256",         "32767",      "32768",
                                 "-32769",     "65535",      "2147483647",  "-2147483648", "2147483648",
                                 "4294967295", "16#FF",      "16#7FFFFFFF", "16#FFFFFFFF", "-16#80",
                                 "2#1010",     "2#11111111", "8#17",        "8#777",      "0.5",
                                 "1.5",        "-2.5",       "3.",          "1.5E3",      "1.5e-3",
                                 "1.0E39",     "-1.0E39",    "0.0",         "-0.0",       "+3"};
constexpr size_t kLiteralCount = sizeof kLiterals / sizeof kLiterals[0];

const char* const kTwoOperand[] = {"ADD", "SUB", "MUL", "DIV", "MOD", "NE",  "EQ",   "GT",   "GE",  "LT",  "LE",
                                   "POW", "OR",  "XOR", "AND", "BOR", "BXOR", "BAND", "SHL", "SHR", "ROL", "ROR"};
const char* const kComparisons[] = {"NE", "EQ", "GT", "GE", "LT", "LE"};
const char* const kRegisters[] = {"A0", "R0", "R1"};
const char* const kJumps[] = {"JMP", "JMPF", "JMPT"};
const char* const kBuiltins[] = {"SIN",  "COS", "TAN",   "ASIN",  "ACOS",  "ATAN", "EXP",  "LN",  "LOG10", "SQRT",
                                 "FABS", "POW", "CEIL", "FLOOR", "ROUND", "sqrt", "Round", "NOPE", "5",    "@SQRT"};

// ---- Program text helpers ----

// `text` with every {KEY} replaced by its value.
std::string Fill(std::string text, const std::map<std::string, std::string>& values) {
    for (const auto& kv : values) {
        const std::string key = "{" + kv.first + "}";
        for (size_t at = text.find(key); at != std::string::npos; at = text.find(key, at + kv.second.size()))
            text.replace(at, key.size(), kv.second);
    }
    return text;
}

// An input name, starting with `base`, for which qzdiff::Host serves its
// value number `index` in the first cycle (the next cycles get others).
std::string InputName(const std::string& base, int index) {
    for (int k = 0;; ++k) {
        const std::string name = base + "N" + std::to_string(k);
        if (size_t(qHash(QString::fromStdString(name))) % 10 == size_t(index)) return name;
    }
}

// A variable holding an edge value: its name, declaration and the
// instructions that must run first at the top of MAIN.
struct Variable {
    std::string Name, Declaration, Prelude;
};
Variable Declare(const std::string& base, const char* kind, const char* type, const EdgeValue& value) {
    Variable v;
    v.Name = base;
    switch (value.From) {
    case Origin::Input:
        v.Name = InputName(base, value.HostIndex);
        v.Declaration = v.Name + " VI " + type + " 0";
        break;
    case Origin::Negated:
        v.Declaration = base + " " + kind + " " + type + " " + value.Written;
        v.Prelude = "MOV @" + base + " A0 NG A0 MOV A0 @" + base + " ";
        break;
    default: v.Declaration = base + " " + kind + " " + type + " " + value.Written; break;
    }
    return v;
}
const EdgeValue& Edge(size_t i) { return kEdges[i % kEdgeCount]; }
const char* Type(size_t i) { return kTypes[i % kTypeCount]; }

// ---- Comparing ----

qzdiff::Options Opt(int cycles, uint64_t budget) {
    qzdiff::Options o;
    o.Cycles = cycles;
    o.Budget = budget;
    o.Trace = false;  // a trace hook would make both sides read the text
    return o;
}
std::string Describe(const qzdiff::Options& o) {
    return "cycles " + std::to_string(o.Cycles) + ", budget " + std::to_string(o.Budget) +
           (o.Budget == 0 ? " (unlimited)" : "");
}

// Budgets for a program that surely ends: unlimited, a large one, and one of
// 1..7 chosen by the program's index.
std::vector<qzdiff::Options> Ending(size_t index) { return {Opt(3, 0), Opt(3, 2000), Opt(2, 1 + index % 7)}; }
// Every budget from 1 to 7, unlimited and 2000: for fused runs.
std::vector<qzdiff::Options> EveryBudget(int cycles = 3) {
    std::vector<qzdiff::Options> all = {Opt(cycles, 0), Opt(cycles, 2000)};
    for (uint64_t b = 1; b <= 7; ++b) all.push_back(Opt(cycles, b));
    return all;
}

// Runs programs through both paths and counts them; every difference is a
// test failure naming the program, the options and where the paths differ.
class Corpus {
public:
    explicit Corpus(std::string name) : Name(std::move(name)), Started(std::chrono::steady_clock::now()) {}
    ~Corpus() {
        const double seconds =
            std::chrono::duration<double>(std::chrono::steady_clock::now() - Started).count();
        std::printf("[ %s ] %zu programs compared (%zu runs, %.2f s), %zu differences\n", Name.c_str(), Programs,
                    Runs, seconds, Differences);
        EXPECT_EQ(Differences, 0u) << Name << ": the paths differ";
    }

    void Check(const std::string& text, const std::vector<qzdiff::Options>& options) {
        CheckSequence({text}, options);
    }
    void CheckSequence(const std::vector<std::string>& texts, const std::vector<qzdiff::Options>& options) {
        ++Programs;
        for (const qzdiff::Options& o : options) {
            ++Runs;
            const std::string difference = qzdiff::CompareSequence(texts, o);
            if (difference.empty()) continue;
            ++Differences;
            if (Differences <= kShown) {
                std::string shown;
                for (const std::string& t : texts) shown += "\n  " + t;
                ADD_FAILURE() << Name << ": the paths differ\nprogram:" << shown << "\noptions: " << Describe(o)
                              << "\n" << difference;
            }
            break;  // one difference per program is enough to look at
        }
    }

    size_t Count() const { return Programs; }

private:
    static constexpr size_t kShown = 8;
    std::string Name;
    std::chrono::steady_clock::time_point Started;
    size_t Programs = 0, Runs = 0, Differences = 0;
};

// ---- Generators, one per part of the compiled core ----

// Two-operand operations with a variable's value as source, reached as
// @var, ^ref, a register (A0, R1, or the destination R0 itself) or POP.
std::vector<std::string> OperatorSourcePrograms() {
    struct Kind {
        const char* Setup;
        const char* Operand;
    };
    const Kind kinds[] = {{"", "@{S}"},
                          {"MOVA @{S} @P ", "^P"},
                          {"MOV @{S} R1 ", "R1"},
                          {"MOV @{S} A0 ", "A0"},
                          {"MOV @{S} R0 ", "R0"},
                          {"MOV @{S} PUSH ", "POP"}};
    const char* const stores[] = {"MOV R0 @O", "MOV R0 PUSH MOV POP @O", "TST R0 MOV R0 @O"};
    std::vector<std::string> programs;
    size_t i = 0;
    for (const char* op : kTwoOperand)
        for (const Kind& kind : kinds)
            for (size_t t = 0; t < kTypeCount; ++t)
                for (size_t e = 0; e < kEdgeCount; ++e, ++i) {
                    const Variable s = Declare("S", "V", kTypes[t], kEdges[e]);
                    const Variable d = Declare("D", "V", Type(i * 4 + 1), Edge(i * 7 + 3));
                    programs.push_back(Fill(
                        "PROG OPS VAR {SD} {DD} P V {T} 0 O VO LREAL 0 MAIN {PRE}MOV @{D} R0 {SETUP}{OP} {SRC} R0 "
                        "{STORE} RET",
                        {{"SD", s.Declaration}, {"DD", d.Declaration}, {"T", kTypes[t]},
                         {"PRE", s.Prelude + d.Prelude}, {"D", d.Name}, {"SETUP", Fill(kind.Setup, {{"S", s.Name}})},
                         {"OP", op}, {"SRC", Fill(kind.Operand, {{"S", s.Name}})}, {"STORE", stores[i % 3]}}));
                }
    return programs;
}

// Two-operand operations with number literals of every type and notation.
std::vector<std::string> OperatorLiteralPrograms() {
    std::vector<std::string> programs;
    size_t i = 0;
    for (const char* op : kTwoOperand)
        for (const char* literal : kLiterals)
            for (size_t t = 0; t < kTypeCount; ++t, ++i) {
                const Variable d = Declare("D", "V", kTypes[t], Edge(i * 5 + 1));
                const char* reg = kRegisters[i % 3];
                programs.push_back(Fill("PROG LIT VAR {DD} O VO LREAL 0 MAIN {PRE}MOV @{D} {R} {OP} {N} {R} MOV {R} @O RET",
                                        {{"DD", d.Declaration}, {"PRE", d.Prelude}, {"D", d.Name}, {"R", reg},
                                         {"OP", op}, {"N", literal}}));
            }
    return programs;
}

// Two-operand operations with sources and destinations they refuse or that
// fail when read: failure codes and positions must agree.
std::vector<std::string> OperatorWrongOperandPrograms() {
    const char* const sources[] = {"NIL",   "POP", "TICK", "@NOPE", "^S", "^NOPE", "L",  "L:",   "X",
                                   "#R1",   "$r0", "PUSH", "@",     "^",  "MAIN",  "16#", "16#G", "2#2"};
    const char* const destinations[] = {"@S", "5", "NIL", "PUSH", "L", "TICK", "POP", "^S", "1.5", "#R0", "X", "RET"};
    std::vector<std::string> programs;
    size_t i = 0;
    for (const char* op : kTwoOperand) {
        for (const char* source : sources) {
            ++i;
            programs.push_back(Fill("PROG WS VAR S V {T} 3 MAIN MOV @S R0 {OP} {SRC} R0 MOV 1 R1 L: RET",
                                    {{"T", Type(i)}, {"OP", op}, {"SRC", source}}));
        }
        for (const char* dest : destinations) {
            ++i;
            programs.push_back(Fill("PROG WD VAR S V {T} 3 MAIN MOV @S R0 {OP} 1 {DST} MOV 1 R1 L: RET",
                                    {{"T", Type(i)}, {"OP", op}, {"DST", dest}}));
        }
        // The text ends inside the instruction.
        programs.push_back(Fill("PROG WE VAR S V DINT 3 MAIN MOV @S R0 {OP} 1", {{"OP", op}}));
        programs.push_back(Fill("PROG WE VAR S V DINT 3 MAIN MOV @S R0 {OP} @S", {{"OP", op}}));
        programs.push_back(Fill("PROG WE VAR S V DINT 3 MAIN MOV @S R0 {OP} RET", {{"OP", op}}));
    }
    return programs;
}

// Failing forms named one by one.
std::vector<std::string> FailingFormPrograms() {
    std::vector<std::string> programs = {
        // Division by 0 and by a fraction that truncates to 0, for every form of source.
        "PROG F VAR A V DINT 7 Z V REAL 0.5 O VO DINT 0 MAIN MOV 0 R0 DIV @A R0 MOV R0 @O RET",
        "PROG F VAR A V DINT 7 Z V REAL 0.5 O VO DINT 0 MAIN MOV @Z R0 DIV @A R0 MOV R0 @O RET",
        "PROG F VAR A V DINT 7 Z V REAL 0.5 O VO DINT 0 MAIN MOV 0.5 R0 MOD 7 R0 MOV R0 @O RET",
        "PROG F VAR A V DINT 7 Z V REAL 0.5 O VO DINT 0 MAIN MOV 0 R1 MOV 7 PUSH DIV POP R1 RET",
        "PROG F VAR A V DINT 7 Z V BOOL 0 O VO DINT 0 MAIN MOV @Z R0 MOD R0 R0 RET",
        "PROG F VAR A V REAL 7.5 O VO DINT 0 MAIN MOV 0 R0 MOD @A R0 RET",
        "PROG F VAR A V REAL 7.5 O VO DINT 0 MAIN MOV 2 R0 MOD @A R0 RET",
        "PROG F VAR A V LREAL 7.5 O VO DINT 0 MAIN MOV 2 R0 MOD 1.5 R0 RET",
        "PROG F VAR A V DINT 7 O VO DINT 0 MAIN MOV 2.5 R0 MOD @A R0 RET",
        "PROG F MAIN MOV -1 R0 DIV -2147483648 R0 MOV -1 R1 MOD -2147483648 R1 RET",
        // NOT of a non-BOOL, BNOT of a REAL, AND of a DINT.
        "PROG F VAR A V DINT 1 MAIN MOV @A R0 NOT R0 RET",
        "PROG F VAR A V BOOL 1 MAIN MOV @A R0 NOT R0 MOV 1 R0 NOT R0 RET",
        "PROG F VAR A V REAL 1 MAIN MOV @A R1 BNOT R1 RET",
        "PROG F VAR A V LREAL 1 MAIN MOV @A A0 BNOT A0 RET",
        "PROG F VAR A V DINT 1 B V BOOL 1 MAIN MOV @B R0 AND @A R0 RET",
        "PROG F VAR A V DINT 1 B V BOOL 1 MAIN MOV @A R0 AND @B R0 RET",
        "PROG F VAR A V DINT 1 B V BOOL 1 MAIN MOV @B R0 OR 1 R0 RET",
        "PROG F VAR A V BOOL 1 B V BOOL 1 MAIN MOV @B R0 BAND @A R0 RET",
        "PROG F VAR A V REAL 1 B V DINT 1 MAIN MOV @B R0 SHL @A R0 RET",
        // POP on an empty stack inside fused runs and elsewhere.
        "PROG F VAR X V DINT 1 Y VO DINT 0 MAIN MOV @X R0 ADD POP R0 MOV R0 @Y RET",
        "PROG F VAR X V DINT 1 Y VO DINT 0 MAIN MOV POP R0 ADD 1 R0 MOV R0 @Y RET",
        "PROG F VAR X V DINT 1 Y VO DINT 0 MAIN MOV @X R0 ADD 1 R0 MOV POP @Y RET",
        "PROG F VAR X V DINT 1 Y VO DINT 0 MAIN MOV @X R0 GT POP R0 TST R0 JMPT L MOV 1 @Y L: RET",
        "PROG F VAR X V DINT 1 Y VO DINT 0 MAIN MOV 1 PUSH MOV @X R0 GT POP R0 TST R0 JMPT L GT POP R0 L: RET",
        "PROG F MAIN MOV POP NIL RET",
        "PROG F MAIN MOV 1 PUSH EXEC POW RET",
        "PROG F MAIN EXEC SIN MOV A0 R0 RET",
        // Unknown variables, labels; jump operands that are numbers; EXEC of unknown names.
        "PROG F VAR X V DINT 1 MAIN MOV @NOPE R0 RET",
        "PROG F VAR X V DINT 1 MAIN MOV 1 @NOPE RET",
        "PROG F VAR X V DINT 1 MAIN MOV @X R0 ADD @NOPE R0 MOV R0 @X RET",
        "PROG F VAR X V DINT 1 MAIN MOV @X R0 ADD 1 R0 MOV R0 @NOPE RET",
        "PROG F VAR X V DINT 1 MAIN MOV @X R0 GT @NOPE R0 TST R0 JMPT L L: RET",
        "PROG F VAR X V DINT 1 MAIN MOVA @NOPE R0 RET",
        "PROG F VAR X V DINT 1 MAIN MOVA @X @NOPE RET",
        "PROG F VAR X V DINT 1 MAIN JMP NOWHERE RET",
        "PROG F VAR X V DINT 1 MAIN MOV 1 R0 TST R0 JMPT NOWHERE RET",
        "PROG F VAR X V DINT 1 MAIN MOV 0 R0 TST R0 JMPT NOWHERE MOV 2 R1 RET",
        "PROG F VAR X V DINT 1 MAIN MOV @X R0 GT 0 R0 TST R0 JMPF NOWHERE RET",
        "PROG F VAR X V DINT 1 MAIN JMP 5 RET",
        "PROG F VAR X V DINT 1 MAIN JMPT 16#FF RET",
        "PROG F VAR X V DINT 1 MAIN MOV 0 R0 TST R0 JMPF 1.5 RET",
        "PROG F VAR X V DINT 1 MAIN JMP @X RET",
        "PROG F VAR X V DINT 1 MAIN JMP R0 RET",
        "PROG F VAR X V DINT 1 MAIN JMP L: L: RET",
        "PROG F VAR X V DINT 1 MAIN CAL 5 RET",
        "PROG F VAR X V DINT 1 MAIN CAL @X RET",
        "PROG F VAR X V DINT 1 MAIN CAL NOWHERE RET",
        "PROG F VAR X V DINT 1 MAIN MOV 1 PUSH EXEC NOPE RET",
        "PROG F VAR X V DINT 1 MAIN MOV 1 PUSH EXEC 5 RET",
        "PROG F VAR X V DINT 1 MAIN MOV 1 PUSH EXEC @X RET",
        "PROG F VAR X V DINT 1 MAIN MOV 1 PUSH EXEC RET",
        "PROG F VAR X V DINT 1 MAIN TST 5 RET",
        "PROG F VAR X V DINT 1 MAIN TST @X RET",
        "PROG F VAR X V DINT 1 MAIN NG NIL RET",
        "PROG F VAR X V DINT 1 MAIN NOT @X RET",
        "PROG F VAR X V DINT 1 MAIN FOO RET",
        "PROG F VAR X V DINT 1 MAIN MOV 1 R0 5 RET",
        "PROG F VAR X V DINT 1 MAIN MOV 1 R0 BODY RET",
        "PROG F VAR X V DINT 1 MAIN MOV 1 R0 X V DINT 1 RET",
    };
    return programs;
}

// Unary instructions on each register after a load of every type and edge
// value, and on operands they refuse.
std::vector<std::string> UnaryPrograms() {
    const char* const ops[] = {"TST", "NOT", "BNOT", "NG"};
    std::vector<std::string> programs;
    size_t i = 0;
    for (const char* op : ops) {
        for (const char* reg : kRegisters)
            for (size_t t = 0; t < kTypeCount; ++t)
                for (size_t e = 0; e < kEdgeCount; ++e, ++i) {
                    const Variable s = Declare("S", "V", kTypes[t], kEdges[e]);
                    programs.push_back(Fill(
                        "PROG UN VAR {SD} O VO {OT} 0 MAIN {PRE}MOV @{S} {R} {OP} {R} MOV {R} @O JMPT T MOV 1 R1 T: RET",
                        {{"SD", s.Declaration}, {"OT", Type(i * 2)}, {"PRE", s.Prelude}, {"S", s.Name}, {"R", reg},
                         {"OP", op}}));
                }
        for (const char* wrong : {"NIL", "@S", "5", "X", "PUSH", "POP", "TICK", "L:", "^S", "RET"})
            programs.push_back(Fill("PROG UW VAR S V DINT 1 MAIN MOV 1 PUSH {OP} {W} MOV 2 R1 RET",
                                    {{"OP", op}, {"W", wrong}}));
        programs.push_back(Fill("PROG UE MAIN MOV 1 R0 {OP}", {{"OP", op}}));
        programs.push_back(Fill("PROG UE MAIN MOV 1 R0 {OP} R0", {{"OP", op}}));
    }
    return programs;
}

// MOV from every kind of source to every kind of destination.
std::vector<std::string> MovePrograms() {
    struct Kind {
        const char* Setup;
        const char* Operand;
    };
    const Kind sources[] = {{"", "@{S}"},           {"MOVA @{S} @P ", "^P"}, {"", "{N}"},
                            {"MOV @{S} R0 ", "R0"}, {"MOV @{S} R1 ", "R1"},  {"MOV @{S} A0 ", "A0"},
                            {"", "NIL"},            {"MOV @{S} PUSH ", "POP"}, {"", "POP"},
                            {"", "TICK"},           {"", "@NOPE"},         {"", "^{S}"},
                            {"", "X"},              {"", "L:"}};
    struct Dest {
        const char* Setup;
        const char* Operand;
        bool Typed;  // one program for each type of the destination variable
    };
    const Dest dests[] = {{"", "@D", true},        {"", "@O", true},      {"MOVA @D @Q ", "^Q", true},
                          {"MOVA @O @Q ", "^Q", true}, {"", "A0", false},  {"", "R0", false},
                          {"", "R1", false},        {"", "NIL", false},    {"", "PUSH", false},
                          {"", "TICK", false},      {"", "5", false},      {"", "1.5", false},
                          {"", "L", false},         {"", "L:", false},     {"", "@NOPE", false},
                          {"", "^NOPE", false},     {"", "^D", false},     {"", "POP", false}};
    const char* const text =
        "PROG MV VAR {SD} D V {DT} 7 O VO {DT} 0 P V {ST} 0 Q V {QT} 0 MAIN {PRE}{SSET}{DSET}MOV {SRC} {DST} "
        "MOV TICK R1 L: RET";
    std::vector<std::string> programs;
    size_t i = 0;
    // Variable to variable and to outputs, every pair of types, every value.
    for (size_t st = 0; st < kTypeCount; ++st)
        for (size_t dt = 0; dt < kTypeCount; ++dt)
            for (size_t e = 0; e < kEdgeCount; ++e, ++i) {
                const Variable s = Declare("S", "V", kTypes[st], kEdges[e]);
                programs.push_back(Fill(text, {{"SD", s.Declaration}, {"DT", kTypes[dt]}, {"ST", kTypes[st]},
                                               {"QT", kTypes[dt]}, {"PRE", s.Prelude}, {"SSET", ""}, {"DSET", ""},
                                               {"SRC", "@" + s.Name}, {"DST", i % 2 ? "@O" : "@D"}}));
            }
    // Every source kind to every destination kind.
    for (const Kind& source : sources)
        for (const Dest& dest : dests)
            for (size_t st = 0; st < kTypeCount; ++st)
                for (size_t dt = 0; dt < (dest.Typed ? kTypeCount : 1); ++dt, ++i) {
                    const Variable s = Declare("S", i % 3 ? "V" : "VG", kTypes[st], Edge(i * 11 + st));
                    programs.push_back(Fill(
                        text, {{"SD", s.Declaration}, {"DT", Type(dt + (dest.Typed ? 0 : i))}, {"ST", kTypes[st]},
                               {"QT", Type(i * 5)}, {"PRE", s.Prelude}, {"SSET", Fill(source.Setup, {{"S", s.Name}})},
                               {"DSET", dest.Setup}, {"SRC", Fill(source.Operand, {{"S", s.Name}, {"N", kLiterals[i % kLiteralCount]}})},
                               {"DST", dest.Operand}}));
                }
    // An output written in some cycles only: its written flag follows.
    for (size_t t = 0; t < kTypeCount; ++t)
        programs.push_back(Fill("PROG MW VAR {IN} VI BOOL 0 O VO {T} 5 MAIN MOV @{IN} R0 TST R0 JMPF SKIP "
                                "MOV 300 @O SKIP: RET",
                                {{"IN", InputName("I", int(t))}, {"T", kTypes[t]}}));
    return programs;
}

// MOVA from and to every kind of operand, and what the references do after.
std::vector<std::string> AddressPrograms() {
    const char* const sources[] = {"@S", "R0", "R1", "5", "^P", "NIL", "@NOPE", "POP", "TICK", "X"};
    const char* const dests[] = {"@P", "R1", "A0", "NIL", "PUSH", "^P", "5", "@NOPE", "@O", "TICK", "L"};
    std::vector<std::string> programs;
    size_t i = 0;
    for (const char* source : sources)
        for (const char* dest : dests)
            for (size_t t = 0; t < kTypeCount; t += 2, ++i)
                programs.push_back(Fill(
                    "PROG MA VAR S V {T} 42 P V {PT} 0 O VO {T} 0 MAIN MOVA @S R0 MOV 3 PUSH MOVA {SRC} {DST} "
                    "MOV R1 @O MOV ^P R0 MOV 1.5 ^P MOV @S R1 L: RET",
                    {{"T", kTypes[t]}, {"PT", Type(i)}, {"SRC", source}, {"DST", dest}}));
    // A reference through every type of the referring variable.
    for (size_t t = 0; t < kTypeCount; ++t)
        for (size_t u = 0; u < kTypeCount; ++u, ++i) {
            const Variable s = Declare("S", "V", kTypes[u], Edge(i));
            programs.push_back(Fill("PROG MR VAR {SD} P V {T} 0 O VO {U} 0 MAIN {PRE}MOVA @{S} @P MOV ^P R0 "
                                    "ADD ^P R0 MOV R0 ^P MOVA @O R1 MOVA R1 @P MOV @{S} ^P MOV ^P A0 RET",
                                    {{"SD", s.Declaration}, {"T", kTypes[t]}, {"U", kTypes[u]}, {"PRE", s.Prelude},
                                     {"S", s.Name}}));
        }
    return programs;
}

// Jumps on every state of the test flag to every kind of target.
std::vector<std::string> JumpPrograms() {
    const char* const targets[] = {"FWD", "BACK", "NOWHERE", "5", "@S", "R0", "FWD:", "MAIN", "SUB", "SUBEND", "16#1"};
    std::vector<std::string> programs;
    size_t i = 0;
    for (const char* jump : kJumps)
        for (const char* target : targets)
            for (size_t t = 0; t < kTypeCount; ++t)
                for (size_t e = 0; e < kEdgeCount; e += 3, ++i) {
                    const Variable s = Declare("S", "V", kTypes[t], kEdges[e]);
                    programs.push_back(Fill(
                        "PROG J VAR {SD} C V DINT 0 O VO DINT 0 MAIN {PRE}MOV @{S} R0 TST R0 MOV 1 @O BACK: "
                        "MOV @C R1 ADD 1 R1 MOV R1 @C GT 2 R1 TST R1 JMPF FWD MOV @{S} R0 TST R0 {J} {TG} "
                        "MOV 2 @O FWD: MOV 3 @O RET SUB: X V DINT 1 BODY MOV @X R0 SUBEND: RET RET",
                        {{"SD", s.Declaration}, {"PRE", s.Prelude}, {"S", s.Name}, {"J", jump}, {"TG", target}}));
                }
    return programs;
}

// EXEC of every built-in name with 0, 1 and 2 arguments of every type.
std::vector<std::string> ExecPrograms() {
    std::vector<std::string> programs;
    size_t i = 0;
    for (const char* name : kBuiltins) {
        programs.push_back(Fill("PROG E0 VAR O VO LREAL 0 MAIN EXEC {F} MOV A0 @O RET", {{"F", name}}));
        for (size_t t = 0; t < kTypeCount; ++t) {
            for (size_t e = 0; e < kEdgeCount; ++e, ++i) {
                const Variable s = Declare("S", "V", kTypes[t], kEdges[e]);
                programs.push_back(Fill("PROG E1 VAR {SD} O VO {OT} 0 MAIN {PRE}MOV @{S} PUSH EXEC {F} MOV A0 @O RET",
                                        {{"SD", s.Declaration}, {"OT", Type(i)}, {"PRE", s.Prelude},
                                         {"S", s.Name}, {"F", name}}));
            }
            const Variable s = Declare("S", "V", kTypes[t], Edge(i * 3));
            const Variable u = Declare("U", "V", Type(i + t), Edge(i * 5 + 2));
            programs.push_back(Fill("PROG E2 VAR {SD} {UD} O VO LREAL 0 MAIN {PRE}MOV @{S} PUSH MOV @{U} PUSH "
                                    "EXEC {F} MOV A0 @O MOV {N} PUSH EXEC {F} RET",
                                    {{"SD", s.Declaration}, {"UD", u.Declaration}, {"PRE", s.Prelude + u.Prelude},
                                     {"S", s.Name}, {"U", u.Name}, {"F", name}, {"N", kLiterals[i % kLiteralCount]}}));
        }
    }
    return programs;
}

// "MOV load R MOV-op src R MOV R @Y" with every pair of types, loads from a
// variable, a number or a register, operands of every fused kind.
std::vector<std::string> LoadOperateStorePrograms() {
    const char* const ops[] = {"ADD", "SUB", "MUL"};
    const char* const loads[] = {"@{X}", "{N}", "{G}"};
    const char* const sources[] = {"@{Z}", "{M}", "{H}", "{F}"};
    const char* const outputKinds[] = {"VO", "V", "VG", "VO"};
    std::vector<std::string> programs;
    size_t i = 0;
    for (size_t xt = 0; xt < kTypeCount; ++xt)
        for (size_t yt = 0; yt < kTypeCount; ++yt)
            for (const char* op : ops)
                for (const char* load : loads)
                    for (const char* source : sources) {
                        ++i;
                        // F is the fused register; G and H are the other two.
                        const char* f = kRegisters[i % 3];
                        const char* g = kRegisters[(i + 1) % 3];
                        const char* h = kRegisters[(i + 2) % 3];
                        const Variable x = Declare("X", "V", kTypes[xt], Edge(i * 7));
                        const Variable z = Declare("Z", "V", Type(i * 5 + yt), Edge(i * 3 + 1));
                        programs.push_back(Fill(
                            "PROG FU VAR {XD} {ZD} Y {YK} {YT} 0 MAIN {PRE}MOV @{X} {G} MOV @{Z} {H} "
                            "MOV " + std::string(load) + " {F} {OP} " + source + " {F} MOV {F} @Y RET",
                            {{"XD", x.Declaration}, {"ZD", z.Declaration}, {"YK", outputKinds[i % 4]},
                             {"YT", kTypes[yt]}, {"PRE", x.Prelude + z.Prelude}, {"X", x.Name}, {"Z", z.Name},
                             {"G", g}, {"H", h}, {"F", f}, {"OP", op}, {"N", kLiterals[i % kLiteralCount]},
                             {"M", kLiterals[(i * 7) % kLiteralCount]}}));
                    }
    return programs;
}

// Fused runs in loops and with labels between their parts: jumps land in
// the middle, budgets stop anywhere inside.
std::vector<std::string> FusedLoopPrograms() {
    std::vector<std::string> programs;
    size_t i = 0;
    for (size_t xt = 0; xt < kTypeCount; ++xt)
        for (size_t yt = 0; yt < kTypeCount; ++yt, ++i) {
            programs.push_back(Fill("PROG FL VAR X VG {XT} 0 Y VO {YT} 0 I V DINT 0 MAIN L: MOV @X R0 ADD 1 R0 "
                                    "MOV R0 @X MOV @I R1 ADD 1 R1 MOV R1 @I MOV @X R0 MUL 3 R0 MOV R0 @Y "
                                    "GT 3 R1 TST R1 JMPT L RET",
                                    {{"XT", kTypes[xt]}, {"YT", kTypes[yt]}}));
            // Entered anywhere; looped back only to where the counter still grows.
            const char* const targets[] = {"M1", "M2", "M3", "L"};
            const char* const loops[] = {"M1", "M2", "L"};
            programs.push_back(Fill(
                "PROG FM VAR {IN} VI BOOL 0 X V {XT} 5 Z V {YT} -2.5 Y VO {YT} 0 C V DINT 0 MAIN MOV @{IN} R1 "
                "TST R1 JMPT {T1} L: MOV @X R0 M1: SUB @Z R0 M2: MOV R0 @Y MOV @C R1 ADD 1 R1 M3: MOV R1 @C "
                "GT 3 R1 TST R1 JMPT {T2} RET",
                {{"IN", InputName("I", int(i % 10))}, {"XT", kTypes[xt]}, {"YT", kTypes[yt]},
                 {"T1", targets[i % 4]}, {"T2", loops[(i / 4) % 3]}}));
            // The comparison's parts with labels between them.
            programs.push_back(Fill(
                "PROG CM VAR {IN} VI {XT} 0 C V DINT 0 O VO {YT} 0 MAIN MOV @{IN} R0 TST R0 JMPF K2 "
                "K0: MOV @C R0 ADD 1 R0 MOV R0 @C K1: LT 4 R0 K2: TST R0 K3: JMPF K0 MOV @C @O RET",
                {{"IN", InputName("J", int((i * 3) % 10))}, {"XT", kTypes[xt]}, {"YT", kTypes[yt]}}));
        }
    return programs;
}

// "<compare> src R TST R <jump> L" with every comparison, source kind,
// register and jump.
std::vector<std::string> CompareJumpPrograms() {
    struct Kind {
        const char* Setup;
        const char* Operand;
    };
    const Kind kinds[] = {{"", "@{S}"},           {"MOVA @{S} @P ", "^P"}, {"", "{N}"},
                          {"MOV @{S} {G} ", "{G}"}, {"", "{R}"},          {"MOV @{S} PUSH ", "POP"},
                          {"", "POP"},            {"", "NIL"},            {"", "@NOPE"}};
    std::vector<std::string> programs;
    size_t i = 0;
    for (const char* cmp : kComparisons)
        for (const Kind& kind : kinds)
            for (size_t r = 0; r < 3; ++r)
                for (const char* jump : kJumps)
                    for (size_t t = 0; t < kTypeCount; ++t, ++i) {
                        const char* reg = kRegisters[r];
                        const char* other = kRegisters[(r + 1 + i % 2) % 3];
                        const Variable s = Declare("S", "V", kTypes[t], Edge(i * 7 + t));
                        const Variable d = Declare("D", "V", Type(i * 5 + 2), Edge(i * 3 + 5));
                        // Now and then TST of another register: no fusion.
                        const char* tested = i % 11 == 0 ? other : reg;
                        programs.push_back(Fill(
                            "PROG CJ VAR {SD} {DD} P V {T} 0 O VO DINT 0 MAIN {PRE}MOV @{D} {R} {SETUP}{CMP} {SRC} {R} "
                            "TST {TR} {J} T MOV 1 @O RET T: MOV 2 @O RET",
                            {{"SD", s.Declaration}, {"DD", d.Declaration}, {"T", kTypes[t]},
                             {"PRE", s.Prelude + d.Prelude}, {"D", d.Name},
                             {"SETUP", Fill(kind.Setup, {{"S", s.Name}, {"G", other}})}, {"CMP", cmp},
                             {"SRC", Fill(kind.Operand, {{"S", s.Name}, {"G", other}, {"R", reg},
                                                         {"N", kLiterals[i % kLiteralCount]}})},
                             {"R", reg}, {"TR", tested}, {"J", jump}}));
                    }
    // Loops closed by a fused comparison, budgets stopping anywhere.
    for (const char* cmp : kComparisons)
        for (const char* jump : {"JMPT", "JMPF"})
            for (size_t t = 0; t < kTypeCount; ++t, ++i)
                programs.push_back(Fill("PROG CL VAR N V {T} 0 O VO DINT 0 MAIN MOV 0 A0 L: MOV @N R1 ADD 1 R1 "
                                        "MOV R1 @N MOV @N R0 {CMP} 3 R0 TST R0 {J} L MOV @N @O RET",
                                        {{"T", kTypes[t]}, {"CMP", cmp}, {"J", jump}}));
    return programs;
}

// Subprograms with 0, 1 and many locals of every type and kind.
std::string Locals(size_t count, size_t seed, bool duplicates) {
    const char* const kinds[] = {"V", "VA", "VR"};
    std::string text;
    for (size_t k = 0; k < count; ++k)
        text += "L" + std::to_string(k) + " " + kinds[(k + seed) % 3] + " " + Type(k + seed) + " " +
                Edge(k * 3 + seed).Written + " ";
    if (duplicates && count > 0) text += "L0 V REAL 9.5 l0 VA DINT 8 ";
    return text;
}
std::string UseLocals(size_t count) {
    std::string text;
    for (size_t k = 0; k < count; ++k) {
        const std::string name = "@L" + std::to_string(k);
        text += "MOV " + name + " R0 ADD R0 R1 MOV R1 " + name + " ";
    }
    return text;
}

std::vector<std::string> CallPrograms() {
    std::vector<std::string> programs;
    const size_t counts[] = {0, 1, 2, 3, 5, 9, 12};
    size_t i = 0;
    for (size_t count : counts)
        for (size_t seed = 0; seed < 9; ++seed, ++i) {
            const std::string locals = Locals(count, seed, seed % 3 == 2);
            const std::string body = UseLocals(count);
            // Called once, twice (the frame is built again), from a loop.
            programs.push_back("PROG C1 VAR O VO LREAL 0 MAIN MOV 0 R1 CAL S MOV R1 @O RET S: " + locals + "BODY " +
                               body + "RET RET");
            programs.push_back("PROG C2 VAR O VO LREAL 0 N V DINT 0 MAIN MOV 0 R1 L: CAL S MOV @N R0 ADD 1 R0 "
                               "MOV R0 @N LT 3 R0 TST R0 JMPF L MOV R1 @O RET S: " +
                               locals + "BODY " + body + "RET RET");
            // Arguments through the stack, results back in a register.
            programs.push_back("PROG C3 VAR A V " + std::string(Type(seed)) + " " + Edge(seed * 5).Written +
                               " O VO LREAL 0 MAIN MOV @A PUSH MOV 2 PUSH CAL S MOV R0 @O RET S: " + locals +
                               "X V " + Type(seed + 4) + " 0 BODY MOV POP @X MOV POP R0 ADD @X R0 " + body + "RET RET");
        }
    const std::vector<std::string> fixed = {
        // Recursion.
        "PROG R VAR O VO DINT 0 MAIN MOV 6 PUSH CAL DOWN MOV R0 @O RET DOWN: K V DINT 0 BODY MOV POP @K "
        "MOV @K R0 TST R0 JMPF DONE MOV -1 R1 ADD @K R1 MOV R1 PUSH CAL DOWN ADD @K R0 DONE: RET RET",
        "PROG R2 VAR O VO DINT 0 MAIN MOV 3 R0 CAL A MOV R1 @O RET A: X V DINT 1 BODY MOV R0 R1 MOV -1 R0 "
        "ADD R1 R0 MOV R0 @X TST R0 JMPF AE CAL B AE: RET B: Y V REAL 0.5 BODY ADD @Y R1 CAL A RET RET",
        // Declarations that fail: kind, type, number, end of text.
        "PROG D1 MAIN CAL S RET S: X VI DINT 0 BODY RET RET",
        "PROG D2 MAIN CAL S RET S: X V STRING 0 BODY RET RET",
        "PROG D3 MAIN CAL S RET S: X V DINT Y BODY RET RET",
        "PROG D4 MAIN CAL S RET S: X V DINT 1 Y V",
        "PROG D5 MAIN MOV 1 R0 CAL S MOV 2 R0 RET S: X V DINT 1 Y VG DINT 2 BODY RET RET",
        "PROG D6 MAIN CAL S RET S: X V DINT 1 Y V ARRAY 2 BODY RET RET",
        "PROG D7 MAIN CAL S RET S: X V DINT 1 5 V DINT 2 BODY RET RET",
        "PROG D8 MAIN CAL S RET S: X V DINT 16#G BODY RET RET",
        // A body that jumps out into MAIN's code and back.
        "PROG OUT VAR O VO DINT 0 MAIN CAL S MOV R0 @O RET BACK: MOV 5 R1 ADD R1 R0 JMP AGAIN "
        "S: X V DINT 1 BODY MOV @X R0 JMP BACK AGAIN: ADD 1 R0 RET RET",
        "PROG OUT2 VAR O VO DINT 0 MAIN CAL S MOV R0 @O RET BACK: MOV @O R1 JMP AGAIN "
        "S: X V DINT 1 BODY MOV @X R0 JMP BACK AGAIN: ADD 1 R0 RET RET",
        "PROG OUT3 VAR O VO DINT 0 MAIN MOV 0 R0 M: ADD 1 R0 GT 2 R0 TST R0 CAL S RET "
        "S: X V DINT 1 BODY MOV @X R1 ADD R1 R0 JMPT M RET RET",
        // A RET reached from MAIN by a jump.
        "PROG RJ VAR O VO DINT 0 MAIN MOV 1 @O JMP SR RET S: BODY SR: RET RET",
        "PROG RJ2 VAR O VO DINT 0 MAIN CAL S JMP SR RET S: X V DINT 2 BODY SR: MOV 3 R0 RET RET",
        "PROG RJ3 VAR O VO DINT 0 MAIN CAL S MOV 1 @O RET S: X V DINT 2 BODY JMP MR RET MR: RET",
        // A subprogram running into the text's final RET.
        "PROG END VAR O VO DINT 0 MAIN CAL S MOV 1 @O RET S: X V DINT 1 BODY MOV @X R0 RET",
        "PROG END2 VAR O VO DINT 0 MAIN CAL S MOV 1 @O RET S: X V DINT 1 BODY MOV @X R0",
        "PROG END3 VAR O VO DINT 0 MAIN CAL S MOV 1 @O RET S: BODY",
        // Frames left by failed cycles, then more cycles.
        "PROG FAIL VAR O VO DINT 0 MAIN CAL S MOV 1 @O RET S: X V DINT 1 BODY MOV @X R0 MOV @NOPE R1 RET RET",
        "PROG FAIL2 VAR {IN} VI DINT 0 O VO DINT 0 MAIN MOV @{IN} PUSH CAL S MOV R0 @O RET S: X V DINT 0 BODY "
        "MOV POP @X MOV @X R0 TST R0 JMPF OK MOV 0 R1 DIV 1 R1 OK: RET RET",
        "PROG FAIL3 VAR {IN} VI REAL 0 O VO DINT 0 MAIN MOV @{IN} R0 CAL S MOV R0 @O RET S: X V DINT 0 BODY "
        "NE R0 R0 TST R0 JMPT BAD CAL T RET T: Y V BOOL 1 BODY MOV @Y R1 RET BAD: MOV POP R0 RET RET",
        "PROG FAIL4 VAR O VO DINT 0 MAIN MOV @O R0 ADD 1 R0 MOV R0 @O GT 2 R0 TST R0 JMPT F CAL S RET F: CAL T "
        "RET S: X V DINT 1 BODY MOV @X R1 RET T: Y V DINT 2 BODY MOV @Y R1 MOV @O R0 RET RET",
        // Several subprograms alternating, references to locals kept after the return.
        "PROG ALT VAR O VO LREAL 0 MAIN CAL A CAL B CAL A CAL C MOV R0 @O RET "
        "A: X V DINT 1 Y V REAL 2.5 BODY MOV @X R0 ADD @Y R0 RET "
        "B: Y V DINT 3 BODY MOV @Y R1 CAL A ADD R1 R0 RET C: BODY CAL B CAL A CAL B RET RET",
        "PROG REF VAR P VG LREAL 0 O VO DINT 0 MAIN MOV ^P R1 CAL S MOV R0 @P MOV ^P R1 MOV R1 @O RET "
        "S: X V DINT 5 BODY MOVA @X R0 MOV 7 ^X RET RET",
        "PROG REF2 VAR X V DINT 5 O VO DINT 0 MAIN MOVA @X R0 MOV R0 PUSH CAL S MOV @X @O RET "
        "S: P V DINT 0 BODY MOV POP R0 MOVA R0 @P MOV ^P R1 ADD 1 R1 MOV R1 ^P RET RET",
        // Duplicate names and names that differ only in case.
        "PROG DUP MAIN CAL S CAL S RET S: X V DINT 1 X V DINT 2 x V REAL 3 BODY MOV @X R0 MOV 9 @x RET RET",
        "PROG DUP2 VAR X V DINT 1 X V REAL 2 x VO DINT 3 MAIN MOV @X R0 ADD 1 R0 MOV R0 @x CAL X RET X: BODY RET RET",
        // Calls of things that are no subprograms.
        "PROG CM MAIN CAL MAIN RET",
        "PROG CL MAIN CAL L RET L: MOV 1 R0 RET RET",
        "PROG CB MAIN CAL S RET S: BODY BODY MOV 1 R0 RET RET",
    };
    for (size_t k = 0; k < fixed.size(); ++k, ++i)
        programs.push_back(Fill(fixed[k], {{"IN", InputName("I", int(k % 10))}}));
    return programs;
}

// Texts without a VAR section: labels become known as the cycles run past
// them. A0 counts the cycles, so the first cycle runs straight through and
// registers the labels, and later cycles jump to them; a few jump to labels
// no cycle ever passes.
std::vector<std::string> NoVarPrograms() {
    const std::string count = "PROG N MAIN MOV A0 R0 ADD 1 R0 MOV R0 A0 ";
    std::vector<std::string> programs = {
        count + "LT 1 R0 TST R0 JMPT FAR MOV 7 R1 FAR: MUL 3 R1 RET",
        count + "LT 1 R0 TST R0 JMPT M2 MOV 1 R1 M1: ADD 2 R1 M2: MOV R1 R0 RET",
        count + "LT 2 R0 TST R0 JMPT M1 MOV 1 R1 M1: ADD 2 R1 M2: MOV R1 R0 RET",
        count + "LT 1 R0 TST R0 JMPT K2 MOV 5 R1 K1: GT 3 R1 K2: TST R1 K3: JMPF K4 MOV 1 PUSH MOV POP R1 K4: RET",
        count + "LT 1 R0 TST R0 JMPT K1 MOV 5 R1 K1: GT 3 R1 K2: TST R1 K3: JMPT K4 MOV 1 PUSH MOV POP R1 K4: RET",
        count + "MOV 0 R1 BACK: ADD 1 R1 MOV R1 PUSH GT 3 R1 TST R1 MOV POP R1 JMPT BACK LT 2 R0 TST R0 JMPF OUT "
                "MOV 2 R1 OUT: RET",
        count + "LT 1 R0 TST R0 JMPF PASS JMP BACK PASS: MOV 9 R1 BACK: MOV R1 PUSH MOV POP R0 RET",
        count + "LT 1 R0 TST R0 JMPT END MOV 1 R1 RET END: MOV 2 R1",
        count + "LT 1 R0 TST R0 JMPT LATER JMP 5 LATER: RET",
        count + "LT 1 R0 TST R0 JMPT S S: BODY MOV 1 R1 RET RET",
        count + "GT 1 R0 TST R0 JMPT NEVER MOV 1 R1 NEVER: RET",
        "PROG N MAIN JMP AHEAD MOV 1 R0 AHEAD: MOV 2 R1 RET",
        "PROG N MAIN MOV 0 R0 BACK: ADD 1 R0 MOV R0 R1 GT 3 R1 TST R1 JMPT BACK RET",
        "PROG N MAIN CAL S RET S: BODY MOV 1 R0 RET RET",
        "PROG N MAIN JMP S2 S1: RET S2: CAL S1 RET",
        "PROG N MAIN MOV 1 @X RET",
        "PROG N MAIN MOV 1 R0 M1: ADD 2 R0 M2: MOV R0 R1 RET",
    };
    for (size_t k = 0; k < 12; ++k)
        programs.push_back(Fill(count + "MOV {N} R1 LT {C} R0 TST R0 JMPT FAR MOV R1 PUSH MOV POP R1 "
                                        "FAR: MUL {N} R1 RET",
                                {{"N", kLiterals[k * 3]}, {"C", std::to_string(k % 3)}}));
    return programs;
}

// Straight lines that run into code compiled before them (the compiler
// continues there instead of compiling it again): the parts of a fused run
// may come from two lines.
std::vector<std::string> JoinedLinePrograms() {
    std::vector<std::string> programs;
    size_t i = 0;
    for (size_t xt = 0; xt < kTypeCount; ++xt)
        for (size_t yt = 0; yt < kTypeCount; ++yt, ++i) {
            const std::map<std::string, std::string> values = {{"IN", InputName("I", int(i % 10))},
                                                               {"XT", kTypes[xt]},
                                                               {"YT", kTypes[yt]},
                                                               {"N", kLiterals[i % kLiteralCount]}};
            programs.push_back(Fill("PROG JL VAR {IN} VI BOOL 0 X V {XT} 5 Z V {YT} -2.5 Y VO {YT} 0 MAIN "
                                    "MOV @{IN} R1 TST R1 JMPT A JMP B A: MOV @X R0 B: SUB @Z R0 MOV R0 @Y RET",
                                    values));
            programs.push_back(Fill("PROG JL VAR {IN} VI BOOL 0 X V {XT} 5 Z V {YT} -2.5 Y VO {YT} 0 MAIN "
                                    "MOV @X R0 MOV @{IN} R1 TST R1 JMPT A JMP B A: ADD {N} R0 B: MOV R0 @Y RET",
                                    values));
            programs.push_back(Fill("PROG JC VAR {IN} VI {XT} 0 X V {YT} 3 O VO DINT 0 MAIN MOV @{IN} R0 "
                                    "TST R0 JMPT A JMP B A: LT @X R0 B: TST R0 JMPF E MOV 1 @O E: RET",
                                    values));
            programs.push_back(Fill("PROG JC VAR {IN} VI {XT} 0 X V {YT} 3 O VO DINT 0 MAIN MOV @{IN} R0 "
                                    "TST R0 JMPT A JMP B A: GE {N} R0 TST R0 B: JMPT E MOV 1 @O E: RET",
                                    values));
        }
    return programs;
}

// ---- Tests ----

TEST(CompiledSpecialisations, OperatorsOnEverySourceKindTypeAndValue) {
    Corpus corpus("operators x source kinds x types x values");
    size_t i = 0;
    for (const std::string& text : OperatorSourcePrograms()) corpus.Check(text, Ending(i++));
}

TEST(CompiledSpecialisations, OperatorsOnNumberLiterals) {
    Corpus corpus("operators x literals x register types");
    size_t i = 0;
    for (const std::string& text : OperatorLiteralPrograms()) corpus.Check(text, Ending(i++));
}

TEST(CompiledSpecialisations, OperatorsOnOperandsTheyRefuse) {
    Corpus corpus("operators x wrong operands");
    size_t i = 0;
    for (const std::string& text : OperatorWrongOperandPrograms()) corpus.Check(text, Ending(i++));
}

TEST(CompiledSpecialisations, FailingForms) {
    Corpus corpus("failing forms");
    for (const std::string& text : FailingFormPrograms()) corpus.Check(text, EveryBudget());
}

TEST(CompiledSpecialisations, UnaryInstructions) {
    Corpus corpus("TST NOT BNOT NG");
    size_t i = 0;
    for (const std::string& text : UnaryPrograms()) corpus.Check(text, Ending(i++));
}

TEST(CompiledSpecialisations, MovesFromEverySourceToEveryDestination) {
    Corpus corpus("MOV sources x destinations x types");
    size_t i = 0;
    for (const std::string& text : MovePrograms()) corpus.Check(text, Ending(i++));
}

TEST(CompiledSpecialisations, AddressMoves) {
    Corpus corpus("MOVA");
    size_t i = 0;
    for (const std::string& text : AddressPrograms()) corpus.Check(text, Ending(i++));
}

TEST(CompiledSpecialisations, Jumps) {
    Corpus corpus("JMP JMPF JMPT");
    size_t i = 0;
    for (const std::string& text : JumpPrograms()) corpus.Check(text, Ending(i++));
}

TEST(CompiledSpecialisations, BuiltIns) {
    Corpus corpus("EXEC");
    size_t i = 0;
    for (const std::string& text : ExecPrograms()) corpus.Check(text, Ending(i++));
}

TEST(CompiledSpecialisations, FusedLoadOperateStore) {
    Corpus corpus("fused MOV ADD/SUB/MUL MOV");
    size_t i = 0;
    for (const std::string& text : LoadOperateStorePrograms()) {
        // All small budgets for every fourth program, two of them for the rest.
        if (i % 4 == 0) {
            corpus.Check(text, EveryBudget());
        } else {
            corpus.Check(text, {Opt(3, 0), Opt(3, 2000), Opt(2, 1 + i % 7), Opt(2, 1 + (i * 3 + 2) % 7)});
        }
        ++i;
    }
}

TEST(CompiledSpecialisations, FusedRunsInLoopsAndEnteredInTheMiddle) {
    Corpus corpus("fused runs in loops, labels between the parts");
    for (const std::string& text : FusedLoopPrograms()) {
        std::vector<qzdiff::Options> options = EveryBudget(4);
        for (uint64_t b : {8u, 9u, 11u, 13u, 17u, 23u, 29u}) options.push_back(Opt(3, b));
        corpus.Check(text, options);
    }
}

TEST(CompiledSpecialisations, LinesJoiningCodeCompiledBefore) {
    Corpus corpus("lines joining code compiled before");
    for (const std::string& text : JoinedLinePrograms()) corpus.Check(text, EveryBudget(4));
}

TEST(CompiledSpecialisations, FusedCompareTestJump) {
    Corpus corpus("fused compare, TST, jump");
    size_t i = 0;
    for (const std::string& text : CompareJumpPrograms()) {
        if (text.compare(0, 7, "PROG CL") == 0) {
            // A BOOL counter never reaches 3: these loops may not end, so no unlimited budget.
            std::vector<qzdiff::Options> options;
            for (uint64_t b : {1u, 2u, 3u, 4u, 5u, 6u, 7u, 10u, 12u, 15u, 19u, 2000u}) options.push_back(Opt(3, b));
            corpus.Check(text, options);
        } else {
            corpus.Check(text, {Opt(3, 0), Opt(3, 2000), Opt(2, 1 + i % 7), Opt(2, 1 + (i * 3 + 2) % 7)});
        }
        ++i;
    }
}

TEST(CompiledSpecialisations, Calls) {
    Corpus corpus("CAL and RET");
    for (const std::string& text : CallPrograms()) {
        std::vector<qzdiff::Options> options = EveryBudget(5);
        for (uint64_t b : {10u, 15u, 25u, 40u}) options.push_back(Opt(4, b));
        corpus.Check(text, options);
    }
}

TEST(CompiledSpecialisations, TextsWithoutVarSection) {
    Corpus corpus("no VAR section");
    for (const std::string& text : NoVarPrograms()) {
        std::vector<qzdiff::Options> options = EveryBudget(5);
        for (uint64_t b : {9u, 12u, 16u}) options.push_back(Opt(5, b));
        corpus.Check(text, options);
    }
}

TEST(CompiledSpecialisations, TextsWhoseLastWordIsNotRet) {
    Corpus corpus("last word not RET");
    const char* const endings[] = {"", " MOV 1 R0", " L9:", " 5", " @S", " MOV", " ADD 1", " BODY", " JMP"};
    std::vector<std::string> sources = FailingFormPrograms();
    for (const std::string& text : NoVarPrograms()) sources.push_back(text);
    for (const std::string& text : CallPrograms()) sources.push_back(text);
    size_t i = 0;
    for (const std::string& text : sources) {
        const std::string cut = text.size() > 4 && text.compare(text.size() - 4, 4, " RET") == 0
                                    ? text.substr(0, text.size() - 4)
                                    : text;
        corpus.Check(cut + endings[i % 9], {Opt(3, 2000), Opt(2, 1 + i % 7)});
        ++i;
    }
}

TEST(CompiledSpecialisations, ReloadsOfOtherTexts) {
    Corpus corpus("reloads into the same object");
    std::vector<std::string> pool = CallPrograms();
    for (const std::string& text : NoVarPrograms()) pool.push_back(text);
    for (const std::string& text : FusedLoopPrograms()) pool.push_back(text);
    for (const std::string& text : JoinedLinePrograms()) pool.push_back(text);
    for (const std::string& text : FailingFormPrograms()) pool.push_back(text);
    const std::vector<std::string> jumps = JumpPrograms();
    for (size_t k = 0; k < jumps.size(); k += 7) pool.push_back(jumps[k]);
    std::mt19937 rng(20240917u);
    for (int n = 0; n < 400; ++n) {
        std::vector<std::string> texts;
        const int length = 2 + int(rng() % 3);
        for (int k = 0; k < length; ++k) texts.push_back(pool[rng() % pool.size()]);
        if (n % 5 == 0) texts.push_back(texts.front());  // back to the first text
        corpus.CheckSequence(texts, {Opt(2, 2000), Opt(2, 1 + uint64_t(n) % 7)});
    }
}

// Every compiled operation must be produced by some program above, and most
// programs of every part must load: a template that no longer loads would
// make its part compare nothing but load failures.
TEST(CompiledSpecialisations, EveryCompiledOperationIsReached) {
    struct Group {
        const char* Name;
        std::vector<std::string> Programs;
        bool MustLoad;  // false where texts that fail to scan are part of the point
    };
    const Group groups[] = {
        {"operators x sources", OperatorSourcePrograms(), true},
        {"operators x literals", OperatorLiteralPrograms(), true},
        {"wrong operands", OperatorWrongOperandPrograms(), false},
        {"failing forms", FailingFormPrograms(), true},
        {"unary", UnaryPrograms(), true},
        {"MOV", MovePrograms(), true},
        {"MOVA", AddressPrograms(), true},
        {"jumps", JumpPrograms(), true},
        {"EXEC", ExecPrograms(), true},
        {"fused load-operate-store", LoadOperateStorePrograms(), true},
        {"fused loops", FusedLoopPrograms(), true},
        {"joined lines", JoinedLinePrograms(), true},
        {"compare-jump", CompareJumpPrograms(), true},
        {"calls", CallPrograms(), true},
        {"no VAR", NoVarPrograms(), true},
    };
    std::vector<size_t> reached(kOpCount, 0);
    for (const Group& part : groups) {
        size_t loaded = 0;
        std::map<Qz::uint32_t, size_t> results;
        for (const std::string& text : part.Programs) {
            CQZ_STInterpretator m;
            QZSetInstructionBudget(&m, 2000);
            if (m.InitInterpretator(text) != 0) continue;
            ++loaded;
            qzdiff::Host host;
            ++results[m.Execute(&host)];
            for (const QZ_Insn& in : m.CompiledForm().Code) ++reached[in.Op];
        }
        std::string codes;
        for (const auto& r : results) codes += " " + std::to_string(r.first) + "x" + std::to_string(r.second);
        std::printf("[ %s ] %zu of %zu programs load; first cycle results (code x count):%s\n", part.Name, loaded,
                    part.Programs.size(), codes.c_str());
        if (part.MustLoad) {
            EXPECT_GE(loaded * 10, part.Programs.size() * 9) << part.Name << ": most programs should load";
        }
    }
    for (size_t op = 0; op < kOpCount; ++op) {
        std::printf("  %-60s %zu\n", OpDescription(uint8_t(op)), reached[op]);
        EXPECT_GT(reached[op], 0u) << "no program compiles to: " << OpDescription(uint8_t(op));
    }
}

}  // namespace
