// The checker's working state, shared by its parts: reading the header and
// the body (qz_check.cpp), operands (qz_check_operands.cpp) and control flow
// (qz_check_flow.cpp).
#ifndef QZ_CHECK_INTERNAL_H
#define QZ_CHECK_INTERNAL_H

#include "qz_check.h"
#include "qz_st_intrpr_execute.h"

#include <memory>
#include <string>
#include <unordered_map>
#include <vector>

namespace qz::check::detail {

// The machine's scanner on the checker's text. Labels are entered in its
// table exactly where the loader enters them, so look-ups answer as they
// would for the program.
class Reader : public CQZ_STInterpretator_Execute {
public:
    explicit Reader(std::string text) { SetText(std::move(text)); }
    using CQZ_STInterpretator_Base::NextChar;
    using CQZ_STInterpretator_Base::SeekTo;
    using CQZ_STInterpretator_Base::SkipWhite;
    using CQZ_STInterpretator_Execute::SuppressLabelRegistration;
};

// One token of the text from MAIN on, in the order the body loop reads them;
// `Failure` is the scan's result code when no token could be read there.
struct Token {
    QZ_ScannedToken Scanned;
    uint32_t Failure = 0;
    size_t Begin = 0, End = 0;  // byte range in the text
};

// One variable table: the program's (scope 0) or a subprogram's frame.
struct Table {
    std::unordered_map<std::string, size_t> ByKey;  // name key -> index into Model::Declarations
};

struct Analysis {
    explicit Analysis(std::string_view fileText) : File(fileText) {}
    std::string_view File;
    std::string Text;  // comments blanked
    Model Out;
    std::unique_ptr<Reader> M;
    bool HasVarSection = false;
    size_t BodyPosition = 0;  // where MAIN's body begins
    std::vector<Token> Tokens;
    std::vector<Table> Tables;  // one per scope
    std::unordered_map<std::string, size_t> LabelIndex;  // first label of a name -> Model::Labels
    std::unordered_map<std::string, bool> CallTargets;
    std::vector<bool> LeadsToBody;  // per token: locals' declarations lead from it to BODY
    struct MissingNote {
        size_t Diagnostic;
        std::string Name;
        size_t Scope;
        bool Reference;
    };
    std::vector<MissingNote> MissingNotes;  // 23s whose notes are written once the whole text is read
    std::vector<size_t> TokenScope;        // per token: the scope whose text holds it
    std::vector<int32_t> InstructionAt;    // per token: index into Model::Instructions or -1
    std::vector<size_t> InstructionEnd;    // per instruction: index of the token after its operands
    std::vector<bool> Failed;              // per instruction: an error was reported for it
    size_t Suggestions = 0;                // near-miss notes given so far (bounded)
    std::vector<size_t> BodyToken;         // per scope: the token its body starts at
    // Places where running falls from a body into a subprogram's header:
    // the instruction before it (or -1 for MAIN's start) and the token that
    // would stop it.
    struct FallInto {
        int64_t From;
        size_t Token;
        size_t Scope;  // the subprogram fallen into
    };
    std::vector<FallInto> Falls;

    void Error(uint32_t code, size_t begin, size_t end, std::string note = {});
    void Warning(const char* id, size_t begin, size_t end, std::string note = {});
    const Declaration* Find(const std::string& name, size_t scope, size_t* index = nullptr) const;
};

// "line:column" of a byte offset of the text (both from 1).
std::string Place(std::string_view text, size_t offset);
// The name key variables are found by (case folded as the tables fold it).
std::string VariableKey(const std::string& name);
// Reads the operands of the instruction at token `i`; returns the index of
// the token after them.
size_t ReadInstruction(Analysis& a, size_t i);
// Fills the notes of the variables not found, once every scope is known.
void NoteMissingVariables(Analysis& a);
// Warnings that follow control flow (qz_check_flow.cpp) and the use of
// variables and literals (qz_check_uses.cpp).
void AnalyseFlow(Analysis& a);
void AnalyseUses(Analysis& a);
// "did you mean" for a name among candidates, or "".
std::string NearMiss(const std::string& name, const std::vector<std::string>& candidates, const char* prefix);

}  // namespace qz::check::detail

#endif
