// The program's variables as a host sees them through the variables
// extensions: listed once after loading, read and written by name.
#ifndef QZRUN_VARIABLES_H
#define QZRUN_VARIABLES_H

#include "qz_st_interpretator.h"

#include <cstdint>
#include <string>
#include <vector>

namespace qzrun {

constexpr uint8_t kKindInput = 0x15;   // VI
constexpr uint8_t kKindOutput = 0x16;  // VO
constexpr uint8_t kKindWorking = 0x14; // V

struct VariableInfo {
    std::string Name;
    uint8_t Kind = 0;
    uint8_t Type = 0;
    double Declared = 0.0;  // the value before the first cycle: a V variable's reset value
};

class ProgramVariables {
public:
    explicit ProgramVariables(qz_st_interpretator::IQZSTInterpretator* object) : Object_(object) {}

    // Lists the declarations of the loaded program; returns its result code.
    uint32_t Load();
    const std::vector<VariableInfo>& All() const { return All_; }
    // The declaration of `name` (the program's case rules: any case), or null.
    const VariableInfo* Find(const std::string& name) const;

    bool Get(const std::string& name, double& value, uint8_t* type = nullptr) const;
    uint32_t Set(const std::string& name, double value) const;

private:
    qz_st_interpretator::IQZSTInterpretator* Object_;
    std::vector<VariableInfo> All_;
};

// "VI", "VO", ... for a declaration kind code.
const char* KindName(uint8_t kind);

}  // namespace qzrun

#endif
