// InitInterpretator: finding PROG, the program name, the VAR section, the
// pre-scan of the body, result codes, and reloading an object.
#include "qz_st_intrpr_main.h"
#include "host_call_print.h"
#include "recording_host.h"

#include <gtest/gtest.h>

#include <cstring>
#include <list>
#include <memory>
#include <string>
#include <vector>

namespace {

constexpr char kV = 0x14, kVI = 0x15, kVO = 0x16, kVIO = 0x17, kVG = 0x18, kTVG = 0x19, kTVR = 0x1a;
constexpr char kBOOL = 0x20, kSINT = 0x21, kUSINT = 0x22, kINT = 0x23, kUINT = 0x24, kDINT = 0x25, kUDINT = 0x26,
               kREAL = 0x27, kLREAL = 0x28;

// A good program to load after a failed load: one input, one output.
const char* kGood = "PROG GOOD VAR X V INT 3 IN VI DINT 0 OUT VO INT 0 MAIN MOV @X R0 ADD @IN R0 MOV R0 @OUT RET";

std::unique_ptr<CQZ_STInterpretator> NewObject() { return std::make_unique<CQZ_STInterpretator>(); }

const Var* Find(CQZ_STInterpretator& object, const char* name) {
    return object.Vars.lookup(name, 0, 0, 0.0, 0, false);
}

std::list<Var> Declared(CQZ_STInterpretator& object, char kind) {
    std::list<Var> list;
    EXPECT_TRUE(object.Vars.GetVarsList(list, kind));
    return list;
}

size_t DeclaredCount(CQZ_STInterpretator& object) {
    size_t count = 0;
    for (char kind = kV; kind <= kTVR; ++kind) count += Declared(object, kind).size();
    return count;
}

// Runs kGood on `object` after loading it and checks its one cycle.
void ExpectGoodProgramRuns(CQZ_STInterpretator& object) {
    ASSERT_EQ(object.InitInterpretator(kGood), 0u);
    RecordingHost host;
    host.Inputs["IN"] = 4;
    ASSERT_EQ(object.Execute(&host), 0u);
    const std::vector<HostCall> expected = {In("IN", 4), Out("OUT", 7, 4, true)};
    EXPECT_EQ(host.Calls, expected);
}

// ---- Texts that load ----

TEST(Loader, DeclaresTheSectionWithKindsIndexesAndValues) {
    auto object = NewObject();
    ASSERT_EQ(object->InitInterpretator(
                  "PROG DEMO VAR COUNT V DINT 0 START VI BOOL 0 LAMP VO BOOL 0 LIMIT VG REAL 2.5 MAIN RET"),
              0u);
    struct Expected {
        const char* Name;
        char Kind, Type;
        int Index;
        double Value;
    };
    const Expected rows[] = {
        {"COUNT", kV, kDINT, 0, 0.0},
        {"START", kVI, kBOOL, 1, 0.0},
        {"LAMP", kVO, kBOOL, 0, 0.0},
        {"LIMIT", kVG, kREAL, 0, 2.5},
    };
    for (const Expected& row : rows) {
        SCOPED_TRACE(row.Name);
        const Var* var = Find(*object, row.Name);
        ASSERT_NE(var, nullptr);
        EXPECT_STREQ(var->VarName, row.Name);
        EXPECT_EQ(var->VarKind, row.Kind);
        EXPECT_EQ(var->VarType, row.Type);
        EXPECT_EQ(var->VarIndex, row.Index);
        EXPECT_EQ(var->VarValue, row.Value);
        EXPECT_EQ(var->VarParam1, 0.0);
        EXPECT_EQ(var->VarParam2, 0.0);
        EXPECT_EQ(var->VarParam3, 0.0);
        EXPECT_EQ(var->VarParam4, 0.0);
        const std::list<Var> list = Declared(*object, row.Kind);
        ASSERT_EQ(list.size(), 1u);
        EXPECT_STREQ(list.front().VarName, row.Name);
        EXPECT_EQ(list.front().VarValue, row.Value);
    }
    EXPECT_EQ(DeclaredCount(*object), 4u);
    EXPECT_STREQ(object->ProgramName, "DEMO");
}

TEST(Loader, ProgramWithoutVariablesDeclaresNothing) {
    auto object = NewObject();
    ASSERT_EQ(object->InitInterpretator("PROG DEMO MAIN RET"), 0u);
    EXPECT_EQ(DeclaredCount(*object), 0u);
    EXPECT_STREQ(object->ProgramName, "DEMO");
}

TEST(Loader, EmptyVarSectionLoads) {
    auto object = NewObject();
    ASSERT_EQ(object->InitInterpretator("PROG DEMO VAR MAIN RET"), 0u);
    EXPECT_EQ(DeclaredCount(*object), 0u);
}

TEST(Loader, KeepsTheTextUnchanged) {
    auto object = NewObject();
    const std::string text = "xx PROG Demo VAR a V INT 0 MAIN RET   ";
    ASSERT_EQ(object->InitInterpretator(text), 0u);
    EXPECT_EQ(object->Text, text);
    EXPECT_EQ(object->TextLen, int32_t(text.size()));
    EXPECT_STREQ(object->ProgramName, "Demo");
    EXPECT_STREQ(Find(*object, "A")->VarName, "a");  // declared case kept
}

struct LoadCase {
    const char* Text;
    const char* ProgramName;
};

void PrintTo(const LoadCase& c, std::ostream* os) { *os << '"' << c.Text << '"'; }

class LoadsTest : public ::testing::TestWithParam<LoadCase> {};

TEST_P(LoadsTest, ResultIsZero) {
    auto object = NewObject();
    EXPECT_EQ(object->InitInterpretator(GetParam().Text), 0u) << GetParam().Text;
    EXPECT_STREQ(object->ProgramName, GetParam().ProgramName);
}

INSTANTIATE_TEST_SUITE_P(
    Texts, LoadsTest,
    ::testing::Values(LoadCase{"PROG DEMO MAIN RET", "DEMO"},
                      LoadCase{"   PROG DEMO MAIN RET", "DEMO"},
                      LoadCase{"XX YY PROG DEMO MAIN RET", "DEMO"},        // tokens before PROG are skipped
                      LoadCase{"| ! ~ PROG D MAIN RET", "D"},              // stray separators too
                      LoadCase{"!!!PROG D MAIN RET", "D"},
                      LoadCase{"@1 -x #foo $1 *2 16#G 8#8 2#3 PROG D MAIN RET", "D"},  // failing scans
                      LoadCase{"prog X PROG D MAIN RET", "D"},             // lower case is a name
                      LoadCase{"#prog D MAIN RET", "D"},                   // '#' keywords ignore case
                      LoadCase{"PROG PROG MAIN RET", "PROG"},              // the name is any run of characters
                      LoadCase{"PROG !@#^~ MAIN RET", "!@#^~"},
                      LoadCase{"PROG a.b,c MAIN RET", "a.b,c"},
                      LoadCase{"PROG   DEMO   MAIN   RET", "DEMO"},
                      LoadCase{"PROG DEMO MAIN: RET", "DEMO"},
                      LoadCase{"PROG DEMO #MAIN RET", "DEMO"},
                      LoadCase{"PROG DEMO #VAR X V INT 0 $MAIN RET", "DEMO"},
                      LoadCase{"PROG DEMO VAR X V INT 0 MAIN RET   ", "DEMO"},  // RET followed by blanks ends the text
                      LoadCase{"PROG DEMO MAIN MOV", "DEMO"},  // without VAR the body is not read at load time
                      LoadCase{"PROG DEMO MAIN MOV ! RET", "DEMO"}));

TEST(Loader, LongProgramNameIsCutToFitAndSkippedWhole) {
    auto object = NewObject();
    const std::string name(300, 'N');
    ASSERT_EQ(object->InitInterpretator("PROG " + name + " VAR X V INT 1 MAIN RET"), 0u);
    EXPECT_EQ(std::strlen(object->ProgramName), 255u);
    EXPECT_EQ(std::string(object->ProgramName), name.substr(0, 255));
    ASSERT_NE(Find(*object, "X"), nullptr);
}

TEST(Loader, NumbersOfEveryLiteralForm) {
    auto object = NewObject();
    ASSERT_EQ(object->InitInterpretator("PROG D VAR A V INT -5 B V REAL 2.5 C V DINT 16#FF D V LREAL -1.5E3 "
                                        "E V UDINT 3000000000 F V SINT 2#101 G V INT 8#17 H V REAL 3. MAIN RET"),
              0u);
    const std::pair<const char*, double> rows[] = {{"A", -5},  {"B", 2.5}, {"C", 255}, {"D", -1500},
                                                   {"E", 3e9}, {"F", 5},   {"G", 15},  {"H", 3}};
    for (const auto& row : rows) EXPECT_EQ(Find(*object, row.first)->VarValue, row.second) << row.first;
}

TEST(Loader, EveryTypeIsAccepted) {
    auto object = NewObject();
    ASSERT_EQ(object->InitInterpretator("PROG D VAR A V BOOL 0 B V SINT 0 C V USINT 0 D V INT 0 E V UINT 0 "
                                        "F V DINT 0 G V UDINT 0 H V REAL 0 I V LREAL 0 MAIN RET"),
              0u);
    const std::pair<const char*, char> rows[] = {{"A", kBOOL}, {"B", kSINT},  {"C", kUSINT},
                                                 {"D", kINT},  {"E", kUINT},  {"F", kDINT},
                                                 {"G", kUDINT}, {"H", kREAL}, {"I", kLREAL}};
    for (const auto& row : rows) {
        EXPECT_EQ(Find(*object, row.first)->VarType, row.second) << row.first;
        EXPECT_EQ(Find(*object, row.first)->VarIndex, &row - rows) << row.first;
    }
}

TEST(Loader, DeclaredValueIsNotNarrowed) {
    // The declared number is stored as written; narrowing happens on reads.
    auto object = NewObject();
    ASSERT_EQ(object->InitInterpretator("PROG D VAR B V BOOL 5 S V SINT 300 MAIN RET"), 0u);
    EXPECT_EQ(Find(*object, "B")->VarValue, 5.0);
    EXPECT_EQ(Find(*object, "S")->VarValue, 300.0);
}

// ---- Declaration counters ----

TEST(Loader, InputsAreNumberedFromOneEverythingElseFromZero) {
    auto object = NewObject();
    ASSERT_EQ(object->InitInterpretator("PROG D VAR I1 VI INT 0 A V INT 0 I2 VI INT 0 B V INT 0 O1 VO INT 0 "
                                        "IO1 VIO INT 0 O2 VO INT 0 G1 VG INT 0 IO2 VIO INT 0 G2 VG INT 0 "
                                        "T1 TVG INT 0 Q1 TVR INT 0 0 0 0 T2 TVG INT 0 Q2 TVR INT 0 0 0 0 MAIN RET"),
              0u);
    const std::pair<const char*, int> rows[] = {{"I1", 1}, {"I2", 2}, {"A", 0},   {"B", 1},   {"O1", 0},
                                                {"O2", 1}, {"IO1", 0}, {"IO2", 1}, {"G1", 0},  {"G2", 1},
                                                {"T1", 0}, {"T2", 1}, {"Q1", 0},  {"Q2", 1}};
    for (const auto& row : rows) EXPECT_EQ(Find(*object, row.first)->VarIndex, row.second) << row.first;
    const int32_t counters[9] = {2, 3, 2, 2, 2, 2, 2, 0, 0};
    for (int i = 0; i < 9; ++i) EXPECT_EQ(object->DeclCounters[i], counters[i]) << i;
}

TEST(Loader, CountersStartAgainOnReload) {
    auto object = NewObject();
    ASSERT_EQ(object->InitInterpretator("PROG D VAR A VI INT 0 B VI INT 0 C V INT 0 MAIN RET"), 0u);
    ASSERT_EQ(object->InitInterpretator("PROG D VAR X VI INT 0 Y V INT 0 MAIN RET"), 0u);
    EXPECT_EQ(Find(*object, "X")->VarIndex, 1);
    EXPECT_EQ(Find(*object, "Y")->VarIndex, 0);
    ASSERT_EQ(object->InitInterpretator("PROG D MAIN RET"), 0u);
    const int32_t counters[9] = {0, 1, 0, 0, 0, 0, 0, 0, 0};
    for (int i = 0; i < 9; ++i) EXPECT_EQ(object->DeclCounters[i], counters[i]) << i;
    EXPECT_EQ(object->DeclReserved, 0);
}

TEST(Loader, RepeatedNameKeepsTheFirstDeclarationButCounts) {
    auto object = NewObject();
    ASSERT_EQ(object->InitInterpretator("PROG D VAR X V INT 1 x VG REAL 2 Y VG INT 3 MAIN RET"), 0u);
    const Var* x = Find(*object, "X");
    EXPECT_EQ(x->VarKind, kV);
    EXPECT_EQ(x->VarType, kINT);
    EXPECT_EQ(x->VarValue, 1.0);
    EXPECT_EQ(Declared(*object, kVG).size(), 1u);
    EXPECT_EQ(Find(*object, "Y")->VarIndex, 1);  // the refused x still took index 0
}

// ---- TVR / TVG parameters ----

TEST(Loader, TvgInheritsTheLastThreeNumbersOfTheTvrBeforeIt) {
    auto object = NewObject();
    ASSERT_EQ(object->InitInterpretator("PROG D VAR G0 TVG REAL 9 T1 TVR REAL 1 2 3 4 G1 TVG INT 5 "
                                        "T2 TVR LREAL -10 2.5 16#20 3. G2 TVG BOOL 6 G3 TVG DINT -7 MAIN RET"),
              0u);
    struct Expected {
        const char* Name;
        char Kind;
        int Index;
        double P1, P2, P3, P4;
    };
    const Expected rows[] = {
        {"G0", kTVG, 0, 9, 0, 0, 0},       {"T1", kTVR, 0, 1, 2, 3, 4},    {"G1", kTVG, 1, 5, 2, 3, 4},
        {"T2", kTVR, 1, -10, 2.5, 32, 3}, {"G2", kTVG, 2, 6, 2.5, 32, 3}, {"G3", kTVG, 3, -7, 2.5, 32, 3},
    };
    for (const Expected& row : rows) {
        SCOPED_TRACE(row.Name);
        const Var* var = Find(*object, row.Name);
        ASSERT_NE(var, nullptr);
        EXPECT_EQ(var->VarKind, row.Kind);
        EXPECT_EQ(var->VarIndex, row.Index);
        EXPECT_EQ(var->VarValue, 0.0);  // TVG and TVR keep their numbers as parameters only
        EXPECT_EQ(var->VarParam1, row.P1);
        EXPECT_EQ(var->VarParam2, row.P2);
        EXPECT_EQ(var->VarParam3, row.P3);
        EXPECT_EQ(var->VarParam4, row.P4);
    }
    const std::list<Var> tvr = Declared(*object, kTVR);
    ASSERT_EQ(tvr.size(), 2u);
    EXPECT_EQ(tvr.back().VarParam2, 2.5);
}

TEST(Loader, TvgCarryOverDoesNotSurviveAReload) {
    auto object = NewObject();
    ASSERT_EQ(object->InitInterpretator("PROG D VAR T TVR REAL 1 2 3 4 MAIN RET"), 0u);
    ASSERT_EQ(object->InitInterpretator("PROG D VAR G TVG REAL 8 MAIN RET"), 0u);
    const Var* g = Find(*object, "G");
    EXPECT_EQ(g->VarParam1, 8.0);
    EXPECT_EQ(g->VarParam2, 0.0);
    EXPECT_EQ(g->VarParam3, 0.0);
    EXPECT_EQ(g->VarParam4, 0.0);
}

// ---- Failures ----

struct FailCase {
    const char* Text;
    Qz::uint32_t Code;
};

void PrintTo(const FailCase& c, std::ostream* os) { *os << '"' << c.Text << "\" -> " << c.Code; }

const FailCase kFailures[] = {
    // 19: nothing at all
    {"", 19},
    // 6 before PROG
    {" ", 6},
    {"     ", 6},
    {"XX YY", 6},
    {"XX YY   ", 6},
    {"prog DEMO MAIN RET", 6},  // no upper-case PROG anywhere
    {"!", 6},                   // nothing but separators: the search still ends
    {"! ! !", 6},
    {"|~^", 6},
    {"%&/?<=>'\"", 6},
    {"@@@", 6},
    {"###", 6},
    {"+-", 6},
    {"! ! ! ", 6},
    // 6 at or right after PROG and inside or right after the program name
    {"PROG", 6},
    {"PROG   ", 6},
    {"PROG DEMO", 6},
    {"PROG DEMO   ", 6},
    // 6 in the VAR section
    {"PROG DEMO VAR", 6},
    {"PROG DEMO VAR   ", 6},
    {"PROG DEMO VAR X", 6},
    {"PROG DEMO VAR X V", 6},
    {"PROG DEMO VAR X V INT", 6},
    {"PROG DEMO VAR X V INT 0", 6},
    {"PROG DEMO VAR X V INT 0 ", 6},
    {"PROG DEMO VAR T TVR REAL 1 2 3", 6},
    {"PROG DEMO VAR MAIN", 6},
    {"PROG DEMO VAR X V INT 0 MAIN", 6},
    {"PROG DEMO VAR X V INT 0 MAIN   ", 6},
    // 6 right after the name when MAIN follows directly
    {"PROG DEMO MAIN", 6},
    {"PROG DEMO MAIN  ", 6},
    // 6 in the body: the text must end with RET
    {"PROG DEMO VAR X V INT 0 MAIN MOV 1 R0", 6},
    {"PROG DEMO VAR X V INT 0 MAIN RET MOV", 6},
    {"PROG DEMO VAR X V INT 0 MAIN RET END", 6},
    {"PROG DEMO VAR X V INT 0 MAIN L: RET L2:", 6},
    {"PROG DEMO VAR X V INT 0 MAIN MOV 5", 6},
    // 20: neither VAR nor MAIN after the program name
    {"PROG DEMO CONST MAIN RET", 20},
    {"PROG DEMO var X V INT 0 MAIN RET", 20},
    {"PROG DEMO 5 MAIN RET", 20},
    {"PROG DEMO @X MAIN RET", 20},
    {"PROG DEMO BODY MAIN RET", 20},
    {"PROG DEMO PROG MAIN RET", 20},
    {"PROG DEMO L: MAIN RET", 20},
    {"PROG DEMO MOV 1 R0 RET", 20},
    {"PROG DEMO RET", 20},
    // 30: declaration kind
    {"PROG DEMO VAR X VA INT 0 MAIN RET", 30},
    {"PROG DEMO VAR X VR INT 0 MAIN RET", 30},
    {"PROG DEMO VAR X BODY INT 0 MAIN RET", 30},
    {"PROG DEMO VAR X INT INT 0 MAIN RET", 30},
    {"PROG DEMO VAR X v INT 0 MAIN RET", 30},
    {"PROG DEMO VAR X 5 INT 0 MAIN RET", 30},
    {"PROG DEMO VAR X MAIN RET", 30},
    {"PROG DEMO VAR X V INT 0 Y FOO INT 0 MAIN RET", 30},
    // 31: type
    {"PROG DEMO VAR X V STRING 0 MAIN RET", 31},
    {"PROG DEMO VAR X V ARRAY 0 MAIN RET", 31},
    {"PROG DEMO VAR X V int 0 MAIN RET", 31},
    {"PROG DEMO VAR X V V 0 MAIN RET", 31},
    {"PROG DEMO VAR X V 5 0 MAIN RET", 31},
    {"PROG DEMO VAR X V FLOAT 0 MAIN RET", 31},
    // 32: a number is missing
    {"PROG DEMO VAR X V INT Y MAIN RET", 32},
    {"PROG DEMO VAR X V INT @Y MAIN RET", 32},
    {"PROG DEMO VAR X V INT R0 MAIN RET", 32},
    {"PROG DEMO VAR X V INT MAIN RET", 32},
    {"PROG DEMO VAR T TVR REAL X 2 3 4 MAIN RET", 32},
    {"PROG DEMO VAR T TVR REAL 1 X 3 4 MAIN RET", 32},
    {"PROG DEMO VAR T TVR REAL 1 2 X 4 MAIN RET", 32},
    {"PROG DEMO VAR T TVR REAL 1 2 3 MAIN RET", 32},
    // 9 and the other scanner codes pass through, in every section
    {"PROG DEMO ! MAIN RET", 9},
    {"PROG DEMO VAR ! V INT 0 MAIN RET", 9},
    {"PROG DEMO VAR X : INT 0 MAIN RET", 9},
    {"PROG DEMO VAR X V INT 0 MAIN MOV ! R0 RET", 9},
    {"PROG DEMO VAR X V INT 0 MAIN LOOP : RET", 9},
    {"PROG DEMO VAR X V INT - MAIN RET", 33},
    {"PROG DEMO VAR X V INT +A MAIN RET", 33},
    {"PROG DEMO VAR X V INT 10#5 MAIN RET", 33},
    {"PROG DEMO VAR X V INT 16#G MAIN RET", 34},
    {"PROG DEMO VAR X V INT 8#9 MAIN RET", 35},
    {"PROG DEMO VAR X V INT 2#2 MAIN RET", 36},
    {"PROG DEMO VAR @1 V INT 0 MAIN RET", 39},
    {"PROG DEMO VAR X V INT 0 MAIN MOV ^ R0 RET", 39},
    {"PROG DEMO VAR X #FOO INT 0 MAIN RET", 41},
    {"PROG DEMO VAR X V $FOO 0 MAIN RET", 42},
    {"PROG DEMO VAR X V INT 0 MAIN *FOO RET", 63},
    {"PROG DEMO VAR X V INT 0 MAIN MOV 16#Z R0 RET", 34},
    {"PROG DEMO #FOO MAIN RET", 41},
};

class FailsTest : public ::testing::TestWithParam<FailCase> {};

TEST_P(FailsTest, ReturnsItsCode) {
    auto object = NewObject();
    EXPECT_EQ(object->InitInterpretator(GetParam().Text), GetParam().Code);
}

TEST_P(FailsTest, ObjectLoadsAgainAfterwards) {
    auto object = NewObject();
    ASSERT_EQ(object->InitInterpretator(GetParam().Text), GetParam().Code);
    ExpectGoodProgramRuns(*object);
    EXPECT_EQ(Find(*object, "Y"), nullptr);  // nothing of the failed text is left
    EXPECT_EQ(object->Labels.lookup("L", 0, 0, false), nullptr);
    // And once more after a failure that follows a good program.
    ASSERT_EQ(object->InitInterpretator(GetParam().Text), GetParam().Code);
    EXPECT_EQ(Find(*object, "OUT"), nullptr);
    ExpectGoodProgramRuns(*object);
}

INSTANTIATE_TEST_SUITE_P(Texts, FailsTest, ::testing::ValuesIn(kFailures));

TEST(Loader, FailedLoadKeepsWhatWasDeclaredBeforeTheFailure) {
    auto object = NewObject();
    ASSERT_EQ(object->InitInterpretator("PROG D VAR A V INT 1 B VO INT 2 C V STRING 0 MAIN RET"), 31u);
    ASSERT_NE(Find(*object, "A"), nullptr);
    ASSERT_NE(Find(*object, "B"), nullptr);
    EXPECT_EQ(Find(*object, "C"), nullptr);
}

TEST(Loader, EmptyTextAfterAStrayProgGivesEndOfText) {
    auto object = NewObject();
    EXPECT_EQ(object->InitInterpretator(""), 19u);  // a new object
    ASSERT_EQ(object->InitInterpretator("PROG DEMO MAIN RET"), 0u);
    EXPECT_EQ(object->InitInterpretator(""), 19u);  // after a good load
    ASSERT_EQ(object->InitInterpretator("PROG   "), 6u);
    ASSERT_EQ(object->TokenCode, 0x10);  // the last token read was PROG
    EXPECT_EQ(object->InitInterpretator(""), 6u);
}

TEST(Loader, StalePROGCodeDoesNotMakeTheFirstWordTheName) {
    auto object = NewObject();
    ASSERT_EQ(object->InitInterpretator("PROG "), 6u);
    ASSERT_EQ(object->TokenCode, 0x10);
    ASSERT_EQ(object->InitInterpretator("PROG DEMO MAIN RET"), 0u);
    EXPECT_STREQ(object->ProgramName, "DEMO");
    ASSERT_EQ(object->InitInterpretator("PROG "), 6u);
    EXPECT_EQ(object->InitInterpretator("X VAR MAIN RET"), 6u);  // still no PROG in it
}

TEST(Loader, FailedLoadLeavesNoMainForExecute) {
    auto object = NewObject();
    ASSERT_EQ(object->InitInterpretator("PROG DEMO MAIN RET"), 0u);
    ASSERT_EQ(object->InitInterpretator("XX YY"), 6u);
    RecordingHost host;
    EXPECT_EQ(object->Execute(&host), 21u);
    EXPECT_TRUE(host.Calls.empty());
}

// ---- Labels ----

TEST(Loader, PreScanRegistersEveryLabelAfterMain) {
    auto object = NewObject();
    const std::string text = "PROG D VAR X V INT 0 MAIN JMP L2 L1: MOV 1 @X L2: RET FN: BODY L1: RET";
    ASSERT_EQ(object->InitInterpretator(text), 0u);
    const std::pair<const char*, size_t> rows[] = {
        {"PROG", text.find("PROG")}, {"VAR", text.find("VAR")},  {"MAIN", text.find("MAIN")},
        {"L1", text.find("L1:")},    {"L2", text.find("L2:")},   {"FN", text.find("FN:")}};
    for (const auto& row : rows) {
        const Label* label = object->Labels.lookup(row.first, 0, 0, false);
        ASSERT_NE(label, nullptr) << row.first;
        EXPECT_EQ(label->LabelStart, int32_t(row.second)) << row.first;
    }
    EXPECT_EQ(object->Labels.lookup("L1", 0, 0, false)->LabelEnd, int32_t(text.find("L1:") + 2));
    EXPECT_EQ(object->Labels.lookup("MAIN", 0, 0, false)->LabelEnd, int32_t(text.find("MAIN") + 3));
    EXPECT_EQ(object->Labels.lookup("BODY", 0, 0, false), nullptr);  // BODY is never registered
    EXPECT_EQ(object->Labels.size(), 6);
}

TEST(Loader, ForwardJumpWorksOnTheFirstCycle) {
    auto object = NewObject();
    ASSERT_EQ(object->InitInterpretator("PROG D VAR O VO INT 0 MAIN JMP SKIP MOV 1 @O SKIP: MOV 2 @O RET"), 0u);
    RecordingHost host;
    ASSERT_EQ(object->Execute(&host), 0u);
    const std::vector<HostCall> expected = {Out("O", 2, 4, true)};
    EXPECT_EQ(host.Calls, expected);
}

TEST(Loader, WithoutVarLabelsAreRegisteredOnlyAsTheyRun) {
    auto object = NewObject();
    ASSERT_EQ(object->InitInterpretator("PROG D MAIN JMP L MOV 1 R0 L: RET"), 0u);
    EXPECT_EQ(object->Labels.lookup("L", 0, 0, false), nullptr);
    EXPECT_NE(object->Labels.lookup("MAIN", 0, 0, false), nullptr);
    RecordingHost host;
    EXPECT_EQ(object->Execute(&host), 22u);  // the forward label is not known yet

    ASSERT_EQ(object->InitInterpretator("PROG D MAIN TST R0 JMPT L L: JMP L2 L2: RET"), 0u);
    EXPECT_EQ(object->Labels.lookup("L", 0, 0, false), nullptr);
    ASSERT_EQ(object->R0.Value, 0.0);
    EXPECT_EQ(object->Execute(&host), 22u);  // L is passed and registered, then L2 is unknown
    EXPECT_NE(object->Labels.lookup("L", 0, 0, false), nullptr);
    EXPECT_EQ(object->Labels.lookup("L2", 0, 0, false), nullptr);
}

TEST(Loader, WithoutVarALabelRegisteredByAnEarlierCycleIsFound) {
    auto object = NewObject();
    ASSERT_EQ(object->InitInterpretator("PROG D MAIN TST R0 JMPT DONE MOV 1 R0 DONE: RET"), 0u);
    RecordingHost host;
    ASSERT_EQ(object->R0.Value, 0.0);
    EXPECT_EQ(object->Execute(&host), 0u);  // jump not taken; DONE registered on the way
    EXPECT_EQ(object->R0.Value, 1.0);
    EXPECT_EQ(object->Execute(&host), 0u);  // now taken
}

TEST(Loader, DuplicateLabelKeepsItsFirstPlace) {
    auto object = NewObject();
    const std::string text = "PROG D VAR O VO INT 0 MAIN JMP L L: MOV 1 @O RET L: MOV 2 @O RET";
    ASSERT_EQ(object->InitInterpretator(text), 0u);
    EXPECT_EQ(object->Labels.lookup("L", 0, 0, false)->LabelStart, int32_t(text.find("L:")));
    RecordingHost host;
    ASSERT_EQ(object->Execute(&host), 0u);
    EXPECT_EQ(host.Calls.back(), Out("O", 1, 4, true));
}

// ---- Reloading ----

TEST(Loader, ReloadForgetsVariablesAndLabels) {
    auto object = NewObject();
    ASSERT_EQ(object->InitInterpretator("PROG A VAR X V INT 1 MAIN JMP L L: RET"), 0u);
    ASSERT_NE(object->Labels.lookup("L", 0, 0, false), nullptr);
    ASSERT_EQ(object->InitInterpretator("PROG B VAR Y V INT 2 MAIN RET"), 0u);
    EXPECT_EQ(Find(*object, "X"), nullptr);
    EXPECT_EQ(Find(*object, "Y")->VarValue, 2.0);
    EXPECT_EQ(object->Labels.lookup("L", 0, 0, false), nullptr);
    EXPECT_STREQ(object->ProgramName, "B");
}

TEST(Loader, ReloadKeepsRegistersValueStackCallStackAndTick) {
    auto object = NewObject();
    ASSERT_EQ(object->InitInterpretator("PROG A MAIN RET"), 0u);
    object->SetValueToRegister(char(0x82), kREAL, 2.5);
    object->StackPush(kDINT, 7);
    object->TestFlag = 1;
    object->TickValue = 123;
    object->CallStack.push_back(QZ_FuncStackValue{5});
    ASSERT_EQ(object->InitInterpretator("PROG B VAR X V INT 0 MAIN RET"), 0u);
    EXPECT_EQ(object->R0.Value, 2.5);
    EXPECT_EQ(object->R0.ValueType, kREAL);
    EXPECT_EQ(object->TestFlag, 1);
    EXPECT_EQ(object->TickValue, 123.0);
    ASSERT_EQ(object->Stack.size(), 1u);
    EXPECT_EQ(object->Stack.back().Value, 7.0);
    EXPECT_EQ(object->CallStack.size(), 1u);
}

TEST(Loader, ReloadDiscardsFramesLeftByAFailedCall) {
    auto object = NewObject();
    ASSERT_EQ(object->InitInterpretator("PROG A VAR G VG INT 0 MAIN CAL S RET S: L V INT 5 BODY MOV POP R0 RET"), 0u);
    RecordingHost host;
    ASSERT_EQ(object->Execute(&host), 11u);  // fails inside S: its frame stays pushed
    ASSERT_EQ(object->TableStack.size(), 1u);
    ASSERT_NE(object->GetVar("L"), nullptr);
    ASSERT_EQ(object->InitInterpretator("PROG B VAR G VG INT 4 MAIN RET"), 0u);
    EXPECT_TRUE(object->TableStack.empty());
    EXPECT_EQ(object->GetVar("G")->VarValue, 4.0);  // the program's own table is current again
    EXPECT_EQ(object->CallStack.size(), 1u);          // only the destructor empties it
}

}  // namespace
