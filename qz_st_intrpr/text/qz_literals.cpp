// Reading the program text: blanks, seeking, and the numeric literals
// (decimal, based "16#"/"8#"/"2#", and real with fraction and exponent).
#include "qz_st_intrpr_text.h"

#include <clocale>
#include <cstdlib>
#include <cstring>
#include <limits>
#include <locale.h>

// A fixed buffer for the digits of one literal; digits beyond 255 are dropped.
struct DigitBuffer {
    char Text[kTokenBufferSize] = {};
    int Length = 0;
    void Append(char c) {
        if (Length < kNameLimit) Text[Length++] = c;
        Text[Length] = 0;
    }
    void Append(const char* s) {
        while (*s) Append(*s++);
    }
};

namespace {

// strtod in the "C" locale: a host that switched LC_NUMERIC to a locale with
// a decimal comma must not change what "2.5" means in a program.
double ParseReal(const char* text) {
    static const locale_t cLocale = newlocale(LC_ALL_MASK, "C", locale_t(nullptr));
    return strtod_l(text, nullptr, cLocale);
}

// Multiplies by the sign in wrapping 64-bit arithmetic: -(-2^63) stays -2^63.
int64_t ApplySign(uint64_t magnitude, double sign) {
    const uint64_t product = sign < 0 ? uint64_t(0) - magnitude : magnitude;
    int64_t result;
    std::memcpy(&result, &product, sizeof result);
    return result;
}

bool IsHexDigit(char c) {
    return IsDigitChar(c) || (c >= 'A' && c <= 'F') || (c >= 'a' && c <= 'f');
}
bool IsOctalDigit(char c) { return c >= '0' && c <= '7'; }
bool IsBinaryDigit(char c) { return c == '0' || c == '1'; }

}  // namespace

char LadderType(int64_t value) {
    if (value >= -128 && value <= 127) return char(ttSINT);
    if (value >= -32768 && value <= 32767) return char(ttINT);
    if (value >= std::numeric_limits<int32_t>::min() && value <= std::numeric_limits<int32_t>::max())
        return char(ttDINT);
    return char(ttUDINT);
}

char RealType(double value) { return (value >= -3.4e38 && value <= 3.4e38) ? char(ttREAL) : char(ttLREAL); }

// ---- Base: blanks, positions, text ----

Qz::uint32_t CQZ_STInterpretator_Base::SkipWhite() {
    while (CurChar == ' ') {
        if (!NextChar()) {
            CurChar = 0;
            return Qz::rcEndOfText;
        }
    }
    return Qz::rcOK;
}

Qz::uint32_t CQZ_STInterpretator_Base::SeekTo(int64_t pos) {
    TextPos = pos < 0 ? 0 : (pos > TextLen ? TextLen : int32_t(pos));
    if (pos < 0 || pos >= TextLen) {
        CurChar = 0;
        return Qz::rcEndOfText;
    }
    CurChar = Text[static_cast<size_t>(pos)];
    TextPos = int32_t(pos) + 1;
    return Qz::rcOK;
}

void CQZ_STInterpretator_Base::SetText(std::string text) {
    Text = std::move(text);
    ++TextVersion;
    // Positions are 32-bit: a text beyond 2 GiB is read up to that point only.
    TextLen = Text.size() > size_t(std::numeric_limits<int32_t>::max())
                  ? std::numeric_limits<int32_t>::max()
                  : int32_t(Text.size());
    TextPos = 0;
}

// ---- Digit: literals ----

double CQZ_STInterpretator_Digit::DecToDouble(char* digits, double sign, char& type) {
    char local[kTokenBufferSize];
    _qzcscpy(local, kNameLimit, digits);
    local[kNameLimit] = 0;
    // strtoull saturates beyond the range; the magnitude then saturates at
    // 2^63 - 1 the way a signed "%ld" conversion of a digit string does.
    uint64_t magnitude = std::strtoull(local, nullptr, 10);
    if (magnitude > uint64_t(std::numeric_limits<int64_t>::max()))
        magnitude = uint64_t(std::numeric_limits<int64_t>::max());
    const int64_t value = ApplySign(magnitude, sign);
    type = LadderType(value);
    return double(value);
}

template <typename Accept>
Qz::uint32_t CQZ_STInterpretator_Digit::CollectDigits(DigitBuffer& local, Accept accept) {
    while (accept(CurChar)) {
        local.Append(AsciiUpper(CurChar));
        if (!NextChar()) {
            CurChar = 0;
            return Qz::rcEndOfText;
        }
    }
    return Qz::rcOK;
}

Qz::uint32_t CQZ_STInterpretator_Digit::GetFormatedDigit(char* /*buffer: always TokenText*/, double sign) {
    struct Base {
        const char* Prefix;
        bool (*Accept)(char);
        Qz::uint32_t NoDigit;
    };
    static const Base bases[] = {{"16#", IsHexDigit, Qz::rcBadHexDigit},
                                 {"8#", IsOctalDigit, Qz::rcBadOctalDigit},
                                 {"2#", IsBinaryDigit, Qz::rcBadBinaryDigit}};
    const Base* base = nullptr;
    for (const Base& candidate : bases)
        if (std::strcmp(TokenText, candidate.Prefix) == 0) base = &candidate;
    if (!base) return Qz::rcBadNumber;
    if (!base->Accept(CurChar)) return base->NoDigit;

    DigitBuffer digits;
    if (Qz::uint32_t r = CollectDigits(digits, base->Accept)) return r;
    AppendToken(digits.Text);
    TokenCode = ttNUMBER;
    TokenEnd = TextPos - 2;

    // Beyond 64 bits the hexadecimal and octal forms saturate (as the "%lX"
    // and "%lo" conversions do); the binary form keeps its last 64 digits.
    const char* body = TokenText + std::strlen(base->Prefix);
    uint64_t value = 0;
    if (base->NoDigit == Qz::rcBadBinaryDigit) {
        const size_t n = std::strlen(body);
        for (size_t i = 0; i < n && i < 64; ++i)
            if (body[n - 1 - i] == '1') value |= uint64_t(1) << i;
    } else {
        value = std::strtoull(body, nullptr, base->NoDigit == Qz::rcBadHexDigit ? 16 : 8);
    }
    const int64_t signedValue = ApplySign(value, sign);
    DigitValue = double(signedValue);
    DigitType = uint8_t(LadderType(signedValue));
    return SkipWhite();
}

Qz::uint32_t CQZ_STInterpretator_Digit::DeliverReal(double sign) {
    TokenCode = ttNUMBER;
    TokenEnd = TextPos - 2;
    DigitValue = ParseReal(TokenText) * sign;
    DigitType = uint8_t(RealType(DigitValue));
    return SkipWhite();
}

Qz::uint32_t CQZ_STInterpretator_Digit::GetFloatDigit(char* /*buffer: always TokenText*/, double sign) {
    DigitBuffer fraction;
    if (Qz::uint32_t r = CollectDigits(fraction, IsDigitChar)) return r;
    if ((CurChar & ~0x20) != 'E') {
        if (fraction.Length == 0) fraction.Append('0');  // "12." reads as "12.0"
        AppendToken(fraction.Text);
        return DeliverReal(sign);
    }
    fraction.Append('E');  // "12.E3" stays so: no "0" before the exponent
    if (!NextChar()) {
        CurChar = 0;
        return Qz::rcEndOfText;
    }
    AppendToken(fraction.Text);

    DigitBuffer exponent;
    if (Qz::uint32_t r = CollectDigits(exponent, IsDigitChar)) return r;
    if (CurChar == '+' || CurChar == '-') {
        // The sign is accepted behind exponent digits too ("1.5E2-3"); strtod
        // then stops at it. A '+' is dropped, a '-' kept.
        if (CurChar == '-') exponent.Append('-');
        if (!NextChar()) {
            CurChar = 0;
            return Qz::rcEndOfText;
        }
        AppendToken(exponent.Text);
        DigitBuffer more;
        if (Qz::uint32_t r = CollectDigits(more, IsDigitChar)) return r;
        AppendToken(more.Text);
    } else {
        AppendToken(exponent.Text);
    }
    return DeliverReal(sign);
}
