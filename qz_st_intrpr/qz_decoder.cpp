// Decoding: scanning a position once, exactly as the plain path scans it,
// and remembering what the scan yielded, what an instruction's operands are,
// and what a subprogram's declarations build.
//
// Decoding never changes what the plain path would see: every look ahead
// puts the scanner's fields back, and a scan that would enter a label in the
// label table is not remembered (the plain path scans it and registers the
// label at the moment it always did).
#include "qz_st_intrpr_execute.h"

#include <cstring>

namespace {

// TokenEnd before a look ahead, to tell whether the scan wrote it (a scan
// writes only indexes from -1 up).
constexpr int32_t kEndNotWritten = INT32_MIN;

// Everything a scan may change.
struct SavedScanner {
    explicit SavedScanner(const CQZ_STInterpretator_Execute& m)
        : TextPos(m.TextPos), TokenStart(m.TokenStart), TokenEnd(m.TokenEnd), TokenLength(m.TokenLength),
          DigitValue(m.DigitValue), CurChar(m.CurChar), TokenCode(m.TokenCode), DigitType(m.DigitType) {
        std::memcpy(TokenText, m.TokenText, sizeof TokenText);
    }
    void Restore(CQZ_STInterpretator_Execute& m) const {
        m.TextPos = TextPos;
        m.TokenStart = TokenStart;
        m.TokenEnd = TokenEnd;
        m.TokenLength = TokenLength;
        m.DigitValue = DigitValue;
        m.CurChar = CurChar;
        m.TokenCode = TokenCode;
        m.DigitType = DigitType;
        std::memcpy(m.TokenText, TokenText, sizeof TokenText);
    }

    int32_t TextPos, TokenStart, TokenEnd, TokenLength;
    double DigitValue;
    char CurChar;
    uint8_t TokenCode, DigitType;
    char TokenText[kTokenBufferSize];
};

bool IsValueRegister(uint8_t code) { return code == ttA0 || code == ttR0 || code == ttR1; }

}  // namespace

void CQZ_STInterpretator_Execute::PrepareDecoded() {
    if (Decoded.IsFor(TextVersion)) return;
    Decoded.Reset(TextVersion, TextLen);
    ClearFramePool();  // retired frames were built from another text
    // The program's table was filled by the loader of this text and gains no
    // records until the next load, which brings a new text version.
    Vars.SetShape(kProgramShape);
}

uint32_t CQZ_STInterpretator_Execute::DecodedTokenAt(int32_t pos) {
    uint32_t& slot = Decoded.At(pos);
    if (slot == QZ_DecodedProgram::kUndecodable) return 0;
    if (slot != QZ_DecodedProgram::kNotYet) return slot;

    const SavedScanner saved(*this);
    SeekTo(pos);
    TokenEnd = kEndNotWritten;
    SuppressLabelRegistration = true;
    const Qz::uint32_t r = Scan(TokenText);
    SuppressLabelRegistration = false;

    uint32_t result = 0;
    if (r != Qz::rcOK) {
        slot = QZ_DecodedProgram::kUndecodable;  // fails the same way every time
    } else if (!RegistersLabel(TokenCode) || Labels.lookup(TokenText, 0, 0, false)) {
        QZ_DecodedToken token{};
        token.Start = TokenStart;
        token.EndWritten = TokenEnd != kEndNotWritten;
        token.End = token.EndWritten ? TokenEnd : 0;
        token.NextTextPos = TextPos;
        token.NextChar = CurChar;
        token.Code = TokenCode;
        token.TextLength = uint16_t(TokenLength);
        token.TextOffset = Decoded.AddText(TokenText, size_t(TokenLength));
        if (TokenCode == ttNUMBER) {
            token.Number = DigitValue;
            token.NumberType = DigitType;
        }
        result = slot = Decoded.AddToken(token);
    }
    // Otherwise the scan would register a new label: left to the plain scan.
    saved.Restore(*this);
    return result;
}

bool CQZ_STInterpretator_Execute::DecodeOperand(int32_t pos, QZ_DecodedOperand& operand) {
    if (pos < 0) return false;
    const uint32_t index = DecodedTokenAt(pos);
    if (!index) return false;
    const QZ_DecodedToken& token = Decoded.Tokens[index - 1];
    // A final RET as an operand fails, and a number is taken where its kind
    // is accepted only: both are left to the plain handlers.
    if (!token.EndWritten || token.Code == ttEND) return false;
    operand.Kind = token.Code;
    operand.Token = index;
    operand.NameOffset = token.TextOffset;
    operand.Register = IsRegisterCode(token.Code) ? uint8_t(token.Code - ttA0) : 0;
    operand.Number = token.Number;
    operand.NumberType = token.NumberType;
    return true;
}

namespace {

bool IsSourceKind(uint8_t kind, bool isMove) {
    switch (kind) {
    case ttVAR: case ttREF: case ttA0: case ttR0: case ttR1: case ttPOP: case ttNUMBER: return true;
    case ttTICK: return isMove;
    default: return false;  // NIL and foreign kinds fail: the plain handler reports them
    }
}

bool IsMoveTargetKind(uint8_t kind) {
    switch (kind) {
    case ttVAR: case ttREF: case ttA0: case ttR0: case ttR1: case ttNIL: case ttPUSH: case ttTICK: return true;
    default: return false;
    }
}

// The form of a two-operand instruction, or dfPlain.
uint8_t TwoOperandForm(uint8_t code) {
    if (code == ttMOV) return dfMove;
    if (code >= ttADD && code <= ttMOD) return dfArithmetic;
    if (code >= ttNE && code <= ttLE) return dfCompare;
    if (code == ttPOW) return dfPower;
    if (code >= ttOR && code <= ttAND) return dfBoolean;
    if (code >= ttBOR && code <= ttBAND) return dfBits;
    if (code >= ttSHL && code <= ttROR) return dfShift;
    return dfPlain;
}

uint8_t RegisterForm(uint8_t code) {
    switch (code) {
    case ttTST: return dfTest;
    case ttNOT: return dfNot;
    case ttBNOT: return dfBitNot;
    case ttNG: return dfNegate;
    default: return dfPlain;
    }
}

// The shortcut of a decoded form with these operand kinds, or dsNone.
uint8_t Shortcut(uint8_t form, uint8_t source, uint8_t target) {
    const bool sourceRegister = IsValueRegister(source), targetRegister = IsValueRegister(target);
    if (form == dfMove) {
        if (source == ttVAR)
            return targetRegister ? dsMoveVarToRegister
                   : target == ttVAR ? dsMoveVarToVar
                   : target == ttPUSH ? dsMoveVarToStack
                                      : dsNone;
        if (source == ttPOP) return target == ttVAR ? dsMoveStackToVar : dsNone;
        if (source == ttNUMBER) return targetRegister ? dsMoveNumberToRegister : target == ttVAR ? dsMoveNumberToVar : dsNone;
        if (sourceRegister)
            return targetRegister ? dsMoveRegisterToRegister : target == ttVAR ? dsMoveRegisterToVar : dsNone;
        return dsNone;
    }
    if (form == dfArithmetic || form == dfCompare) {
        const uint8_t base = form == dfArithmetic ? dsArithmeticVar : dsCompareVar;
        if (source == ttVAR) return base;
        if (source == ttNUMBER) return uint8_t(base + 1);
        if (sourceRegister) return uint8_t(base + 2);
    }
    if (form == dfTest) return dsTest;
    if (form == dfJump) return dsJump;
    if (form == dfCall) return dsCall;
    return dsNone;
}

}  // namespace

uint32_t CQZ_STInterpretator_Execute::DecodeInstruction(uint32_t keyword) {
    QZ_DecodedInstruction in;
    in.Keyword = keyword;
    in.Code = Decoded.Tokens[keyword - 1].Code;
    in.Start = Decoded.Tokens[keyword - 1].Start;
    const int32_t first = Decoded.Tokens[keyword - 1].Next();
    const uint8_t code = in.Code;

    uint8_t form = dfPlain;
    uint32_t last = 0;
    if (const uint8_t twoOperand = TwoOperandForm(code)) {
        const bool isMove = twoOperand == dfMove;
        if (DecodeOperand(first, in.Source) && IsSourceKind(in.Source.Kind, isMove) &&
            DecodeOperand(Decoded.Tokens[in.Source.Token - 1].Next(), in.Target) &&
            (isMove ? IsMoveTargetKind(in.Target.Kind) : IsValueRegister(in.Target.Kind))) {
            form = twoOperand;
            last = in.Target.Token;
        }
    } else if (const uint8_t oneRegister = RegisterForm(code)) {
        if (DecodeOperand(first, in.Target) && IsValueRegister(in.Target.Kind)) {
            form = oneRegister;
            last = in.Target.Token;
        }
    } else if (code == ttJMP || code == ttJMPF || code == ttJMPT) {
        if (DecodeOperand(first, in.Source) && in.Source.Kind == ttNAME) {
            form = dfJump;
            last = in.Source.Token;
        }
    } else if (code == ttEXEC) {
        // Whatever the token, its text names the function, upper-cased.
        if (DecodeOperand(first, in.Source) && in.Source.Kind != ttNUMBER) {
            const QString name = QString::fromLatin1(Decoded.TextAt(in.Source.NameOffset)).toUpper();
            in.Function = QZBuildInFunctions::FindBuiltin(name);
            if (in.Function) {
                form = dfExec;
                last = in.Source.Token;
            }
        }
    } else if (code == ttCAL) {
        if (DecodeOperand(first, in.Source) && in.Source.Kind != ttNUMBER) {
            form = dfCall;
            last = in.Source.Token;
        }
    }
    // MOVA, and every instruction whose operands fail, keeps the plain form.

    in.Form = form;
    in.Shortcut = Shortcut(form, in.Source.Kind, in.Target.Kind);
    if (form != dfPlain) {
        in.OperandEnd = Decoded.Tokens[last - 1].End;
        in.ReturnIndex = uint32_t(Decoded.Tokens[last - 1].NextTextPos - 1);
        in.Last = last;
        in.Next = Decoded.Tokens[last - 1].Next();
    }
    Decoded.Instructions.push_back(in);
    const uint32_t index = uint32_t(Decoded.Instructions.size());
    Decoded.Tokens[keyword - 1].Instruction = index;
    return index;
}

void CQZ_STInterpretator_Execute::ResolveTarget(uint32_t instruction) {
    QZ_DecodedInstruction& in = Decoded.Instructions[instruction - 1];
    const Label* label = Labels.lookup(Decoded.TextAt(in.Source.NameOffset), 0, 0, false);
    if (!label) return;  // not registered (yet): the instruction fails with 22
    const int32_t start = label->LabelStart;
    if (in.Form == dfCall) {
        const uint32_t frame = DecodeFrame(start);
        QZ_DecodedInstruction& call = Decoded.Instructions[instruction - 1];
        call.Frame = frame;
        call.TargetState = frame ? QZ_DecodedInstruction::tgResolved : QZ_DecodedInstruction::tgPlain;
        return;
    }
    // A jump lands on a label token; anything else there fails in the plain handler.
    const uint32_t token = (start >= 0 && start < TextLen) ? DecodedTokenAt(start) : 0;
    QZ_DecodedInstruction& jump = Decoded.Instructions[instruction - 1];
    if (!token || Decoded.Tokens[token - 1].Code != ttLABEL || !Decoded.Tokens[token - 1].EndWritten) {
        jump.TargetState = QZ_DecodedInstruction::tgPlain;
        return;
    }
    jump.TargetToken = token;
    jump.TargetState = QZ_DecodedInstruction::tgResolved;
}

uint32_t CQZ_STInterpretator_Execute::DecodeFrame(int32_t labelStart) {
    if (labelStart < 0 || labelStart >= TextLen) return 0;
    const uint32_t label = DecodedTokenAt(labelStart);
    if (!label || Decoded.Tokens[label - 1].Code != ttLABEL) return 0;

    // The declarations are read as FillFuncVariablesList reads them, into a
    // table of their own: its records are what every call builds.
    QZ_FrameTemplate frame;
    frame.Shape = FrameShape(labelStart);
    CQZ_Vars scratch;
    int32_t pos = Decoded.Tokens[label - 1].Next();
    for (;;) {
        const uint32_t name = pos >= 0 ? DecodedTokenAt(pos) : 0;
        if (!name) return 0;
        if (Decoded.Tokens[name - 1].Code == ttBODY) {
            frame.BodyToken = name;
            break;
        }
        uint32_t parts[3];  // kind, type, initial value
        int32_t at = Decoded.Tokens[name - 1].Next();
        for (uint32_t& part : parts) {
            part = at >= 0 ? DecodedTokenAt(at) : 0;
            if (!part) return 0;
            at = Decoded.Tokens[part - 1].Next();
        }
        const QZ_DecodedToken& kind = Decoded.Tokens[parts[0] - 1];
        const QZ_DecodedToken& type = Decoded.Tokens[parts[1] - 1];
        const QZ_DecodedToken& value = Decoded.Tokens[parts[2] - 1];
        if (kind.Code != ttV && kind.Code != ttVA && kind.Code != ttVR) return 0;
        if (!IsValueType(char(type.Code)) || value.Code != ttNUMBER) return 0;
        char text[kTokenBufferSize];
        _qzcscpy(text, kNameLimit, Decoded.TextAt(Decoded.Tokens[name - 1].TextOffset));
        text[kNameLimit] = 0;
        scratch.lookup(text, char(kind.Code), char(type.Code), value.Number, 0, true);
        frame.HasNumber = true;
        frame.Number = value.Number;
        frame.NumberType = value.NumberType;
        pos = at;
    }
    for (uint32_t i = 0; i < scratch.RecordCount(); ++i) frame.Records.push_back(*scratch.Record(i));
    Decoded.Frames.push_back(std::move(frame));
    return uint32_t(Decoded.Frames.size());
}
