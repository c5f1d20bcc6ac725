// --debug: a prompt that stops the program before an instruction, built on
// the library's trace hook. Commands come from standard input, so a session
// can be scripted.
//
// The hook reports an instruction after it ran; the debugger works out from
// the scanner's position which instruction runs next (past labels, and back
// to the caller after a RET), and stops "before" it.
#ifndef QZRUN_DEBUGGER_H
#define QZRUN_DEBUGGER_H

#include "qz_st_interpretator.h"
#include "source_text.h"
#include "variables.h"

#include <cstdio>
#include <map>
#include <set>
#include <string>
#include <vector>

namespace qzrun {

class Debugger {
public:
    Debugger(const SourceText& source, qz_st_interpretator::IQZSTInterpretator* object,
             const ProgramVariables& variables, FILE* commands);

    // Runs the prompt before the first instruction of cycle `cycle` when the
    // session is to stop there.
    void BeforeCycle(long long cycle);
    void AfterInstruction(const QZTraceEvent& event);
    void AfterCycle(long long cycle);

private:
    enum class Mode { Step, Next, Cycle, Continue, Run };
    struct Pause {
        size_t Offset;  // the instruction about to run; npos at the end of the cycle
        const char* Reason;
    };

    void IndexProgram();
    size_t NextInstruction(size_t from);
    size_t InstructionEnd(size_t offset) const;
    bool ShouldStop(size_t offset) const;
    void Stop(const Pause& pause);
    bool Execute(const std::string& line);  // false: the prompt ends
    struct Command;
    static const Command kCommands[];
    bool DoStep(const std::string&, const std::string&);
    bool DoNext(const std::string&, const std::string&);
    bool DoCycle(const std::string&, const std::string&);
    bool DoContinue(const std::string&, const std::string&);
    [[noreturn]] bool DoQuit(const std::string&, const std::string&);
    bool DoBreak(const std::string& where, const std::string&);
    bool DoDelete(const std::string& where, const std::string&);
    bool DoPrint(const std::string& what, const std::string&);
    bool DoSet(const std::string& name, const std::string& value);
    bool DoStack(const std::string&, const std::string&);
    bool DoWhere(const std::string&, const std::string&);
    bool DoHelp(const std::string&, const std::string&);
    bool Fail(const std::string& message);
    size_t Resolve(const std::string& where, std::string& error) const;

    std::string NotHere(const std::string& name) const;
    void Print(const std::string& what);
    void SetVariable(const std::string& name, const std::string& value);
    void PrintStack();
    void PrintWhere();

    const SourceText& Source_;
    qz_st_interpretator::IQZSTInterpretator* Object_;
    const ProgramVariables& Variables_;
    FILE* Commands_;
    bool Interactive_;

    std::set<size_t> Instructions_;            // offsets of instruction keywords
    std::map<int, size_t> FirstOnLine_;        // line -> its first instruction
    std::map<std::string, size_t> Labels_;     // label -> the first instruction after it
    size_t BodyStart_ = 0;                      // just past MAIN
    std::set<size_t> Breakpoints_;             // instruction offsets

    Mode Mode_ = Mode::Step;
    size_t NextDepth_ = 0;                     // calls pending when 'next' was given
    std::vector<size_t> Returns_;              // where each pending call returns to
    long long Cycle_ = 0;
    bool AtCycleStart_ = false;                // no instruction of the cycle has run
    size_t At_ = std::string::npos;            // the instruction about to run
    QZTraceEvent Last_{};                      // registers after the last instruction
};

}  // namespace qzrun

#endif
