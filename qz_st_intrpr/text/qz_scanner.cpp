// The token scanner: reads one token at CurChar, classifies it, and registers
// labels and the PROG, VAR and MAIN keywords in the label table.
#include "qz_st_intrpr_execute.h"

#include <cstring>

// Reached when a character is needed and the text has ended: the final "RET"
// of a text is delivered as ttEND, anything else cut off by the end is 6.
Qz::uint32_t CQZ_STInterpretator_Execute::EndOfText() {
    CurChar = 0;
    TokenText[TokenLength] = 0;
    if (std::strcmp(TokenText, "RET") == 0) {
        TokenCode = ttEND;
        return Qz::rcOK;
    }
    return Qz::rcEndOfText;
}

Qz::uint32_t CQZ_STInterpretator_Execute::SkipWhiteOrEnd() {
    return SkipWhite() == Qz::rcOK ? Qz::rcOK : EndOfText();
}

Qz::uint32_t CQZ_STInterpretator_Execute::Scan(char* /*buffer: always TokenText*/) {
    if (CurChar == 0) return Qz::rcEndOfText;
    TokenStart = TextPos - 1;
    ClearToken();

    Qz::uint32_t r;
    switch (CurChar) {
    case ' ':
        return Qz::rcBadCharacter;
    case '0': case '1': case '2': case '3': case '4': case '5': case '6': case '7': case '8': case '9':
    case '+': case '-':
        r = ScanNumber();
        break;
    case '@':
        r = ScanVariable(ttVAR);
        break;
    case '^':
        r = ScanVariable(ttREF);
        break;
    case '#':
        r = ScanPrefixedKeyword(true, Qz::rcBadHashKeyword);
        break;
    case '$':
        r = ScanPrefixedKeyword(false, Qz::rcBadDollarKeyword);
        break;
    case '*':
        r = ScanPrefixedKeyword(false, Qz::rcBadStarKeyword);
        break;
    default:
        if (IsSeparatorChar(CurChar)) return Qz::rcBadCharacter;
        r = ScanName();
        break;
    }
    if (r != Qz::rcOK) return r;
    if (RegistersLabel(TokenCode) && !SuppressLabelRegistration) Labels.lookup(TokenText, TokenStart, TokenEnd, true);
    return Qz::rcOK;
}

Qz::uint32_t CQZ_STInterpretator_Execute::ScanName() {
    do {
        AppendToken(CurChar);
        if (!NextChar()) return EndOfText();
    } while (CurChar != ' ' && !IsSeparatorChar(CurChar));

    const uint8_t keyword = FindKeyword(TokenText);
    if (keyword != ttNONE) {
        TokenCode = keyword;
        if (CurChar == ':' && !NextChar()) return EndOfText();  // "MAIN:" is the MAIN keyword
    } else if (CurChar == ':') {
        if (!NextChar()) return EndOfText();
        TokenCode = ttLABEL;
    } else {
        TokenCode = ttNAME;
    }
    TokenEnd = TextPos - 2;
    return SkipWhiteOrEnd();
}

Qz::uint32_t CQZ_STInterpretator_Execute::ScanNumber() {
    double sign = 1.0;
    if (CurChar == '+' || CurChar == '-') {
        if (CurChar == '-') sign = -1.0;
        if (!NextChar()) return EndOfText();
    }
    if (!IsDigitChar(CurChar)) return Qz::rcBadNumber;

    Qz::uint32_t r;
    for (;;) {
        if (CurChar == '#') {
            AppendToken('#');
            if (!NextChar()) return EndOfText();
            r = GetFormatedDigit(TokenText, sign);
            break;
        }
        if (CurChar == '.') {
            if (TokenLength == 0) AppendToken('0');
            AppendToken('.');
            if (!NextChar()) return EndOfText();
            r = GetFloatDigit(TokenText, sign);
            break;
        }
        AppendToken(AsciiUpper(CurChar));
        if (!NextChar()) return EndOfText();
        if (!IsDigitChar(CurChar) && CurChar != '#' && CurChar != '.') {
            TokenCode = ttNUMBER;
            TokenEnd = TextPos - 2;
            char type;
            DigitValue = DecToDouble(TokenText, sign, type);
            DigitType = uint8_t(type);
            return SkipWhiteOrEnd();
        }
    }
    // The literal readers have already set CurChar to 0 at the end of the text.
    if (r == Qz::rcEndOfText) return EndOfText();
    return r;
}

Qz::uint32_t CQZ_STInterpretator_Execute::ScanVariable(uint8_t code) {
    if (!NextChar()) return EndOfText();
    if (!IsAlpha(CurChar)) return Qz::rcBadVarName;
    while (IsAlphaOrDigit(CurChar)) {
        AppendToken(AsciiUpper(CurChar));
        if (!NextChar()) return EndOfText();
    }
    TokenCode = code;
    TokenEnd = TextPos - 2;
    return SkipWhiteOrEnd();
}

Qz::uint32_t CQZ_STInterpretator_Execute::ScanPrefixedKeyword(bool digitsAllowed, Qz::uint32_t failure) {
    if (!NextChar()) return EndOfText();
    if (!IsAlpha(CurChar)) return failure;
    while (digitsAllowed ? IsAlphaOrDigit(CurChar) : IsAlpha(CurChar)) {
        AppendToken(AsciiUpper(CurChar));
        if (!NextChar()) return EndOfText();
    }
    const uint8_t keyword = FindKeyword(TokenText);
    if (keyword == ttNONE) return failure;
    TokenCode = keyword;
    TokenEnd = TextPos - 2;
    return SkipWhiteOrEnd();
}
