// Warnings about variables and literals: declarations nothing reads or
// writes, literals that wrap in the variable they are stored into, and
// references copied or read in ways that narrow them.
#include "qz_check_internal.h"

#include "qz_operations.h"

#include <cmath>
#include <cstdlib>

namespace qz::check::detail {
namespace {

struct Usage {
    int Reads = 0;
    int Writes = 0;
    bool Referenced = false;  // MOVA took its address: read and written unseen
    bool HoldsReference = false;
    int ReferentType = 0;     // the type of the variable it was given the address of (0: unknown)
};

bool IsInteger(uint8_t type) { return type >= ttSINT && type <= ttUDINT; }

// Whether every value of `wide` keeps its value in `narrow`.
bool Holds(uint8_t narrow, uint8_t wide) {
    if (narrow == wide || narrow == ttLREAL) return true;
    struct Width {
        uint8_t Type;
        int Bits;
        bool Signed;
    };
    static const Width kWidths[] = {{ttBOOL, 1, false}, {ttSINT, 8, true},   {ttUSINT, 8, false},
                                    {ttINT, 16, true},  {ttUINT, 16, false}, {ttDINT, 32, true},
                                    {ttUDINT, 32, false}, {ttREAL, 24, true}};
    const Width* n = nullptr;
    const Width* w = nullptr;
    for (const Width& x : kWidths) {
        if (x.Type == narrow) n = &x;
        if (x.Type == wide) w = &x;
    }
    if (!n || !w) return false;  // an LREAL into anything narrower
    if (wide == ttREAL) return false;
    if (w->Type == ttBOOL) return true;
    if (n->Signed == w->Signed) return n->Bits >= w->Bits;
    return n->Signed && n->Bits > w->Bits;  // an unsigned value in a wider signed type
}

const char* TypeName(uint8_t type) {
    for (const QZ_Token& t : TokensTable)
        if (t.Code == type) return t.Name;
    return "?";
}

std::string Number(double v) {
    char buffer[32];
    std::snprintf(buffer, sizeof buffer, "%.15g", v);
    return buffer;
}

class Uses {
public:
    explicit Uses(Analysis& a) : A(a), Of(a.Out.Declarations.size()) {}
    void Run();

private:
    const Declaration* Resolve(const Token& t, size_t scope, size_t* index) const {
        return t.Failure || (t.Scanned.Code != ttVAR && t.Scanned.Code != ttREF) ? nullptr
                                                                                 : A.Find(t.Scanned.Text, scope, index);
    }
    void Count(size_t k, size_t t);
    void Inspect(size_t k, size_t t);
    void Report();

    Analysis& A;
    std::vector<Usage> Of;
};

void Uses::Count(size_t k, size_t t) {
    const Instruction& insn = A.Out.Instructions[k];
    const size_t end = A.InstructionEnd[k];
    for (size_t o = t + 1; o < end && o < A.Tokens.size(); ++o) {
        size_t index = 0;
        if (!Resolve(A.Tokens[o], insn.ScopeIndex, &index)) continue;
        const bool second = o == t + 2;
        const bool reference = A.Tokens[o].Scanned.Code == ttREF;
        if (insn.Code == ttMOVA) {
            if (!second) Of[index].Referenced = true;
            else Of[index].HoldsReference = true;
            ++(second ? Of[index].Writes : Of[index].Reads);
        } else if (insn.Code == ttMOV && second && !reference) {
            ++Of[index].Writes;
        } else {
            ++Of[index].Reads;  // sources, and a reference written through is read
        }
    }
}

void Uses::Inspect(size_t k, size_t t) {
    const Instruction& insn = A.Out.Instructions[k];
    const size_t end = A.InstructionEnd[k];
    if (t + 2 >= end || A.Tokens[t + 1].Failure || A.Tokens[t + 2].Failure) return;
    const Token& source = A.Tokens[t + 1];
    const Token& dest = A.Tokens[t + 2];
    size_t si = 0, di = 0;
    const Declaration* s = Resolve(source, insn.ScopeIndex, &si);
    const Declaration* d = Resolve(dest, insn.ScopeIndex, &di);
    if (insn.Code == ttMOV && source.Scanned.Code == ttNUMBER && d && dest.Scanned.Code == ttVAR &&
        (IsInteger(d->Type) || d->Type == ttBOOL)) {
        double stored = 0.0;
        qz::Narrow(source.Scanned.Number, stored, char(d->Type));
        if (stored != std::trunc(source.Scanned.Number))
            A.Warning("literal-range", source.Begin, source.End,
                      source.Scanned.Text + " stored as " + TypeName(d->Type) + " is " + Number(stored));
    }
    if (insn.Code == ttMOV && s && source.Scanned.Code == ttVAR && Of[si].HoldsReference &&
        (s->Type != ttLREAL || (d && dest.Scanned.Code == ttVAR && d->Type != ttLREAL)))
        A.Warning("reference-copy", source.Begin, source.End,
                  "`" + s->Name +
                      "` holds a reference; keep it in a register and store it with MOVA into each variable "
                      "that needs it");
    if (insn.Code == ttMOVA && s && d && source.Scanned.Code == ttVAR && dest.Scanned.Code == ttVAR) {
        Usage& p = Of[di];
        if (p.ReferentType == 0 || !Holds(uint8_t(p.ReferentType), s->Type)) p.ReferentType = s->Type;
    }
}

void Uses::Report() {
    for (size_t i = 0; i < A.Out.Declarations.size(); ++i) {
        const Declaration& d = A.Out.Declarations[i];
        size_t first = 0;
        if (!A.Find(d.Name, d.ScopeIndex, &first) || first != i) continue;  // a repeated name
        const Usage& u = Of[i];
        if (u.Referenced) continue;
        const char* id = nullptr;
        if (d.Kind == ttVI && u.Reads == 0) id = "unused-input";
        else if (d.Kind == ttVO && u.Writes == 0) id = "unwritten-output";
        else if (d.Kind != ttVI && d.Kind != ttVO && u.Writes > 0 && u.Reads == 0) id = "unread-variable";
        if (id) A.Warning(id, d.NameRange.Begin, d.NameRange.End);
    }
}

void Uses::Run() {
    for (size_t t = 0; t < A.Tokens.size(); ++t)
        if (A.InstructionAt[t] >= 0) Count(size_t(A.InstructionAt[t]), t);
    for (size_t t = 0; t < A.Tokens.size(); ++t)
        if (A.InstructionAt[t] >= 0) Inspect(size_t(A.InstructionAt[t]), t);
    // Reads through ^ of a variable whose referent is wider than it.
    for (size_t t = 0; t < A.Tokens.size(); ++t) {
        if (A.InstructionAt[t] < 0 || t + 1 >= A.Tokens.size()) continue;
        const size_t k = size_t(A.InstructionAt[t]);
        const Token& source = A.Tokens[t + 1];
        size_t index = 0;
        const Declaration* p = Resolve(source, A.Out.Instructions[k].ScopeIndex, &index);
        if (!p || source.Scanned.Code != ttREF || A.Out.Instructions[k].Code == ttMOVA) continue;
        const int referent = Of[index].ReferentType;
        if (referent != 0 && !Holds(p->Type, uint8_t(referent)))
            A.Warning("narrow-reference", source.Begin, source.End,
                      "`" + p->Name + "` is " + TypeName(p->Type) + " and refers to a " + TypeName(uint8_t(referent)) +
                          ": what is read through it is narrowed to " + TypeName(p->Type));
    }
    Report();
}

}  // namespace

void AnalyseUses(Analysis& a) { Uses(a).Run(); }

}  // namespace qz::check::detail
