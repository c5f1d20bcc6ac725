// Warnings that follow control flow: instructions nothing reaches, loops and
// cycles that leave values on the value stack, POPs of a possibly empty
// stack, conditional jumps before any TST, and forward jumps of texts that
// learn their labels as they run.
//
// The instructions form a graph (fall-through, jump targets, calls into
// subprogram bodies); states are (instruction, stack depth, flag set)
// explored from MAIN. A subprogram is summarised once, from a relative depth
// of 0, by the depths its RETs leave and the deepest it pops below its entry.
#include "qz_check_internal.h"

#include "qz_builtins.h"
#include "qz_operand_rules.h"

#include <QString>
#include <algorithm>
#include <set>
#include <unordered_map>
#include <unordered_set>

namespace qz::check::detail {
namespace {

constexpr size_t kNone = size_t(-1);
constexpr int kDepthLimit = 64;        // a depth beyond it counts as growing
constexpr size_t kDepthsPerNode = 16;  // distinct depths at one instruction before it counts as growing

struct Node {
    uint8_t Code = 0;
    size_t Next = kNone;    // fall-through
    size_t Target = kNone;  // jump target, or the first instruction of the called body
    size_t Callee = kNone;  // scope called
    int Pops = 0;           // POP operands
    int Pushes = 0;         // PUSH destinations
    int BuiltinPops = 0;    // values EXEC takes (an empty stack is no failure there)
    size_t PopToken = kNone;
};

struct Summary {
    bool Done = false, Busy = false;
    std::set<int> Exits;       // depth at RET relative to the entry
    int DeepestPop = 0;        // lowest relative depth a POP needs (<= 0)
    bool AlwaysSetsFlag = false;
};

class Exploration;

class Flow {
public:
    explicit Flow(Analysis& a) : A(a), Reached(a.Out.Instructions.size(), false) { Build(); }
    void Run();

private:
    void Build();
    size_t FirstInstructionFrom(size_t token) const {
        return token < NextInstruction.size() ? NextInstruction[token] : kNone;
    }
    size_t LabelTarget(const std::string& name, size_t* scope) const;
    const Summary& SummaryOf(size_t scope);
    friend class Exploration;

    Analysis& A;
    std::vector<Node> Nodes;
    std::vector<size_t> NextInstruction;  // per token: the first instruction at or after it
    std::vector<bool> Reached;
    std::vector<Summary> Summaries;
    std::set<size_t> Warned;  // instructions warned about (one warning each)
    std::unordered_map<size_t, size_t> ScopeAt;  // a subprogram's label position -> its scope
    static constexpr size_t kNestingLimit = 64;
    size_t Nesting = 0;
    std::vector<size_t> Deferred;  // subprograms called too deep to summarise at once
};

size_t Flow::LabelTarget(const std::string& name, size_t* scope) const {
    const ::Label* label = A.M->Labels.lookup(name.c_str(), 0, 0, false);
    if (!label) return kNone;
    const auto it = std::lower_bound(A.Tokens.begin(), A.Tokens.end(), size_t(label->LabelStart),
                                     [](const Token& t, size_t b) { return t.Begin < b; });
    if (it == A.Tokens.end() || it->Begin != size_t(label->LabelStart)) return kNone;
    const size_t token = size_t(it - A.Tokens.begin());
    if (scope) {
        const auto found = ScopeAt.find(it->Begin);
        *scope = found == ScopeAt.end() ? kNone : found->second;
    }
    return token;
}

void Flow::Build() {
    const size_t n = A.Tokens.size();
    for (size_t s = 1; s < A.Out.Scopes.size(); ++s) ScopeAt.emplace(A.Out.Scopes[s].NameRange.Begin, s);
    NextInstruction.assign(n + 1, kNone);
    for (size_t t = n; t-- > 0;)
        NextInstruction[t] = A.InstructionAt[t] >= 0 ? size_t(A.InstructionAt[t]) : NextInstruction[t + 1];
    Nodes.resize(A.Out.Instructions.size());
    Summaries.resize(A.Out.Scopes.size());
    for (size_t t = 0; t < n; ++t) {
        if (A.InstructionAt[t] < 0) continue;
        const size_t k = size_t(A.InstructionAt[t]);
        Node& node = Nodes[k];
        node.Code = A.Out.Instructions[k].Code;
        node.Next = FirstInstructionFrom(A.InstructionEnd[k]);
        // A POP source and a PUSH destination, where the handler takes them.
        const QZ_OperandRule first = OperandRulesOf(node.Code).First;
        const bool popSource = first == orSource || first == orMoveSource || first == orBoolSource;
        if (popSource && t + 1 < A.InstructionEnd[k] && !A.Tokens[t + 1].Failure && A.Tokens[t + 1].Scanned.Code == ttPOP) {
            node.Pops = 1;
            node.PopToken = t + 1;
        }
        if (node.Code == ttMOV && t + 2 < A.InstructionEnd[k] && !A.Tokens[t + 2].Failure &&
            A.Tokens[t + 2].Scanned.Code == ttPUSH)
            node.Pushes = 1;
        const bool hasOperand = t + 1 < A.InstructionEnd[k] && !A.Tokens[t + 1].Failure;
        const std::string operand = hasOperand ? A.Tokens[t + 1].Scanned.Text : std::string();
        if (node.Code == ttEXEC && hasOperand) {
            const auto* entry = QZBuildInFunctions::FindBuiltinEntry(QString::fromLatin1(operand.c_str()).toUpper());
            if (entry) node.BuiltinPops = entry->Kind == QZBuildInFunctions::bkPow ? 2 : 1;
        }
        if ((node.Code == ttJMP || node.Code == ttJMPF || node.Code == ttJMPT) && hasOperand) {
            const size_t label = LabelTarget(operand, nullptr);
            if (label != kNone) node.Target = FirstInstructionFrom(label + 1);
        }
        if (node.Code == ttCAL && hasOperand) {
            size_t scope = kNone;
            LabelTarget(operand, &scope);
            if (scope != kNone) {
                node.Callee = scope;
                node.Target = FirstInstructionFrom(A.BodyToken[scope]);
            }
        }
    }
}

// One exploration: from a body's first instruction, every (instruction,
// depth, flag) state it can reach.
class Exploration {
public:
    Exploration(Flow& flow, bool main) : F(flow), Main(main) { Result.AlwaysSetsFlag = true; }
    Summary Run(size_t entry);

private:
    struct State {
        size_t Node;
        int Depth;
        bool Flag;
    };
    void Exit(int depth, bool flag, size_t at);
    void Go(size_t node, int depth, bool flag);
    void Step(const State& s);
    int Pop(const State& s, int depth);
    void Call(const State& s, const Node& node, int depth, bool flag);
    void Warn(size_t at, const char* id, Range where, const std::string& note) {
        if (F.Warned.insert(at).second) F.A.Warning(id, where.Begin, where.End, note);
    }

    Flow& F;
    const bool Main;
    Summary Result;
    bool AnyExit = false;
    std::unordered_set<uint64_t> Seen;
    std::unordered_map<size_t, std::set<int>> Depths;  // only what this exploration visits
    std::vector<State> Work;
    size_t GrownAt = kNone;
};

// `at`: the RET, or kNone for the final RET of the text.
void Exploration::Exit(int depth, bool flag, size_t at) {
    AnyExit = true;
    Result.Exits.insert(depth);
    if (!flag) Result.AlwaysSetsFlag = false;
    if (!Main || depth <= 0) return;
    Range where{F.A.Text.size(), F.A.Text.size()};
    if (at != kNone) where = F.A.Out.Instructions[at].Word;
    else if (!F.A.Tokens.empty()) where = Range{F.A.Tokens.back().Begin, F.A.Tokens.back().End};
    Warn(at, "stack-growth", where,
         "a path through the cycle leaves " + std::to_string(depth) + " value(s) on the value stack, so it grows "
         "every cycle");
}

void Exploration::Go(size_t node, int depth, bool flag) {
    if (node == kNone) {
        Exit(depth, flag, kNone);  // the body runs into the end of the text
        return;
    }
    std::set<int>& depths = Depths[node];
    if (std::abs(depth) > kDepthLimit || depths.size() >= kDepthsPerNode) {
        if (!depths.count(depth) && GrownAt == kNone) GrownAt = node;
        return;
    }
    const State s{node, depth, flag};
    if (Seen.insert((uint64_t(node) << 20) | (uint64_t(depth + 512) << 1) | uint64_t(flag)).second) {
        depths.insert(depth);
        Work.push_back(s);
    }
}

int Exploration::Pop(const State& s, int depth) {
    const Node& node = F.Nodes[s.Node];
    if (Main && depth - node.Pops < 0) {
        const Token& pop = F.A.Tokens[node.PopToken];
        Warn(s.Node, "stack-underflow", Range{pop.Begin, pop.End},
             "no path to here is known to push the value this POP takes");
        depth = node.Pops;  // read on as if the value were there: one finding, not a cascade
    }
    depth -= node.Pops;
    Result.DeepestPop = std::min(Result.DeepestPop, depth);
    return depth;
}

void Exploration::Call(const State& s, const Node& node, int depth, bool flag) {
    const Summary& callee = F.SummaryOf(node.Callee);
    if (!callee.Done) {
        Go(node.Next, depth, flag);  // a recursion, or nested too deep: taken as balanced
        return;
    }
    if (Main && depth + callee.DeepestPop < 0) {
        const Instruction& insn = F.A.Out.Instructions[s.Node];
        Warn(s.Node, "stack-underflow", Range{insn.Word.Begin, insn.Extent.End},
             "`" + F.A.Out.Scopes[node.Callee].Name + "` pops " + std::to_string(-callee.DeepestPop) +
                 " value(s) and the stack may hold fewer here");
    }
    for (int e : callee.Exits) Go(node.Next, depth + e, flag || callee.AlwaysSetsFlag);
}

void Exploration::Step(const State& s) {
    const Node& node = F.Nodes[s.Node];
    F.Reached[s.Node] = true;
    if (node.Code == ttRET) return Exit(s.Depth, s.Flag, s.Node);
    int depth = node.Pops > 0 ? Pop(s, s.Depth) : s.Depth;
    depth += node.Pushes;
    // A built-in on an empty stack reads 0 instead of failing.
    if (node.BuiltinPops) depth = Main ? std::max(0, depth - node.BuiltinPops) : depth - node.BuiltinPops;
    const bool flag = s.Flag || node.Code == ttTST;
    const bool conditional = node.Code == ttJMPF || node.Code == ttJMPT;
    if (conditional && Main && !flag && !F.A.Failed[s.Node])
        Warn(s.Node, "flag-unset", F.A.Out.Instructions[s.Node].Word,
             "the test flag still holds what the previous cycle left; TST a register first");
    if (node.Code == ttCAL && node.Callee != kNone) return Call(s, node, depth, flag);
    if (node.Target != kNone && (node.Code == ttJMP || conditional)) Go(node.Target, depth, flag);
    if (node.Code != ttJMP || node.Target == kNone) Go(node.Next, depth, flag);
}

Summary Exploration::Run(size_t entry) {
    Go(entry, 0, false);
    while (!Work.empty()) {
        const State s = Work.back();
        Work.pop_back();
        Step(s);
    }
    if (!AnyExit) Result.AlwaysSetsFlag = false;
    if (GrownAt != kNone)
        Warn(GrownAt, "stack-growth", F.A.Out.Instructions[GrownAt].Word,
             "a loop through here pushes more values than it pops");
    return Result;
}

const Summary& Flow::SummaryOf(size_t scope) {
    Summary& s = Summaries[scope];
    if (s.Done || s.Busy) return s;
    // Calls nested deeper than this are summarised later, on their own,
    // so that no text can make the checker recurse without bound.
    if (Nesting >= kNestingLimit) {
        Deferred.push_back(scope);
        return s;
    }
    s.Busy = true;
    ++Nesting;
    const size_t entry = FirstInstructionFrom(A.BodyToken[scope]);
    Summary result = entry == kNone ? Summary{} : Exploration(*this, false).Run(entry);
    --Nesting;
    result.Done = true;
    Summaries[scope] = result;
    return Summaries[scope];
}

void Flow::Run() {
    const size_t entry = FirstInstructionFrom(A.BodyToken.empty() ? 0 : A.BodyToken[0]);
    if (entry != kNone && A.Out.Instructions[entry].ScopeIndex == 0) Exploration(*this, true).Run(entry);
    while (!Deferred.empty()) {
        const size_t scope = Deferred.back();
        Deferred.pop_back();
        SummaryOf(scope);
    }
    // Falling from a reached instruction (or MAIN's start) into a header.
    for (const Analysis::FallInto& fall : A.Falls) {
        const bool reached = fall.From < 0 || Reached[size_t(fall.From)];
        if (!reached || (fall.From >= 0 && A.Failed[size_t(fall.From)])) continue;
        const Token& t = A.Tokens[fall.Token];
        A.Error(Qz::rcNotInstruction, t.Begin, t.End,
                "running falls through into the subprogram `" + A.Out.Scopes[fall.Scope].Name +
                    "`; end the body before it with RET or JMP");
    }
    // One warning for each run of instructions that nothing reaches.
    for (size_t k = 0; k < Reached.size(); ++k) {
        A.Out.Instructions[k].Reachable = Reached[k];
        if (Reached[k] || (k > 0 && !Reached[k - 1] &&
                           A.Out.Instructions[k - 1].ScopeIndex == A.Out.Instructions[k].ScopeIndex))
            continue;
        const Instruction& insn = A.Out.Instructions[k];
        const bool wholeBody = insn.ScopeIndex > 0 && k == FirstInstructionFrom(A.BodyToken[insn.ScopeIndex]);
        A.Warning("unreachable", insn.Word.Begin, insn.Word.End,
                  wholeBody ? "no CAL reaches `" + A.Out.Scopes[insn.ScopeIndex].Name + "`" : std::string());
    }
}

// A text without VAR learns each label when running passes it: a jump or
// call to a label further on fails until then.
void ForwardJumpsWithoutVar(Analysis& a) {
    if (a.HasVarSection) return;
    for (size_t t = 0; t + 1 < a.Tokens.size(); ++t) {
        if (a.InstructionAt[t] < 0 || a.Tokens[t + 1].Failure) continue;
        const uint8_t code = a.Tokens[t].Scanned.Code;
        if (code != ttJMP && code != ttJMPF && code != ttJMPT && code != ttCAL) continue;
        const Token& operand = a.Tokens[t + 1];
        const ::Label* label = a.M->Labels.lookup(operand.Scanned.Text.c_str(), 0, 0, false);
        if (label && size_t(label->LabelStart) > operand.Begin)
            a.Warning("forward-jump-no-var", operand.Begin, operand.End,
                      "write VAR after the program's name (even with no declarations) so that every label is "
                      "known before the first cycle");
    }
}

}  // namespace

void AnalyseFlow(Analysis& a) {
    ForwardJumpsWithoutVar(a);
    Flow(a).Run();
}

}  // namespace qz::check::detail
