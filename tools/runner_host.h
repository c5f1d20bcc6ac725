// The host side of a run: serves inputs from --set, --force and the --inputs
// table, and collects the outputs the program hands over.
#ifndef QZRUN_RUNNER_HOST_H
#define QZRUN_RUNNER_HOST_H

#include "options.h"
#include "qz_st_interpretator.h"
#include "stimulus.h"

#include <QHash>
#include <QSet>
#include <QString>

#include <string>
#include <utility>
#include <vector>

namespace qzrun {

struct HostValue {
    QString Name;
    double Value = 0.0;
    int Dimension = 0;
    bool Rewrited = false;
};

class RunnerHost : public qz_st_interpretator::IQZExecuteInterface {
public:
    virtual ~RunnerHost() = default;

    void SetConstants(const std::vector<std::pair<std::string, double>>& constants);
    void SetStimulus(const Stimulus* stimulus, const std::string& path);
    // Forced values replace what the host would serve or receive.
    void SetForces(const std::vector<Force>* forces) { Forces_ = forces; }

    // Chooses the stimulus row of cycle `cycle` (from 1); the last row is held.
    void StartCycle(long long cycle);
    // Values given for names the program never asked for are probably typos.
    void WarnUnusedInputs() const;
    // No warnings: for a run that repeats one already warned about.
    void SetQuiet() { Quiet_ = true; }

    // The value input `name` will read this cycle, without counting as asked.
    bool Peek(const QString& name, double& value) const;

    bool GetValueFrom(CQZDirection, const QString& name, double& value) override;
    bool SetValueTo(CQZDirection, const QString& name, double value, int dimension, bool rewrited) override;

    std::vector<HostValue> Inputs;   // as served this cycle, in the order first asked
    std::vector<HostValue> Outputs;  // in the order the interpreter hands them over

private:
    const Force* ForceOf(const QString& name) const;
    bool Serve(const QString& key, const QString& name, double& value) const;
    static void Keep(std::vector<HostValue>& list, QHash<QString, int>& index, const QString& name, double value,
                     int dimension, bool rewrited);

    QHash<QString, double> Constants_;
    QHash<QString, int> Columns_;
    const Stimulus* Stimulus_ = nullptr;
    const std::vector<double>* Row_ = nullptr;
    const std::vector<Force>* Forces_ = nullptr;
    long long Cycle_ = 0;
    bool Quiet_ = false;
    QSet<QString> Asked_;
    QSet<QString> Warned_;
    QHash<QString, int> InputIndex_;
    QHash<QString, int> OutputIndex_;
    std::vector<std::pair<QString, std::string>> GivenNames_;
};

}  // namespace qzrun

#endif
