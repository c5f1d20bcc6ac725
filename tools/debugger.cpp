#include "debugger.h"

#include "diagnostics.h"
#include "options.h"
#include "qz_st_variables.h"
#include "stimulus.h"
#include "value_format.h"

#include <QString>

#include <algorithm>
#include <cstdlib>
#include <sstream>
#include <unistd.h>

namespace qzrun {
namespace {

// The instructions the hook reports (RET ends a body and is never reported).
const char* const kInstructionWords[] = {
    "CAL", "EXEC", "JMP",  "JMPF", "JMPT", "MOV", "MOVA", "ADD", "SUB", "MUL", "DIV", "MOD",
    "NE",  "EQ",   "GT",   "GE",   "LT",   "LE",  "TST",  "OR",  "XOR", "AND", "NOT", "BOR",
    "BXOR", "BAND", "BNOT", "NG",  "SHL",  "SHR", "ROL",  "ROR", "POW"};

bool IsInstruction(const std::string& word) {
    return std::any_of(std::begin(kInstructionWords), std::end(kInstructionWords),
                       [&](const char* keyword) { return word == keyword; });
}

bool IsLabel(const std::string& word) { return word.size() > 1 && word.back() == ':'; }

const char kCommandHelp[] =
    "break LINE|LABEL, delete [LINE|LABEL], step, next, cycle, continue, print @NAME|A0|R0|R1|TF,\n"
    "set @NAME VALUE, stack, where, quit\n";

}  // namespace

Debugger::Debugger(const SourceText& source, qz_st_interpretator::IQZSTInterpretator* object,
                   const ProgramVariables& variables, FILE* commands)
    : Source_(source), Object_(object), Variables_(variables), Commands_(commands),
      Interactive_(isatty(fileno(commands)) != 0) {
    IndexProgram();
}

// Every instruction of the text from MAIN on, by offset and by line, and the
// instruction each label leads to.
void Debugger::IndexProgram() {
    const std::string& text = Source_.Flat();
    std::vector<std::string> pendingLabels;
    bool inBody = false;
    for (size_t pos = 0; pos < text.size();) {
        pos = text.find_first_not_of(' ', pos);
        if (pos == std::string::npos) break;
        const size_t end = std::min(text.find(' ', pos), text.size());
        const std::string word = text.substr(pos, end - pos);
        if (!inBody) {
            if (word == "MAIN") {
                inBody = true;
                BodyStart_ = end;
            }
        } else if (IsLabel(word)) {
            pendingLabels.push_back(word.substr(0, word.size() - 1));
        } else if (IsInstruction(word)) {
            Instructions_.insert(pos);
            FirstOnLine_.emplace(Source_.Locate(pos).Line, pos);
            for (const std::string& label : pendingLabels) Labels_.emplace(label, pos);
            pendingLabels.clear();
        }
        pos = end;
    }
}

// The instruction that runs after the text position `from`: labels are
// passed over, and a RET returns to the instruction after the pending CAL
// (or ends the cycle: npos).
size_t Debugger::NextInstruction(size_t from) {
    const std::string& text = Source_.Flat();
    for (size_t pos = from;;) {
        pos = text.find_first_not_of(' ', pos);
        if (pos == std::string::npos) return std::string::npos;
        const size_t end = std::min(text.find(' ', pos), text.size());
        const std::string word = text.substr(pos, end - pos);
        if (word == "RET") {
            if (Returns_.empty()) return std::string::npos;
            pos = Returns_.back();
            Returns_.pop_back();
            continue;
        }
        if (IsInstruction(word)) return pos;
        pos = end;  // a label, or BODY
    }
}

// One past the last operand of the instruction at `offset`: the words up to
// the next instruction, label or RET (or the end of the line).
size_t Debugger::InstructionEnd(size_t offset) const {
    const std::string& text = Source_.Flat();
    const int line = Source_.Locate(offset).Line;
    size_t end = std::min(text.find(' ', offset), text.size());
    for (;;) {
        const size_t next = text.find_first_not_of(' ', end);
        if (next == std::string::npos || Source_.Locate(next).Line != line) return end;
        const size_t stop = std::min(text.find(' ', next), text.size());
        const std::string word = text.substr(next, stop - next);
        if (IsInstruction(word) || IsLabel(word) || word == "RET") return end;
        end = stop;
    }
}

bool Debugger::ShouldStop(size_t offset) const {
    switch (Mode_) {
        case Mode::Run: return false;
        case Mode::Step: return true;
        case Mode::Next:
            if (Returns_.size() <= NextDepth_) return true;
            break;
        default: break;
    }
    return offset != std::string::npos && Breakpoints_.count(offset);
}

void Debugger::BeforeCycle(long long cycle) {
    Cycle_ = cycle;
    AtCycleStart_ = true;
    Returns_.clear();
    At_ = NextInstruction(BodyStart_);
    if (ShouldStop(At_)) Stop(Pause{At_, Breakpoints_.count(At_) ? "breakpoint" : nullptr});
}

void Debugger::AfterInstruction(const QZTraceEvent& event) {
    Last_ = event;
    AtCycleStart_ = false;
    const std::string& text = Source_.Flat();
    const size_t start = size_t(std::max(event.InstructionStart, 0));
    if (event.Result == 0 && text.compare(start, 4, "CAL ") == 0) Returns_.push_back(size_t(event.InstructionEnd));
    QZScanPosition position{};
    QZGetScanPosition(Object_, &position);
    At_ = NextInstruction(size_t(std::max(position.TextPos - 1, 0)));
    if (event.Result != 0 || At_ == std::string::npos) return;  // a failed cycle or its end
    if (ShouldStop(At_)) Stop(Pause{At_, Breakpoints_.count(At_) ? "breakpoint" : nullptr});
}

void Debugger::AfterCycle(long long cycle) {
    Cycle_ = cycle;
    At_ = std::string::npos;
    if (Mode_ == Mode::Step || Mode_ == Mode::Next || Mode_ == Mode::Cycle) Stop(Pause{At_, nullptr});
}

void Debugger::Stop(const Pause& pause) {
    if (pause.Offset == std::string::npos) {
        std::printf("end of cycle %lld\n", Cycle_);
    } else {
        const Location at = Source_.Locate(pause.Offset);
        std::printf("%s%s:%d:%d, cycle %lld: %s\n", pause.Reason ? "breakpoint at " : "at ", Source_.Path().c_str(),
                    at.Line, at.Column, Cycle_,
                    ShownInstruction(Source_, pause.Offset, InstructionEnd(pause.Offset)).c_str());
    }
    std::fflush(stdout);
    char buffer[4096];
    for (;;) {
        if (Interactive_) {
            std::fputs("(qzrun) ", stdout);
            std::fflush(stdout);
        }
        if (!std::fgets(buffer, sizeof buffer, Commands_)) {
            Mode_ = Mode::Run;  // the script is over: run to the end
            return;
        }
        std::string line(buffer);
        while (!line.empty() && (line.back() == '\n' || line.back() == '\r')) line.pop_back();
        if (!Execute(line)) return;
    }
}

bool Debugger::Fail(const std::string& message) {
    std::fflush(stdout);
    std::fprintf(stderr, "qzrun: debug: error: %s\n", message.c_str());
    // A script that goes wrong would go on doing the wrong things.
    if (!Interactive_) std::exit(kExitUsage);
    return true;
}

size_t Debugger::Resolve(const std::string& where, std::string& error) const {
    if (!where.empty() && where.find_first_not_of("0123456789") == std::string::npos) {
        const int line = std::atoi(where.c_str());
        const auto found = FirstOnLine_.find(line);
        if (found != FirstOnLine_.end()) return found->second;
        error = "line " + where + " of " + Source_.Path() + " has no instruction";
        return std::string::npos;
    }
    const auto found = Labels_.find(where);
    if (found != Labels_.end()) return found->second;
    error = "no label '" + where + "' before an instruction" + (where.empty() ? " (give a line or a label)" : "");
    return std::string::npos;
}

// The commands: each takes the words after its name and returns false when
// it lets the program go on.
struct Debugger::Command {
    const char* Name;
    const char* Short;
    bool (Debugger::*Run)(const std::string& argument, const std::string& extra);
};

const Debugger::Command Debugger::kCommands[] = {
    {"step", "s", &Debugger::DoStep},       {"next", "n", &Debugger::DoNext},
    {"cycle", nullptr, &Debugger::DoCycle}, {"continue", "c", &Debugger::DoContinue},
    {"break", "b", &Debugger::DoBreak},     {"delete", nullptr, &Debugger::DoDelete},
    {"print", "p", &Debugger::DoPrint},     {"set", nullptr, &Debugger::DoSet},
    {"stack", nullptr, &Debugger::DoStack}, {"where", nullptr, &Debugger::DoWhere},
    {"help", nullptr, &Debugger::DoHelp},   {"quit", "q", &Debugger::DoQuit},
};

bool Debugger::Execute(const std::string& line) {
    std::istringstream words(line);
    std::string command, argument, extra;
    words >> command >> argument >> extra;
    if (command.empty() || command[0] == '#') return true;
    for (const Command& known : kCommands)
        if (command == known.Name || (known.Short && command == known.Short)) return (this->*known.Run)(argument, extra);
    return Fail("unknown command '" + command + "' ('help' lists the commands)");
}

bool Debugger::DoStep(const std::string&, const std::string&) {
    Mode_ = Mode::Step;
    return false;
}

bool Debugger::DoNext(const std::string&, const std::string&) {
    Mode_ = Mode::Next;
    NextDepth_ = Returns_.size();
    return false;
}

bool Debugger::DoCycle(const std::string&, const std::string&) {
    Mode_ = Mode::Cycle;
    return false;
}

bool Debugger::DoContinue(const std::string&, const std::string&) {
    Mode_ = Mode::Continue;
    return false;
}

bool Debugger::DoQuit(const std::string&, const std::string&) {
    std::fflush(stdout);
    std::exit(kExitOk);
}

bool Debugger::DoBreak(const std::string& where, const std::string&) {
    std::string error;
    const size_t offset = Resolve(where, error);
    if (offset == std::string::npos) return Fail(error);
    Breakpoints_.insert(offset);
    std::printf("breakpoint at line %d\n", Source_.Locate(offset).Line);
    return true;
}

bool Debugger::DoDelete(const std::string& where, const std::string&) {
    if (where.empty()) {
        Breakpoints_.clear();
        std::puts("all breakpoints deleted");
        return true;
    }
    std::string error;
    const size_t offset = Resolve(where, error);
    if (offset == std::string::npos) return Fail(error);
    const int line = Source_.Locate(offset).Line;
    if (!Breakpoints_.erase(offset)) return Fail("no breakpoint at line " + std::to_string(line));
    std::printf("breakpoint at line %d deleted\n", line);
    return true;
}

bool Debugger::DoPrint(const std::string& what, const std::string&) {
    Print(what);
    return true;
}

bool Debugger::DoSet(const std::string& name, const std::string& value) {
    SetVariable(name, value);
    return true;
}

bool Debugger::DoStack(const std::string&, const std::string&) {
    PrintStack();
    return true;
}

bool Debugger::DoWhere(const std::string&, const std::string&) {
    PrintWhere();
    return true;
}

bool Debugger::DoHelp(const std::string&, const std::string&) {
    std::fputs(kCommandHelp, stdout);
    return true;
}

std::string Debugger::NotHere(const std::string& name) const {
    QZMachineState state{};
    QZGetMachineState(Object_, &state);
    return "no variable '" + name + "' here" + (state.CallDepth ? " (a subprogram sees only its own locals)" : "");
}

void Debugger::Print(const std::string& what) {
    QZMachineState state{};
    QZGetMachineState(Object_, &state);
    const std::pair<const char*, std::pair<double, uint8_t>> registers[] = {
        {"A0", {state.A0, state.A0Type}}, {"R0", {state.R0, state.R0Type}}, {"R1", {state.R1, state.R1Type}}};
    for (const auto& [name, content] : registers)
        if (QString::fromStdString(what).compare(name, Qt::CaseInsensitive) == 0) {
            std::printf("%s = %s\n", name, FormatRegister(content.first, char(content.second)).c_str());
            return;
        }
    if (what == "TF") {
        std::printf("TF = %d\n", int(state.TestFlag));
        return;
    }
    if (what.size() < 2 || what[0] != '@') {
        Fail("print needs @NAME or a register (A0, R0, R1, TF), not '" + what + "'");
        return;
    }
    double value;
    uint8_t type;
    if (!Variables_.Get(what.substr(1), value, &type)) {
        Fail(NotHere(what.substr(1)));
        return;
    }
    const char* typeName = TypeName(char(type));
    std::printf("%s = %s%s%s\n", what.c_str(), FormatOutput(value, DimensionOf(char(type))).c_str(),
                typeName ? " : " : "", typeName ? typeName : "");
}

void Debugger::SetVariable(const std::string& name, const std::string& text) {
    double value;
    if (name.size() < 2 || name[0] != '@' || !ParseValue(text, value)) {
        Fail("set needs @NAME VALUE, not '" + name + " " + text + "'");
        return;
    }
    if (Variables_.Set(name.substr(1), value) != 0) {
        Fail(NotHere(name.substr(1)));
        return;
    }
    Print(name);
    const VariableInfo* info = Variables_.Find(name.substr(1));
    if (AtCycleStart_ && info && (info->Kind == kKindInput || info->Kind == kKindWorking))
        std::printf("note: the cycle's start gives %s its %s again before the first instruction\n", name.c_str(),
                    info->Kind == kKindInput ? "input value" : "declared value");
}

void Debugger::PrintStack() {
    QZMachineState state{};
    QZGetMachineState(Object_, &state);
    std::vector<QZStackValue> values(state.StackDepth);
    size_t count = 0;
    if (!values.empty()) QZGetStack(Object_, values.data(), values.size(), &count);
    std::printf("value stack: %zu value%s%s\n", count, count == 1 ? "" : "s", count ? " (top last)" : "");
    for (size_t i = 0; i < count; ++i)
        std::printf("  %zu: %s\n", i, FormatRegister(values[i].Value, char(values[i].Type)).c_str());
    std::printf("calls: %zu pending%s\n", state.CallDepth, state.CallDepth ? " (innermost last)" : "");
    for (size_t i = 0; i < state.CallDepth; ++i) {
        int32_t call = -1, label = -1;
        if (QZGetCall(Object_, i, &call, &label) != 0) continue;
        const Location from = Source_.Locate(size_t(std::max(call, 0)));
        const Location to = Source_.Locate(size_t(std::max(label, 0)));
        const size_t at = size_t(std::max(call, 0));
        std::printf("  %zu: %s at line %d, into line %d\n", i,
                    ShownInstruction(Source_, at, InstructionEnd(at)).c_str(), from.Line, to.Line);
    }
}

void Debugger::PrintWhere() {
    if (At_ == std::string::npos) {
        std::printf("end of cycle %lld\n", Cycle_);
        return;
    }
    const Location at = Source_.Locate(At_);
    const size_t end = InstructionEnd(At_);
    std::printf("%s:%d:%d, cycle %lld\n", Source_.Path().c_str(), at.Line, at.Column, Cycle_);
    std::fflush(stdout);
    PrintSnippet(Source_, At_, end - At_, stdout);
}

}  // namespace qzrun
