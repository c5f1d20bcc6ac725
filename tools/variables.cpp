#include "variables.h"

#include "qz_st_variables.h"

#include <QString>

namespace qzrun {

uint32_t ProgramVariables::Load() {
    All_.clear();
    return QZListVariables(
        Object_,
        [](void* context, const QZVariableInfo* info) {
            static_cast<std::vector<VariableInfo>*>(context)->push_back(
                VariableInfo{std::string(info->Name, info->NameLength), info->Kind, info->Type, info->Value});
        },
        &All_);
}

const VariableInfo* ProgramVariables::Find(const std::string& name) const {
    const QString wanted = QString::fromStdString(name);
    for (const VariableInfo& info : All_)
        if (wanted.compare(QString::fromStdString(info.Name), Qt::CaseInsensitive) == 0) return &info;
    return nullptr;
}

bool ProgramVariables::Get(const std::string& name, double& value, uint8_t* type) const {
    uint8_t found = 0;
    const bool ok = QZGetVariable(Object_, name.data(), name.size(), &value, &found) == 0;
    if (type) *type = found;
    return ok;
}

uint32_t ProgramVariables::Set(const std::string& name, double value) const {
    return QZSetVariable(Object_, name.data(), name.size(), value);
}

const char* KindName(uint8_t kind) {
    static const char* const names[] = {"V", "VI", "VO", "VIO", "VG", "TVG", "TVR", "VA", "VR"};
    return kind >= 0x14 && kind <= 0x1c ? names[kind - 0x14] : "?";
}

}  // namespace qzrun
