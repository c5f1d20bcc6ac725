// Prints the language's vocabulary as JSON, from the same tables the
// interpreter runs on, for the generator of the editor grammars.
#include "qz_builtins.h"
#include "qz_tokens.h"

#include <nlohmann/json.hpp>

#include <iostream>

int main() {
    nlohmann::json out;
#define QZ_KW_NAME2(name, code) #name,
#define QZ_KW_NAME3(name, code, ...) #name,
#define QZ_KW_SECTION(name, code, text) text,
    out["sections"] = {QZ_SECTION_KEYWORDS(QZ_KW_SECTION)};
    out["kinds"] = {QZ_DECLARATION_KINDS(QZ_KW_NAME2)};
    out["types"] = {QZ_TYPES(QZ_KW_NAME3)};
    out["operands"] = {QZ_OPERAND_KEYWORDS(QZ_KW_NAME2)};
#undef QZ_KW_NAME2
#undef QZ_KW_NAME3
#undef QZ_KW_SECTION
    out["instructions"] = nlohmann::json::array();
    for (const QZ_InstructionInfo& info : kInstructionInfo)
        out["instructions"].push_back({{"name", info.Name}, {"operands", info.Operands}, {"description", info.Description}});
    out["builtins"] = nlohmann::json::array();
    const QZBuildInFunctions::BuiltinEntry* builtins = QZBuildInFunctions::BuiltinTable();
    for (int i = 0; i < QZBuildInFunctions::BuiltinCount(); ++i) out["builtins"].push_back(builtins[i].Name);
    std::cout << out.dump(2) << "\n";
    return 0;
}
