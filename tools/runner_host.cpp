#include "runner_host.h"

#include <algorithm>
#include <cstdio>

namespace qzrun {

void RunnerHost::SetConstants(const std::vector<std::pair<std::string, double>>& constants) {
    for (const auto& [name, value] : constants) {
        Constants_.insert(QString::fromStdString(name).toUpper(), value);
        GivenNames_.push_back({QString::fromStdString(name), "--set"});
    }
}

void RunnerHost::SetStimulus(const Stimulus* stimulus, const std::string& path) {
    Stimulus_ = stimulus;
    for (size_t i = 0; i < stimulus->Names.size(); ++i) {
        const QString name = QString::fromStdString(stimulus->Names[i]);
        Columns_.insert(name.toUpper(), int(i));
        GivenNames_.push_back({name, path});
    }
}

void RunnerHost::StartCycle(long long cycle) {
    Cycle_ = cycle;
    Row_ = nullptr;
    if (Stimulus_ && !Stimulus_->Rows.empty())
        Row_ = &Stimulus_->Rows[size_t(std::min<long long>(cycle, (long long)Stimulus_->Rows.size()) - 1)];
}

void RunnerHost::WarnUnusedInputs() const {
    if (Quiet_) return;
    for (const auto& [name, origin] : GivenNames_)
        if (!Asked_.contains(name.toUpper()))
            std::fprintf(stderr, "qzrun: warning: the program has no input '%s' (given by %s)\n",
                         name.toStdString().c_str(), origin.c_str());
}

// The last --force of a name that covers this cycle wins, as the last word
// of a command line does.
const Force* RunnerHost::ForceOf(const QString& name) const {
    if (!Forces_) return nullptr;
    const Force* found = nullptr;
    for (const Force& force : *Forces_)
        if (force.Covers(Cycle_) && name.compare(QString::fromStdString(force.Name), Qt::CaseInsensitive) == 0)
            found = &force;
    return found;
}

bool RunnerHost::Serve(const QString& key, const QString& name, double& value) const {
    if (const Force* force = ForceOf(name)) {
        value = force->Value;
        return true;
    }
    if (const auto constant = Constants_.constFind(key); constant != Constants_.constEnd()) {
        value = constant.value();
        return true;
    }
    if (const auto column = Columns_.constFind(key); column != Columns_.constEnd() && Row_) {
        value = (*Row_)[size_t(column.value())];
        return true;
    }
    return false;
}

bool RunnerHost::Peek(const QString& name, double& value) const {
    if (Serve(name.toUpper(), name, value)) return true;
    value = 0.0;
    return false;
}

bool RunnerHost::GetValueFrom(CQZDirection, const QString& name, double& value) {
    const QString key = name.toUpper();
    Asked_.insert(key);
    if (!Serve(key, name, value)) {
        value = 0.0;
        // A forced name counts as given, even in the cycles it is not held.
        const bool forcedSometime = Forces_ && std::any_of(Forces_->begin(), Forces_->end(), [&](const Force& f) {
            return name.compare(QString::fromStdString(f.Name), Qt::CaseInsensitive) == 0;
        });
        if (!forcedSometime && !Quiet_ && !Warned_.contains(key)) {
            Warned_.insert(key);
            std::fprintf(stderr,
                         "qzrun: warning: no value given for input '%s'; it reads 0 (give one with --set or --inputs)\n",
                         name.toStdString().c_str());
        }
    }
    Keep(Inputs, InputIndex_, name, value, 0, false);
    return true;
}

bool RunnerHost::SetValueTo(CQZDirection, const QString& name, double value, int dimension, bool rewrited) {
    if (const Force* force = ForceOf(name)) value = force->Value;
    Keep(Outputs, OutputIndex_, name, value, dimension, rewrited);
    return true;
}

void RunnerHost::Keep(std::vector<HostValue>& list, QHash<QString, int>& index, const QString& name, double value,
                      int dimension, bool rewrited) {
    auto at = index.constFind(name);
    if (at == index.constEnd()) {
        at = index.insert(name, int(list.size()));
        list.push_back(HostValue{name, 0.0, 0, false});
    }
    HostValue& kept = list[size_t(at.value())];
    kept.Value = value;
    kept.Dimension = dimension;
    kept.Rewrited = rewrited;
}

}  // namespace qzrun
