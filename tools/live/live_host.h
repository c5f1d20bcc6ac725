// The live view's side of the host boundary: it answers the program's input
// requests from the page, the command line or a forced value, and records
// what the program hands over, with forced outputs overriding it.
#ifndef QZRUN_LIVE_HOST_H
#define QZRUN_LIVE_HOST_H

#include "../stimulus.h"
#include "live_program.h"
#include "qz_st_interpretator.h"

#include <QHash>
#include <QString>

#include <optional>
#include <string>
#include <utility>
#include <vector>

namespace qzlive {

class LiveHost : public qz_st_interpretator::IQZExecuteInterface {
public:
    LiveHost(const ProgramInfo& program, const qzrun::Stimulus* stimulus,
             const std::vector<std::pair<std::string, double>>& constants);
    virtual ~LiveHost() = default;

    // Chooses the --inputs row of cycle `cycle` (from 1); the last row is held.
    void StartCycle(long long cycle);

    // A value set on the page: it replaces --set and --inputs from now on.
    void SetInput(int variable, double value) { Page_[size_t(variable)] = value; }
    void Force(int variable, double value) { Forced_[size_t(variable)] = value; }
    void Release(int variable) { Forced_[size_t(variable)].reset(); }
    const std::optional<double>& Forced(int variable) const { return Forced_[size_t(variable)]; }

    // What the next cycle reads for input `variable`, without forcing.
    double Given(int variable) const;
    // What the host holds for output `variable` after the last cycle, and
    // whether the program wrote it then (-1: never handed over).
    double HostValue(int variable) const { return HostValue_[size_t(variable)]; }
    int8_t Written(int variable) const { return Written_[size_t(variable)]; }

    bool GetValueFrom(CQZDirection dir, const QString& name, double& value) override;
    bool SetValueTo(CQZDirection dir, const QString& name, double value, int dimension, bool rewrited) override;

private:
    int Find(const QString& name) const;

    QHash<QString, int> Index_;  // folded name -> variable
    std::vector<std::optional<double>> Page_;
    std::vector<std::optional<double>> Constant_;
    std::vector<int> Column_;  // --inputs column, or -1
    std::vector<std::optional<double>> Forced_;
    std::vector<double> HostValue_;
    std::vector<int8_t> Written_;
    const qzrun::Stimulus* Stimulus_;
    const std::vector<double>* Row_ = nullptr;
};

}  // namespace qzlive

#endif
