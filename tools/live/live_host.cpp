#include "live_host.h"

#include <algorithm>

namespace qzlive {

LiveHost::LiveHost(const ProgramInfo& program, const qzrun::Stimulus* stimulus,
                   const std::vector<std::pair<std::string, double>>& constants)
    : Stimulus_(stimulus) {
    const size_t count = program.Variables.size();
    Page_.resize(count);
    Constant_.resize(count);
    Column_.assign(count, -1);
    Forced_.resize(count);
    HostValue_.assign(count, 0.0);
    Written_.assign(count, -1);
    for (size_t i = 0; i < count; ++i)
        Index_.insert(QString::fromStdString(FoldName(program.Variables[i].Name)), int(i));
    for (const auto& [name, value] : constants)
        if (const int variable = program.Find(name); variable >= 0) Constant_[size_t(variable)] = value;
    if (stimulus)
        for (size_t column = 0; column < stimulus->Names.size(); ++column)
            if (const int variable = program.Find(stimulus->Names[column]); variable >= 0)
                Column_[size_t(variable)] = int(column);
}

void LiveHost::StartCycle(long long cycle) {
    Row_ = nullptr;
    if (Stimulus_ && !Stimulus_->Rows.empty())
        Row_ = &Stimulus_->Rows[size_t(std::min<long long>(cycle, (long long)Stimulus_->Rows.size()) - 1)];
}

double LiveHost::Given(int variable) const {
    const size_t i = size_t(variable);
    if (Page_[i]) return *Page_[i];
    if (Constant_[i]) return *Constant_[i];
    if (Column_[i] >= 0 && Row_) return (*Row_)[size_t(Column_[i])];
    return 0.0;
}

int LiveHost::Find(const QString& name) const {
    // Names are ASCII-folded as the program's own look-up folds them.
    QString folded = name;
    for (QChar& c : folded)
        if (c >= QLatin1Char('a') && c <= QLatin1Char('z')) c = QChar(c.unicode() - 'a' + 'A');
    return Index_.value(folded, -1);
}

bool LiveHost::GetValueFrom(CQZDirection, const QString& name, double& value) {
    const int variable = Find(name);
    if (variable < 0) {
        value = 0.0;
        return true;
    }
    const auto& forced = Forced_[size_t(variable)];
    value = forced ? *forced : Given(variable);
    return true;
}

bool LiveHost::SetValueTo(CQZDirection, const QString& name, double value, int, bool rewrited) {
    const int variable = Find(name);
    if (variable < 0) return true;
    const auto& forced = Forced_[size_t(variable)];
    HostValue_[size_t(variable)] = forced ? *forced : value;
    Written_[size_t(variable)] = rewrited ? 1 : 0;
    return true;
}

}  // namespace qzlive
