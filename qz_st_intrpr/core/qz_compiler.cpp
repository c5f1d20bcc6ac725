// The front end of the compiled core. It follows control flow from MAIN the
// way the reading body loop would walk the text (labels passed over, BODY
// passed over inside a subprogram, RET ending a body), one straight line of
// instructions at a time; jump targets, called bodies and the places calls
// return to are queued and compiled after, so nothing here recurses.
#include "qz_compiler.h"

#include "qz_builtins.h"
#include "qz_st_intrpr_execute.h"

#include <QString>
#include <algorithm>

namespace {

constexpr uint32_t kNone = 0xFFFFFFFFu;

uint64_t Key(uint32_t context, int32_t pos) { return (uint64_t(context) << 32) | uint32_t(pos); }

bool IsValueRegister(uint8_t code) { return code == ttA0 || code == ttR0 || code == ttR1; }
uint8_t RegisterIndex(uint8_t code) { return uint8_t(code - ttA0); }

// Everything a scan may change, put back when compiling ends.
struct SavedScanner {
    explicit SavedScanner(const CQZ_STInterpretator_Execute& m)
        : TextPos(m.TextPos), TokenStart(m.TokenStart), TokenEnd(m.TokenEnd), TokenLength(m.TokenLength),
          DigitValue(m.DigitValue), CurChar(m.CurChar), TokenCode(m.TokenCode), DigitType(m.DigitType),
          Text(m.TokenText, sizeof m.TokenText) {}
    void Restore(CQZ_STInterpretator_Execute& m) const {
        m.TextPos = TextPos;
        m.TokenStart = TokenStart;
        m.TokenEnd = TokenEnd;
        m.TokenLength = TokenLength;
        m.DigitValue = DigitValue;
        m.CurChar = CurChar;
        m.TokenCode = TokenCode;
        m.DigitType = DigitType;
        Text.copy(m.TokenText, Text.size());
    }
    int32_t TextPos, TokenStart, TokenEnd, TokenLength;
    double DigitValue;
    char CurChar;
    uint8_t TokenCode, DigitType;
    std::string Text;
};

}  // namespace

const char* OpDescription(uint8_t op) {
    static const char* const kDescriptions[] = {
#define QZ_OP_TEXT(name, text) text,
        QZ_OPS(QZ_OP_TEXT)
#undef QZ_OP_TEXT
    };
    return op < kOpCount ? kDescriptions[op] : "";
}

QZ_Compiler::QZ_Compiler(CQZ_STInterpretator_Execute& machine, QZ_CompiledProgram& program)
    : M(machine), P(program) {}

QZ_Compiler::~QZ_Compiler() = default;

bool QZ_Compiler::Compile() {
    const SavedScanner saved(M);
    // The compiled form stays linear in the text: a few instructions per
    // character at most, however contexts multiply the code.
    Limit = size_t(M.TextLen) / 2 + 4096;
    bool ok = false;
    const Label* main = M.Labels.lookup("MAIN", 0, 0, false);
    Token token;
    if (main && main->LabelStart >= 0 && ScanAt(main->LabelStart, token) == 0 && token.Code == ttMAIN &&
        token.Next >= 0) {
        P.MainSnapshot = Snapshot(main->LabelStart);
        P.Entry = Emit(Edge{0, token.Next, main->LabelStart});
        while (!Pending.empty() && !Overflow) {
            const Fixup fixup = Pending.back();
            Pending.pop_back();
            const uint32_t target = Emit(fixup.Target);
            if (fixup.FrameBody)
                P.Frames[fixup.Insn].Body = target;
            else
                P.Code[fixup.Insn].B = target;
        }
        for (QZ_Frame& frame : P.Frames)
            if (frame.Body == kNone) Overflow = true;  // never happens: every frame's body is queued
        if (!Overflow && !EveryLineEnds()) Overflow = true;
        if (!Overflow) FuseCompareJumps();
        ok = !Overflow;
    }
    saved.Restore(M);
    P.Usable = ok;
    if (!ok) P.Code.clear();
    return ok;
}

Qz::uint32_t QZ_Compiler::ScanAt(int32_t pos, Token& token) {
    if (Qz::uint32_t r = M.ScanTokenAt(pos, token)) return r;
    token.WouldRegister = RegistersLabel(token.Code) && !M.Labels.lookup(M.TokenText, 0, 0, false);
    return Qz::rcOK;
}

uint32_t QZ_Compiler::Snapshot(int32_t pos) {
    Token token;
    ScanAt(pos, token);
    QZ_ScanSnapshot s;
    s.TextPos = M.TextPos;
    s.TokenStart = M.TokenStart;
    s.TokenEnd = M.TokenEnd;
    s.TokenLength = M.TokenLength;
    s.CurChar = M.CurChar;
    s.TokenCode = M.TokenCode;
    s.TokenText.assign(M.TokenText, size_t(M.TokenLength));
    P.Snapshots.push_back(std::move(s));
    return uint32_t(P.Snapshots.size() - 1);
}

uint32_t QZ_Compiler::Push(const QZ_Insn& insn) {
    if (P.Code.size() >= Limit) Overflow = true;
    P.Code.push_back(insn);
    return uint32_t(P.Code.size() - 1);
}

void QZ_Compiler::EmitEscape(const Edge& edge) {
    QZ_Insn in;
    in.Op = opESCAPE;
    in.Pos = edge.Pos;
    in.Prev = edge.Prev;
    Push(in);
}

uint32_t QZ_Compiler::EmitReturn(const Edge& edge, const Token& ret) {
    QZ_Insn in;
    in.Op = edge.Context == 0 ? opMAIN_RET : opRET;
    in.Pos = ret.Start;
    if (edge.Context == 0) in.Snapshot = Snapshot(ret.Start);
    return Push(in);
}

// Compiles the straight line that starts at `edge` and returns its first
// instruction.
uint32_t QZ_Compiler::Emit(Edge edge) {
    uint32_t first = kNone;
    auto note = [&first](uint32_t index) {
        if (first == kNone) first = index;
    };
    while (!Overflow) {
        Token token;
        const bool scanned = edge.Pos >= 0 && ScanAt(edge.Pos, token) == 0;
        if (!scanned || token.WouldRegister || token.Code == ttEND) {
            note(uint32_t(P.Code.size()));
            EmitEscape(edge);  // the reading loop reports the failure, registers the label or ends
            break;
        }
        if (token.Code == ttLABEL || (edge.Context != 0 && token.Code == ttBODY)) {
            edge.Prev = edge.Pos;
            edge.Pos = token.Next;
            continue;
        }
        if (token.Code == ttRET) {
            note(EmitReturn(edge, token));
            break;
        }
        if (!IsInstructionCode(token.Code)) {
            note(uint32_t(P.Code.size()));
            EmitEscape(edge);  // not an instruction: 14
            break;
        }
        const auto found = Compiled.find(Key(edge.Context, edge.Pos));
        if (found != Compiled.end()) {
            if (first == kNone) return found->second;
            QZ_Insn go;
            go.Op = opGOTO;
            go.B = found->second;
            Push(go);
            break;
        }
        Compiled.emplace(Key(edge.Context, edge.Pos), uint32_t(P.Code.size()));
        note(uint32_t(P.Code.size()));
        if (!EmitInstruction(edge, token)) break;
    }
    return first == kNone ? 0 : first;
}

bool QZ_Compiler::EmitInstruction(Edge& edge, const Token& keyword) {
    QZ_Insn in;
    in.Code = keyword.Code;
    in.Pos = keyword.Start;
    in.Cost = 1;
    switch (keyword.Code) {
    case ttMOV: return EmitMove(in, edge, keyword);
    case ttMOVA: return EmitAddressMove(in, edge, keyword);
    case ttJMP: case ttJMPF: case ttJMPT: return EmitJump(in, edge, keyword);
    case ttCAL: return EmitCall(in, edge, keyword);
    case ttEXEC: return EmitExec(in, edge, keyword);
    case ttTST: case ttNOT: case ttBNOT: case ttNG: return EmitRegisterOp(in, edge, keyword);
    default: return EmitOperator(in, edge, keyword);
    }
}

// The instruction is left to its handler. When its operands were read, the
// straight line goes on after them; otherwise the handler fails.
bool QZ_Compiler::EmitDelegate(QZ_Insn& in, Edge& edge, bool operandsRead, int32_t next, int32_t last) {
    in.Op = opDELEGATE;
    in.B = operandsRead && next >= 0 ? 1 : 0;  // whether compiled code follows
    Push(in);
    if (in.B == 0) return false;
    edge.Pos = next;
    edge.Prev = last;
    return true;
}

bool QZ_Compiler::FindVariable(const std::string& name, uint32_t context, uint32_t& ordinal, uint8_t* type) {
    CQZ_Vars& table = context == 0 ? M.Vars : *FrameTables[context - 1];
    const Var* var = table.lookup(name.c_str(), 0, 0, 0.0, 0, false);
    if (!var) return false;
    ordinal = var->Ordinal;
    if (type) *type = uint8_t(var->VarType);  // declared types never change
    return true;
}

// Fills the source fields of `in`; false for a kind the compiled code does
// not take (the handler then reports it).
bool QZ_Compiler::SourceOperand(const Token& token, uint32_t context, QZ_Insn& in, bool acceptTick) {
    switch (token.Code) {
    case ttVAR: in.SrcKind = skVar; return FindVariable(token.Text, context, in.A, &in.SrcType);
    case ttREF: in.SrcKind = skRef; return FindVariable(token.Text, context, in.A);
    case ttA0: case ttR0: case ttR1: in.SrcKind = skRegister; in.Src = RegisterIndex(token.Code); return true;
    case ttPOP: in.SrcKind = skPop; return true;
    case ttNUMBER:
        in.SrcKind = skNumber;
        in.Num = token.Number;
        in.NumType = in.SrcType = token.NumberType;
        return true;
    case ttTICK: in.SrcKind = skTick; return acceptTick;
    default: return false;
    }
}

// Fills the destination fields of a MOV (`full`: references and PUSH too) or
// a MOVA; false for a kind left to the handler (TICK presets, refused kinds).
bool QZ_Compiler::DestOperand(const Token& token, uint32_t context, QZ_Insn& in, bool full) {
    switch (token.Code) {
    case ttVAR: in.DstKind = dkVar; return FindVariable(token.Text, context, in.B, &in.DstType);
    case ttREF: in.DstKind = dkRef; return full && FindVariable(token.Text, context, in.B);
    case ttA0: case ttR0: case ttR1: in.DstKind = dkRegister; in.Dst = RegisterIndex(token.Code); return true;
    case ttNIL: in.DstKind = dkNil; in.Dst = 3; return true;
    case ttPUSH: in.DstKind = dkPush; return full;
    default: return false;
    }
}

// Reads a source and a destination operand; false when either scan fails or
// would enter a label (the handler then does what the reading path does).
bool QZ_Compiler::ScanTwoOperands(const Token& keyword, Token& source, Token& dest) {
    return ScanOperand(keyword.Next, source) && !source.WouldRegister && ScanOperand(source.Next, dest) &&
           !dest.WouldRegister;
}

bool QZ_Compiler::EmitMove(QZ_Insn& in, Edge& edge, const Token& keyword) {
    Token source, dest;
    if (!ScanTwoOperands(keyword, source, dest)) return EmitDelegate(in, edge, false, -1, -1);
    const bool ok = SourceOperand(source, edge.Context, in, true) && DestOperand(dest, edge.Context, in, true);
    if (!ok) return EmitDelegate(in, edge, true, dest.Next, dest.Start);
    static const uint8_t kShapes[][3] = {
        {skVar, dkRegister, opMOV_VR},    {skRegister, dkVar, opMOV_RV}, {skNumber, dkRegister, opMOV_NR},
        {skNumber, dkVar, opMOV_NV},      {skVar, dkVar, opMOV_VV},      {skRegister, dkRegister, opMOV_RR},
        {skVar, dkPush, opMOV_VP},        {skPop, dkVar, opMOV_PV},
    };
    in.Op = opMOV_G;
    for (const auto& shape : kShapes)
        if (in.SrcKind == shape[0] && in.DstKind == shape[1]) in.Op = shape[2];
    Push(in);
    edge.Pos = dest.Next;
    edge.Prev = dest.Start;
    return true;  // a position past the end escapes: the reading loop reports it
}

bool QZ_Compiler::EmitAddressMove(QZ_Insn& in, Edge& edge, const Token& keyword) {
    Token source, dest;
    if (!ScanTwoOperands(keyword, source, dest)) return EmitDelegate(in, edge, false, -1, -1);
    bool ok = true;
    if (source.Code == ttVAR) {
        in.SrcKind = skVar;
        ok = FindVariable(source.Text, edge.Context, in.A);
    } else if (source.Code == ttA0 || source.Code == ttR0 || source.Code == ttR1) {
        in.SrcKind = skRegister;  // an address passed on as it is
        in.Src = RegisterIndex(source.Code);
    } else {
        ok = false;
    }
    ok = ok && DestOperand(dest, edge.Context, in, false);
    if (!ok) return EmitDelegate(in, edge, true, dest.Next, dest.Start);
    in.Op = opMOVA_V;
    Push(in);
    edge.Pos = dest.Next;
    edge.Prev = dest.Start;
    return true;  // a position past the end escapes: the reading loop reports it
}

// The two-operand operators: a source of any kind and a register.
bool QZ_Compiler::EmitOperator(QZ_Insn& in, Edge& edge, const Token& keyword) {
    Token source, dest;
    if (!ScanTwoOperands(keyword, source, dest)) return EmitDelegate(in, edge, false, -1, -1);
    const bool ok = SourceOperand(source, edge.Context, in, false) && IsValueRegister(dest.Code);
    if (!ok) return EmitDelegate(in, edge, true, dest.Next, dest.Start);
    in.Dst = RegisterIndex(dest.Code);
    const uint8_t c = keyword.Code;
    if (c >= ttADD && c <= ttMUL && in.SrcKind <= skNumber && in.SrcKind != skRef) {
        static const uint8_t kSpecial[3][4] = {
            // skVar, skRef (unused), skRegister, skNumber
            {opADD_V, 0, opADD_R, opADD_N},
            {opSUB_V, 0, opSUB_R, opSUB_N},
            {opMUL_V, 0, opMUL_R, opMUL_N},
        };
        in.Op = kSpecial[c - ttADD][in.SrcKind];
    } else if (c >= ttADD && c <= ttMOD) {
        in.Op = opARITH_G;
    } else if (c >= ttNE && c <= ttLE) {
        in.Op = opCMP_G;
    } else if (c == ttPOW) {
        in.Op = opPOW_G;
    } else if (c >= ttOR && c <= ttAND) {
        in.Op = opBOOL_G;
    } else if (c >= ttBOR && c <= ttBAND) {
        in.Op = opBITS_G;
    } else {
        in.Op = opSHIFT_G;  // SHL..ROR: nothing else reaches here
    }
    Push(in);
    edge.Pos = dest.Next;
    edge.Prev = dest.Start;
    return true;  // a position past the end escapes: the reading loop reports it
}

bool QZ_Compiler::EmitRegisterOp(QZ_Insn& in, Edge& edge, const Token& keyword) {
    Token reg;
    if (!ScanOperand(keyword.Next, reg) || reg.WouldRegister) return EmitDelegate(in, edge, false, -1, -1);
    if (!IsValueRegister(reg.Code)) return EmitDelegate(in, edge, true, reg.Next, reg.Start);
    static const uint8_t kOps[] = {opTST, 0, 0, 0, opNOT, 0, 0, 0, opBNOT, opNG};
    in.Op = kOps[keyword.Code - ttTST];
    in.Dst = RegisterIndex(reg.Code);
    Push(in);
    edge.Pos = reg.Next;
    edge.Prev = reg.Start;
    return true;  // a position past the end escapes: the reading loop reports it
}

bool QZ_Compiler::LabelTarget(const std::string& name, int32_t& labelStart, int32_t& after) {
    const Label* label = M.Labels.lookup(name.c_str(), 0, 0, false);
    if (!label || label->LabelStart < 0 || label->LabelStart >= M.TextLen) return false;
    Token token;
    if (ScanAt(label->LabelStart, token) != 0 || token.Code != ttLABEL || token.WouldRegister || token.Next < 0)
        return false;
    labelStart = label->LabelStart;
    after = token.Next;
    return true;
}

// A jump whose label is found compiles; any other is left to the reading
// loop, which fails or finds a label registered by then.
bool QZ_Compiler::EmitJump(QZ_Insn& in, Edge& edge, const Token& keyword) {
    Token name;
    int32_t labelStart = 0, after = 0;
    if (!ScanOperand(keyword.Next, name) || name.Code != ttNAME || name.Next < 0 ||
        !LabelTarget(name.Text, labelStart, after)) {
        EmitEscape(edge);
        return false;
    }
    in.Op = keyword.Code == ttJMP ? opJMP : keyword.Code == ttJMPF ? opJMPF : opJMPT;
    const uint32_t index = Push(in);
    Pending.push_back(Fixup{index, Edge{edge.Context, after, labelStart}, false});
    if (keyword.Code == ttJMP) return false;
    edge.Pos = name.Next;
    edge.Prev = name.Start;
    return true;
}

bool QZ_Compiler::EmitCall(QZ_Insn& in, Edge& edge, const Token& keyword) {
    Token name;
    int32_t labelStart = 0, after = 0;
    uint32_t frame = 0;
    // The return index is where the operand's look-ahead character stands.
    if (!ScanOperand(keyword.Next, name) || name.WouldRegister || name.Next < 0 ||
        !LabelTarget(name.Text, labelStart, after) || (frame = FrameOf(labelStart, after)) == 0) {
        EmitEscape(edge);  // EnterCall fails, and leaves what it leaves
        return false;
    }
    in.Op = opCAL;
    in.A = frame - 1;
    in.C = uint32_t(name.Next);
    const uint32_t index = Push(in);
    P.Code[index].B = index + 1;  // RET comes back to the straight line that goes on here
    edge.Pos = name.Next;
    edge.Prev = kPrevIsLastRet;
    return true;
}

uint32_t QZ_Compiler::FrameOf(int32_t labelStart, int32_t labelNext) {
    const auto found = FrameIndex.find(labelStart);
    if (found != FrameIndex.end()) return found->second;
    // Read as FillFuncVariablesList reads: name, kind, type, value until BODY.
    std::unique_ptr<CQZ_Vars> table(new CQZ_Vars());
    QZ_Frame frame;
    frame.LabelStart = labelStart;
    frame.Body = kNone;
    int32_t pos = labelNext;
    Token name;
    for (;;) {
        if (!ScanOperand(pos, name) || name.WouldRegister) return 0;
        if (name.Code == ttBODY) break;
        Token kind, type, value;
        if (!ScanOperand(name.Next, kind) || kind.WouldRegister) return 0;
        if (kind.Code != ttV && kind.Code != ttVA && kind.Code != ttVR) return 0;
        if (!ScanOperand(kind.Next, type) || !IsValueType(char(type.Code))) return 0;
        if (!ScanOperand(type.Next, value) || value.Code != ttNUMBER) return 0;
        char text[kTokenBufferSize];
        _qzcscpy(text, kNameLimit, name.Text.c_str());
        text[kNameLimit] = 0;
        ++frame.Declarations;
        frame.PeakRecords = std::max(frame.PeakRecords, table->RecordCount() + 1);
        table->lookup(text, char(kind.Code), char(type.Code), value.Number, 0, true);
        frame.HasNumber = true;
        frame.Number = value.Number;
        frame.NumberType = value.NumberType;
        pos = value.Next;
    }
    if (name.Next < 0) return 0;
    for (uint32_t i = 0; i < table->RecordCount(); ++i) frame.Records.push_back(*table->Record(i));
    P.Frames.push_back(std::move(frame));
    FrameTables.push_back(std::move(table));
    const uint32_t index = uint32_t(P.Frames.size());
    FrameIndex.emplace(labelStart, index);
    // The body runs with the new frame (context 1 + frame index); it is
    // compiled from the queue, so nested calls never nest the compiler.
    Pending.push_back(Fixup{index - 1, Edge{index, name.Next, name.Start}, true});
    return index;
}

bool QZ_Compiler::EmitExec(QZ_Insn& in, Edge& edge, const Token& keyword) {
    Token name;
    if (!ScanOperand(keyword.Next, name)) return EmitDelegate(in, edge, false, -1, -1);
    const QZBuildInFunctions::BuiltinEntry* entry =
        QZBuildInFunctions::FindBuiltinEntry(QString::fromLatin1(name.Text.c_str()).toUpper());
    if (!entry || name.WouldRegister) return EmitDelegate(in, edge, true, name.Next, name.Start);
    in.Op = opEXEC;
    in.C = uint32_t(entry - QZBuildInFunctions::BuiltinTable());
    Push(in);
    edge.Pos = name.Next;
    edge.Prev = name.Start;
    return true;  // a position past the end escapes: the reading loop reports it
}

// Every instruction that goes on to the next one has one behind it: the loop
// never runs off the end of the code.
bool QZ_Compiler::EveryLineEnds() const {
    for (size_t i = 0; i < P.Code.size(); ++i) {
        const QZ_Insn& in = P.Code[i];
        const bool ends = in.Op == opJMP || in.Op == opGOTO || in.Op == opCAL || in.Op == opRET ||
                          in.Op == opMAIN_RET || in.Op == opESCAPE || (in.Op == opDELEGATE && in.B == 0);
        if (!ends && i + 1 >= P.Code.size()) return false;
        if ((in.Op == opJMP || in.Op == opJMPF || in.Op == opJMPT || in.Op == opGOTO || in.Op == opCAL) &&
            (in.B >= P.Code.size() || (in.Op == opCAL && in.A >= P.Frames.size())))
            return false;
    }
    return true;
}

// Frequent runs of three instructions run as one: a comparison into a
// register, TST of it and a jump; a load into a register, an ADD, SUB or MUL
// into it and a store of it. The second and third stay in place behind the
// first for whoever jumps to them, and for a budget too small for all three.
void QZ_Compiler::FuseCompareJumps() {
    for (size_t i = 0; i + 2 < P.Code.size(); ++i) {
        QZ_Insn& compare = P.Code[i];
        const QZ_Insn& test = P.Code[i + 1];
        const QZ_Insn& jump = P.Code[i + 2];
        if (compare.Op != opCMP_G || test.Op != opTST || test.Dst != compare.Dst) continue;
        if (jump.Op != opJMP && jump.Op != opJMPF && jump.Op != opJMPT) continue;
        compare.Op = opCMP_JUMP;
        compare.Cost = 3;
    }
    auto isLoad = [](uint8_t op) { return op == opMOV_VR || op == opMOV_NR || op == opMOV_RR; };
    auto isOperate = [](uint8_t op) { return op >= opADD_V && op <= opMUL_R; };
    for (size_t i = 0; i + 2 < P.Code.size(); ++i) {
        QZ_Insn& load = P.Code[i];
        const QZ_Insn& operate = P.Code[i + 1];
        const QZ_Insn& store = P.Code[i + 2];
        if (!isLoad(load.Op) || !isOperate(operate.Op) || store.Op != opMOV_RV) continue;
        if (operate.Dst != load.Dst || store.Src != load.Dst) continue;
        load.Op = IsWholeDint(load) && IsWholeDint(operate) && store.DstType == ttDINT ? opLOAD_OP_STORE_DINT
                                                                                           : opLOAD_OP_STORE;
        load.Cost = 3;
    }
}

// A DINT variable, or a literal that is a whole number of at most 32 bits:
// an operand whose integer view is its value.
bool QZ_Compiler::IsWholeDint(const QZ_Insn& in) {
    if (in.SrcKind == skVar) return in.SrcType == ttDINT;
    return in.SrcKind == skNumber && (in.NumType == ttSINT || in.NumType == ttINT || in.NumType == ttDINT);
}
