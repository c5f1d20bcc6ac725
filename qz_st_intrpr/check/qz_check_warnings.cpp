// The warning table, and warnings as diagnostics.
#include "qz_check_internal.h"

namespace qz::check {

const std::vector<WarningInfo>& Warnings() {
    static const std::vector<WarningInfo> kWarnings = {
        {"forward-jump-no-var", "a text without a VAR section learns its labels only as it runs past them: this jump or call fails until its label has been passed"},
        {"ret-at-end", "this subprogram's RET is the last word of the text: it ends the text instead of returning"},
        {"stack-growth", "a path through this cycle or loop pushes more values than it pops: the value stack grows every time round"},
        {"stack-underflow", "POP on a path where the value stack may be empty"},
        {"flag-unset", "JMPF/JMPT on a path where no TST has set the test flag in this cycle"},
        {"unreachable", "no path from MAIN or a called subprogram reaches this instruction"},
        {"duplicate-label", "label declared twice: jumps and calls go to the first"},
        {"duplicate-variable", "variable declared twice: the first declaration is the one used"},
        {"literal-range", "the literal does not fit the type it is stored into, and wraps"},
        {"reference-copy", "a variable holding a reference is copied with MOV, which narrows it to a number; copy references with MOVA"},
        {"narrow-reference", "read through ^ from a variable of a narrower type than the variable it refers to"},
        {"unused-input", "input never read"},
        {"unwritten-output", "output never written"},
        {"unread-variable", "variable written and never read"},
        {"label-before-main", "this jump or call goes to a label written before MAIN's body, where running reads the header as instructions"},
    };
    return kWarnings;
}

namespace detail {

void Analysis::Warning(const char* id, size_t begin, size_t end, std::string note) {
    Diagnostic d;
    d.Level = Severity::Warning;
    d.Id = id;
    d.Where = Range{begin, std::max(begin, end)};
    for (const WarningInfo& w : Warnings())
        if (d.Id == w.Id) d.Message = w.Meaning;
    d.Note = std::move(note);
    Out.Diagnostics.push_back(std::move(d));
}

}  // namespace detail
}  // namespace qz::check
