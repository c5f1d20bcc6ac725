// The checker's view of a program: every instruction of every body, reached
// or not, with the diagnostics it earns, and the symbols (declarations,
// labels, subprograms) with every place that uses them.
//
// A pure function of the file's text: comments "(* *)" are blanked as the
// runner blanks them, so every range is a byte range of the file as given.
// Tools that need more than diagnostics (the language server: hover,
// definitions, references, completion, symbols) read the same model, so what
// they show cannot drift from what the checker and the interpreter decide.
#ifndef QZ_CHECK_H
#define QZ_CHECK_H

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace qz::check {

// A half-open byte range [Begin, End) of the file's text.
struct Range {
    size_t Begin = 0;
    size_t End = 0;
};

enum class Severity : uint8_t { Error = 1, Warning = 2 };

struct Diagnostic {
    Severity Level = Severity::Error;
    uint32_t Code = 0;   // the result code running the instruction returns (errors); 0 for warnings
    std::string Id;      // "22" for errors, the warning's short identifier ("stack-growth")
    Range Where;         // the token where the interpreter would stop, or what the warning concerns
    std::string Message; // errors: the result code's message; warnings: from the warning table
    std::string Note;    // "" or a hint ("label `NOEDGE` is declared at 17:1", "did you mean `@LAMP`?")
};

// Scope 0 is the program (its VAR section and MAIN body); scope i > 0 is the
// i-th subprogram in the order of the text.
struct Scope {
    std::string Name;   // the program's name after PROG, or the subprogram's label
    Range NameRange;    // where that name is written
    Range Extent;       // from the name to the end of the body's RET
    Range BodyStart;    // MAIN or BODY
};

struct Declaration {
    std::string Name;        // as written (case kept)
    Range NameRange;
    uint8_t Kind = 0;        // declaration kind keyword code (ttVI, ttVO, ...)
    uint8_t Type = 0;        // type keyword code (ttBOOL ... ttLREAL)
    std::string Initial;     // the initial value as written
    Range Line;              // the whole declaration
    size_t ScopeIndex = 0;
};

struct Label {
    std::string Name;
    Range NameRange;         // the name before ':' (or the program name, MAIN, BODY)
    size_t ScopeIndex = 0;   // the scope whose text holds it
    bool StartsSubprogram = false;
};

enum class SymbolKind : uint8_t { Declaration, Label };

// One place in an instruction's operands that names a symbol: `@X`, `^X`,
// a jump or CAL target, an EXEC function name (Target unresolved then).
struct Use {
    Range Where;             // the name without '@' or '^'
    SymbolKind Kind = SymbolKind::Declaration;
    size_t ScopeIndex = 0;   // the scope of the body the instruction is in
    bool Resolved = false;
    size_t Target = 0;       // index into Declarations or Labels when Resolved
    bool IsWrite = false;    // a destination operand
};

// One instruction as the checker read it.
struct Instruction {
    uint8_t Code = 0;        // instruction keyword code
    Range Word;              // the instruction keyword
    Range Extent;            // keyword through its last operand
    size_t ScopeIndex = 0;
    bool Reachable = true;
};

struct Model {
    std::vector<Diagnostic> Diagnostics;  // in the order of the text
    std::vector<Scope> Scopes;
    std::vector<Declaration> Declarations;
    std::vector<Label> Labels;
    std::vector<Use> Uses;
    std::vector<Instruction> Instructions;
};

// Reads the whole text once. Never throws for any text (std::bad_alloc
// aside); a text the loader refuses yields that error and whatever could be
// read before it.
Model Analyse(std::string_view fileText);

// The warning table: identifier, one-line meaning. The manual lists the same.
struct WarningInfo {
    const char* Id;
    const char* Meaning;
};
const std::vector<WarningInfo>& Warnings();

}  // namespace qz::check

#endif
