// A host for tests: serves inputs from a table and records every call the
// interpreter makes, in order.
#ifndef QZ_TEST_RECORDING_HOST_H
#define QZ_TEST_RECORDING_HOST_H

#include "qz_st_interpretator.h"

#include <QHash>
#include <QString>
#include <string>
#include <vector>

struct HostCall {
    CQZDirection Direction;
    std::string Name;
    double Value;
    int Dimension;  // SetValueTo only
    bool Rewrited;  // SetValueTo only

    bool operator==(const HostCall& o) const {
        return Direction == o.Direction && Name == o.Name && Value == o.Value && Dimension == o.Dimension &&
               Rewrited == o.Rewrited;
    }
};

inline HostCall In(const std::string& name, double value) { return HostCall{tdIN, name, value, 0, false}; }
inline HostCall Out(const std::string& name, double value, int dimension, bool rewrited) {
    return HostCall{tdOUT, name, value, dimension, rewrited};
}

class RecordingHost : public qz_st_interpretator::IQZExecuteInterface {
public:
    virtual ~RecordingHost() = default;

    bool GetValueFrom(CQZDirection dir, const QString& name, double& value) override {
        const auto found = Inputs.constFind(name);
        value = found == Inputs.constEnd() ? 0.0 : found.value();
        Calls.push_back(HostCall{dir, name.toStdString(), value, 0, false});
        return Accept;
    }
    bool SetValueTo(CQZDirection dir, const QString& name, double value, int Dimension, bool Rewrited) override {
        Calls.push_back(HostCall{dir, name.toStdString(), value, Dimension, Rewrited});
        Outputs[name] = value;
        return Accept;
    }

    QHash<QString, double> Inputs;
    QHash<QString, double> Outputs;
    std::vector<HostCall> Calls;
    bool Accept = true;
};

#endif
