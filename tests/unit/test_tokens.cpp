// The keyword table and its lookup, the character classes, SkipWhite, and the
// bounded string copies behind every name buffer.
#include "test_machine.h"

#include <gtest/gtest.h>

#include <clocale>
#include <cstddef>
#include <cstring>
#include <iterator>
#include <set>
#include <string>
#include <vector>

namespace {

struct KeywordRow {
    int Index;
    unsigned Code;
    const char* Name;
};

// Hosts read the exported table by index, so every row is fixed.
const KeywordRow kKeywords[] = {
    {0, 0x10, "PROG"},   {1, 0x11, "VAR"},    {2, 0x12, "MAIN"},   {3, 0x13, "BODY"},
    {4, 0x14, "V"},      {5, 0x15, "VI"},     {6, 0x16, "VO"},     {7, 0x17, "VIO"},
    {8, 0x18, "VG"},     {9, 0x19, "TVG"},    {10, 0x1a, "TVR"},   {11, 0x1b, "VA"},
    {12, 0x1c, "VR"},    {13, 0x20, "BOOL"},  {14, 0x21, "SINT"},  {15, 0x22, "USINT"},
    {16, 0x23, "INT"},   {17, 0x24, "UINT"},  {18, 0x25, "DINT"},  {19, 0x26, "UDINT"},
    {20, 0x27, "REAL"},  {21, 0x28, "LREAL"}, {22, 0x29, "STRING"}, {23, 0x2a, "ARRAY"},
    {24, 0x31, "CAL"},   {25, 0x32, "EXEC"},  {26, 0x33, "JMP"},   {27, 0x34, "JMPF"},
    {28, 0x35, "JMPT"},  {29, 0x36, "MOV"},   {30, 0x37, "MOVA"},  {31, 0x38, "ADD"},
    {32, 0x39, "SUB"},   {33, 0x3a, "MUL"},   {34, 0x3b, "DIV"},   {35, 0x3c, "MOD"},
    {36, 0x3d, "NE"},    {37, 0x3e, "EQ"},    {38, 0x3f, "GT"},    {39, 0x40, "GE"},
    {40, 0x41, "LT"},    {41, 0x42, "LE"},    {42, 0x43, "TST"},   {43, 0x44, "OR"},
    {44, 0x45, "XOR"},   {45, 0x46, "AND"},   {46, 0x47, "NOT"},   {47, 0x48, "BOR"},
    {48, 0x49, "BXOR"},  {49, 0x4a, "BAND"},  {50, 0x4b, "BNOT"},  {51, 0x4c, "NG"},
    {52, 0x4d, "SHL"},   {53, 0x4e, "SHR"},   {54, 0x4f, "ROL"},   {55, 0x50, "ROR"},
    {56, 0x51, "POW"},   {57, 0x52, "RET"},   {58, 0x81, "A0"},    {59, 0x82, "R0"},
    {60, 0x83, "R1"},    {61, 0x84, "NIL"},   {62, 0x91, "PUSH"},  {63, 0x92, "POP"},
    {64, 0xa1, "TICK"},
};

std::string Lower(std::string s) {
    for (char& c : s)
        if (c >= 'A' && c <= 'Z') c = char(c - 'A' + 'a');
    return s;
}

// The lookup the table is defined by: exact comparison, last entry first.
unsigned ClassicLookup(const char* text) {
    for (int i = kKeywordCount - 1; i >= 0; --i)
        if (std::strcmp(TokensTable[i].Name, text) == 0) return TokensTable[i].Code;
    return 0;
}

// ---- The exported table ----

TEST(KeywordTable, HasSixtyFiveEntriesOf256Bytes) {
    EXPECT_EQ(kKeywordCount, 65);
    EXPECT_EQ(std::size(TokensTable), 65u);
    EXPECT_EQ(sizeof(QZ_Token), 256u);
    EXPECT_EQ(offsetof(QZ_Token, Code), 0u);
    EXPECT_EQ(offsetof(QZ_Token, Name), 1u);
    EXPECT_EQ(sizeof(QZ_Token::Name), 255u);
    EXPECT_EQ(sizeof(TokensTable), 16640u);
    ASSERT_EQ(std::size(kKeywords), 65u);
}

TEST(KeywordTable, EveryEntryHasItsIndexCodeAndZeroPaddedName) {
    for (const KeywordRow& row : kKeywords) {
        SCOPED_TRACE(row.Name);
        const QZ_Token& entry = TokensTable[row.Index];
        EXPECT_EQ(unsigned(entry.Code), row.Code);
        EXPECT_STREQ(entry.Name, row.Name);
        // Every byte behind the name is zero, not only the terminator.
        for (size_t i = std::strlen(row.Name); i < sizeof entry.Name; ++i) EXPECT_EQ(entry.Name[i], 0) << i;
    }
}

TEST(KeywordTable, CodesAndNamesAreUniqueAndOutsideTheScannerCodes) {
    std::set<unsigned> codes;
    std::set<std::string> names;
    for (const QZ_Token& entry : TokensTable) {
        codes.insert(entry.Code);
        names.insert(entry.Name);
        EXPECT_GE(entry.Code, 0x10u) << entry.Name;  // 0x00..0x0f belong to the scanner
        EXPECT_NE(entry.Code, 0x53u) << entry.Name;  // ttEND
    }
    EXPECT_EQ(codes.size(), 65u);
    EXPECT_EQ(names.size(), 65u);
}

TEST(KeywordTable, ScannerCodesAndKeywordEnumeratorsHaveTheirValues) {
    EXPECT_EQ(ttLABEL, 2);
    EXPECT_EQ(ttNAME, 3);
    EXPECT_EQ(ttNUMBER, 4);
    EXPECT_EQ(ttVAR, 5);
    EXPECT_EQ(ttREF, 6);
    EXPECT_EQ(ttEND, 0x53);
    EXPECT_EQ(ttEND, ttRET + 1);
    EXPECT_EQ(ttPROG, 0x10);
    EXPECT_EQ(ttVARSECTION, 0x11);
    EXPECT_EQ(ttMAIN, 0x12);
    EXPECT_EQ(ttBODY, 0x13);
    EXPECT_EQ(ttV, 0x14);
    EXPECT_EQ(ttVR, 0x1c);
    EXPECT_EQ(ttBOOL, 0x20);
    EXPECT_EQ(ttLREAL, 0x28);
    EXPECT_EQ(ttCAL, 0x31);
    EXPECT_EQ(ttRET, 0x52);
    EXPECT_EQ(ttA0, 0x81);
    EXPECT_EQ(ttNIL, 0x84);
    EXPECT_EQ(ttPUSH, 0x91);
    EXPECT_EQ(ttPOP, 0x92);
    EXPECT_EQ(ttTICK, 0xa1);
}

// ---- Keyword lookup ----

TEST(KeywordLookup, EveryNameGivesItsCode) {
    for (const KeywordRow& row : kKeywords) EXPECT_EQ(unsigned(FindKeyword(row.Name)), row.Code) << row.Name;
}

TEST(KeywordLookup, IsCaseSensitive) {
    EXPECT_EQ(FindKeyword("MOV"), 0x36);
    EXPECT_EQ(FindKeyword("mov"), ttNONE);
    EXPECT_EQ(FindKeyword("Mov"), ttNONE);
    EXPECT_EQ(FindKeyword("moV"), ttNONE);
    for (const KeywordRow& row : kKeywords) {
        EXPECT_EQ(FindKeyword(Lower(row.Name).c_str()), ttNONE) << row.Name;
        std::string mixed = row.Name;
        mixed.back() = Lower(std::string(1, mixed.back()))[0];
        if (mixed != row.Name) {
            EXPECT_EQ(FindKeyword(mixed.c_str()), ttNONE) << mixed;
        }
    }
}

TEST(KeywordLookup, OnlyWholeNamesMatch) {
    const char* misses[] = {"",     "M",       "MO",     "MOVE",  "MOV ",   " MOV",   "RETX", "PRO",
                            "PROGR", "STRINGS", "TICKS",  "A1",    "R2",     "ARRAYX", "VAR:", "MAIN:",
                            "V0",   "ABCDEFGHI", "LONGERTHANANYKEYWORD"};
    for (const char* text : misses) EXPECT_EQ(FindKeyword(text), ttNONE) << '"' << text << '"';
    EXPECT_EQ(FindKeyword("RET"), 0x52);  // never ttEND: that is the scanner's
}

TEST(KeywordLookup, AgreesWithASearchOfTheExportedTable) {
    // Every string of one to three characters over an alphabet that spells
    // the short keywords, plus every keyword, its prefixes and extensions.
    const std::string alphabet = "ABCDEGHILMNOPRSTUVWXYZ01a";
    std::vector<std::string> probes;
    for (char a : alphabet) {
        probes.push_back(std::string(1, a));
        for (char b : alphabet) {
            probes.push_back(std::string{a, b});
            for (char c : alphabet) probes.push_back(std::string{a, b, c});
        }
    }
    for (const KeywordRow& row : kKeywords) {
        const std::string name = row.Name;
        for (size_t n = 0; n <= name.size(); ++n) probes.push_back(name.substr(0, n));
        probes.push_back(name + "X");
        probes.push_back(name + name);
    }
    for (const std::string& probe : probes)
        ASSERT_EQ(unsigned(FindKeyword(probe.c_str())), ClassicLookup(probe.c_str())) << probe;
}

TEST(KeywordLookup, ScannerFindsBareKeywordsAsWrittenOnly) {
    for (const KeywordRow& row : kKeywords) {
        TestMachine m;
        m.SetProgram(std::string(row.Name) + " X");
        ASSERT_EQ(m.Scan(m.TokenText), 0u) << row.Name;
        EXPECT_EQ(unsigned(m.TokenCode), row.Code) << row.Name;
        EXPECT_STREQ(m.TokenText, row.Name);

        const std::string lower = Lower(row.Name);
        m.SetProgram(lower + " X");
        ASSERT_EQ(m.Scan(m.TokenText), 0u) << lower;
        EXPECT_EQ(m.TokenCode, ttNAME) << lower;
        EXPECT_STREQ(m.TokenText, lower.c_str());
    }
}

// ---- Character classes ----

// One character per byte value, 16 to a row: 'a' a name character other
// than a digit, 'd' a digit, 's' a separator, 'w' the blank.
const char* const kClassMap[16] = {
    "aaaaaaaaaaaaaaaa",  // 0x00: control characters, NUL, tab, CR and LF included
    "aaaaaaaaaaaaaaaa",  // 0x10
    "wsssssssaassasas",  //  !"#$%&'()*+,-./
    "ddddddddddsassss",  // 0123456789:;<=>?
    "saaaaaaaaaaaaaaa",  // @A-O
    "aaaaaaaaaaaaaasa",  // P-Z [\]^_
    "aaaaaaaaaaaaaaaa",  // `a-o
    "aaaaaaaaaaaasasa",  // p-z {|}~ DEL
    "aaaaaaaaaaaaaaaa",  // 0x80 and up: every byte belongs to names
    "aaaaaaaaaaaaaaaa", "aaaaaaaaaaaaaaaa", "aaaaaaaaaaaaaaaa", "aaaaaaaaaaaaaaaa",
    "aaaaaaaaaaaaaaaa", "aaaaaaaaaaaaaaaa", "aaaaaaaaaaaaaaaa",
};

char ClassOf(int byte) { return kClassMap[byte / 16][byte % 16]; }

void ExpectClassMap() {
    for (int byte = 0; byte < 256; ++byte) {
        const char c = static_cast<char>(static_cast<unsigned char>(byte));
        const char cls = ClassOf(byte);
        SCOPED_TRACE(::testing::Message() << "byte 0x" << std::hex << byte);
        EXPECT_EQ(CQZ_STInterpretator_Base::IsAlpha(c), cls == 'a');
        EXPECT_EQ(CQZ_STInterpretator_Base::IsAlphaOrDigit(c), cls == 'a' || cls == 'd');
        EXPECT_EQ(IsSeparatorChar(c), cls == 's');
        EXPECT_EQ(IsDigitChar(c), cls == 'd');
    }
}

TEST(CharacterClasses, TableCountsMatchTheLanguage) {
    int separators = 0, digits = 0, blanks = 0;
    for (int byte = 0; byte < 256; ++byte) {
        separators += ClassOf(byte) == 's';
        digits += ClassOf(byte) == 'd';
        blanks += ClassOf(byte) == 'w';
    }
    EXPECT_EQ(separators, 20);  // seventeen printable ones, then | ^ ~
    EXPECT_EQ(digits, 10);
    EXPECT_EQ(blanks, 1);
    for (char c : std::string("!\"#$%&'*+-/:<=>?@|^~")) EXPECT_EQ(ClassOf(static_cast<unsigned char>(c)), 's') << c;
}

TEST(CharacterClasses, EveryByteInTheCLocale) {
    const std::string saved = std::setlocale(LC_ALL, nullptr);
    std::setlocale(LC_ALL, "C");
    ExpectClassMap();
    std::setlocale(LC_ALL, saved.c_str());
}

TEST(CharacterClasses, EveryByteWhateverTheLocale) {
    const std::string saved = std::setlocale(LC_ALL, nullptr);
    bool tried = false;
    for (const char* name : {"C.UTF-8", "C.utf8", "en_US.UTF-8", "de_DE.UTF-8", "ru_RU.UTF-8", "tr_TR.UTF-8"}) {
        if (!std::setlocale(LC_ALL, name)) continue;
        tried = true;
        SCOPED_TRACE(name);
        ExpectClassMap();
    }
    std::setlocale(LC_ALL, saved.c_str());
    if (!tried) GTEST_SKIP() << "no locale besides C is installed";
}

TEST(CharacterClasses, NamedCases) {
    using B = CQZ_STInterpretator_Base;
    for (char c : {'_', '.', ',', '\t', 'A', 'z', ';', '(', ')', '[', ']', '{', '}', '\\', '`', '\r', '\n', '\0'})
        EXPECT_TRUE(B::IsAlpha(c)) << int(c);
    for (char c : {'7', '0', '9', '+', '~', ' ', '^', '|', '@', '#', '$', '*', ':', '-', '!'})
        EXPECT_FALSE(B::IsAlpha(c)) << int(c);
    EXPECT_TRUE(B::IsAlphaOrDigit('7'));
    EXPECT_TRUE(B::IsAlphaOrDigit('_'));
    EXPECT_TRUE(B::IsAlpha(char(0xFF)));
    EXPECT_TRUE(B::IsAlpha(char(0x80)));
    // Bytes that equal ^ or ~ once bit 0x20 is cleared, but only within 7 bits.
    EXPECT_TRUE(B::IsAlpha(char(0xDE)));
    EXPECT_TRUE(B::IsAlpha(char(0xFE)));
    EXPECT_FALSE(B::IsAlphaOrDigit(' '));
    EXPECT_FALSE(B::IsAlphaOrDigit('~'));
}

// ---- SkipWhite ----

struct SkipCase {
    const char* Text;
    int Start;  // text index of the current character
    Qz::uint32_t Result;
    char Cur;
    int Pos;
};

TEST(SkipWhite, Cases) {
    const SkipCase cases[] = {
        {"   ", 0, 6, 0, 3},      // only blanks remain: end of text
        {" ", 0, 6, 0, 1},        //
        {"A   ", 1, 6, 0, 4},     // blanks behind a token up to the end
        {"  X", 0, 0, 'X', 3},    //
        {"A    B C", 1, 0, 'B', 6},
        {"X  ", 0, 0, 'X', 1},    // not a blank: nothing moves
        {"\tX", 0, 0, '\t', 1},   // a tab is no white space
        {"\n X", 0, 0, '\n', 1},  //
        {"\r X", 0, 0, '\r', 1},  //
        {" \tX", 0, 0, '\t', 2},  //
    };
    for (const SkipCase& c : cases) {
        SCOPED_TRACE(::testing::Message() << '"' << c.Text << "\" at " << c.Start);
        TestMachine m;
        m.SetProgram(c.Text);
        ASSERT_EQ(m.Seek(c.Start), 0u);
        EXPECT_EQ(m.SkipWhite(), c.Result);
        EXPECT_EQ(m.CurChar, c.Cur);
        EXPECT_EQ(m.TextPos, c.Pos);
    }
}

TEST(SkipWhite, AtTheEndAlreadyChangesNothing) {
    TestMachine m;
    m.SetProgram("AB");
    ASSERT_EQ(m.Seek(2), 6u);
    EXPECT_EQ(m.CurChar, 0);
    EXPECT_EQ(m.SkipWhite(), 0u);  // CurChar 0 is not a blank
    EXPECT_EQ(m.CurChar, 0);
    EXPECT_EQ(m.TextPos, 2);
}

TEST(SkipWhite, LeavesTheTokenFieldsAlone) {
    TestMachine m;
    m.SetProgram("A   B");
    ASSERT_EQ(m.Seek(1), 0u);
    std::strcpy(m.TokenText, "KEEP");
    m.TokenStart = 7;
    m.TokenEnd = 8;
    m.TokenCode = ttMOV;
    EXPECT_EQ(m.SkipWhite(), 0u);
    EXPECT_STREQ(m.TokenText, "KEEP");
    EXPECT_EQ(m.TokenStart, 7);
    EXPECT_EQ(m.TokenEnd, 8);
    EXPECT_EQ(m.TokenCode, ttMOV);
}

// ---- _qzcscpy / _qzcscat ----

constexpr size_t kArena = 640;
constexpr char kFill = '\x5a';

std::vector<std::string> Sources() {
    return {"", "a", "ab", "abc", "abcdef", std::string(254, 's'), std::string(255, 't'), std::string(256, 'u'),
            std::string(300, 'v')};
}
const unsigned long kCounts[] = {0, 1, 2, 3, 4, 6, 7, 10, 254, 255, 256, 300};

TEST(BoundedCopy, CpyBehavesExactlyLikeStrncpy) {
    for (const std::string& src : Sources()) {
        for (unsigned long n : kCounts) {
            SCOPED_TRACE(::testing::Message() << "source " << src.size() << " n " << n);
            char ours[kArena], reference[kArena];
            std::memset(ours, kFill, kArena);
            std::memset(reference, kFill, kArena);
            EXPECT_EQ(_qzcscpy(ours, n, src.c_str()), ours);
            std::strncpy(reference, src.c_str(), n);
            EXPECT_EQ(std::memcmp(ours, reference, kArena), 0);
        }
    }
}

TEST(BoundedCopy, CatBehavesExactlyLikeStrncat) {
    for (const std::string& prefix : {std::string(), std::string("xy"), std::string(200, 'p')}) {
        for (const std::string& src : Sources()) {
            for (unsigned long n : kCounts) {
                SCOPED_TRACE(::testing::Message() << "prefix " << prefix.size() << " source " << src.size()
                                                  << " n " << n);
                char ours[kArena], reference[kArena];
                std::memset(ours, kFill, kArena);
                std::memcpy(ours, prefix.c_str(), prefix.size() + 1);
                std::memcpy(reference, ours, kArena);
                EXPECT_EQ(_qzcscat(ours, n, src.c_str()), ours);
                std::strncat(reference, src.c_str(), n);
                EXPECT_EQ(std::memcmp(ours, reference, kArena), 0);
            }
        }
    }
}

TEST(BoundedCopy, CpyOfExactlyNCharactersLeavesNoTerminator) {
    char dest[8];
    std::memset(dest, kFill, sizeof dest);
    _qzcscpy(dest, 3, "abc");
    EXPECT_EQ(std::string(dest, 3), "abc");
    EXPECT_EQ(dest[3], kFill);  // untouched: no terminator
    std::memset(dest, kFill, sizeof dest);
    _qzcscpy(dest, 3, "abcdef");
    EXPECT_EQ(std::string(dest, 3), "abc");
    EXPECT_EQ(dest[3], kFill);
}

TEST(BoundedCopy, CpyPadsShortSourcesToN) {
    char dest[8];
    std::memset(dest, kFill, sizeof dest);
    _qzcscpy(dest, 6, "ab");
    const char expected[8] = {'a', 'b', 0, 0, 0, 0, kFill, kFill};
    EXPECT_EQ(std::memcmp(dest, expected, sizeof dest), 0);
}

TEST(BoundedCopy, CatAppendsAtMostNAndAlwaysTerminates) {
    char dest[10];
    std::memset(dest, kFill, sizeof dest);
    std::memcpy(dest, "xy", 3);
    _qzcscat(dest, 3, "abcdef");  // n + 1 bytes written: three characters and a NUL
    const char expected[10] = {'x', 'y', 'a', 'b', 'c', 0, kFill, kFill, kFill, kFill};
    EXPECT_EQ(std::memcmp(dest, expected, sizeof dest), 0);

    std::memset(dest, kFill, sizeof dest);
    std::memcpy(dest, "xy", 3);
    _qzcscat(dest, 5, "ab");  // no padding, unlike the copy
    const char shorter[10] = {'x', 'y', 'a', 'b', 0, kFill, kFill, kFill, kFill, kFill};
    EXPECT_EQ(std::memcmp(dest, shorter, sizeof dest), 0);

    std::memset(dest, kFill, sizeof dest);
    std::memcpy(dest, "xy", 3);
    _qzcscat(dest, 0, "ab");
    EXPECT_STREQ(dest, "xy");
    EXPECT_EQ(dest[3], kFill);
}

TEST(BoundedCopy, NameLimitCopyOfALongSourceIsUnterminated) {
    const std::string source(300, 'n');
    char dest[kTokenBufferSize + 1];
    std::memset(dest, kFill, sizeof dest);
    _qzcscpy(dest, kNameLimit, source.c_str());
    EXPECT_EQ(std::string(dest, kNameLimit), std::string(kNameLimit, 'n'));
    EXPECT_EQ(dest[kNameLimit], kFill);
}

}  // namespace
