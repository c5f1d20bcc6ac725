#include "live_snapshot.h"

#include <nlohmann/json.hpp>

#include <algorithm>
#include <cmath>

namespace qzlive {

using nlohmann::json;

const char* RunStateName(RunState state) {
    switch (state) {
        case RunState::Running: return "running";
        case RunState::Paused: return "paused";
        case RunState::AtInstruction: return "at-instruction";
        case RunState::Failed: return "failed";
        case RunState::LoadFailed: return "load-failed";
    }
    return "?";
}

// ---- Histogram ----

void Histogram::Add(double us) {
    if (!(us >= 0)) us = 0;
    const size_t bucket = std::min(size_t(us), kBuckets - 1);
    ++Buckets_[bucket];
    ++Count_;
    Max_ = std::max(Max_, us);
}

double Histogram::Percentile(double fraction) const {
    if (Count_ == 0) return 0;
    const uint64_t rank = std::min<uint64_t>(Count_ - 1, uint64_t(fraction * double(Count_)));
    uint64_t seen = 0;
    for (size_t i = 0; i < kBuckets; ++i) {
        seen += Buckets_[i];
        if (seen > rank) return i == kBuckets - 1 ? Max_ : double(i);
    }
    return Max_;
}

// ---- Trend ----

TrendBuffer::TrendBuffer(size_t capacity, size_t width) : Rows_(std::max<size_t>(capacity, 1)) {
    for (Row& row : Rows_) row.Values.resize(width);
}

void TrendBuffer::Append(long long cycle, const std::vector<VariableState>& variables) {
    std::lock_guard<std::mutex> lock(Mutex_);
    Row& row = Rows_[Next_];
    row.Cycle = cycle;
    for (size_t i = 0; i < variables.size() && i < row.Values.size(); ++i) row.Values[i] = variables[i].Value;
    Next_ = (Next_ + 1) % Rows_.size();
    Count_ = std::min(Count_ + 1, Rows_.size());
}

std::vector<TrendBuffer::Row> TrendBuffer::Since(long long cycle) const {
    std::vector<Row> rows;
    std::lock_guard<std::mutex> lock(Mutex_);
    const size_t first = (Next_ + Rows_.size() - Count_) % Rows_.size();
    for (size_t i = 0; i < Count_; ++i) {
        const Row& row = Rows_[(first + i) % Rows_.size()];
        if (row.Cycle > cycle) rows.push_back(row);
    }
    return rows;
}

// ---- Board ----

void SnapshotBoard::Publish(std::shared_ptr<const Snapshot> snapshot) {
    {
        std::lock_guard<std::mutex> lock(Mutex_);
        Latest_.swap(snapshot);
    }
    Changed_.notify_all();
    // The previous snapshot, if this was its last reference, is freed here,
    // outside the lock.
}

std::shared_ptr<const Snapshot> SnapshotBoard::Latest() const {
    std::lock_guard<std::mutex> lock(Mutex_);
    return Latest_;
}

std::shared_ptr<const Snapshot> SnapshotBoard::WaitNewer(uint64_t version, std::chrono::milliseconds timeout) const {
    std::unique_lock<std::mutex> lock(Mutex_);
    Changed_.wait_for(lock, timeout, [&] { return Latest_->Version > version; });
    return Latest_;
}

void SnapshotBoard::WakeAll() { Changed_.notify_all(); }

// ---- JSON ----

namespace {

json Number(double value) { return std::isfinite(value) ? json(value) : json(nullptr); }

json ErrorJson(const ErrorInfo& error) {
    return json{{"code", error.Code},     {"message", error.Message}, {"cycle", error.Cycle},
                {"offset", error.Offset}, {"length", error.Length},   {"line", error.Line},
                {"column", error.Column}};
}

json StatsJson(const CycleStats& stats) {
    return json{{"cycles", stats.Cycles},
                {"failures", stats.Failures},
                {"budgetHits", stats.BudgetHits},
                {"lastUs", stats.LastUs},
                {"medianUs", stats.MedianUs},
                {"maxUs", stats.MaxUs},
                {"jitterMedianUs", stats.JitterMedianUs},
                {"jitterP99Us", stats.JitterP99Us},
                {"jitterMaxUs", stats.JitterMaxUs}};
}

json VariablesJson(const ProgramInfo& program, const Snapshot& snapshot) {
    json variables = json::array();
    for (size_t i = 0; i < snapshot.Variables.size() && i < program.Variables.size(); ++i) {
        const Variable& declared = program.Variables[i];
        const VariableState& state = snapshot.Variables[i];
        json entry{{"name", declared.Name},
                   {"kind", KindName(declared.Kind)},
                   {"type", TypeNameOf(declared.Type)},
                   {"value", Number(state.Value)},
                   {"programValue", Number(state.ProgramValue)},
                   {"written", state.Written < 0 ? json(nullptr) : json(state.Written == 1)},
                   {"forced", state.Forced}};
        if (declared.Kind == kKindVI) entry["given"] = Number(state.Given);
        variables.push_back(std::move(entry));
    }
    return variables;
}

}  // namespace

std::string SnapshotJson(const ProgramInfo& program, const Snapshot& snapshot) {
    json out{{"version", snapshot.Version},
             {"applied", snapshot.Applied},
             {"cycle", snapshot.Cycle},
             {"state", RunStateName(snapshot.State)},
             {"periodMs", snapshot.PeriodMs},
             {"stats", StatsJson(snapshot.Stats)},
             {"error", snapshot.Error ? ErrorJson(*snapshot.Error) : json(nullptr)},
             {"position", snapshot.Position ? ErrorJson(*snapshot.Position) : json(nullptr)},
             {"variables", VariablesJson(program, snapshot)}};
    return out.dump(-1, ' ', false, json::error_handler_t::replace);
}

std::string TrendJson(const std::vector<TrendBuffer::Row>& rows) {
    json out = json::array();
    for (const TrendBuffer::Row& row : rows) {
        json values = json::array();
        for (double value : row.Values) values.push_back(Number(value));
        out.push_back(json{{"cycle", row.Cycle}, {"values", std::move(values)}});
    }
    return out.dump();
}

std::string ProgramJson(const ProgramInfo& program, size_t trendCapacity) {
    json variables = json::array();
    for (const Variable& variable : program.Variables)
        variables.push_back(
            json{{"name", variable.Name}, {"kind", KindName(variable.Kind)}, {"type", TypeNameOf(variable.Type)}});
    json diagnostics = json::array();
    for (const Diagnostic& diagnostic : program.Diagnostics)
        diagnostics.push_back(json{{"severity", diagnostic.Severity},
                                   {"id", diagnostic.Id},
                                   {"message", diagnostic.Message},
                                   {"line", diagnostic.Line},
                                   {"column", diagnostic.Column}});
    json out{{"path", program.Source.Path()},
             {"source", program.Source.Bytes()},
             {"variables", std::move(variables)},
             {"diagnostics", std::move(diagnostics)},
             {"checker", HaveChecker()},
             {"loadError", program.LoadError ? ErrorJson(*program.LoadError) : json(nullptr)},
             {"trendCapacity", trendCapacity}};
    return out.dump(-1, ' ', false, json::error_handler_t::replace);
}

}  // namespace qzlive
