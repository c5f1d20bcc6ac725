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
    // Explores from `entry`; `main` reports what only holds for a cycle.
    Summary Explore(size_t entry, bool main);
    const Summary& SummaryOf(size_t scope);

    Analysis& A;
    std::vector<Node> Nodes;
    std::vector<size_t> NextInstruction;  // per token: the first instruction at or after it
    std::vector<bool> Reached;
    std::vector<Summary> Summaries;
    std::set<size_t> Warned;  // instructions warned about (one warning each)
};

size_t Flow::LabelTarget(const std::string& name, size_t* scope) const {
    const ::Label* label = A.M->Labels.lookup(name.c_str(), 0, 0, false);
    if (!label) return kNone;
    const auto it = std::lower_bound(A.Tokens.begin(), A.Tokens.end(), size_t(label->LabelStart),
                                     [](const Token& t, size_t b) { return t.Begin < b; });
    if (it == A.Tokens.end() || it->Begin != size_t(label->LabelStart)) return kNone;
    const size_t token = size_t(it - A.Tokens.begin());
    if (scope) {
        *scope = kNone;
        for (size_t s = 1; s < A.Out.Scopes.size(); ++s)
            if (A.Out.Scopes[s].NameRange.Begin == it->Begin) *scope = s;
    }
    return token;
}

void Flow::Build() {
    const size_t n = A.Tokens.size();
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

const Summary& Flow::SummaryOf(size_t scope) {
    Summary& s = Summaries[scope];
    if (s.Done || s.Busy) return s;
    s.Busy = true;
    const size_t entry = FirstInstructionFrom(A.BodyToken[scope]);
    Summary result = entry == kNone ? Summary{} : Explore(entry, false);
    result.Done = true;
    Summaries[scope] = result;
    return Summaries[scope];
}

Summary Flow::Explore(size_t entry, bool main) {
    struct State {
        size_t Node;
        int Depth;
        bool Flag;
    };
    Summary summary;
    summary.AlwaysSetsFlag = true;
    bool anyExit = false;
    std::unordered_set<uint64_t> seen;
    std::vector<std::set<int>> depths(Nodes.size());
    std::vector<State> work{{entry, 0, false}};
    size_t grownAt = kNone;
    auto key = [](const State& s) { return (uint64_t(s.Node) << 20) | (uint64_t(s.Depth + 512) << 1) | s.Flag; };
    // `at`: the RET, or kNone for the final RET of the text.
    auto exit = [&](int depth, bool flag, size_t at) {
        anyExit = true;
        summary.Exits.insert(depth);
        if (!flag) summary.AlwaysSetsFlag = false;
        if (!main || depth <= 0 || !Warned.insert(at).second) return;
        Range where{A.Text.size(), A.Text.size()};
        if (at != kNone) where = A.Out.Instructions[at].Word;
        else if (!A.Tokens.empty()) where = Range{A.Tokens.back().Begin, A.Tokens.back().End};
        A.Warning("stack-growth", where.Begin, where.End,
                  "a path through the cycle leaves " + std::to_string(depth) +
                      " value(s) on the value stack, so it grows every cycle");
    };
    auto go = [&](size_t node, int depth, bool flag, size_t) {
        if (node == kNone) {
            exit(depth, flag, kNone);  // the body runs into the end of the text
            return;
        }
        if (std::abs(depth) > kDepthLimit || depths[node].size() >= kDepthsPerNode) {
            if (!depths[node].count(depth) && grownAt == kNone) grownAt = node;
            return;
        }
        const State s{node, depth, flag};
        if (seen.insert(key(s)).second) {
            depths[node].insert(depth);
            work.push_back(s);
        }
    };
    while (!work.empty()) {
        const State s = work.back();
        work.pop_back();
        const Node& node = Nodes[s.Node];
        Reached[s.Node] = true;
        int depth = s.Depth;
        bool flag = s.Flag;
        if (node.Code == ttRET) {
            exit(depth, flag, s.Node);
            continue;
        }
        if (node.Pops > 0) {
            if (main && depth - node.Pops < 0) {
                if (node.PopToken != kNone && Warned.insert(s.Node).second)
                    A.Warning("stack-underflow", A.Tokens[node.PopToken].Begin, A.Tokens[node.PopToken].End,
                              "no path to here is known to push the value this POP takes");
                depth = node.Pops;  // read on as if the value were there: one finding, not a cascade
            }
            depth -= node.Pops;
            summary.DeepestPop = std::min(summary.DeepestPop, depth);
        }
        depth += node.Pushes;
        if (node.BuiltinPops) depth = main ? std::max(0, depth - node.BuiltinPops) : depth - node.BuiltinPops;
        if (node.Code == ttTST) flag = true;
        if ((node.Code == ttJMPF || node.Code == ttJMPT) && main && !flag && !A.Failed[s.Node] &&
            Warned.insert(s.Node).second) {
            const Instruction& insn = A.Out.Instructions[s.Node];
            A.Warning("flag-unset", insn.Word.Begin, insn.Word.End,
                      "the test flag still holds what the previous cycle left; TST a register first");
        }
        if (node.Code == ttCAL && node.Callee != kNone) {
            const Summary& callee = SummaryOf(node.Callee);
            if (callee.Busy && !callee.Done) {
                go(node.Next, depth, flag, s.Node);  // a recursion: taken as balanced
                continue;
            }
            if (main && depth + callee.DeepestPop < 0 && Warned.insert(s.Node).second) {
                const Instruction& insn = A.Out.Instructions[s.Node];
                A.Warning("stack-underflow", insn.Word.Begin, insn.Extent.End,
                          "`" + A.Out.Scopes[node.Callee].Name + "` pops " + std::to_string(-callee.DeepestPop) +
                              " value(s) and the stack may hold fewer here");
            }
            for (int e : callee.Exits) go(node.Next, depth + e, flag || callee.AlwaysSetsFlag, s.Node);
            continue;
        }
        if (node.Code == ttJMP && node.Target != kNone) {
            go(node.Target, depth, flag, s.Node);
            continue;
        }
        if ((node.Code == ttJMPF || node.Code == ttJMPT) && node.Target != kNone) go(node.Target, depth, flag, s.Node);
        go(node.Next, depth, flag, s.Node);
    }
    if (!anyExit) summary.AlwaysSetsFlag = false;
    if (grownAt != kNone && Warned.insert(grownAt).second) {
        const Instruction& insn = A.Out.Instructions[grownAt];
        A.Warning("stack-growth", insn.Word.Begin, insn.Word.End,
                  "a loop through here pushes more values than it pops");
    }
    return summary;
}

void Flow::Run() {
    const size_t entry = FirstInstructionFrom(A.BodyToken.empty() ? 0 : A.BodyToken[0]);
    if (entry != kNone && A.Out.Scopes.size() > 0 && A.Out.Instructions[entry].ScopeIndex == 0) Explore(entry, true);
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
