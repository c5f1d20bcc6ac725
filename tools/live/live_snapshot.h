// What the control loop publishes for the web side: a snapshot of the run
// after a cycle (or at an instruction when stepping), cycle statistics and
// the trend of every variable over the last cycles.
//
// The control loop never waits for a reader: it replaces the latest snapshot
// under a short lock, and readers take a reference to whichever is current.
#ifndef QZRUN_LIVE_SNAPSHOT_H
#define QZRUN_LIVE_SNAPSHOT_H

#include "live_program.h"

#include <condition_variable>
#include <cstdint>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

namespace qzlive {

enum class RunState { Running, Paused, AtInstruction, Failed, LoadFailed };
const char* RunStateName(RunState state);

struct VariableState {
    double Value = 0.0;         // what the host and the trend see (the forced value when forced)
    double ProgramValue = 0.0;  // the program's own value
    double Given = 0.0;         // inputs: what the next cycle will read
    int8_t Written = -1;        // outputs: written in the last cycle (0/1); -1 for other kinds
    bool Forced = false;
};

// Times in microseconds.
struct CycleStats {
    uint64_t Cycles = 0;  // completed without error
    uint64_t Failures = 0;
    uint64_t BudgetHits = 0;
    double LastUs = 0, MedianUs = 0, MaxUs = 0;
    // How late each cycle started against its schedule.
    double JitterMedianUs = 0, JitterP99Us = 0, JitterMaxUs = 0;
};

struct Snapshot {
    uint64_t Version = 0;
    uint64_t Applied = 0;  // the last command (by sequence number) applied
    long long Cycle = 0;   // the cycle last run or running
    RunState State = RunState::Paused;
    uint32_t PeriodMs = 0;
    CycleStats Stats;
    std::optional<ErrorInfo> Error;
    std::optional<ErrorInfo> Position;  // the instruction just run, when stopped at one
    std::vector<VariableState> Variables;
};

// Microsecond histogram with fixed memory, so a run of days costs no more
// than a run of seconds. Values past the last bucket count in it; the
// maximum is kept exactly.
class Histogram {
public:
    void Add(double us);
    double Percentile(double fraction) const;
    double Max() const { return Max_; }
    uint64_t Count() const { return Count_; }

private:
    static constexpr size_t kBuckets = 20000;  // 1 us each, up to 20 ms
    std::vector<uint32_t> Buckets_ = std::vector<uint32_t>(kBuckets, 0);
    uint64_t Count_ = 0;
    double Max_ = 0;
};

// The last `capacity` cycles' values of every variable, in preallocated rows.
class TrendBuffer {
public:
    struct Row {
        long long Cycle = 0;
        std::vector<double> Values;
    };
    TrendBuffer(size_t capacity, size_t width);
    void Append(long long cycle, const std::vector<VariableState>& variables);
    // Rows of cycles after `cycle`, oldest first (at most the capacity).
    std::vector<Row> Since(long long cycle) const;
    size_t Capacity() const { return Rows_.size(); }

private:
    mutable std::mutex Mutex_;
    std::vector<Row> Rows_;
    size_t Next_ = 0;
    size_t Count_ = 0;
};

// The latest snapshot, for any number of readers.
class SnapshotBoard {
public:
    void Publish(std::shared_ptr<const Snapshot> snapshot);
    std::shared_ptr<const Snapshot> Latest() const;
    // Waits for a snapshot newer than `version`, at most `timeout`; returns
    // the latest either way.
    std::shared_ptr<const Snapshot> WaitNewer(uint64_t version, std::chrono::milliseconds timeout) const;
    void WakeAll();

private:
    mutable std::mutex Mutex_;
    mutable std::condition_variable Changed_;
    std::shared_ptr<const Snapshot> Latest_ = std::make_shared<Snapshot>();
};

// JSON texts of the API.
std::string SnapshotJson(const ProgramInfo& program, const Snapshot& snapshot);
std::string TrendJson(const std::vector<TrendBuffer::Row>& rows);
std::string ProgramJson(const ProgramInfo& program, size_t trendCapacity);

}  // namespace qzlive

#endif
