// The reading shared by the loader, the calls, the compiler and the checker:
// the program header, one declaration, one token at a position. Each is the
// one place its rule is written, so what the checker reports is what loading
// and running decide.
#include "qz_st_intrpr_execute.h"

#include <climits>

Qz::uint32_t CQZ_STInterpretator_Execute::ScanTokenAt(int32_t pos, QZ_ScannedToken& token) {
    SeekTo(pos);
    TokenEnd = INT32_MIN;  // tells a caller whether the scan wrote it
    const bool registering = SuppressLabelRegistration;
    SuppressLabelRegistration = true;
    const Qz::uint32_t r = Scan(TokenText);
    SuppressLabelRegistration = registering;
    if (r != Qz::rcOK) return r;
    token.Start = TokenStart;
    token.End = TokenEnd;
    token.Code = TokenCode;
    token.Next = CurChar != 0 ? TextPos - 1 : -1;
    token.Text.assign(TokenText, size_t(TokenLength));
    token.Number = DigitValue;
    token.NumberType = DigitType;
    return Qz::rcOK;
}

Qz::uint32_t CQZ_STInterpretator_Execute::FindProgramHeader() {
    // Tokens before PROG are skipped, failures included. A failure that did
    // not move the scanner (a stray separator) skips one character, so the
    // search always advances and ends.
    for (;;) {
        const int32_t before = TextPos;
        const Qz::uint32_t r = Scan(TokenText);
        if (r == Qz::rcEndOfText) return r;
        if (r == Qz::rcOK && TokenCode == ttPROG) return Qz::rcOK;
        if (r != Qz::rcOK && TextPos == before) {
            if (!NextChar()) {
                CurChar = 0;
                return Qz::rcEndOfText;
            }
            if (Qz::uint32_t skip = SkipWhite()) return skip;
        }
    }
}

Qz::uint32_t CQZ_STInterpretator_Execute::ReadProgramName() {
    if (CurChar == 0) return Qz::rcEndOfText;
    if (CurChar == ' ') return Qz::rcBadCharacter;
    TokenStart = TextPos - 1;
    ClearToken();
    while (CurChar != ' ') {
        AppendToken(CurChar);  // the whole name is read; only 255 characters are kept
        if (!NextChar()) {
            CurChar = 0;
            return Qz::rcEndOfText;
        }
    }
    TokenEnd = TextPos - 2;
    TokenCode = ttNAME;
    if (Qz::uint32_t r = SkipWhite()) return r;
    _qzcscpy(ProgramName, kNameLimit, TokenText);
    ProgramName[kNameLimit] = 0;
    return Qz::rcOK;
}

Qz::uint32_t CQZ_STInterpretator_Execute::ReadDeclaration(bool locals, QZ_DeclarationRead& out) {
    if (Qz::uint32_t r = Scan(TokenText)) return r;
    if (TokenCode == (locals ? ttBODY : ttMAIN)) {
        out.Ended = true;
        return Qz::rcOK;
    }
    _qzcscpy(out.Name, kNameLimit, TokenText);
    out.Name[kNameLimit] = 0;
    out.NameCode = TokenCode;
    out.NameStart = TokenStart;

    if (Qz::uint32_t r = Scan(TokenText)) return r;
    const bool kindAllowed = locals ? (TokenCode == ttV || TokenCode == ttVA || TokenCode == ttVR)
                                    : (TokenCode >= ttV && TokenCode <= ttTVR);
    if (!kindAllowed) return Qz::rcBadDeclKind;
    out.Kind = char(TokenCode);
    if (Qz::uint32_t r = Scan(TokenText)) return r;
    if (!IsValueType(char(TokenCode))) return Qz::rcBadDeclType;
    out.Type = char(TokenCode);

    const int count = out.Kind == char(ttTVR) ? 4 : 1;
    for (int i = 0; i < count; ++i) {
        if (Qz::uint32_t r = Scan(TokenText)) return r;
        if (TokenCode != ttNUMBER) return Qz::rcNoDeclNumber;
        out.Numbers[i] = DigitValue;
        if (i == 0) {
            out.NumberStart = TokenStart;
            out.NumberEnd = TokenEnd;
            out.NumberType = DigitType;
        }
    }
    return Qz::rcOK;
}
