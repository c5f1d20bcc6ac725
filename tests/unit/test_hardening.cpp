// Hostile input against the internals: tokens of 10,000 characters, every
// byte value in names and after every prefix, texts cut at every position,
// references through anything that is not a live handle, reloading after
// every kind of failure, and the saved fuzz inputs of tests/regressions.
//
// Each case must end with a result code the library documents, with nothing
// read or written out of bounds and nothing leaked; the ASan build
// (scripts/sanitize) runs this file too, so "no crash here" means "no
// sanitizer report".
#define QZ_FUZZ_NO_MAIN
#include "../../fuzz/fuzz_program.cpp"
#include "../../fuzz/fuzz_text.cpp"

#include "qz_st_intrpr_main.h"
#include "recording_host.h"
#include "test_machine.h"

#include <gtest/gtest.h>

#include <dirent.h>

#include <cmath>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <limits>
#include <memory>
#include <sstream>
#include <string>
#include <vector>

namespace {

bool Documented(Qz::uint32_t code) { return Qz::ResultMeaning(code) != nullptr; }

// The plug-in object, released through Destroy() as a host does.
struct ObjectDeleter {
    void operator()(CQZ_STInterpretator* o) const { o->Destroy(); }
};
using Object = std::unique_ptr<CQZ_STInterpretator, ObjectDeleter>;
Object NewObject() { return Object(new CQZ_STInterpretator()); }

uint32_t SteadyClock(void* context) { return *static_cast<uint32_t*>(context) += 10; }

// Loads `text`, runs one cycle under a budget, and returns both codes.
struct LoadRun {
    Qz::uint32_t Load, Run;
};
LoadRun LoadAndRun(CQZ_STInterpretator& o, const std::string& text, uint64_t budget = 10000) {
    static uint32_t now = 0;
    o.InstructionBudget = budget;
    o.Clock = SteadyClock;
    o.ClockContext = &now;
    RecordingHost host;
    LoadRun r{o.InitInterpretator(text), 0};
    r.Run = o.Execute(&host);
    return r;
}

const std::string kLong(10000, 'A');

// ---- 10,000-character tokens ----

TEST(HardeningLong, VariableNameOfTenThousandCharacters) {
    Object o = NewObject();
    const std::string text = "PROG P VAR " + kLong + " V DINT 0 MAIN MOV 5 @" + kLong + " MOV @" + kLong + " R0 RET";
    ASSERT_EQ(o->InitInterpretator(text), 0u);
    RecordingHost host;
    ASSERT_EQ(o->Execute(&host), 0u);
    EXPECT_EQ(o->R0.Value, 5.0);
    EXPECT_EQ(o->R0.ValueType, char(ttDINT));
    const Var* var = o->GetVar(kLong.substr(0, 255).c_str());
    ASSERT_NE(var, nullptr);
    EXPECT_EQ(std::strlen(var->VarName), 255u);
}

TEST(HardeningLong, ProgramNameAndLabelOfTenThousandCharacters) {
    Object o = NewObject();
    const std::string label(10000, 'L');
    const std::string text = "PROG " + kLong + " VAR X V DINT 0 MAIN JMP " + label + " MOV 1 R0 RET " + label +
                             ": MOV 2 R0 RET";
    ASSERT_EQ(o->InitInterpretator(text), 0u);
    EXPECT_EQ(std::string(o->ProgramName), kLong.substr(0, 255));
    RecordingHost host;
    ASSERT_EQ(o->Execute(&host), 0u);
    EXPECT_EQ(o->R0.Value, 2.0);
}

TEST(HardeningLong, LiteralsOfTenThousandCharacters) {
    const std::string ones(10000, '1'), fives(10000, '5'), nines(10000, '9');
    const double inf = std::numeric_limits<double>::infinity();
    struct Case {
        std::string Literal;
        double Value;
        char Type;
    };
    const Case cases[] = {
        {ones, 9223372036854775807.0, char(ttUDINT)},  // saturates at 2^63 - 1
        {"-" + ones, -9223372036854775807.0, char(ttUDINT)},
        {"16#" + std::string(10000, 'F'), -1.0, char(ttSINT)},  // saturates at 2^64 - 1
        {"8#" + std::string(10000, '7'), -1.0, char(ttSINT)},
        {"2#1" + std::string(9999, '0'), 0.0, char(ttSINT)},  // keeps the last 64 digits
        {"2#" + ones, -1.0, char(ttSINT)},
        {"1." + fives, std::strtod(("1." + fives.substr(0, 253)).c_str(), nullptr), char(ttREAL)},
        {"1.5E" + nines, inf, char(ttLREAL)},
        {"1.5E-" + nines, 0.0, char(ttREAL)},
        {"1.5E2-" + nines, 150.0, char(ttREAL)},  // strtod stops at the '-'
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.Literal.substr(0, 12));
        TestMachine m;
        ASSERT_EQ(m.RunText("MOV " + c.Literal + " R0 RET"), 0u);
        EXPECT_EQ(m.R0.Value, c.Value);
        EXPECT_EQ(m.R0.ValueType, c.Type);
        EXPECT_LE(std::strlen(m.TokenText), 255u);
    }
}

TEST(HardeningLong, PrefixedNamesOfTenThousandCharacters) {
    const struct {
        std::string Prefix;
        Qz::uint32_t Code;
    } cases[] = {{"@", Qz::rcVarNotFound}, {"^", Qz::rcVarNotFound}, {"#", Qz::rcBadHashKeyword},
                 {"$", Qz::rcBadDollarKeyword}, {"*", Qz::rcBadStarKeyword}, {"#R0", Qz::rcBadHashKeyword}};
    for (const auto& c : cases) {
        SCOPED_TRACE(c.Prefix);
        TestMachine m;
        EXPECT_EQ(m.RunText("MOV " + c.Prefix + kLong + " R0 RET"), c.Code);
        EXPECT_EQ(m.R0.Value, 0.0);
    }
}

// ---- Every byte value ----

// A byte that continues a name (neither the blank nor a separator).
bool NameByte(char c) { return c != ' ' && !IsSeparatorChar(c); }

TEST(HardeningBytes, EveryByteInsideAVariableName) {
    for (int b = 0; b < 256; ++b) {
        SCOPED_TRACE(b);
        const std::string name = std::string("A") + char(b) + "B";
        const std::string text = "PROG P VAR " + name + " V DINT 0 MAIN MOV 7 @" + name + " MOV @" + name + " R0 RET";
        Object o = NewObject();
        const LoadRun r = LoadAndRun(*o, text);
        EXPECT_TRUE(Documented(r.Load)) << r.Load;
        EXPECT_TRUE(Documented(r.Run)) << r.Run;
        if (NameByte(char(b))) {
            // Case-insensitive, and a NUL ends the name where it stands.
            EXPECT_EQ(r.Load, 0u);
            EXPECT_EQ(r.Run, 0u);
            EXPECT_EQ(o->R0.Value, 7.0);
        } else {
            EXPECT_NE(r.Load, 0u);
        }
    }
}

TEST(HardeningBytes, EveryByteAfterEveryPrefix) {
    for (int b = 0; b < 256; ++b) {
        const char c = char(b);
        const bool hex = IsDigitChar(c) || (c >= 'A' && c <= 'F') || (c >= 'a' && c <= 'f');
        const bool alpha = CQZ_STInterpretator_Base::IsAlpha(c);
        const struct {
            std::string Prefix;
            Qz::uint32_t Code;  // for "MOV <prefix><byte>X R0"
        } cases[] = {
            {"@", alpha ? Qz::rcVarNotFound : Qz::rcBadVarName},
            {"^", alpha ? Qz::rcVarNotFound : Qz::rcBadVarName},
            {"#", Qz::rcBadHashKeyword},
            {"$", Qz::rcBadDollarKeyword},
            {"*", Qz::rcBadStarKeyword},
            // A digit makes a number, and then "X" is no destination.
            {"+", IsDigitChar(c) ? Qz::rcMovOperand : Qz::rcBadNumber},
            {"-", IsDigitChar(c) ? Qz::rcMovOperand : Qz::rcBadNumber},
            {"16#", hex ? Qz::rcMovOperand : Qz::rcBadHexDigit},
            {"8#", (c >= '0' && c <= '7') ? Qz::rcMovOperand : Qz::rcBadOctalDigit},
            {"2#", (c == '0' || c == '1') ? Qz::rcMovOperand : Qz::rcBadBinaryDigit},
        };
        for (const auto& k : cases) {
            SCOPED_TRACE(::testing::Message() << k.Prefix << " then byte " << b);
            TestMachine m;
            EXPECT_EQ(m.RunText("MOV " + k.Prefix + c + "X R0 RET"), k.Code);
            EXPECT_EQ(m.R0.Value, 0.0);
            EXPECT_EQ(m.TokenText[m.TokenLength], 0);
            // The same inside a whole program: whatever the load says, a
            // cycle run regardless ends with a documented code.
            Object o = NewObject();
            const LoadRun r =
                LoadAndRun(*o, "PROG P VAR X V DINT 0 MAIN MOV " + k.Prefix + c + "X R0 MOV 1 R1 RET");
            EXPECT_TRUE(Documented(r.Load)) << r.Load;
            EXPECT_TRUE(Documented(r.Run)) << r.Run;
        }
    }
}

TEST(HardeningBytes, EveryByteAsAPrefixedDigitThenTheRegister) {
    for (int b = 0; b < 256; ++b) {
        const char c = char(b);
        SCOPED_TRACE(b);
        TestMachine m;
        const Qz::uint32_t r = m.RunText(std::string("MOV 16#") + c + " R0 RET");
        if (IsDigitChar(c)) {
            EXPECT_EQ(r, 0u);
            EXPECT_EQ(m.R0.Value, double(c - '0'));
        } else if ((c >= 'A' && c <= 'F') || (c >= 'a' && c <= 'f')) {
            EXPECT_EQ(r, 0u);
            EXPECT_EQ(m.R0.Value, double(AsciiUpper(c) - 'A' + 10));
        } else {
            EXPECT_EQ(r, Qz::rcBadHexDigit);
        }
    }
}

// ---- Texts cut at every position ----

const char* const kFullProgram =
    "PROG ALL VAR CNT V DINT 0 START VI BOOL 0 LEVEL VI REAL 0 LAMP VO BOOL 0 OUTV VO LREAL 0 "
    "KEEP VIO INT 7 LIMIT VG REAL 2.5 T1 TVR REAL 1 2 3 4 T2 TVG UDINT 5 S8 V SINT -5 U32 V UDINT 16#FFFFFFFF "
    "MAIN MOV @START R0 TST R0 JMPF OFF MOV 1 @LAMP OFF: MOV @LEVEL R0 ADD 1.5 R0 SUB 2 R0 MUL 3 R0 "
    "DIV 4 R0 MOV R0 @OUTV MOV 17 R1 MOD 5 R1 NE 1 R0 EQ 2 R0 GT 3 R1 GE 4 R1 LT 5 R1 LE 6 R1 "
    "MOV 1 R0 MOV @START R1 OR @START R1 XOR @LAMP R1 AND @LAMP R1 NOT R1 MOV @S8 R0 BOR 1 R0 "
    "BXOR 16#F R0 BAND 8#17 R0 BNOT R0 NG R0 MOV 2#1011 R0 SHL 3 R0 SHR 1 R0 ROL 5 R0 ROR 7 R0 "
    "MOV @U32 R1 ROL 1 R1 MOV 2.0 R0 POW 10 R0 MOV 2 PUSH MOV 10 PUSH EXEC POW MOV 2.5 PUSH EXEC sqrt "
    "MOV 1.5E3 PUSH EXEC LOG10 MOVA @CNT R0 MOVA @KEEP @CNT MOV 9 ^CNT MOV ^CNT A0 MOV TICK R0 "
    "MOV 0 TICK MOV 5 PUSH CAL SUB1 MOV POP @CNT MOV 1 #R0 MOV #R0 $PUSH MOV *POP NIL JMP DONE "
    "SUB1: X V DINT 0 P VR DINT 0 BODY MOV POP R0 ADD 1 R0 MOV R0 @X MOVA @X @P MOV 3 ^P MOV @X PUSH RET "
    "DONE: RET";

TEST(HardeningCut, EveryPrefixLoadsOrFailsAndRunsSafely) {
    const std::string full = kFullProgram;
    // Reference run of the whole text.
    Object reference = NewObject();
    const LoadRun whole = LoadAndRun(*reference, full);
    ASSERT_EQ(whole.Load, 0u);
    ASSERT_EQ(whole.Run, 0u);
    const double cnt = reference->GetVar("CNT")->VarValue;

    Object reused = NewObject();
    for (size_t cut = 0; cut <= full.size(); ++cut) {
        SCOPED_TRACE(cut);
        const std::string prefix = full.substr(0, cut);
        Object fresh = NewObject();
        const LoadRun r = LoadAndRun(*fresh, prefix);
        ASSERT_TRUE(Documented(r.Load)) << r.Load;
        ASSERT_TRUE(Documented(r.Run)) << r.Run;
        if (cut == 0) {
            EXPECT_EQ(r.Load, Qz::rcEmptyText);
        }
        // A prefix loads only when it ends in a RET of its own.
        if (r.Load == 0) {
            const size_t last = prefix.find_last_not_of(' ');
            EXPECT_EQ(prefix.substr(last - 2, 3), "RET");
        }

        // One object through every failure: the whole text still loads and
        // runs exactly as on a fresh object.
        LoadAndRun(*reused, prefix);
        const LoadRun again = LoadAndRun(*reused, full);
        ASSERT_EQ(again.Load, 0u);
        ASSERT_EQ(again.Run, 0u);
        EXPECT_EQ(reused->GetVar("CNT")->VarValue, cnt);
        EXPECT_TRUE(reused->TableStack.empty());
    }
}

// ---- References through anything that is not a live handle ----

double FromBits(uint64_t bits) {
    double d;
    std::memcpy(&d, &bits, sizeof d);
    return d;
}

TEST(HardeningReferences, EveryKindOfInvalidHandleGives23AndTouchesNothing) {
    TestMachine m;
    m.Vars.lookup("X", char(ttVG), char(ttDINT), 5.0, 0, true);
    m.Vars.lookup("P", char(ttVG), char(ttLREAL), 0.0, 0, true);
    m.Vars.lookup("Q", char(ttVR), char(ttDINT), 0.0, 0, true);
    ASSERT_EQ(m.RunText("MOVA @X A0 RET"), 0u);
    const double liveHandle = m.A0.Value;
    // A subprogram local's handle, kept after its frame is gone.
    const std::string call = "CAL F RET F: L V DINT 0 BODY MOVA @L R1 RET RET";
    m.SetProgram(call);
    while (m.Scan(m.TokenText) == 0 && m.TokenCode != ttEND) {
    }  // registers F
    ASSERT_EQ(m.RunText(call), 0u);
    ASSERT_TRUE(m.TableStack.empty());
    const double frameHandle = m.R1.Value;
    uint64_t liveBits;
    std::memcpy(&liveBits, &liveHandle, sizeof liveBits);

    const double invalid[] = {
        0.0,
        -0.0,
        5.0,
        -1.0,
        1e308,
        std::numeric_limits<double>::quiet_NaN(),
        std::numeric_limits<double>::infinity(),
        -std::numeric_limits<double>::infinity(),
        FromBits(3),                                // an index never handed out
        FromBits(0xFFFFFF),                         // the largest index
        FromBits(liveBits + (uint64_t(1) << 24)),   // right index, wrong generation
        FromBits(liveBits | (uint64_t(1) << 47)),   // bits above a handle's range
        FromBits(liveBits | (uint64_t(1) << 63)),   // the sign bit
        frameHandle,
    };
    for (double handle : invalid) {
        SCOPED_TRACE(::testing::Message() << std::hexfloat << handle);
        for (const char* instruction : {"MOV ^P R0 RET", "MOV 1 ^P RET", "ADD ^P R0 RET", "MOVA @Q R0 RET",
                                        "MOV ^Q R0 RET", "MOV 7 ^Q RET", "MOVA ^P R0 RET"}) {
            SCOPED_TRACE(instruction);
            m.GetVar("P")->VarValue = handle;
            m.GetVar("Q")->VarValue = handle;
            m.GetVar("X")->VarValue = 5.0;
            m.R0 = QZ_Register{3.0, char(ttSINT)};
            // MOVA takes no reference as its source, whatever it holds.
            const bool refSource = std::strncmp(instruction, "MOVA ^", 6) == 0;
            EXPECT_EQ(m.RunText(instruction), refSource ? Qz::rcMovOperand : Qz::rcVarNotFound);
            EXPECT_EQ(m.GetVar("X")->VarValue, 5.0);
            EXPECT_EQ(m.R0.Value, 3.0);
            EXPECT_EQ(m.R0.ValueType, char(ttSINT));
        }
    }

    // The live handle still works.
    m.GetVar("P")->VarValue = liveHandle;
    ASSERT_EQ(m.RunText("MOV 9 ^P RET"), 0u);
    EXPECT_EQ(m.GetVar("X")->VarValue, 9.0);
}

TEST(HardeningReferences, ReloadMakesEveryHandleStale) {
    Object o = NewObject();
    const LoadRun first = LoadAndRun(*o, "PROG P VAR X VG DINT 5 MAIN MOVA @X R0 RET");
    ASSERT_EQ(first.Run, 0u);
    const double handle = o->R0.Value;
    // The new program takes the same slot for its own X first.
    ASSERT_EQ(o->InitInterpretator("PROG P VAR X VG DINT 5 P VG LREAL 0 MAIN MOVA @X R1 MOV 1 ^P RET"), 0u);
    o->GetVar("P")->VarValue = handle;
    RecordingHost host;
    EXPECT_EQ(o->Execute(&host), Qz::rcVarNotFound);
    EXPECT_EQ(o->GetVar("X")->VarValue, 5.0);
}

TEST(HardeningReferences, AHandleOfAnotherObjectFindsNothing) {
    Object a = NewObject(), b = NewObject();
    ASSERT_EQ(LoadAndRun(*a, "PROG A VAR X VG DINT 0 MAIN MOVA @X R0 RET").Run, 0u);
    ASSERT_EQ(b->InitInterpretator("PROG B VAR P VG LREAL 0 MAIN MOV 1 ^P RET"), 0u);
    b->GetVar("P")->VarValue = a->R0.Value;
    RecordingHost host;
    EXPECT_EQ(b->Execute(&host), Qz::rcVarNotFound);
}

// ---- Reloading after every kind of failure ----

TEST(HardeningReload, InitAfterEveryFailureGivesAFreshProgram) {
    const struct {
        std::string Text;
        Qz::uint32_t Load;
        int Cycles;
        Qz::uint32_t Run;  // of the last cycle, when the load succeeded
    } failures[] = {
        {"", Qz::rcEmptyText, 0, 0},
        {"PROG", Qz::rcEndOfText, 0, 0},
        {"PROG  ", Qz::rcEndOfText, 0, 0},
        {"PROG P CONST MAIN RET", Qz::rcNoVarOrMain, 0, 0},
        {"PROG P VAR X V INT 0 RET", Qz::rcEndOfText, 0, 0},
        {"PROG P VAR X VA INT 0 MAIN RET", Qz::rcBadDeclKind, 0, 0},
        {"PROG P VAR X V STRING 0 MAIN RET", Qz::rcBadDeclType, 0, 0},
        {"PROG P VAR X V INT Y MAIN RET", Qz::rcNoDeclNumber, 0, 0},
        {"PROG P VAR X V INT 16#G MAIN RET", Qz::rcBadHexDigit, 0, 0},
        {"PROG P VAR X V INT 0 MAIN MOV @+ R0 RET", Qz::rcBadVarName, 0, 0},
        {"PROG P VAR X V INT 0 MAIN MOV #FOO R0 RET", Qz::rcBadHashKeyword, 0, 0},
        {"PROG P VAR X V INT 0 MAIN MOV 1 R0", Qz::rcEndOfText, 0, 0},
        {"PROG P VAR X V INT 0 MAIN MOV POP R0 RET", 0, 1, Qz::rcStackEmpty},
        {"PROG P VAR X V INT 0 MAIN FOO RET", 0, 1, Qz::rcNotInstruction},
        {"PROG P VAR X V INT 0 MAIN MOV 0 R0 DIV 1 R0 RET", 0, 1, Qz::rcDivisionByZero},
        {"PROG P VAR X V INT 0 MAIN JMP NOWHERE RET", 0, 1, Qz::rcLabelNotFound},
        {"PROG P VAR X V INT 0 MAIN MOV 1 @Y RET", 0, 1, Qz::rcVarNotFound},
        {"PROG P VAR X V INT 0 MAIN MOV NIL R0 RET", 0, 1, Qz::rcNotRegister},
        {"PROG P VAR X V INT 0 MAIN EXEC NOSUCH RET", 0, 1, Qz::rcNoBuiltin},
        {"PROG P VAR X V INT 0 MAIN CAL F RET F: BODY MOV POP R0 RET RET", 0, 1, Qz::rcStackEmpty},
        // The first cycle fails inside F and leaves its call pending; the
        // second returns from F normally and meets MAIN's RET with it.
        {"PROG P VAR N VG DINT 0 MAIN MOV 0 R0 CAL F RET F: BODY TST R0 JMPT OK MOV 1 R0 MOV POP R1 OK: RET RET", 0,
         1, Qz::rcStackEmpty},
        {"PROG P VAR N VG DINT 0 MAIN CAL F RET F: BODY TST R0 JMPT OK MOV 1 R0 MOV POP R1 OK: RET RET", 0, 2,
         Qz::rcRetWithCallsPending},
        {"PROG P VAR X V INT 0 MAIN L: JMP L RET", 0, 1, Qz::rcBudgetExhausted},
        {"PROG P VAR X V INT 0 MAIN CAL F RET F: BODY CAL F RET RET", 0, 1, Qz::rcBudgetExhausted},
        {"PROG P VAR X V INT 0 MAIN CAL F RET F: BODY CAL F RET RET", 0, 2, Qz::rcVarNotFound},
    };
    const std::string good = "PROG GOOD VAR IN VI DINT 0 OUT VO DINT 0 MAIN MOV @IN R0 ADD 1 R0 MOV R0 @OUT RET";
    Object o = NewObject();
    uint32_t now = 0;
    o->Clock = SteadyClock;
    o->ClockContext = &now;
    for (const auto& f : failures) {
        SCOPED_TRACE(f.Text);
        o->InstructionBudget = 1000;
        ASSERT_EQ(o->InitInterpretator(f.Text), f.Load);
        Qz::uint32_t last = 0;
        for (int i = 0; i < f.Cycles; ++i) {
            RecordingHost host;
            last = o->Execute(&host);
        }
        EXPECT_EQ(last, f.Run);
        // Running once more after the failure is safe too.
        RecordingHost again;
        EXPECT_TRUE(Documented(o->Execute(&again)));

        o->InstructionBudget = 0;
        ASSERT_EQ(o->InitInterpretator(good), 0u);
        EXPECT_TRUE(o->TableStack.empty());
        RecordingHost host;
        host.Inputs["IN"] = 41;
        ASSERT_EQ(o->Execute(&host), 0u);
        ASSERT_EQ(host.Calls.size(), 2u);
        EXPECT_EQ(host.Calls[0], In("IN", 41));
        EXPECT_EQ(host.Calls[1], Out("OUT", 42, 6, true));
    }
}

// ---- Saved inputs of the fuzzers ----

std::string SourceDir() { return std::string(QZ_REPOSITORY_ROOT) + "/tests/unit"; }

std::vector<std::string> FilesIn(const std::string& dir) {
    std::vector<std::string> files;
    if (DIR* d = opendir(dir.c_str())) {
        while (const dirent* e = readdir(d))
            if (e->d_name[0] != '.') files.push_back(dir + "/" + e->d_name);
        closedir(d);
    }
    return files;
}

std::string ReadFile(const std::string& path) {
    std::ifstream in(path, std::ios::binary);
    std::ostringstream s;
    s << in.rdbuf();
    return s.str();
}

// The harness checks its own invariants and stops the process when one
// breaks; an empty or missing corpus would make these tests pass on nothing.
TEST(HardeningRegressions, SavedProgramInputs) {
    const std::vector<std::string> files = FilesIn(SourceDir() + "/../regressions/program");
    ASSERT_FALSE(files.empty()) << "no saved inputs in tests/regressions/program";
    for (const std::string& file : files) {
        SCOPED_TRACE(file);
        const std::string data = ReadFile(file);
        ASSERT_GE(data.size(), 2u);  // the flags byte and the seed byte
        EXPECT_EQ(QzFuzzProgram(reinterpret_cast<const uint8_t*>(data.data()), data.size()), 0);
    }
}

// The same inputs in the harness's unbounded mode (QZ_FUZZ_UNBOUNDED=1): no
// budget, the resource limits, the probe that bounds the time.
TEST(HardeningRegressions, SavedProgramInputsWithoutBudget) {
    const std::vector<std::string> files = FilesIn(SourceDir() + "/../regressions/program");
    ASSERT_FALSE(files.empty()) << "no saved inputs in tests/regressions/program";
    for (const std::string& file : files) {
        SCOPED_TRACE(file);
        const std::string data = ReadFile(file);
        EXPECT_EQ(QzFuzzProgramUnbounded(reinterpret_cast<const uint8_t*>(data.data()), data.size()), 0);
    }
}

// What the harness does with one input, as result codes in order: the load
// (two when the text is loaded twice), each cycle, and the reload of the
// prefix with its cycle.
std::vector<Qz::uint32_t> ReplayProgramInput(const std::string& data) {
    const uint8_t flags = uint8_t(data[0]);
    const uint8_t seed = uint8_t(data[1]);
    const std::string text = data.substr(2);
    std::vector<Qz::uint32_t> results;
    Object object = NewObject();
    QZSetInstructionBudget(object.get(), (flags & 16) ? 64 : 4096);
    FuzzClock clock;
    clock.StepsBack = flags & 64;
    QZSetClock(object.get(), &FuzzClock::Read, &clock);
    size_t traceLength = text.size();
    if (flags & 8) QZSetTraceHook(object.get(), &TraceSink, &traceLength);
    FuzzHost host(seed);
    if (flags & 32) results.push_back(object->InitInterpretator(text));
    results.push_back(object->InitInterpretator(text));
    for (int i = 0; i < 1 + (flags & 3); ++i) {
        results.push_back(object->Execute(&host));
        ++host.Cycle;
    }
    if (flags & 4) {
        const std::string prefix = text.substr(0, text.size() * seed / 255);
        traceLength = prefix.size();
        results.push_back(object->InitInterpretator(prefix));
        results.push_back(object->Execute(&host));
    }
    return results;
}

// The saved program inputs written by hand, and what each must do.
TEST(HardeningRegressions, SavedProgramOutcomes) {
    struct Row {
        const char* File;
        std::vector<Qz::uint32_t> Results;
    };
    const Row rows[] = {
        // Two cycles of a recursion five deep and a nested call.
        {"calls-nested-and-recursive", {0, 0, 0}},
        // The failed call's frame hides G from the next cycles; reloading
        // drops the frame but not the open call, so the body runs again.
        {"frame-left-by-a-failed-call", {0, 15, 23, 23, 23, 0, 15}},
        // The first cycle leaves FAIL open; later cycles reach MAIN's RET
        // with it still open, also after the reload.
        {"ret-with-a-call-left-open", {0, 11, 8, 8, 8, 0, 8}},
        // A handle to a local of a call that returned is stale (trace on).
        {"reference-to-a-returned-local", {0, 23, 23}},
        // A handle passed on the stack, taken by a VR local.
        {"reference-passed-into-a-subprogram", {0, 0, 0, 0}},
        // A budget of 64 ends an endless loop inside a call, every cycle.
        {"budget-spent-inside-a-call", {0, 100, 100}},
        // ... and an endless recursion; the reload of the whole text too.
        {"budget-spent-in-deep-recursion", {0, 100, 100, 0, 100}},
        // Without VAR, a label ahead is unknown until the body passes it.
        {"forward-jump-without-var-loaded-twice", {0, 0, 22, 22, 22}},
        // TICK on a clock that steps back on every read (trace on).
        {"tick-on-a-clock-that-steps-back", {0, 0, 0}},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.File);
        const std::string data = ReadFile(SourceDir() + "/../regressions/program/" + row.File);
        ASSERT_GE(data.size(), 2u) << "missing or empty";
        EXPECT_EQ(ReplayProgramInput(data), row.Results);
    }
}

TEST(HardeningRegressions, SavedTextInputs) {
    const std::vector<std::string> files = FilesIn(SourceDir() + "/../regressions/text");
    ASSERT_FALSE(files.empty()) << "no saved inputs in tests/regressions/text";
    for (const std::string& file : files) {
        SCOPED_TRACE(file);
        const std::string data = ReadFile(file);
        EXPECT_EQ(QzFuzzText(reinterpret_cast<const uint8_t*>(data.data()), data.size()), 0);
    }
}

TEST(HardeningRegressions, SeedProgramsThroughBothTargets) {
    const std::vector<std::string> files = FilesIn(SourceDir() + "/../../fuzz/seeds");
    ASSERT_FALSE(files.empty());
    for (const std::string& file : files) {
        SCOPED_TRACE(file);
        std::string text = ReadFile(file);
        for (char& c : text)
            if (c == '\n' || c == '\t' || c == '\r') c = ' ';
        for (uint8_t flags : {0x00, 0x03, 0x0c, 0x30, 0x57}) {
            const std::string data = std::string(1, char(flags)) + char(0x80) + text;
            EXPECT_EQ(QzFuzzProgram(reinterpret_cast<const uint8_t*>(data.data()), data.size()), 0);
        }
        for (char piece : {'\0', '\5'}) {  // the scanner alone, the machine alone
            const std::string input = std::string(1, piece) + text;
            EXPECT_EQ(QzFuzzText(reinterpret_cast<const uint8_t*>(input.data()), input.size()), 0);
        }
    }
}

}  // namespace
