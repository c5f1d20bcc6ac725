// Runs one program text through two interpreter objects, one on the compiled
// core and one on the plain path, and compares everything either leaves
// behind after the load and after every cycle: result codes, host calls,
// registers, TestFlag, the value stack, the call and table stacks, the tick
// counter, every variable record, the label count, the scanner's position
// and fields, and the trace events. Used by the differential unit test and
// by the fuzz harness.
#ifndef QZ_TEST_DIFFERENTIAL_H
#define QZ_TEST_DIFFERENTIAL_H

#include "qz_st_intrpr_main.h"

#include <QHash>
#include <cmath>
#include <cstdint>
#include <cstring>
#include <sstream>
#include <string>
#include <vector>

namespace qzdiff {

inline uint64_t Bits(double v) {
    uint64_t b;
    std::memcpy(&b, &v, sizeof b);
    return b;
}

// Serves inputs that depend on the name and the cycle, and records every call
// with its value's bits.
class Host : public qz_st_interpretator::IQZExecuteInterface {
public:
    bool GetValueFrom(CQZDirection dir, const QString& name, double& value) override {
        static const double kValues[] = {0.0, 1.0, -1.0, 2.5, 300.0, 70000.0, -0.0, 1e10, std::nan(""), 4294967295.0};
        const size_t n = sizeof kValues / sizeof kValues[0];
        value = kValues[(size_t(qHash(name)) + Cycle * 7) % n];
        Log << "in " << int(dir) << ' ' << name.toStdString() << ' ' << Bits(value) << '\n';
        return true;
    }
    bool SetValueTo(CQZDirection dir, const QString& name, double value, int dimension, bool rewrited) override {
        Log << "out " << int(dir) << ' ' << name.toStdString() << ' ' << Bits(value) << ' ' << dimension << ' '
            << rewrited << '\n';
        return true;
    }
    size_t Cycle = 0;
    std::ostringstream Log;
};

struct Options {
    int Cycles = 3;
    uint64_t Budget = 2000;  // instructions per cycle; 0 = unlimited
    bool Trace = false;
    bool Clock = true;  // a simulated clock (else the wall clock: only for texts without TICK)
    uint64_t StackLimit = 0;                          // values; 0 = none
    uint64_t CallDepthLimit = 0;                      // pending calls; 0 = none
    uint64_t MemoryLimit = QZ_DEFAULT_MEMORY_LIMIT;  // bytes; 0 = none
};

// One side of the comparison.
class Side {
public:
    explicit Side(bool plain) {
        Object.PlainPath = plain;
        QZSetInstructionBudget(&Object, 0);
    }
    void Configure(const Options& options) {
        QZSetInstructionBudget(&Object, options.Budget);
        QZSetStackLimit(&Object, options.StackLimit);
        QZSetCallDepthLimit(&Object, options.CallDepthLimit);
        QZSetMemoryLimit(&Object, options.MemoryLimit);
        if (options.Clock) QZSetClock(&Object, &Side::ClockTick, &Now);
        if (options.Trace) QZSetTraceHook(&Object, &Side::Traced, this);
    }

    static uint32_t ClockTick(void* context) {
        uint32_t* now = static_cast<uint32_t*>(context);
        *now += 7;  // deterministic: each read advances by the same step on both sides
        return *now;
    }
    static void Traced(void* context, const QZTraceEvent* e) {
        Side* side = static_cast<Side*>(context);
        QZScanPosition position;
        QZGetScanPosition(&side->Object, &position);
        side->Trace << "trace " << e->InstructionStart << ' ' << e->InstructionEnd << ' ' << e->Result << ' '
                    << Bits(e->A0) << ' ' << Bits(e->R0) << ' ' << Bits(e->R1) << ' ' << int(e->A0Type) << ' '
                    << int(e->R0Type) << ' ' << int(e->R1Type) << ' ' << int(e->TestFlag) << " at "
                    << position.TokenStart << ' ' << position.TokenEnd << ' ' << position.TextPos << ' '
                    << int(position.TokenCode) << '\n';
    }

    // Everything observable, as text.
    std::string Snapshot() const {
        const CQZ_STInterpretator& m = Object;
        std::ostringstream s;
        s << "registers " << Bits(m.A0.Value) << ' ' << int(m.A0.ValueType) << ' ' << Bits(m.R0.Value) << ' '
          << int(m.R0.ValueType) << ' ' << Bits(m.R1.Value) << ' ' << int(m.R1.ValueType) << " flag "
          << int(m.TestFlag) << '\n';
        s << "stack";
        for (const QZ_StackValue& v : m.Stack) s << ' ' << Bits(v.Value) << ':' << int(v.ValueType);
        s << "\ncalls";
        // What a debugger reads of a pending call is the same on both paths too.
        for (const QZ_FuncStackValue& v : m.CallStack)
            s << ' ' << v.ReturnIndex << '@' << v.CallStart << '>' << v.LabelStart;
        s << "\ntables " << m.TableStack.size() << " labels " << m.Labels.size() << '\n';
        s << "tick " << Bits(m.TickValue) << ' ' << m.TickLast << '\n';
        s << "scanner " << m.TokenStart << ' ' << m.TokenEnd << ' ' << m.TextPos << ' ' << int(m.CurChar) << ' '
          << int(m.TokenCode) << ' ' << m.TokenLength << " '" << std::string(m.TokenText, size_t(m.TokenLength))
          << "' digit " << Bits(m.DigitValue) << ' ' << int(m.DigitType) << '\n';
        Table(s, "program", m.Vars);
        for (const CQZ_Vars* table : m.TableStack) Table(s, "frame", *table);
        return s.str();
    }

    CQZ_STInterpretator Object;
    uint32_t Now = 1000;
    std::ostringstream Trace;

private:
    static void Table(std::ostringstream& s, const char* what, const CQZ_Vars& table) {
        s << what << '\n';
        for (uint32_t i = 0; i < table.RecordCount(); ++i) {
            const Var* v = table.Record(i);
            if (!v) continue;
            s << "  " << v->VarName << ' ' << int(v->VarKind) << ' ' << int(v->VarType) << ' ' << Bits(v->VarValue)
              << ' ' << v->VarIndex << ' ' << Bits(v->VarParam1) << ' ' << Bits(v->VarParam2) << ' '
              << Bits(v->VarParam3) << ' ' << Bits(v->VarParam4) << ' ' << v->Rewrited << '\n';
        }
    }
};

// The scanner position as a host sees it.
inline std::string Position(const QZScanPosition& p) {
    return std::to_string(p.TokenStart) + ".." + std::to_string(p.TokenEnd) + " next " + std::to_string(p.TextPos) +
           " token " + std::to_string(p.TokenCode);
}

// The first line where two texts differ, with context.
inline std::string FirstDifference(const std::string& a, const std::string& b) {
    std::istringstream sa(a), sb(b);
    std::string la, lb;
    for (int line = 1;; ++line) {
        const bool ha = bool(std::getline(sa, la)), hb = bool(std::getline(sb, lb));
        if (!ha && !hb) return "";
        if (!ha || !hb || la != lb)
            return "line " + std::to_string(line) + ":\n  decoded: " + (ha ? la : "<end>") +
                   "\n  plain:   " + (hb ? lb : "<end>");
    }
}

// Empty when both paths agree on everything; otherwise where they first
// differ. The texts are loaded one after another into the same two objects,
// each followed by its cycles. `compiledInstructions`, when given, receives
// how many instructions the compiled side remembered of the last text (to
// show the compiled core was taken).
inline std::string CompareSequence(const std::vector<std::string>& texts, const Options& options,
                                   size_t* compiledInstructions = nullptr) {
    Side compiled(false), plain(true);
    compiled.Configure(options);
    plain.Configure(options);
    for (size_t t = 0; t < texts.size(); ++t) {
        const std::string text = texts[t];
        const std::string which = texts.size() > 1 ? "text " + std::to_string(t + 1) + ", " : "";
        const Qz::uint32_t loadCompiled = compiled.Object.InitInterpretator(text);
        const Qz::uint32_t loadPlain = plain.Object.InitInterpretator(text);
        std::string a = "load " + std::to_string(loadCompiled) + '\n' + compiled.Snapshot();
        std::string b = "load " + std::to_string(loadPlain) + '\n' + plain.Snapshot();
        if (a != b) return which + "after the load, " + FirstDifference(a, b);
        for (int cycle = 0; cycle < options.Cycles; ++cycle) {
            Host hostCompiled, hostPlain;
            hostCompiled.Cycle = hostPlain.Cycle = size_t(cycle);
            const Qz::uint32_t rd = compiled.Object.Execute(&hostCompiled);
            const Qz::uint32_t rp = plain.Object.Execute(&hostPlain);
            QZScanPosition pd, pp;
            QZGetScanPosition(&compiled.Object, &pd);
            QZGetScanPosition(&plain.Object, &pp);
            a = "result " + std::to_string(rd) + " at " + Position(pd) + '\n' + hostCompiled.Log.str() +
                compiled.Trace.str() + compiled.Snapshot();
            b = "result " + std::to_string(rp) + " at " + Position(pp) + '\n' + hostPlain.Log.str() +
                plain.Trace.str() + plain.Snapshot();
            if (a != b) return which + "after cycle " + std::to_string(cycle + 1) + ", " + FirstDifference(a, b);
            compiled.Trace.str("");
            plain.Trace.str("");
        }
    }
    if (compiledInstructions) *compiledInstructions = compiled.Object.CompiledForm().Code.size();
    return "";
}

inline std::string Compare(const std::string& text, const Options& options, size_t* compiledInstructions = nullptr) {
    return CompareSequence({text}, options, compiledInstructions);
}

}  // namespace qzdiff

#endif
