// The live view's control loop: runs the program's cycles on its own thread
// at the chosen period, applies the page's commands between cycles (or
// between instructions when stepping), and publishes snapshots. Nothing in
// it waits for the web side.
#ifndef QZRUN_LIVE_ENGINE_H
#define QZRUN_LIVE_ENGINE_H

#include "live_host.h"
#include "live_snapshot.h"
#include "live_view.h"

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <deque>
#include <mutex>

namespace qzlive {

enum class CommandKind { SetInput, Force, Release, Pause, Resume, StepCycle, StepInstruction };

struct Command {
    CommandKind Kind;
    int Variable = -1;
    double Value = 0.0;
    uint64_t Sequence = 0;  // given by Submit
};

class LiveEngine {
public:
    // The trend keeps this many cycles, fewer for a program so large that
    // they would pass kTrendValues values.
    static constexpr size_t kTrendCycles = 600;
    static constexpr size_t kTrendValues = size_t(4) << 20;

    LiveEngine(const LiveOptions& options, const ProgramInfo& program,
               qz_st_interpretator::IQZSTInterpretator* interpreter, const qzrun::Stimulus* stimulus);

    // Queues a command for the control loop; returns its sequence number,
    // which snapshots report as applied once it is.
    uint64_t Submit(Command command);
    const SnapshotBoard& Board() const { return Board_; }
    const TrendBuffer& Trend() const { return Trend_; }

    // The control loop; returns after Stop().
    void Run();
    void Stop();

private:
    using Clock = std::chrono::steady_clock;

    static void OnInstruction(void* context, const QZTraceEvent* event);
    void StopAtInstruction(const QZTraceEvent& event);

    std::deque<Command> TakeCommands();
    void WaitForCommands(Clock::time_point until);
    void Apply(const Command& command);
    void ApplyAll();
    void Force(int variable, double value);
    void ApplyForcedInternals();
    void Recover();

    void RunCycle(bool stepInstructions, Clock::time_point scheduled);
    void FinishCycle(uint32_t code, std::chrono::nanoseconds took);
    void CollectVariables(std::vector<VariableState>& into) const;
    void Publish(bool now);
    RunState State() const;

    const LiveOptions& Options_;
    const ProgramInfo& Program_;
    qz_st_interpretator::IQZSTInterpretator* Interpreter_;
    LiveHost Host_;
    SnapshotBoard Board_;
    TrendBuffer Trend_;

    // Shared with the web side.
    std::mutex QueueMutex_;
    std::condition_variable QueueChanged_;
    std::deque<Command> Queue_;
    uint64_t NextSequence_ = 1;
    std::atomic<bool> Stopping_{false};

    // Control thread only.
    bool Paused_;
    bool Failed_ = false;
    bool InsideCycle_ = false;
    bool StepCyclePending_ = false;
    bool StepInstructionPending_ = false;
    uint64_t InstructionsLeft_ = 0;  // when stepping: instructions until the next stop
    uint64_t Applied_ = 0;
    uint64_t Version_ = 0;
    long long Cycle_ = 0;
    uint32_t SimulatedNow_ = 0;
    std::optional<ErrorInfo> Error_;
    std::optional<ErrorInfo> Position_;
    CycleStats Stats_;
    Histogram CycleTimes_;
    Histogram Jitter_;
    std::vector<VariableState> Values_;
    Clock::time_point LastPublished_{};
};

}  // namespace qzlive

#endif
