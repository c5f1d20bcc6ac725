// The lower layers of the interpreter object: the program text with the
// scanner's state and character classes (Base), and the numeric literal
// readers (Digit).
#ifndef QZ_ST_INTRPR_TEXT_H
#define QZ_ST_INTRPR_TEXT_H

#include "qz_tokens.h"

#include <string>

// One token as a scan at a given position yields it.
struct QZ_ScannedToken {
    int32_t Start = 0, End = 0;
    int32_t Next = -1;  // where the following token begins; -1 when the text ended
    uint8_t Code = 0;
    uint8_t NumberType = 0;
    double Number = 0.0;
    std::string Text;
};

// One declaration as the loader (the VAR section) and CAL (a subprogram's
// locals) read it: name, kind, type and its numbers.
struct QZ_DeclarationRead {
    bool Ended = false;  // MAIN (VAR section) or BODY (locals) stood where a name was expected
    char Name[kTokenBufferSize] = {};
    uint8_t NameCode = 0;  // the name token's code (any token names a declaration)
    int32_t NameStart = 0;
    char Kind = 0;
    char Type = 0;
    double Numbers[4] = {0.0, 0.0, 0.0, 0.0};
    int32_t NumberStart = 0;  // the first number's token
    int32_t NumberEnd = 0;
    uint8_t NumberType = 0;
};

class CQZ_STInterpretator_Base {
public:
    CQZ_STInterpretator_Base() = default;
    virtual ~CQZ_STInterpretator_Base() = default;

    // Skips blanks from CurChar on; 6 when only blanks remain (CurChar 0).
    Qz::uint32_t SkipWhite();
    // True for name characters other than digits (the NUL byte included).
    static bool IsAlpha(char c) { return c != ' ' && !IsDigitChar(c) && !IsSeparatorChar(c); }
    // True for name characters and digits.
    static bool IsAlphaOrDigit(char c) { return c != ' ' && !IsSeparatorChar(c); }

    // Scanner state: the current character is Text[TextPos - 1] unless the
    // end has been reached (CurChar 0).
    int32_t TextPos = 0;
    int32_t TokenStart = 0;
    int32_t TokenEnd = 0;
    char CurChar = 0;
    uint8_t TokenCode = ttNONE;  // anything but PROG, so an empty first text gives 19
    char TokenText[kTokenBufferSize] = {};
    int32_t TokenLength = 0;  // characters in TokenText; longer tokens are cut to fit
    char ProgramName[kTokenBufferSize] = {};
    std::string Text;
    int32_t TextLen = 0;
    // Changes whenever a new text is put in place: what was remembered about
    // the old one's positions no longer holds.
    uint32_t TextVersion = 0;

protected:
    // Reads the next character into CurChar; false at the end of the text
    // (CurChar is then left for the caller's end-of-text handling).
    bool NextChar() {
        if (TextPos >= TextLen) return false;
        CurChar = Text[static_cast<size_t>(TextPos++)];
        return true;
    }
    // Moves the scanner to text index `pos`; 6 (CurChar 0) past the end.
    Qz::uint32_t SeekTo(int64_t pos);

    void ClearToken() {
        TokenLength = 0;
        TokenText[0] = 0;
    }
    // Appends to TokenText, silently dropping what does not fit: a token of
    // more than 255 characters is read to its end but keeps only its first 255.
    void AppendToken(char c) {
        if (TokenLength < kNameLimit) TokenText[TokenLength++] = c;
        TokenText[TokenLength] = 0;
    }
    void AppendToken(const char* s) {
        while (*s) AppendToken(*s++);
    }
    void SetText(std::string text);
};

class CQZ_STInterpretator_Name : public CQZ_STInterpretator_Base {};

class CQZ_STInterpretator_Digit : public CQZ_STInterpretator_Name {
public:
    // Value of a decimal digit string times the sign; its ladder type in `type`.
    double DecToDouble(char* digits, double sign, char& type);
    // Reads the digits of a based integer ("16#", "8#", "2#" in TokenText).
    Qz::uint32_t GetFormatedDigit(char* buffer, double sign);
    // Reads the fraction and exponent of a real literal ("<digits>." in TokenText).
    Qz::uint32_t GetFloatDigit(char* buffer, double sign);

    double DigitValue = 0.0;
    uint8_t DigitType = 0;
    double TickValue = 0.0;
    uint32_t TickLast = 0;

private:
    // Appends the characters for which `accept` holds (upper-cased) to
    // `local`; 6 when the text ends among them.
    template <typename Accept>
    Qz::uint32_t CollectDigits(struct DigitBuffer& local, Accept accept);
    Qz::uint32_t DeliverReal(double sign);
};

// Integer ladder of a literal's value: SINT, INT, DINT, else UDINT.
char LadderType(int64_t value);
// REAL within +-3.4e38, else LREAL (also for NaN).
char RealType(double value);

#endif
