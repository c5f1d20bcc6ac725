// The compiled core against the plain path: every program we can collect or
// generate runs through both, and everything either leaves behind must be
// identical after the load and after every cycle (differential.h lists what
// is compared). Programs come from the string literals of the other tests,
// from examples/, from a hand-written set covering every instruction and
// failure, from a generator, and from mutations of all of these.
//
// QZ_DIFF_COUNT (default 1500) sets how many programs are generated and how
// many mutants are made; QZ_DIFF_SEED changes the random sequence.
#include "differential.h"
#include "test_machine.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cctype>
#include <cstdlib>
#include <dirent.h>
#include <sys/stat.h>
#include <fstream>
#include <random>
#include <set>

namespace {

// ---- Programs collected from the sources of the other tests ----

std::string ReadFile(const std::string& path) {
    std::ifstream in(path, std::ios::binary);
    return std::string(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
}

// Regular files in `dir` whose names end in `suffix`; with `deep`, in its
// subdirectories too.
std::vector<std::string> FilesIn(const std::string& dir, const std::string& suffix, bool deep = false) {
    std::vector<std::string> files;
    if (DIR* d = opendir(dir.c_str())) {
        while (const dirent* e = readdir(d)) {
            const std::string name = e->d_name;
            if (name == "." || name == "..") continue;
            const std::string path = dir + "/" + name;
            struct stat info;
            if (stat(path.c_str(), &info) != 0) continue;
            if (S_ISDIR(info.st_mode)) {
                if (deep)
                    for (const std::string& file : FilesIn(path, suffix, true)) files.push_back(file);
            } else if (S_ISREG(info.st_mode) && name.size() > suffix.size() &&
                       name.compare(name.size() - suffix.size(), suffix.size(), suffix) == 0) {
                files.push_back(path);
            }
        }
        closedir(d);
    }
    std::sort(files.begin(), files.end());
    return files;
}

// A program file as people write it, as the one line the interpreter reads:
// comments, tabs and line ends become blanks. Empty for an unclosed comment.
std::string Flatten(std::string text) {
    for (size_t open = text.find("(*"); open != std::string::npos; open = text.find("(*", open)) {
        const size_t close = text.find("*)", open + 2);
        if (close == std::string::npos) return "";
        for (size_t i = open; i < close + 2; ++i) text[i] = ' ';
    }
    for (char& c : text)
        if (c == '\n' || c == '\r' || c == '\t') c = ' ';
    return text;
}

std::string RepositoryRoot() { return QZ_REPOSITORY_ROOT; }

// The string literals of a C++ source, adjacent ones joined as the compiler joins them.
std::vector<std::string> StringLiterals(const std::string& src) {
    std::vector<std::string> literals;
    std::string current;
    bool open = false;  // `current` may still be continued by an adjacent literal
    size_t i = 0;
    auto close = [&] {
        if (open) literals.push_back(current);
        current.clear();
        open = false;
    };
    while (i < src.size()) {
        const char c = src[i];
        if (c == '/' && i + 1 < src.size() && src[i + 1] == '/') {
            i = src.find('\n', i);
            if (i == std::string::npos) break;
        } else if (c == '/' && i + 1 < src.size() && src[i + 1] == '*') {
            i = src.find("*/", i + 2);
            if (i == std::string::npos) break;
            i += 2;
        } else if (c == ' ' || c == '\n' || c == '\t' || c == '\r') {
            ++i;
        } else if (c == 'R' && i + 1 < src.size() && src[i + 1] == '"' &&
                   (i == 0 || !(std::isalnum(static_cast<unsigned char>(src[i - 1])) || src[i - 1] == '_'))) {
            const size_t paren = src.find('(', i + 2);
            if (paren == std::string::npos) break;
            const std::string end = ")" + src.substr(i + 2, paren - i - 2) + "\"";
            const size_t stop = src.find(end, paren + 1);
            if (stop == std::string::npos) break;
            current += src.substr(paren + 1, stop - paren - 1);
            open = true;
            i = stop + end.size();
        } else if (c == '"') {
            ++i;
            while (i < src.size() && src[i] != '"') {
                if (src[i] == '\\' && i + 1 < src.size()) {
                    const char e = src[++i];
                    switch (e) {
                    case 'n': current += '\n'; break;
                    case 't': current += '\t'; break;
                    case 'r': current += '\r'; break;
                    case '0': current += '\0'; break;
                    case 'x': {
                        size_t n = 0;
                        const int v = std::stoi(src.substr(i + 1, 2), &n, 16);
                        current += char(v);
                        i += n;
                        break;
                    }
                    default: current += e; break;
                    }
                } else {
                    current += src[i];
                }
                ++i;
            }
            ++i;
            open = true;
        } else if (c == '\'') {
            close();
            // A character literal (or a digit separator): skip to its end.
            ++i;
            while (i < src.size() && src[i] != '\'') i += src[i] == '\\' ? 2 : 1;
            ++i;
        } else {
            close();
            ++i;
        }
    }
    close();
    return literals;
}

bool Mentions(const std::string& text, const char* word) {
    const size_t n = std::strlen(word);
    for (size_t at = text.find(word); at != std::string::npos; at = text.find(word, at + 1)) {
        const bool before = at == 0 || text[at - 1] == ' ';
        const bool after = at + n == text.size() || text[at + n] == ' ';
        if (before && after) return true;
    }
    return false;
}

// Declarations that the instruction snippets of the other tests tend to use.
const char* kSnippetDeclarations =
    "PROG SNIPPET VAR A V DINT 5 B V USINT 200 C V REAL 1.5 D V LREAL -2.5 X V DINT 7 Y V INT -3 "
    "F V BOOL 1 P V DINT 0 S V SINT -5 U V UDINT 4000000000 I VI DINT 0 O VO DINT 0 G VG LREAL 0.25 MAIN ";

std::vector<std::string> CollectedPrograms() {
    std::vector<std::string> programs;
    std::set<std::string> seen;
    const std::string root = RepositoryRoot();
    const char* instructions[] = {"MOV", "ADD", "SUB", "MUL", "DIV", "MOD", "EQ", "NE", "GT", "LT", "TST", "JMP",
                                  "CAL", "EXEC", "NOT", "BNOT", "NG", "SHL", "ROL", "BOR", "AND", "POW", "MOVA"};
    for (const char* dir : {"/tests/unit", "/tests/host"}) {
        for (const std::string& file : FilesIn(root + dir, ".cpp")) {
            if (file.find("test_fast_path_differential") != std::string::npos) continue;
            for (const std::string& literal : StringLiterals(ReadFile(file))) {
                if (literal.compare(0, 4, "PROG") == 0) {
                    if (seen.insert(literal).second) programs.push_back(literal);
                    continue;
                }
                // Instruction snippets run inside a program with common variables.
                for (const char* word : instructions) {
                    if (Mentions(literal, word)) {
                        std::string program = kSnippetDeclarations + literal;
                        if (!Mentions(literal, "RET")) program += " RET";
                        if (seen.insert(program).second) programs.push_back(program);
                        break;
                    }
                }
            }
        }
    }
    // Example programs, flattened as the runner flattens them.
    for (const std::string& file : FilesIn(root + "/examples", ".qz", true)) {
        const std::string text = Flatten(ReadFile(file));
        if (!text.empty() && seen.insert(text).second) programs.push_back(text);
    }
    return programs;
}

// ---- Hand-written programs: every instruction, operand kind and failure ----

const std::vector<std::string>& HandWrittenPrograms() {
    static const std::vector<std::string> programs = {
        // The overview's demo.
        "PROG DEMO VAR CNT V DINT 0 START VI BOOL 0 LAMP VO BOOL 0 MAIN MOV @START R0 TST R0 JMPF OFF "
        "MOV 1 @LAMP RET OFF: MOV 0 @LAMP RET",
        // Loops, sums and comparisons.
        "PROG LOOP VAR I V DINT 0 SUM VG DINT 0 OUT VO DINT 0 MAIN MOV 0 @I L: MOV @I R0 ADD @SUM R0 MOV R0 @SUM "
        "MOV @I R0 ADD 1 R0 MOV R0 @I GT 50 R0 TST R0 JMPT L MOV @SUM @OUT RET",
        // Every arithmetic, comparison and power form, with types.
        "PROG ARITH VAR A V DINT 7 B V REAL 1.5 C V LREAL -2.5 D V SINT -100 E V UDINT 4294967295 MAIN "
        "MOV 3 R0 ADD @A R0 SUB @B R0 MUL 2 R0 MOV 2 R1 DIV @A R1 MOV 3 R1 MOD @A R1 MOV @E A0 ADD 0 A0 "
        "MOV 10 R0 POW 2 R0 MOV 2147483647 R1 ADD 1 R1 MOV @D R0 MUL @D R0 MOV -7 R1 MOV 2 R0 MOD -7 R0 "
        "MOV 0 R0 NE @C R0 MOV 1 R0 EQ 1 R0 MOV 2 R0 GT 3 R0 MOV 2 R0 GE 2 R0 MOV 2 R0 LT 1 R0 MOV 1 R0 LE 1 R0 RET",
        // Division failures: by zero, by a fraction, MOD of a REAL.
        "PROG DIV0 VAR A V DINT 7 MAIN MOV 0 R0 DIV @A R0 RET",
        "PROG DIV1 VAR A V DINT 7 MAIN MOV 0.5 R0 DIV @A R0 RET",
        "PROG MODR VAR A V REAL 7.5 MAIN MOV 2 R0 MOD @A R0 RET",
        "PROG MINDIV MAIN MOV -1 R0 DIV -2147483648 R0 MOV -1 R1 MOD -2147483648 R1 RET",
        // Boolean, bits, shifts, one-register instructions.
        "PROG LOGIC VAR F V BOOL 1 G V BOOL 0 S V SINT 64 U V USINT 255 W V UDINT 1 MAIN "
        "MOV @G R0 OR @F R0 MOV @F R1 XOR @F R1 MOV @F A0 AND @G A0 NOT A0 MOV @U R0 BOR 1 R0 BXOR @S R0 "
        "BAND 16#F0 R0 MOV 2 R1 SHL @S R1 MOV 1 R1 SHR @S R1 MOV 1 R1 ROL @U R1 MOV 1 R1 ROR @W R1 "
        "MOV @U R0 BNOT R0 MOV @W R1 BNOT R1 NG R1 MOV 0 R0 NG R0 TST R0 RET",
        "PROG BOOLFAIL VAR A V DINT 1 MAIN MOV 1 PUSH AND POP R0 RET",
        "PROG BOOLFAIL2 VAR F V BOOL 1 MAIN MOV 5 R0 AND @F R0 RET",
        "PROG BITSFAIL VAR F V BOOL 1 MAIN MOV @F R0 BOR @F R0 RET",
        "PROG SHIFTFAIL VAR R V REAL 1.5 MAIN MOV 1 R0 SHL @R R0 RET",
        "PROG ROTFAIL VAR R V REAL 1.5 MAIN MOV 1 R0 ROR @R R0 RET",
        "PROG NOTFAIL MAIN MOV 5 R0 NOT R0 RET",
        "PROG BNOTFAIL MAIN MOV 1.5 R0 BNOT R0 RET",
        // Stack: push, pop, empty pops, leftovers kept from cycle to cycle.
        "PROG STACK VAR X V DINT 3 MAIN MOV @X PUSH MOV 4 PUSH ADD POP R0 MOV POP R1 MOV R0 PUSH RET",
        "PROG POPEMPTY MAIN MOV POP R0 RET",
        "PROG POPEMPTY2 MAIN MOV 1 R0 ADD POP R0 RET",
        "PROG POPNIL MAIN MOV 1 PUSH ADD POP NIL RET",
        "PROG POPBAD MAIN MOV 1 PUSH ADD POP @X RET",
        "PROG DEEP MAIN MOV 1 PUSH MOV 2 PUSH MOV 3 PUSH MOV 4 PUSH MOV 5 PUSH MOV 6 PUSH MOV 7 PUSH MOV 8 PUSH "
        "MOV 9 PUSH MOV 10 PUSH MOV 11 PUSH MOV 12 PUSH MOV 13 PUSH MOV 14 PUSH MOV 15 PUSH MOV 16 PUSH "
        "MOV 17 PUSH MOV 18 PUSH MOV 19 PUSH MOV 20 PUSH MOV 21 PUSH MOV 22 PUSH MOV 23 PUSH MOV 24 PUSH "
        "MOV 25 PUSH MOV 26 PUSH MOV 27 PUSH MOV 28 PUSH MOV 29 PUSH MOV 30 PUSH MOV 31 PUSH MOV 32 PUSH "
        "MOV 33 PUSH MOV POP R0 RET",
        // Variables: narrowing, outputs, inputs, missing names, case.
        "PROG VARS VAR B V USINT 0 S V SINT 0 O VO INT 0 I VI REAL 0 K VIO DINT 9 G VG LREAL 1 MAIN "
        "MOV 300 @B MOV @B R0 MOV 200 @s MOV @S R1 MOV @I @o MOV @i A0 ADD @G A0 MOV A0 @G MOV @K R0 RET",
        "PROG MISSING VAR A V DINT 1 MAIN MOV @NOPE R0 RET",
        "PROG MISSING2 VAR A V DINT 1 MAIN MOV 1 PUSH MOV POP @NOPE RET",
        "PROG MISSING3 VAR A V DINT 1 MAIN ADD @NOPE R0 RET",
        // MOV and MOVA operand kinds, references.
        "PROG REFS VAR X V DINT 5 P V LREAL 0 Q V SINT 0 MAIN MOVA @X @P MOV 7 ^P MOV ^P R0 MOVA @X R1 MOV R1 @Q "
        "MOV ^Q R0 MOVA @X NIL MOV 1.5 ^P ADD ^P R0 RET",
        "PROG BADREF VAR P V DINT 0 MAIN MOV 5 @P MOV ^P R0 RET",
        "PROG BADREF2 VAR P V DINT 0 MAIN MOV 5 ^P RET",
        "PROG MOVKINDS MAIN MOV R0 NIL MOV NIL R0 RET",
        "PROG MOVKINDS2 MAIN MOV 1 5 RET",
        "PROG MOVKINDS3 MAIN MOV X R0 RET",
        "PROG MOVAKINDS VAR X V DINT 1 MAIN MOVA 5 R0 RET",
        // TICK: read, preset, with the simulated clock.
        "PROG TICKS VAR T V UDINT 0 MAIN MOV TICK R0 MOV TICK @T MOV 1000 TICK MOV TICK R1 ADD TICK R1 RET",
        // Jumps: forward, backward, not taken, missing label, bad operand, into a subprogram.
        "PROG JUMPS VAR A V DINT 0 MAIN MOV 0 R0 TST R0 JMPT NO JMPF YES NO: MOV 1 @A YES: MOV 2 @A JMP END "
        "MOV 3 @A END: RET",
        "PROG JMISS MAIN JMP NOWHERE RET",
        "PROG JNUM MAIN JMP 5 RET",
        "PROG JMAIN MAIN JMP MAIN RET",
        "PROG JSUB MAIN JMP S RET S: X V DINT 1 BODY MOV @X R0 RET",
        // Labels registered only as execution passes them (no VAR section).
        "PROG LAZY MAIN JMP AHEAD MOV 1 R0 AHEAD: MOV 2 R1 RET",
        "PROG LAZY2 MAIN MOV 0 R0 BACK: ADD 1 R0 MOV R0 R1 GT 3 R1 TST R1 JMPT BACK RET",
        // EXEC.
        "PROG BUILTINS MAIN MOV 2 PUSH MOV 10 PUSH EXEC POW MOV 2.1 PUSH EXEC ceil MOV -2.1 PUSH EXEC FLOOR "
        "MOV 2.5 PUSH EXEC ROUND MOV -4 PUSH EXEC SQRT MOV 0 PUSH EXEC LN MOV 1 PUSH EXEC Sin EXEC COS "
        "EXEC TAN EXEC ACOS EXEC ASIN EXEC ATAN EXEC EXP EXEC FABS EXEC LOG10 EXEC @SQRT RET",
        "PROG NOFUNC MAIN MOV 1 PUSH EXEC SQR RET",
        "PROG NOFUNC2 MAIN EXEC 5 RET",
        // Calls: locals, nesting, recursion through the stack, failures.
        "PROG CALLS VAR R VO DINT 0 MAIN MOV 3 PUSH CAL SQUARE MOV R0 @R CAL TWICE RET "
        "SQUARE: X V DINT 0 Y VA REAL 1.5 Z VR DINT 0 BODY MOV POP @X MOV @X R0 MUL @X R0 RET "
        "TWICE: BODY CAL SQUARE2 CAL SQUARE2 RET SQUARE2: X V DINT 4 BODY MOV @X R1 RET",
        "PROG RECURSE VAR N VG DINT 0 MAIN MOV 5 PUSH CAL DOWN RET "
        "DOWN: K V DINT 0 BODY MOV POP @K MOV @K R0 TST R0 JMPF DONE MOV -1 R1 ADD @K R1 MOV R1 PUSH CAL DOWN "
        "DONE: RET",
        "PROG CALLMISS MAIN CAL NOWHERE RET",
        "PROG CALLGLOBAL VAR G V DINT 1 MAIN CAL S RET S: BODY MOV @G R0 RET",
        "PROG CALLBADKIND MAIN CAL S RET S: X VI DINT 0 BODY RET",
        "PROG CALLBADTYPE MAIN CAL S RET S: X V STRING 0 BODY RET",
        "PROG CALLBADNUM MAIN CAL S RET S: X V DINT Y BODY RET",
        "PROG CALLDUP MAIN CAL S CAL S RET S: X V DINT 1 X V DINT 2 x V REAL 3 BODY MOV @X R0 RET",
        "PROG CALLMAIN MAIN CAL MAIN RET",
        "PROG CALLEND VAR O VO DINT 0 MAIN CAL S MOV 1 @O RET S: X V DINT 1 BODY MOV @X R0",
        "PROG CALLRUNOFF VAR O VO DINT 0 MAIN CAL S RET S: X V DINT 1 BODY MOV @X R0 RET",
        "PROG CALLFAIL VAR O VO DINT 0 MAIN CAL S RET S: X V DINT 1 BODY MOV @NOPE R0 RET",
        "PROG CALLLABELS MAIN CAL S RET S: X V DINT 0 BODY L1: MOV @X R0 ADD 1 R0 MOV R0 @X GT 3 R0 TST R0 "
        "JMPT L1 BODY L2: RET",
        "PROG CALLSTRAY MAIN CAL S RET S: BODY V RET",
        // A returned frame's MOVA handle is dead, also when the next call
        // takes the same table again.
        "PROG FRAMEREF VAR P VG LREAL 0 MAIN MOV ^P R1 CAL S MOV R0 @P MOV ^P R1 RET S: X V DINT 5 BODY "
        "MOVA @X R0 MOV 7 ^X RET RET",
        // Calls of different subprograms, nested and alternating, take
        // each other's retired tables.
        "PROG ALTERNATE VAR O VO LREAL 0 MAIN CAL A CAL B CAL A CAL C MOV R0 @O RET "
        "A: X V DINT 1 Y V REAL 2.5 BODY MOV @X R0 ADD @Y R0 RET "
        "B: Y V DINT 3 BODY MOV @Y R1 CAL A ADD R1 R0 RET "
        "C: BODY CAL B CAL B RET RET",
        "PROG MAINRET MAIN CAL S RET S: BODY JMP OUT RET OUT: RET",
        "PROG MAINRET2 VAR A V DINT 0 MAIN JMP S2 RET S: BODY RET S2: CAL S MOV 1 @A RET",
        // Ends of text.
        "PROG NOEND MAIN MOV 1 R0",
        "PROG ENDNUM MAIN MOV 1 R0 MOV R0 5",
        "PROG ENDSPACE MAIN MOV 1 R0 RET   ",
        "PROG ENDVAR VAR A V DINT 0 MAIN MOV 1 @RET",
        "PROG ENDLABEL MAIN MOV 1 R0 L:",
        "PROG NOTINSTR MAIN FOO RET",
        "PROG NOTINSTR2 MAIN 5 RET",
        "PROG RETONLY MAIN RET",
        "PROG TRUNC MAIN MOV 1 R0 JMP L",
        // Prefixed keywords and odd tokens.
        "PROG PREFIX MAIN #MOV 5 #R0 $MOV 6 $R1 *MOV 7 *A0 MOV 1 #PUSH MOV #POP R0 RET",
        "PROG ODD MAIN MOV 1 R0 ! RET",
        "PROG LONGNAME VAR AAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAA"
        "AAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAA"
        "AAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAB V DINT 3 MAIN "
        "MOV @AAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAA"
        "AAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAA"
        "AAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAB R0 RET",
        "PROG UTF VAR \xC3\xA4pfel V DINT 4 MAIN MOV @\xC3\x84PFEL R0 RET",
        "PROG NUL MAIN MOV 1 R0 " + std::string(1, '\0') + " RET",
        "PROG TAB MAIN MOV\t@A 1 RET",
        // MAIN at odd places.
        "XX PROG P MAIN: MOV 1 R0 RET",
        "PROG P #MAIN MOV 1 R0 RET",
        "PROG P VAR A V DINT 1 MAIN MOV 1 R0 RET MAIN: MOV 2 R0 RET",
    };
    return programs;
}

// ---- Generated programs ----

class Generator {
public:
    explicit Generator(uint32_t seed) : Rng(seed) {}

    int Pick(int n) { return int(Rng() % uint32_t(n)); }
    bool Chance(int percent) { return Pick(100) < percent; }
    template <size_t N>
    const char* OneOf(const char* const (&items)[N]) {
        return items[Pick(int(N))];
    }

    std::string Number() {
        static const char* const kNumbers[] = {"0",   "1",     "2",      "5",          "-3",     "127",    "128",
                                               "-129", "300",  "70000",  "3000000000", "16#FF",  "-16#80", "8#17",
                                               "2#1010", "1.5", "-2.5", "3.",         "1.5E3",  "1.5e-3", "1.0E39",
                                               "0.0",  "-0.0", "255",    "65535",      "4294967295"};
        return OneOf(kNumbers);
    }

    std::string Program() {
        Variables.clear();
        Labels = 0;
        std::string text = "PROG G" + std::to_string(Pick(1000));
        const bool withVars = Chance(85);
        if (withVars) {
            text += " VAR";
            const int count = 1 + Pick(8);
            static const char* const kKinds[] = {"V", "V", "VI", "VO", "VIO", "VG", "VG"};
            static const char* const kTypes[] = {"BOOL", "SINT", "USINT", "INT", "UINT", "DINT", "DINT", "UDINT",
                                                 "REAL", "LREAL"};
            for (int i = 0; i < count; ++i) {
                const std::string name = std::string(1, char('A' + i));
                Variables.push_back(name);
                text += " " + name + " " + OneOf(kKinds) + " " + OneOf(kTypes) + " " + Number();
            }
            if (Chance(20)) text += " T1 TVR REAL 1 2 3 4 T2 TVG DINT 5";
        }
        text += " MAIN";
        Subprograms = Pick(3);
        LabelCount = 1 + Pick(4);
        InSubprogram = false;
        Prefix = "L";
        text += Body(4 + Pick(20));
        text += " RET";
        for (int s = 0; s < Subprograms; ++s) {
            text += " S" + std::to_string(s) + ":";
            const int locals = Pick(4);
            static const char* const kLocalKinds[] = {"V", "V", "VA", "VR"};
            static const char* const kLocalTypes[] = {"BOOL", "SINT", "DINT", "REAL", "LREAL"};
            Locals.clear();
            for (int i = 0; i < locals; ++i) {
                Locals.push_back(std::string("L") + char('A' + i));
                text += " " + Locals.back() + " " + OneOf(kLocalKinds) + " " + OneOf(kLocalTypes) + " " + Number();
            }
            InSubprogram = true;
            LabelCount = 1 + Pick(2);
            Prefix = "K" + std::to_string(s) + "_";
            text += " BODY" + Body(2 + Pick(8)) + " RET";
        }
        if (Chance(5)) text.resize(text.size() - 4);  // no final RET
        return text;
    }

private:
    // Most choices are valid, so that cycles run long; a few percent are
    // not, so that every failure is met somewhere.
    bool Wrong() { return Chance(3); }

    std::string Variable() {
        const std::vector<std::string>& names = InSubprogram ? Locals : Variables;
        if (names.empty() || Wrong()) return Chance(50) ? "NOPE" : "LA";
        std::string name = names[size_t(Pick(int(names.size())))];
        if (Chance(10)) name[0] = char(name[0] - 'A' + 'a');
        return name;
    }
    std::string Source() {
        if (Wrong()) {
            static const char* const kWrong[] = {"NIL", "X", "PUSH", "TICK", "#RET", "^A", "@", "L1:"};
            return OneOf(kWrong);
        }
        switch (Pick(12)) {
        case 0: case 1: case 2: return "@" + Variable();
        case 3: return "@" + Variable();
        case 4: case 5: case 6: return Number();
        case 7: case 8: case 9: return Register();
        case 10: return Chance(90) ? "POP" : "^" + Variable();
        default: return "#R1";
        }
    }
    std::string Register() {
        if (Wrong()) return Chance(50) ? "NIL" : "@A";
        static const char* const kRegisters[] = {"R0", "R0", "R1", "A0"};
        return OneOf(kRegisters);
    }
    std::string Destination() {
        switch (Pick(8)) {
        case 0: case 1: return "@" + Variable();
        case 2: return "PUSH";
        case 3: return Chance(10) ? "TICK" : (Chance(10) ? "^" + Variable() : "NIL");
        default: return Register();
        }
    }
    std::string Label() { return Prefix + std::to_string(Pick(LabelCount + (Wrong() ? 2 : 0))); }

    std::string Statement() {
        static const char* const kTwoOperand[] = {"ADD", "SUB", "MUL", "DIV", "MOD", "NE", "EQ", "GT", "GE", "LT",
                                                  "LE",  "OR",  "XOR", "AND", "BOR", "BXOR", "BAND", "SHL", "SHR",
                                                  "ROL", "ROR", "POW", "ADD", "SUB", "GT", "LT", "EQ", "MUL"};
        static const char* const kOneRegister[] = {"TST", "TST", "NOT", "BNOT", "NG"};
        static const char* const kJumps[] = {"JMP", "JMPF", "JMPT", "JMPT", "JMPF"};
        static const char* const kBuiltins[] = {"SIN", "COS", "SQRT", "pow", "ROUND", "CEIL", "FLOOR", "EXP",
                                                "LN",  "FABS", "ATAN", "LOG10"};
        switch (Pick(17)) {
        case 0: case 1: case 2: case 3: return "MOV " + Source() + " " + Destination();
        case 4: case 5: case 6: case 7: return std::string(OneOf(kTwoOperand)) + " " + Source() + " " + Register();
        case 8: return std::string(OneOf(kOneRegister)) + " " + Register();
        case 9: case 10: return "TST " + Register() + " " + OneOf(kJumps) + " " + Label();
        case 11: return std::string("MOV ") + Number() + " PUSH EXEC " + (Wrong() ? "NOPE" : OneOf(kBuiltins));
        case 12: {
            const int targets = Subprograms + (Wrong() ? 1 : 0);  // S<Subprograms> does not exist
            return targets > 0 ? "CAL S" + std::to_string(Pick(targets)) : "NG R0";
        }
        case 13: return "MOVA @" + Variable() + " " + (Chance(50) ? "@" + Variable() : Register());
        case 14: return "MOV " + Source() + " PUSH";
        case 15: return "MOV TICK " + Register();
        default: return "MOV " + Source() + " R" + std::to_string(Pick(2));
        }
    }
    std::string Body(int statements) {
        std::vector<std::string> items;
        for (int i = 0; i < statements; ++i) items.push_back(Statement());
        // Every label is defined once, somewhere in the body.
        for (int l = 0; l < LabelCount; ++l)
            items.insert(items.begin() + Pick(int(items.size()) + 1), Prefix + std::to_string(l) + ":");
        std::string body;
        for (const std::string& item : items) body += " " + item;
        return body;
    }

    std::mt19937 Rng;
    std::vector<std::string> Variables;
    std::vector<std::string> Locals;  // of the subprogram being generated
    int Subprograms = 0;
    int LabelCount = 0;
    int Labels = 0;
    bool InSubprogram = false;
    std::string Prefix = "L";  // of the labels of the body being generated
};

std::vector<std::string> Tokens(const std::string& text) {
    std::vector<std::string> tokens;
    size_t i = 0;
    while (i < text.size()) {
        const size_t end = text.find(' ', i);
        const size_t stop = end == std::string::npos ? text.size() : end;
        if (stop > i) tokens.push_back(text.substr(i, stop - i));
        i = stop + 1;
    }
    return tokens;
}

// A random small change: tokens deleted, doubled, swapped or replaced, a
// character changed, the text cut short.
std::string Mutate(const std::string& text, Generator& g) {
    static const char* const kVocabulary[] = {"MOV", "RET", "BODY", "CAL", "JMP", "R0", "@A", "^A", "POP", "PUSH",
                                              "5",   "L1:", "S0:",  "MAIN", "VAR", "TICK", "EXEC", "NIL", "1.5",
                                              "X",   ":",   "@",    "-",   "#R1", "16#", "TST", "JMPT", "L0:"};
    std::vector<std::string> tokens = Tokens(text);
    if (tokens.empty()) return text;
    const size_t at = size_t(g.Pick(int(tokens.size())));
    switch (g.Pick(7)) {
    case 0: tokens.erase(tokens.begin() + long(at)); break;
    case 1: tokens.insert(tokens.begin() + long(at), tokens[at]); break;
    case 2:
        if (at + 1 < tokens.size()) std::swap(tokens[at], tokens[at + 1]);
        break;
    case 3: tokens[at] = g.OneOf(kVocabulary); break;
    case 4: tokens.insert(tokens.begin() + long(at), g.OneOf(kVocabulary)); break;
    case 5: {
        std::string& t = tokens[at];
        static const char kChars[] = "AZaz09:@^#$*+-.,! ";
        t[size_t(g.Pick(int(t.size())))] = kChars[g.Pick(int(sizeof kChars - 1))];
        break;
    }
    default: {
        std::string joined;
        for (const std::string& t : tokens) joined += (joined.empty() ? "" : " ") + t;
        return joined.substr(0, size_t(g.Pick(int(joined.size()) + 1)));
    }
    }
    std::string joined;
    for (const std::string& t : tokens) joined += (joined.empty() ? "" : " ") + t;
    return joined;
}

int CountFromEnvironment() {
    const char* count = std::getenv("QZ_DIFF_COUNT");
    return count ? std::atoi(count) : 1500;
}
uint32_t SeedFromEnvironment() {
    const char* seed = std::getenv("QZ_DIFF_SEED");
    return seed ? uint32_t(std::strtoul(seed, nullptr, 10)) : 20240601u;
}

void ExpectSame(const std::string& text, const qzdiff::Options& options) {
    const std::string difference = qzdiff::Compare(text, options);
    EXPECT_EQ(difference, "") << "program: " << text;
}

// ---- Tests ----

TEST(CompiledDifferential, HandWrittenProgramsAgree) {
    for (const std::string& text : HandWrittenPrograms()) {
        ExpectSame(text, qzdiff::Options{});
        ExpectSame(text, qzdiff::Options{2, 100000, false, true});
        ExpectSame(text, qzdiff::Options{2, 0, false, true});
    }
}

TEST(CompiledDifferential, ProgramsOfTheOtherTestsAgree) {
    const std::vector<std::string> programs = CollectedPrograms();
    EXPECT_FALSE(programs.empty());
    std::printf("%zu programs collected from the other tests and examples/\n", programs.size());
    for (const std::string& text : programs) {
        ExpectSame(text, qzdiff::Options{});
        ExpectSame(text, qzdiff::Options{2, 50, false, true});
        ExpectSame(text, qzdiff::Options{2, 20000, false, true});
    }
}

TEST(CompiledDifferential, GeneratedProgramsAgree) {
    Generator g(SeedFromEnvironment());
    const int count = CountFromEnvironment();
    ASSERT_GT(count, 0) << "QZ_DIFF_COUNT runs no program";
    for (int i = 0; i < count; ++i) {
        const std::string text = g.Program();
        qzdiff::Options options;
        options.Budget = 300;
        options.Trace = g.Chance(10);  // a trace hook makes both sides read the text
        ExpectSame(text, options);
        if (HasFailure()) break;  // one program is enough to look at
    }
}

TEST(CompiledDifferential, MutatedProgramsAgree) {
    Generator g(SeedFromEnvironment() + 1);
    std::vector<std::string> seeds = HandWrittenPrograms();
    for (const std::string& text : CollectedPrograms()) seeds.push_back(text);
    for (int i = 0; i < 200; ++i) seeds.push_back(g.Program());
    const int count = CountFromEnvironment();
    ASSERT_GT(count, 0) << "QZ_DIFF_COUNT runs no program";
    for (int i = 0; i < count; ++i) {
        std::string text = seeds[size_t(g.Pick(int(seeds.size())))];
        const int changes = 1 + g.Pick(3);
        for (int c = 0; c < changes; ++c) text = Mutate(text, g);
        qzdiff::Options options;
        options.Budget = 200;
        options.Trace = g.Chance(10);  // a trace hook makes both sides read the text
        ExpectSame(text, options);
        if (HasFailure()) break;
    }
}

TEST(CompiledDifferential, ReloadedTextsForgetWhatWasCompiled) {
    // The same label positions, other declarations and instructions: nothing
    // remembered of the first text (tokens, frames, retired tables) may leak.
    const std::vector<std::string> texts = {
        "PROG ONE VAR O VO DINT 0 MAIN CAL S MOV R0 @O RET S: X V DINT 4 BODY MOV @X R0 ADD 1 R0 RET RET",
        "PROG ONE VAR O VO DINT 0 MAIN CAL S MOV R0 @O RET S: Y V REAL 1.5 BODY MOV @Y R0 MUL 2 R0 RET RET",
        "PROG ONE VAR O VO DINT 0 MAIN CAL S MOV R0 @O RET S: X V DINT 4 BODY MOV @Y R0 ADD 1 R0 RET RET",
        "PROG TWO MAIN JMP L MOV 1 R0 L: MOV 2 R1 RET",
    };
    EXPECT_EQ(qzdiff::CompareSequence(texts, qzdiff::Options{}), "");
    std::vector<std::string> reversed(texts.rbegin(), texts.rend());
    EXPECT_EQ(qzdiff::CompareSequence(reversed, qzdiff::Options{}), "");
}

TEST(CompiledDifferential, BudgetsStopBothPathsAtTheSameInstruction) {
    const std::string text = HandWrittenPrograms()[1];  // the loop
    for (uint64_t budget : {1u, 2u, 7u, 50u, 333u}) {
        qzdiff::Options options;
        options.Budget = budget;
        ExpectSame(text, options);
    }
}

TEST(CompiledDifferential, CompiledCoreIsTakenAndPlainPathIsNot) {
    size_t compiled = 0;
    ASSERT_EQ(qzdiff::Compare(HandWrittenPrograms()[1], qzdiff::Options{}, &compiled), "");
    EXPECT_GT(compiled, 5u);

    CQZ_STInterpretator plain;
    plain.PlainPath = true;
    ASSERT_EQ(plain.InitInterpretator(HandWrittenPrograms()[1]), 0u);
    qzdiff::Host host;
    ASSERT_EQ(plain.Execute(&host), 0u);
    EXPECT_EQ(plain.CompiledForm().Code.size(), 0u);
}

// A machine that overrides the register operations runs the plain path, and
// its overrides see every register access.
class CountingMachine : public TestMachine {
public:
    Qz::uint32_t SetValueToRegister(char reg, char type, double value) override {
        ++Writes;
        return TestMachine::SetValueToRegister(reg, type, value);
    }
    Qz::uint32_t GetValueFromRegister(char reg, char& type, double& value) override {
        ++Reads;
        return TestMachine::GetValueFromRegister(reg, type, value);
    }
    int Writes = 0;
    int Reads = 0;
};

TEST(CompiledDifferential, OverriddenMachineOperationsAreHonoured) {
    CountingMachine machine;
    machine.SetProgram("MOV 1 R0 L: ADD 1 R0 MOV R0 R1 GT 3 R1 TST R1 JMPT L RET");
    machine.Scan(machine.TokenText);
    ASSERT_EQ(machine.DoCommand(), 0u);
    bool reachedEnd = false;
    ASSERT_EQ(machine.RunBody(false, reachedEnd), 0u);
    EXPECT_TRUE(reachedEnd);
    EXPECT_EQ(machine.R0.Value, 3.0);
    // Two turns of: ADD reads and writes R0, MOV reads R0 and writes R1, GT
    // reads and writes R1, TST reads R1; plus the first MOV's write.
    EXPECT_EQ(machine.Writes, 1 + 2 * 3);
    EXPECT_EQ(machine.Reads, 2 * 4);
    EXPECT_EQ(machine.CompiledForm().Code.size(), 0u);
}

}  // namespace

namespace {

// Instruction keywords in a text: what the compiled form is measured against.
size_t InstructionsIn(const std::string& text) {
    size_t count = 0;
    size_t pos = 0;
    while (pos < text.size()) {
        const size_t end = std::min(text.find(' ', pos), text.size());
        const std::string word = text.substr(pos, end - pos);
        for (const QZ_Token& keyword : TokensTable)
            if (keyword.Code >= ttCAL && keyword.Code < ttRET && word == keyword.Name) ++count;
        pos = end + 1;
    }
    return count;
}

}  // namespace

TEST(CompiledDifferential, CompiledFormStaysWithin64BytesAnInstruction) {
    // Every program of the other tests and examples, and one large program
    // made of all of their bodies.
    std::vector<std::string> programs = CollectedPrograms();
    std::string large = "PROG LARGE VAR X V DINT 0 Y V LREAL 0 MAIN ";
    for (int i = 0; i < 2000; ++i)
        large += "MOV @X R0 ADD 1 R0 MOV R0 @X MOV @Y R1 MUL 1.5 R1 GT 10 R1 TST R1 JMPF L" + std::to_string(i) +
                 " MOV 0 @Y L" + std::to_string(i) + ": CAL S ";
    large += "RET S: A V DINT 1 B V REAL 2 BODY MOV @A R0 ADD @B R0 RET RET";
    programs.push_back(large);
    size_t measured = 0;
    for (const std::string& text : programs) {
        CQZ_STInterpretator object;
        QZSetInstructionBudget(&object, 10000);  // some of them loop for ever
        if (object.InitInterpretator(text) != 0) continue;
        qzdiff::Host host;
        object.Execute(&host);
        const QZ_CompiledProgram& compiled = object.CompiledForm();
        const size_t instructions = InstructionsIn(text);
        if (!compiled.Usable || instructions == 0) continue;
        size_t bytes = compiled.Code.size() * sizeof(QZ_Insn);
        for (const QZ_ScanSnapshot& snapshot : compiled.Snapshots) bytes += sizeof snapshot + snapshot.TokenText.size();
        // A few snapshots and the return points are fixed costs of any program.
        EXPECT_LE(bytes, 64 * instructions + 1024) << text.substr(0, 200);
        ++measured;
    }
    EXPECT_GT(measured, 50u);
    CQZ_STInterpretator object;
    ASSERT_EQ(object.InitInterpretator(large), 0u);
    qzdiff::Host host;
    ASSERT_EQ(object.Execute(&host), 0u);
    EXPECT_LE(object.CompiledForm().Code.size() * sizeof(QZ_Insn), 64 * InstructionsIn(large));
}
