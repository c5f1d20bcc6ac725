#include "run.h"

#include "debugger.h"
#include "live/live_view.h"
#include "diagnostics.h"
#include "expect.h"
#include "recording.h"
#include "runner_host.h"
#include "source_text.h"
#include "stimulus.h"
#include "table.h"
#include "trace_stats.h"
#include "value_format.h"
#include "variables.h"
#include "waveform.h"

#include "qz_st_variables.h"

#include <QString>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <memory>
#include <thread>

namespace qzrun {
namespace {

// The simulated clock's reading in the first cycle. The tick counter takes a
// reading of 0 for "never read", so simulated time must not start there.
constexpr uint32_t kSimulatedClockStart = 1000;

uint32_t ReadSimulatedClock(void* context) { return *static_cast<const uint32_t*>(context); }

// Releases the interpreter however the run ends.
struct InterpreterHandle {
    qz_st_interpretator::IQZSTInterpretator* Object = Create();
    ~InterpreterHandle() { Object->Destroy(); }
};

bool SameName(const std::string& a, const std::string& b) {
    return QString::fromStdString(a).compare(QString::fromStdString(b), Qt::CaseInsensitive) == 0;
}

// The file's name without directory and extension, for the waveform's scope.
std::string ProgramName(const std::string& path) {
    return QString::fromStdString(path).section('/', -1).section('.', 0, 0).toStdString();
}

// Everything one run holds; the cycle loop is Bench::Run.
class Bench {
public:
    Bench(const Options& options, SourceText& source, qz_st_interpretator::IQZSTInterpretator* object)
        : Options_(options), Source_(source), Object_(object), Variables_(object), Writers_(source) {}

    int Run();
    // A silent run that only follows which instruction stores into what.
    void FollowWriters() { FollowWriters_ = true; }
    const LastWriters& Writers() const { return Writers_; }

private:
    int Prepare();
    int ResolveVariables();
    bool NeedsVariables() const;
    void AddWatch(const VariableInfo& info, bool forced);
    void InstallHooks();
    static void OnInstruction(void* context, const QZTraceEvent* event);
    void ApplyForces();
    void ShowCycleStart();
    int RunCycle(long long cycle);
    void Record(long long cycle);
    void BindHostSignals();
    int Finish(int status);
    void ExplainDifference(long long cycle);
    long long CycleCount() const;

    const Options& Options_;
    SourceText& Source_;
    qz_st_interpretator::IQZSTInterpretator* Object_;
    ProgramVariables Variables_;
    RunnerHost Host_;
    Stimulus Stimulus_;
    ExpectedTable Expected_;
    std::unique_ptr<ExpectCheck> Check_;
    LastWriters Writers_;
    bool FollowWriters_ = false;
    bool KeepHistory_ = false;  // every row, for the files written after the run
    std::unique_ptr<Debugger> Debugger_;
    std::string ChartLibrary_;
    Recording Recording_;
    std::unique_ptr<Table> Table_;
    struct Held {
        const Force* Given;
        double Stored = 0.0;  // the forced value as the variable holds it (narrowed)
        bool Known = false;
    };
    std::vector<Held> HeldInside_;  // forces the program's own variables need
    std::vector<size_t> InputSignal_, OutputSignal_;
    long long Cycle_ = 0;
    uint32_t SimulatedNow_ = kSimulatedClockStart;
    std::vector<std::chrono::nanoseconds> Times_;
};

bool Bench::NeedsVariables() const {
    return !Options_.Watch.empty() || !Options_.Forces.empty() || Options_.Debug || !Options_.VcdPath.empty() ||
           !Options_.HtmlPath.empty() || !Expected_.Variables().empty();
}

int Bench::Prepare() {
    std::string error;
    if (!Options_.InputsPath.empty() &&
        !ReadStimulus(Options_.InputsPath, Options_.MaxFileBytes, Stimulus_, error)) {
        std::fprintf(stderr, "qzrun: error: %s\n", error.c_str());
        return kExitUsage;
    }
    if (!Options_.ExpectPath.empty() && !Options_.UpdateExpected &&
        !ReadExpected(Options_.ExpectPath, Options_.MaxFileBytes, Expected_, error)) {
        std::fprintf(stderr, "qzrun: error: %s\n", error.c_str());
        return kExitUsage;
    }
    // A file being updated keeps its @NAME columns and its length; one that
    // is missing or unreadable is simply written anew.
    if (Options_.UpdateExpected && !ReadExpected(Options_.ExpectPath, Options_.MaxFileBytes, Expected_, error))
        Expected_ = ExpectedTable{};
    if (!Options_.HtmlPath.empty() && !ReadChartLibrary(ChartLibrary_, error)) {
        std::fprintf(stderr, "qzrun: error: %s\n", error.c_str());
        return kExitUsage;
    }
    return kExitOk;
}

void Bench::AddWatch(const VariableInfo& info, bool forced) {
    for (Signal& signal : Recording_.Signals)
        if (signal.Kind == Role::Variable && SameName(signal.Name, info.Name)) {
            signal.Forced = signal.Forced || forced;
            return;
        }
    Recording_.Signals.push_back(Signal{info.Name, Role::Variable, DimensionOf(char(info.Type)), forced});
}

// Watched and forced names must be the program's; a force on anything but an
// input also holds the variable inside the program.
int Bench::ResolveVariables() {
    if (!NeedsVariables()) return kExitOk;
    if (const uint32_t code = Variables_.Load()) {
        std::fprintf(stderr, "qzrun: error: cannot list the program's variables (result code %u)\n", code);
        return kExitUsage;
    }
    std::vector<std::pair<std::string, std::string>> watch;  // name, and where it was asked for
    for (const std::string& name : Options_.Watch) watch.emplace_back(name, "--watch " + name);
    for (const std::string& name : Expected_.Variables()) watch.emplace_back(name, Expected_.Path + ": column @" + name);
    for (const auto& [name, origin] : watch) {
        if (SameName(name, "all")) {
            // The outputs have their columns already.
            for (const VariableInfo& info : Variables_.All())
                if (info.Kind != kKindOutput) AddWatch(info, false);
            continue;
        }
        const VariableInfo* info = Variables_.Find(name);
        if (!info) {
            std::fprintf(stderr, "qzrun: error: %s: the program has no variable '%s'\n", origin.c_str(),
                         name.c_str());
            return kExitUsage;
        }
        AddWatch(*info, false);
    }
    for (const Force& force : Options_.Forces) {
        const VariableInfo* info = Variables_.Find(force.Name);
        if (!info) {
            std::fprintf(stderr, "qzrun: error: --force %s: the program has no variable '%s'\n", force.Text.c_str(),
                         force.Name.c_str());
            return kExitUsage;
        }
        if (info->Kind != kKindInput) HeldInside_.push_back(Held{&force});
        if (info->Kind != kKindOutput) AddWatch(*info, true);
    }
    return kExitOk;
}

void Bench::OnInstruction(void* context, const QZTraceEvent* event) {
    Bench& bench = *static_cast<Bench*>(context);
    if (bench.Options_.Trace) PrintTraceLine(bench.Source_, bench.Cycle_, *event);
    if (bench.FollowWriters_) bench.Writers_.Observe(*event, bench.Cycle_);
    if (!bench.HeldInside_.empty()) {
        // Inside a subprogram a name is its local's: the program's variables
        // are held again once the call returns.
        QZMachineState state{};
        if (QZGetMachineState(bench.Object_, &state) == 0 && state.CallDepth == 0) bench.ApplyForces();
    }
    if (bench.Debugger_) bench.Debugger_->AfterInstruction(*event);
}

void Bench::InstallHooks() {
    if (Options_.Trace) PrintTraceHeading();
    if (Options_.Trace || FollowWriters_ || !HeldInside_.empty() || Debugger_)
        QZSetTraceHook(Object_, OnInstruction, this);
}

// A forced variable is held through the cycle: set before the body and again
// after every instruction, so the program never sees another value for long.
// It is set only when it holds another value: a store marks an output as
// written, and the mark must stay the program's.
void Bench::ApplyForces() {
    for (Held& held : HeldInside_) {
        if (!held.Given->Covers(Cycle_)) continue;
        double now;
        if (held.Known && Variables_.Get(held.Given->Name, now) && now == held.Stored) continue;
        Variables_.Set(held.Given->Name, held.Given->Value);
        held.Known = Variables_.Get(held.Given->Name, held.Stored);
    }
}

// The library resets the V variables and reads the inputs as a cycle
// starts, after the debugger's stop before its first instruction; done here
// too, that stop shows what the first instruction will see.
void Bench::ShowCycleStart() {
    for (const VariableInfo& info : Variables_.All()) {
        double value = info.Declared;
        if (info.Kind == kKindInput) Host_.Peek(QString::fromStdString(info.Name), value);
        if (info.Kind == kKindInput || info.Kind == kKindWorking) Variables_.Set(info.Name, value);
    }
    ApplyForces();
}

long long Bench::CycleCount() const {
    if (Options_.Cycles >= 0) return Options_.Cycles;
    long long rows = (long long)Stimulus_.Rows.size();
    if (!Expected_.Rows.empty()) rows = std::max(rows, Expected_.Rows.back().Cycle);
    return std::max<long long>(1, rows);
}

// The inputs and outputs the first cycle showed become signals, before the
// watched variables.
void Bench::BindHostSignals() {
    std::vector<Signal> signals;
    auto typed = [&](const QString& name, Role role, int dimension) {
        const VariableInfo* info = Variables_.Find(name.toStdString());
        if (info && role == Role::Input) dimension = DimensionOf(char(info->Type));
        const bool forced = std::any_of(Options_.Forces.begin(), Options_.Forces.end(),
                                        [&](const Force& f) { return SameName(f.Name, name.toStdString()); });
        signals.push_back(Signal{name.toStdString(), role, dimension ? dimension : 11, forced && role == Role::Output});
    };
    for (const HostValue& input : Host_.Inputs) typed(input.Name, Role::Input, 0);
    for (const HostValue& output : Host_.Outputs) typed(output.Name, Role::Output, output.Dimension);
    for (size_t i = 0; i < Host_.Inputs.size(); ++i) InputSignal_.push_back(i);
    for (size_t i = 0; i < Host_.Outputs.size(); ++i) OutputSignal_.push_back(Host_.Inputs.size() + i);
    signals.insert(signals.end(), Recording_.Signals.begin(), Recording_.Signals.end());
    Recording_.Signals = std::move(signals);
}

void Bench::Record(long long cycle) {
    if (cycle == 1) BindHostSignals();
    // An input or output first seen after the first cycle gets a signal of its own.
    while (InputSignal_.size() < Host_.Inputs.size()) {
        InputSignal_.push_back(Recording_.Signals.size());
        Recording_.Signals.push_back(Signal{Host_.Inputs[InputSignal_.size() - 1].Name.toStdString(), Role::Input});
    }
    while (OutputSignal_.size() < Host_.Outputs.size()) {
        const HostValue& output = Host_.Outputs[OutputSignal_.size()];
        OutputSignal_.push_back(Recording_.Signals.size());
        Recording_.Signals.push_back(Signal{output.Name.toStdString(), Role::Output, output.Dimension});
    }
    std::vector<Sample> row(Recording_.Signals.size());
    for (size_t i = 0; i < Host_.Inputs.size(); ++i) row[InputSignal_[i]] = Sample{Host_.Inputs[i].Value, false};
    for (size_t i = 0; i < Host_.Outputs.size(); ++i)
        row[OutputSignal_[i]] = Sample{Host_.Outputs[i].Value, Host_.Outputs[i].Rewrited};
    for (size_t s = 0; s < Recording_.Signals.size(); ++s) {
        const Signal& signal = Recording_.Signals[s];
        if (signal.Kind == Role::Variable) Variables_.Get(signal.Name, row[s].Value);
    }
    if (KeepHistory_ || Recording_.Rows.empty()) Recording_.Rows.push_back(std::move(row));
    else Recording_.Rows.back() = std::move(row);
}

int Bench::RunCycle(long long cycle) {
    Cycle_ = cycle;
    Host_.StartCycle(cycle);
    SimulatedNow_ = kSimulatedClockStart + uint32_t(uint64_t(cycle - 1) * Options_.SimulatedStep);
    ApplyForces();
    if (Debugger_) {
        ShowCycleStart();
        Debugger_->BeforeCycle(cycle);
    }

    const auto before = std::chrono::steady_clock::now();
    const Qz::uint32_t code = Object_->Execute(&Host_);
    const auto after = std::chrono::steady_clock::now();
    if (code != 0) {
        if (Table_) Table_->Finish();
        ReportFailure(Source_, Object_, code, cycle);
        return kExitProgramError;
    }
    if (Options_.Stats) Times_.push_back(std::chrono::duration_cast<std::chrono::nanoseconds>(after - before));
    if (cycle == 1) Host_.WarnUnusedInputs();
    Record(cycle);
    const std::vector<Sample>& row = Recording_.Rows.back();
    if (cycle == 1 && Check_ && !Check_->BindColumns(Recording_)) return kExitUsage;
    if (Table_) Table_->AddRow(Recording_, row, cycle);
    if (Check_ && !Check_->CheckRow(Recording_, row, cycle)) {
        if (Table_) Table_->Finish();
        ExplainDifference(cycle);
        return kExitProgramError;
    }
    if (Debugger_) Debugger_->AfterCycle(cycle);
    if (Options_.PeriodMs) std::fflush(stdout);
    return kExitOk;
}

// Which instruction last stored into the column that differed: the checked
// run goes at full speed without a trace hook, so the same cycles run once
// more on a fresh object with one. Inputs, forces and simulated time repeat
// exactly; a program on the wall clock may take another path.
void Bench::ExplainDifference(long long cycle) {
    Options replay = Options_;
    replay.ExpectPath.clear();
    replay.UpdateExpected = false;
    replay.VcdPath.clear();
    replay.HtmlPath.clear();
    replay.Debug = replay.Trace = replay.Stats = false;
    replay.PeriodMs = 0;
    replay.Cycles = cycle;
    InterpreterHandle fresh;
    if (fresh.Object->InitInterpretator(Source_.Flat()) != 0) return;
    Bench again(replay, Source_, fresh.Object);
    again.FollowWriters();
    again.Run();
    Check_->ReportWriter(again.Writers());
}

int Bench::Finish(int status) {
    if (Table_) Table_->Finish();
    if (status != kExitOk) return status;
    if (Check_ && !Check_->CheckLength(size_t(Cycle_))) return kExitProgramError;
    std::string error;
    const std::string title = Source_.Path();
    const bool written =
        (!Options_.UpdateExpected || WriteExpected(Options_.ExpectPath, Recording_, error)) &&
        (Options_.VcdPath.empty() || WriteVcd(Options_.VcdPath, ProgramName(title), Recording_, error)) &&
        (Options_.HtmlPath.empty() || WriteHtml(Options_.HtmlPath, title, ChartLibrary_, Recording_, error));
    if (!written) {
        std::fprintf(stderr, "qzrun: error: %s\n", error.c_str());
        return kExitUsage;
    }
    if (Options_.Stats) PrintStats(std::move(Times_), Options_.Csv ? stderr : stdout);
    return kExitOk;
}

int Bench::Run() {
    if (const int status = Prepare()) return status;
    QZSetInstructionBudget(Object_, Options_.MaxSteps);
    QZSetStackLimit(Object_, Options_.MaxStack);
    QZSetCallDepthLimit(Object_, Options_.MaxDepth);
    QZSetMemoryLimit(Object_, Options_.MaxMemoryMb << 20);
    if (Options_.SimulatedTime) QZSetClock(Object_, ReadSimulatedClock, &SimulatedNow_);
    Recording_.CycleMs = Options_.SimulatedTime ? Options_.SimulatedStep : Options_.PeriodMs;
    KeepHistory_ = Options_.UpdateExpected || !Options_.VcdPath.empty() || !Options_.HtmlPath.empty();
    if (const int status = ResolveVariables()) return status;

    Host_.SetConstants(Options_.Constants);
    if (!Options_.InputsPath.empty()) Host_.SetStimulus(&Stimulus_, Options_.InputsPath);
    Host_.SetForces(&Options_.Forces);
    if (!Options_.ExpectPath.empty() && !Options_.UpdateExpected)
        Check_ = std::make_unique<ExpectCheck>(Expected_, Source_);
    // With --expect the table is wanted only when asked for as CSV.
    if (FollowWriters_) Host_.SetQuiet();
    else if (Options_.Csv || Options_.ExpectPath.empty()) Table_ = std::make_unique<Table>(Options_.Csv, Options_.Marks);
    if (Options_.Debug) Debugger_ = std::make_unique<Debugger>(Source_, Object_, Variables_, stdin);
    InstallHooks();

    const long long cycles = CycleCount();
    if (Options_.Stats) Times_.reserve(size_t(std::min<long long>(cycles, 1'000'000)));
    const auto runStart = std::chrono::steady_clock::now();
    for (long long cycle = 1; cycle <= cycles; ++cycle) {
        if (Options_.PeriodMs)
            std::this_thread::sleep_until(runStart + std::chrono::milliseconds(Options_.PeriodMs) * (cycle - 1));
        if (const int status = RunCycle(cycle)) return status;
    }
    return Finish(kExitOk);
}

}  // namespace

int Serve(const Options& options) {
    qzlive::LiveOptions live;
    std::string error;
    if (!qzlive::ParseServeAddress(options.ServeAddress, live, error)) UsageError(error);
    const bool batchOnly = options.Check || options.Csv || options.Trace || options.Stats || options.Cycles >= 0 ||
                           !options.ExpectPath.empty() || !options.Watch.empty() || !options.Forces.empty() ||
                           !options.VcdPath.empty() || !options.HtmlPath.empty() || options.Debug;
    if (batchOnly)
        UsageError("--serve runs until stopped and shows everything on its page: it does not go with --check, "
                   "--csv, --trace, --stats, --cycles, --expect, --watch, --force, --vcd, --html or --debug");
    live.ProgramPath = options.ProgramPath;
    live.InputsPath = options.InputsPath;
    live.Constants = options.Constants;
    if (options.PeriodMs) live.PeriodMs = options.PeriodMs;
    live.SimulatedTime = options.SimulatedTime;
    live.SimulatedStep = options.SimulatedStep;
    live.MaxSteps = options.MaxSteps;
    live.MaxStack = options.MaxStack;
    live.MaxDepth = options.MaxDepth;
    live.MaxMemoryBytes = options.MaxMemoryMb << 20;
    live.MaxFileBytes = options.MaxFileBytes;
    return qzlive::RunLiveView(live);
}

int Run(const Options& options) {
    if (options.Serve) return Serve(options);
    if (options.Check) {
        std::vector<std::string> paths{options.ProgramPath};
        paths.insert(paths.end(), options.MorePaths.begin(), options.MorePaths.end());
        return CheckFiles(paths, options.CheckReport, options.MaxFileBytes);
    }
    std::string bytes;
    std::string error;
    if (!ReadInputFile(options.ProgramPath, options.MaxFileBytes, bytes, error)) {
        std::fprintf(stderr, "qzrun: error: %s\n", error.c_str());
        return kExitUsage;
    }
    SourceText source(options.ProgramPath, std::move(bytes));
    size_t commentStart = 0;
    if (!source.Flatten(commentStart)) {
        const Location at = source.Locate(commentStart);
        std::fprintf(stderr, "%s:%d:%d: error: comment not closed: '(*' without '*)'\n", source.Path().c_str(),
                     at.Line, at.Column);
        PrintSnippet(source, commentStart, 2, stderr);
        return kExitProgramError;
    }
    InterpreterHandle interpreter;
    if (const Qz::uint32_t code = interpreter.Object->InitInterpretator(source.Flat())) {
        ReportFailure(source, interpreter.Object, code, 0);
        return kExitProgramError;
    }
    PrintWarnings(source.Path(), source.Bytes(), options.CheckReport);
    Bench bench(options, source, interpreter.Object);
    return bench.Run();
}

}  // namespace qzrun
