#include "live_engine.h"

#include "qz_st_result_codes.h"
#include "qz_st_variables.h"

#include <algorithm>

namespace qzlive {

namespace {

// The tick counter takes a reading of 0 for "never read": simulated time
// starts later, as in the batch runner.
constexpr uint32_t kSimulatedClockStart = 1000;
// At most 20 snapshots a second while running; pauses, steps and commands
// publish at once.
constexpr auto kPublishInterval = std::chrono::milliseconds(50);
constexpr auto kIdleWait = std::chrono::milliseconds(200);

uint32_t ReadSimulatedClock(void* context) { return *static_cast<const uint32_t*>(context); }

double Microseconds(std::chrono::steady_clock::duration duration) {
    return double(std::chrono::duration_cast<std::chrono::nanoseconds>(duration).count()) / 1000.0;
}

void StoreProgramValue(void* context, const QZVariableInfo* info) {
    auto* values = static_cast<std::vector<VariableState>*>(context);
    if (info->Ordinal < values->size()) (*values)[info->Ordinal].ProgramValue = info->Value;
}

size_t TrendCycles(size_t width) {
    if (width == 0) return LiveEngine::kTrendCycles;
    return std::max<size_t>(10, std::min(LiveEngine::kTrendCycles, LiveEngine::kTrendValues / width));
}

bool IsStep(CommandKind kind) { return kind == CommandKind::StepCycle || kind == CommandKind::StepInstruction; }

}  // namespace

LiveEngine::LiveEngine(const LiveOptions& options, const ProgramInfo& program,
                       qz_st_interpretator::IQZSTInterpretator* interpreter, const qzrun::Stimulus* stimulus)
    : Options_(options),
      Program_(program),
      Interpreter_(interpreter),
      Host_(program, stimulus, options.Constants),
      Trend_(TrendCycles(program.Variables.size()), program.Variables.size()),
      Paused_(options.StartPaused) {
    Values_.resize(program.Variables.size());
    QZSetInstructionBudget(interpreter, options.MaxSteps);
    QZSetStackLimit(interpreter, options.MaxStack);
    QZSetCallDepthLimit(interpreter, options.MaxDepth);
    QZSetMemoryLimit(interpreter, options.MaxMemoryBytes);
    SimulatedNow_ = kSimulatedClockStart;
    if (options.SimulatedTime) QZSetClock(interpreter, ReadSimulatedClock, &SimulatedNow_);
    Host_.StartCycle(1);
    if (!Program_.LoadError) CollectVariables(Values_);
    Publish(true);
}

// ---- Commands ----

uint64_t LiveEngine::Submit(Command command) {
    uint64_t sequence;
    {
        std::lock_guard<std::mutex> lock(QueueMutex_);
        sequence = NextSequence_++;
        command.Sequence = sequence;
        Queue_.push_back(command);
    }
    QueueChanged_.notify_one();
    return sequence;
}

void LiveEngine::Stop() {
    {
        std::lock_guard<std::mutex> lock(QueueMutex_);
        Stopping_ = true;
    }
    QueueChanged_.notify_all();
    Board_.WakeAll();
}

std::deque<Command> LiveEngine::TakeCommands() {
    std::deque<Command> taken;
    std::lock_guard<std::mutex> lock(QueueMutex_);
    taken.swap(Queue_);
    return taken;
}

void LiveEngine::WaitForCommands(Clock::time_point until) {
    std::unique_lock<std::mutex> lock(QueueMutex_);
    QueueChanged_.wait_until(lock, until, [&] { return Stopping_ || !Queue_.empty(); });
}

void LiveEngine::Recover() {
    if (!Failed_) return;
    QZRecover(Interpreter_);
    Failed_ = false;
    Error_.reset();
}

void LiveEngine::Apply(const Command& command) {
    const int variable = command.Variable;
    switch (command.Kind) {
        case CommandKind::SetInput: Host_.SetInput(variable, command.Value); break;
        case CommandKind::Force: Force(variable, command.Value); break;
        case CommandKind::Release: Host_.Release(variable); break;
        case CommandKind::Pause: Paused_ = true; break;
        case CommandKind::Resume:
            Recover();
            Paused_ = false;
            InstructionsLeft_ = 0;
            break;
        case CommandKind::StepCycle:
        case CommandKind::StepInstruction:
            if (!Paused_ && !Failed_) break;  // steps only from a pause
            Recover();
            Paused_ = true;
            if (InsideCycle_) {
                InstructionsLeft_ = command.Kind == CommandKind::StepInstruction ? 1 : 0;
            } else if (command.Kind == CommandKind::StepInstruction) {
                StepInstructionPending_ = true;
            } else {
                StepCyclePending_ = true;
            }
            break;
    }
    Applied_ = command.Sequence;
}

// Applies queued commands up to and including the first step (a step runs
// before the commands that follow it), leaving the rest queued.
void LiveEngine::ApplyAll() {
    std::deque<Command> commands = TakeCommands();
    if (commands.empty()) return;
    while (!commands.empty()) {
        const Command command = commands.front();
        commands.pop_front();
        Apply(command);
        if (IsStep(command.Kind) && !commands.empty()) {
            std::lock_guard<std::mutex> lock(QueueMutex_);
            Queue_.insert(Queue_.begin(), commands.begin(), commands.end());
            break;
        }
    }
    if (!InsideCycle_) CollectVariables(Values_);
    Publish(true);
}

// An internal variable takes the forced value as a MOV into it would (narrowed
// to its type), and the table shows what it holds.
void LiveEngine::Force(int variable, double value) {
    Host_.Force(variable, value);
    const Variable& declared = Program_.Variables[size_t(variable)];
    if (declared.Kind == kKindVI || declared.Kind == kKindVO) return;
    double narrowed = value;
    uint8_t type = 0;
    if (QZSetVariable(Interpreter_, declared.Name.data(), declared.Name.size(), value) == 0 &&
        QZGetVariable(Interpreter_, declared.Name.data(), declared.Name.size(), &narrowed, &type) == 0)
        Host_.Force(variable, narrowed);
}

void LiveEngine::ApplyForcedInternals() {
    for (size_t i = 0; i < Program_.Variables.size(); ++i) {
        const Variable& variable = Program_.Variables[i];
        const auto& forced = Host_.Forced(int(i));
        if (!forced || variable.Kind == kKindVI || variable.Kind == kKindVO) continue;
        QZSetVariable(Interpreter_, variable.Name.data(), variable.Name.size(), *forced);
    }
}

// ---- Cycles ----

void LiveEngine::Run() {
    if (Program_.LoadError) {
        while (!Stopping_) WaitForCommands(Clock::now() + kIdleWait);
        return;
    }
    const auto period = std::chrono::milliseconds(Options_.PeriodMs);
    Clock::time_point next = Clock::now();
    while (!Stopping_) {
        ApplyAll();
        if (Stopping_) break;
        if (StepInstructionPending_ || StepCyclePending_) {
            const bool instructions = StepInstructionPending_;
            StepInstructionPending_ = StepCyclePending_ = false;
            RunCycle(instructions, Clock::time_point{});
            continue;
        }
        const Clock::time_point now = Clock::now();
        if (Paused_ || Failed_) {
            WaitForCommands(now + kIdleWait);
            next = Clock::now();
            continue;
        }
        if (now < next) {
            WaitForCommands(next);
            continue;
        }
        RunCycle(false, next);
        next += period;
        // After a long stall (a suspended process), start afresh instead of
        // running the missed cycles back to back.
        if (Clock::now() > next + period) next = Clock::now();
    }
}

void LiveEngine::RunCycle(bool stepInstructions, Clock::time_point scheduled) {
    const Clock::time_point start = Clock::now();
    ++Cycle_;
    Host_.StartCycle(Cycle_);
    SimulatedNow_ = kSimulatedClockStart + uint32_t(uint64_t(Cycle_ - 1) * Options_.SimulatedStep);
    ApplyForcedInternals();
    if (stepInstructions) {
        InstructionsLeft_ = 1;
        QZSetTraceHook(Interpreter_, OnInstruction, this);
    }
    InsideCycle_ = true;
    const Clock::time_point before = Clock::now();
    const uint32_t code = Interpreter_->Execute(&Host_);
    const Clock::time_point after = Clock::now();
    InsideCycle_ = false;
    if (stepInstructions) QZSetTraceHook(Interpreter_, nullptr, nullptr);
    Position_.reset();

    const bool timed = !stepInstructions && scheduled != Clock::time_point{};
    if (timed) Jitter_.Add(Microseconds(start - scheduled));
    FinishCycle(code, timed ? std::chrono::duration_cast<std::chrono::nanoseconds>(after - before)
                            : std::chrono::nanoseconds(-1));
}

void LiveEngine::FinishCycle(uint32_t code, std::chrono::nanoseconds took) {
    if (code != 0) {
        ++Stats_.Failures;
        if (code == Qz::rcBudgetExhausted) ++Stats_.BudgetHits;
        Failed_ = true;
        Error_ = LocateError(Program_.Source, Interpreter_, code, Cycle_);
    } else {
        ++Stats_.Cycles;
    }
    if (took.count() >= 0) {
        Stats_.LastUs = double(took.count()) / 1000.0;
        CycleTimes_.Add(Stats_.LastUs);
    }
    CollectVariables(Values_);
    ApplyForcedInternals();
    Trend_.Append(Cycle_, Values_);
    Publish(code != 0 || Paused_);
}

void LiveEngine::CollectVariables(std::vector<VariableState>& into) const {
    QZListVariables(Interpreter_, StoreProgramValue, &into);
    for (size_t i = 0; i < into.size(); ++i) {
        VariableState& state = into[i];
        const int variable = int(i);
        const auto& forced = Host_.Forced(variable);
        const uint8_t kind = Program_.Variables[i].Kind;
        state.Forced = forced.has_value();
        state.Value = forced ? *forced : state.ProgramValue;
        state.Written = -1;
        if (kind == kKindVO) {
            state.Written = Host_.Written(variable);
            if (state.Written >= 0) state.Value = Host_.HostValue(variable);
            else state.Written = 0;
        } else if (kind == kKindVI) {
            state.Given = Host_.Given(variable);
        }
    }
}

// ---- Stepping through instructions ----

void LiveEngine::OnInstruction(void* context, const QZTraceEvent* event) {
    static_cast<LiveEngine*>(context)->StopAtInstruction(*event);
}

// Runs on the control thread inside Execute: the cycle stays suspended in
// this call while the page looks at it, and commands are applied from here.
void LiveEngine::StopAtInstruction(const QZTraceEvent& event) {
    if (InstructionsLeft_ == 0 || --InstructionsLeft_ > 0) return;
    Position_ = LocateSpan(Program_.Source, event.InstructionStart, event.InstructionEnd);
    CollectVariables(Values_);
    Publish(true);
    while (!Stopping_) {
        WaitForCommands(Clock::now() + kIdleWait);
        std::deque<Command> commands = TakeCommands();
        bool leave = false;
        while (!commands.empty() && !leave) {
            const Command command = commands.front();
            commands.pop_front();
            Apply(command);
            leave = IsStep(command.Kind) || command.Kind == CommandKind::Resume;
        }
        if (!commands.empty()) {
            std::lock_guard<std::mutex> lock(QueueMutex_);
            Queue_.insert(Queue_.begin(), commands.begin(), commands.end());
        }
        CollectVariables(Values_);
        if (leave) {
            if (InstructionsLeft_ == 0) Position_.reset();
            return;
        }
        Publish(true);
    }
}

// ---- Snapshots ----

RunState LiveEngine::State() const {
    if (Program_.LoadError) return RunState::LoadFailed;
    if (Position_) return RunState::AtInstruction;
    if (Failed_) return RunState::Failed;
    return Paused_ ? RunState::Paused : RunState::Running;
}

void LiveEngine::Publish(bool now) {
    const Clock::time_point time = Clock::now();
    if (!now && time - LastPublished_ < kPublishInterval) return;
    LastPublished_ = time;
    auto snapshot = std::make_shared<Snapshot>();
    snapshot->Version = ++Version_;
    snapshot->Applied = Applied_;
    snapshot->Cycle = Cycle_;
    snapshot->State = State();
    snapshot->PeriodMs = Options_.PeriodMs;
    snapshot->Stats = Stats_;
    snapshot->Stats.MedianUs = CycleTimes_.Percentile(0.5);
    snapshot->Stats.MaxUs = CycleTimes_.Max();
    snapshot->Stats.JitterMedianUs = Jitter_.Percentile(0.5);
    snapshot->Stats.JitterP99Us = Jitter_.Percentile(0.99);
    snapshot->Stats.JitterMaxUs = Jitter_.Max();
    snapshot->Error = Error_ ? Error_ : Program_.LoadError;
    snapshot->Position = Position_;
    snapshot->Variables = Values_;
    Board_.Publish(std::move(snapshot));
}

}  // namespace qzlive
