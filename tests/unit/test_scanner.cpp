// The token scanner: kinds of token, positions, result codes, the end of the
// text, label registration, and tokens far longer than the token buffer.
#include "test_machine.h"

#include <gtest/gtest.h>

#include <cstring>
#include <string>
#include <vector>

namespace {

// ---- Kinds of token and the state they leave ----

struct TokenCase {
    std::string Text;
    uint8_t Code;
    std::string Token;
    int Start, End;
    char Cur;
    int Pos;
};

void ExpectToken(const TokenCase& c) {
    SCOPED_TRACE(::testing::Message() << '"' << c.Text << '"');
    TestMachine m;
    m.SetProgram(c.Text);
    ASSERT_EQ(m.Scan(m.TokenText), 0u);
    EXPECT_EQ(unsigned(m.TokenCode), unsigned(c.Code));
    EXPECT_EQ(std::string(m.TokenText), c.Token);
    EXPECT_EQ(m.TokenStart, c.Start);
    EXPECT_EQ(m.TokenEnd, c.End);
    EXPECT_EQ(m.CurChar, c.Cur);
    EXPECT_EQ(m.TextPos, c.Pos);
}

TEST(ScanToken, BareNamesAndKeywords) {
    const TokenCase cases[] = {
        {"MOV @A", ttMOV, "MOV", 0, 2, '@', 5},
        {"mov @A", ttNAME, "mov", 0, 2, '@', 5},
        {"Mov @A", ttNAME, "Mov", 0, 2, '@', 5},
        {"MOVE X", ttNAME, "MOVE", 0, 3, 'X', 6},
        {"RET X", ttRET, "RET", 0, 2, 'X', 5},  // not the last token: a plain RET
        {"PROG X", ttPROG, "PROG", 0, 3, 'X', 6},
        {"VAR X", ttVARSECTION, "VAR", 0, 2, 'X', 5},
        {"BODY X", ttBODY, "BODY", 0, 3, 'X', 6},
        {"R0     X", ttR0, "R0", 0, 1, 'X', 8},
        {"_x X", ttNAME, "_x", 0, 1, 'X', 4},
        {".5 X", ttNAME, ".5", 0, 1, 'X', 4},  // a leading point begins a name
        {"(a)[b]{c} X", ttNAME, "(a)[b]{c}", 0, 8, 'X', 11},
        {", X", ttNAME, ",", 0, 0, 'X', 3},
        {"A\nB X", ttNAME, "A\nB", 0, 2, 'X', 5},
        {"MOV\t@A", ttNAME, "MOV\t", 0, 3, '@', 5},  // a tab is a name character
        {"\xD0\xA1\xD1\x87 X", ttNAME, "\xD0\xA1\xD1\x87", 0, 3, 'X', 6},
        {"A!B", ttNAME, "A", 0, 0, '!', 2},
        {"A+B", ttNAME, "A", 0, 0, '+', 2},
        {"A9 X", ttNAME, "A9", 0, 1, 'X', 4},
    };
    for (const TokenCase& c : cases) ExpectToken(c);
}

TEST(ScanToken, LabelsAndColons) {
    const TokenCase cases[] = {
        {"LOOP: MOV", ttLABEL, "LOOP", 0, 4, 'M', 7},
        {"LOOP:MOV", ttLABEL, "LOOP", 0, 4, 'M', 6},
        {"LOOP : X", ttNAME, "LOOP", 0, 3, ':', 6},  // the ':' counts only right behind the name
        {"MAIN: MOV", ttMAIN, "MAIN", 0, 4, 'M', 7},
        {"MAIN MOV", ttMAIN, "MAIN", 0, 3, 'M', 6},
        {"MOV:X", ttMOV, "MOV", 0, 3, 'X', 5},  // a keyword keeps its code
        {"main: X", ttLABEL, "main", 0, 4, 'X', 7},
    };
    for (const TokenCase& c : cases) ExpectToken(c);
}

TEST(ScanToken, VariablesAndReferences) {
    const TokenCase cases[] = {
        {"@counter X", ttVAR, "COUNTER", 0, 7, 'X', 10},
        {"^ref X", ttREF, "REF", 0, 3, 'X', 6},
        {"@A.B X", ttVAR, "A.B", 0, 3, 'X', 6},
        {"@A,B X", ttVAR, "A,B", 0, 3, 'X', 6},
        {"@X,Y X", ttVAR, "X,Y", 0, 3, 'X', 6},
        {"@x1_y2 X", ttVAR, "X1_Y2", 0, 5, 'X', 8},
        {"@X+1", ttVAR, "X", 0, 1, '+', 3},
        {"@_ X", ttVAR, "_", 0, 1, 'X', 4},
        {"@\t X", ttVAR, "\t", 0, 1, 'X', 4},
        // Only ASCII letters are upper-cased; other bytes stay as written.
        {"@\xD1\x81\xD1\x87 X", ttVAR, "\xD1\x81\xD1\x87", 0, 4, 'X', 7},
        {"@MOV X", ttVAR, "MOV", 0, 3, 'X', 6},
    };
    for (const TokenCase& c : cases) ExpectToken(c);
}

TEST(ScanToken, PrefixedKeywords) {
    const TokenCase cases[] = {
        {"#MAIN MOV", ttMAIN, "MAIN", 0, 4, 'M', 7},
        {"#main MOV", ttMAIN, "MAIN", 0, 4, 'M', 7},
        {"#MOV X", ttMOV, "MOV", 0, 3, 'X', 6},
        {"$MOV @A", ttMOV, "MOV", 0, 3, '@', 6},
        {"*MOV @A", ttMOV, "MOV", 0, 3, '@', 6},
        {"$mov X", ttMOV, "MOV", 0, 3, 'X', 6},
        {"*Mov X", ttMOV, "MOV", 0, 3, 'X', 6},
        {"#R0 X", ttR0, "R0", 0, 2, 'X', 5},  // '#' keeps digits
        {"#a0 X", ttA0, "A0", 0, 2, 'X', 5},
        {"#r1 X", ttR1, "R1", 0, 2, 'X', 5},
        {"$MOV2 X", ttMOV, "MOV", 0, 3, '2', 5},  // '$' and '*' stop at a digit
        {"*MOV2 X", ttMOV, "MOV", 0, 3, '2', 5},
        {"$RET X", ttRET, "RET", 0, 3, 'X', 6},
        {"#VAR X", ttVARSECTION, "VAR", 0, 3, 'X', 6},
        {"#TICK X", ttTICK, "TICK", 0, 4, 'X', 7},
    };
    for (const TokenCase& c : cases) ExpectToken(c);
}

TEST(ScanToken, Numbers) {
    const TokenCase cases[] = {
        {"-12 X", ttNUMBER, "12", 0, 2, 'X', 5},
        {"+7 X", ttNUMBER, "7", 0, 1, 'X', 4},
        {"12AB", ttNUMBER, "12", 0, 1, 'A', 3},
        {"3.5 X", ttNUMBER, "3.5", 0, 2, 'X', 5},
        {"16#ff X", ttNUMBER, "16#FF", 0, 4, 'X', 7},
        {"1.5e-3 X", ttNUMBER, "1.5E-3", 0, 5, 'X', 8},
        {"5    X", ttNUMBER, "5", 0, 0, 'X', 6},
    };
    for (const TokenCase& c : cases) ExpectToken(c);
}

TEST(ScanToken, NegativeNumberStartsAtTheSign) {
    TestMachine m;
    m.SetProgram("MOV -12 R0");
    ASSERT_EQ(m.Scan(m.TokenText), 0u);
    ASSERT_EQ(m.Scan(m.TokenText), 0u);
    EXPECT_EQ(m.TokenCode, ttNUMBER);
    EXPECT_EQ(m.DigitValue, -12.0);
    EXPECT_EQ(m.DigitType, ttSINT);
    EXPECT_EQ(m.TokenStart, 4);
    EXPECT_EQ(m.TokenEnd, 6);
    EXPECT_EQ(m.CurChar, 'R');
}

TEST(ScanToken, PrefixedTokensStartAtTheirPrefix) {
    TestMachine m;
    m.SetProgram("X  @V  ^W  #MOV  $NIL  *POP  Y");
    const int starts[] = {0, 3, 7, 11, 17, 23, 29};
    const int ends[] = {0, 4, 8, 14, 20, 26, 29};
    for (int i = 0; i < 6; ++i) {
        ASSERT_EQ(m.Scan(m.TokenText), 0u) << i;
        EXPECT_EQ(m.TokenStart, starts[i]) << i;
        EXPECT_EQ(m.TokenEnd, ends[i]) << i;
    }
}

TEST(ScanSequence, InstructionWithOperandsToTheFinalRet) {
    TestMachine m;
    m.SetProgram("MOV @A 5 RET");
    struct Step {
        uint8_t Code;
        const char* Token;
        int Start, End;
        char Cur;
        int Pos;
    };
    const Step steps[] = {
        {ttMOV, "MOV", 0, 2, '@', 5},
        {ttVAR, "A", 4, 5, '5', 8},
        {ttNUMBER, "5", 7, 7, 'R', 10},
    };
    for (const Step& s : steps) {
        SCOPED_TRACE(s.Token);
        ASSERT_EQ(m.Scan(m.TokenText), 0u);
        EXPECT_EQ(unsigned(m.TokenCode), unsigned(s.Code));
        EXPECT_STREQ(m.TokenText, s.Token);
        EXPECT_EQ(m.TokenStart, s.Start);
        EXPECT_EQ(m.TokenEnd, s.End);
        EXPECT_EQ(m.CurChar, s.Cur);
        EXPECT_EQ(m.TextPos, s.Pos);
    }
    EXPECT_EQ(m.DigitValue, 5.0);
    ASSERT_EQ(m.Scan(m.TokenText), 0u);
    EXPECT_EQ(m.TokenCode, ttEND);
    EXPECT_STREQ(m.TokenText, "RET");
    EXPECT_EQ(m.TokenStart, 9);
    EXPECT_EQ(m.CurChar, 0);
    EXPECT_EQ(m.TextPos, 12);
    // Past the end nothing more is read.
    EXPECT_EQ(m.Scan(m.TokenText), 6u);
    EXPECT_EQ(m.TokenCode, ttEND);
    EXPECT_STREQ(m.TokenText, "RET");
}

TEST(ScanSequence, TabJoinsAKeywordToTheNameBeforeTheVariable) {
    TestMachine m;
    m.SetProgram("MOV\t@A RET");
    ASSERT_EQ(m.Scan(m.TokenText), 0u);
    EXPECT_EQ(m.TokenCode, ttNAME);
    EXPECT_EQ(std::string(m.TokenText), "MOV\t");
    EXPECT_EQ(std::strlen(m.TokenText), 4u);
    ASSERT_EQ(m.Scan(m.TokenText), 0u);
    EXPECT_EQ(m.TokenCode, ttVAR);
    EXPECT_STREQ(m.TokenText, "A");
}

TEST(ScanSequence, NameBeforeASpacedColonThenNine) {
    TestMachine m;
    m.SetProgram("LOOP : X");
    ASSERT_EQ(m.Scan(m.TokenText), 0u);
    EXPECT_EQ(m.TokenCode, ttNAME);
    EXPECT_EQ(m.Scan(m.TokenText), 9u);
    EXPECT_EQ(m.CurChar, ':');
    EXPECT_EQ(m.TextPos, 6);
    EXPECT_EQ(m.Labels.size(), 0);
}

TEST(ScanSequence, LabelWithoutABlankBeforeTheNextToken) {
    TestMachine m;
    m.SetProgram("ABC:DEF X");
    ASSERT_EQ(m.Scan(m.TokenText), 0u);
    EXPECT_EQ(m.TokenCode, ttLABEL);
    EXPECT_STREQ(m.TokenText, "ABC");
    ASSERT_EQ(m.Scan(m.TokenText), 0u);
    EXPECT_EQ(m.TokenCode, ttNAME);
    EXPECT_STREQ(m.TokenText, "DEF");
}

TEST(ScanSequence, SeparatorEndsANameAndIsRefusedNext) {
    TestMachine m;
    m.SetProgram("A!B");
    ASSERT_EQ(m.Scan(m.TokenText), 0u);
    EXPECT_EQ(m.Scan(m.TokenText), 9u);
}

// ---- Result codes ----

struct CodeCase {
    std::string Text;
    Qz::uint32_t Result;
};

TEST(ScanResult, EveryCode) {
    const CodeCase cases[] = {
        // 6: nothing left, or a token cut off by the end of the text.
        {"", 6},
        {"MOV", 6},
        {"@A", 6},
        {"12", 6},
        {"#MOV", 6},
        // 9: a blank, or a separator that begins no token.
        {" X", 9},
        {"! X", 9},
        {"\" X", 9},
        {"% X", 9},
        {"& X", 9},
        {"' X", 9},
        {"/ X", 9},
        {": X", 9},
        {"< X", 9},
        {"= X", 9},
        {"> X", 9},
        {"? X", 9},
        {"| X", 9},
        {"~ X", 9},
        // 33: a sign without a digit, or a base other than 16, 8, 2.
        {"- 5", 33},
        {"+ 5", 33},
        {"-X", 33},
        {"+.5 X", 33},
        {"--5 X", 33},
        {"10#5 X", 33},
        // Passed through from the based-literal reader.
        {"16#G X", 34},
        {"8#9 X", 35},
        {"2#2 X", 36},
        // 39: '@' or '^' without a name.
        {"@1x", 39},
        {"@ x", 39},
        {"@@A X", 39},
        {"@-1 X", 39},
        {"^1x", 39},
        {"^ x", 39},
        {"^^ X", 39},
        // 41: '#' without a keyword.
        {"#1 X", 41},
        {"# X", 41},
        {"#FOO X", 41},
        {"#MOVE X", 41},
        {"#@ X", 41},
        // 42: '$' without a keyword.
        {"$1 X", 42},
        {"$ X", 42},
        {"$FOO X", 42},
        {"$R0 X", 42},  // the digit ends the word: "R" is no keyword
        // 63: '*' without a keyword.
        {"*1 X", 63},
        {"* X", 63},
        {"*FOO X", 63},
        {"*A0 X", 63},
    };
    for (const CodeCase& c : cases) {
        TestMachine m;
        m.SetProgram(c.Text);
        EXPECT_EQ(m.Scan(m.TokenText), c.Result) << '"' << c.Text << '"';
        EXPECT_EQ(m.Labels.size(), 0) << c.Text;
    }
}

TEST(ScanResult, RefusedCharacterLeavesThePositionAlone) {
    for (char c : std::string(" !\"%&'/:<=>?|~")) {
        TestMachine m;
        m.SetProgram(std::string(1, c) + "ABC");
        EXPECT_EQ(m.Scan(m.TokenText), 9u) << c;
        EXPECT_EQ(m.CurChar, c);
        EXPECT_EQ(m.TextPos, 1);
    }
}

TEST(ScanResult, FailureStopsWhereTheReadingStopped) {
    TestMachine m;
    m.SetProgram("#FOO X");
    EXPECT_EQ(m.Scan(m.TokenText), 41u);
    EXPECT_STREQ(m.TokenText, "FOO");
    EXPECT_EQ(m.CurChar, ' ');
    EXPECT_EQ(m.TextPos, 5);

    m.SetProgram("@1x");
    EXPECT_EQ(m.Scan(m.TokenText), 39u);
    EXPECT_STREQ(m.TokenText, "");
    EXPECT_EQ(m.CurChar, '1');
    EXPECT_EQ(m.TextPos, 2);
}

TEST(ScanResult, AtTheEndNothingChanges) {
    TestMachine m;
    m.SetProgram("MOV X");
    ASSERT_EQ(m.Seek(5), 6u);
    std::strcpy(m.TokenText, "KEEP");
    m.TokenCode = ttTST;
    m.TokenStart = 3;
    m.TokenEnd = 4;
    EXPECT_EQ(m.Scan(m.TokenText), 6u);
    EXPECT_STREQ(m.TokenText, "KEEP");
    EXPECT_EQ(m.TokenCode, ttTST);
    EXPECT_EQ(m.TokenStart, 3);
    EXPECT_EQ(m.TokenEnd, 4);
    EXPECT_EQ(m.TextPos, 5);
}

// ---- The end of the text ----

struct EndCase {
    std::string Text;  // the last token is scanned after "X "
    Qz::uint32_t Result;
    uint8_t Code;  // checked when the result is 0
};

TEST(ScanEnd, OnlyAFinalRetIsDelivered) {
    const EndCase cases[] = {
        {"RET", 0, ttEND},
        {"RET   ", 0, ttEND},
        {"RET ", 0, ttEND},
        {"RET:", 0, ttEND},
        {"#RET", 0, ttEND},
        {"$RET", 0, ttEND},
        {"*RET  ", 0, ttEND},
        {"#ret", 0, ttEND},
        {"@RET", 0, ttEND},  // the rule looks at the token text only
        {"ret", 6, 0},
        {"RET2", 6, 0},
        {"RE", 6, 0},
        {"END", 6, 0},
        {"MOV", 6, 0},
        {"MOV   ", 6, 0},
        {"LOOP:", 6, 0},
        {"LOOP:   ", 6, 0},
        {"MAIN", 6, 0},
        {"@A", 6, 0},
        {"@A  ", 6, 0},
        {"^A", 6, 0},
        {"#MOV", 6, 0},
        {"#MOV ", 6, 0},
        {"5", 6, 0},
        {"@", 6, 0},
        {"#", 6, 0},
        {"$", 6, 0},
        {"*", 6, 0},
        {"-", 6, 0},
    };
    for (const EndCase& c : cases) {
        SCOPED_TRACE(::testing::Message() << '"' << c.Text << '"');
        TestMachine m;
        m.SetProgram("X " + c.Text);
        ASSERT_EQ(m.Scan(m.TokenText), 0u);
        EXPECT_EQ(m.Scan(m.TokenText), c.Result);
        if (c.Result == 0) {
            EXPECT_EQ(unsigned(m.TokenCode), unsigned(c.Code));
        }
        EXPECT_EQ(m.CurChar, 0);
        EXPECT_EQ(m.TextPos, m.TextLen);
        EXPECT_EQ(m.Labels.size(), 0);  // nothing cut off by the end is registered
    }
}

TEST(ScanEnd, RetFollowedByBlanksKeepsItsPosition) {
    TestMachine m;
    m.SetProgram("X RET   ");
    ASSERT_EQ(m.Scan(m.TokenText), 0u);
    ASSERT_EQ(m.Scan(m.TokenText), 0u);
    EXPECT_EQ(m.TokenCode, ttEND);
    EXPECT_EQ(m.TokenStart, 2);
    EXPECT_EQ(m.TokenEnd, 4);
    EXPECT_EQ(m.TextPos, 8);
}

TEST(ScanEnd, ProgramEndingInAnOperandReturnsSixOnIt) {
    TestMachine m;
    m.SetProgram("MOV @A 5");
    ASSERT_EQ(m.Scan(m.TokenText), 0u);
    ASSERT_EQ(m.Scan(m.TokenText), 0u);
    EXPECT_EQ(m.Scan(m.TokenText), 6u);
    EXPECT_STREQ(m.TokenText, "5");
    EXPECT_EQ(m.TokenStart, 7);
}

TEST(ScanEnd, CutOffTokenKeepsWhatItRead) {
    TestMachine m;
    m.SetProgram("END");
    EXPECT_EQ(m.Scan(m.TokenText), 6u);
    EXPECT_STREQ(m.TokenText, "END");
    EXPECT_EQ(m.TokenStart, 0);

    m.SetProgram("MOV   ");  // fields set before the blanks stay set
    EXPECT_EQ(m.Scan(m.TokenText), 6u);
    EXPECT_EQ(m.TokenCode, ttMOV);
    EXPECT_EQ(m.TokenEnd, 2);
}

// ---- Label registration ----

struct RegisterCase {
    std::string Text;
    const char* Label;  // null: nothing registered
    int Start, End;
};

TEST(ScanLabels, RegistersLabelsAndTheSectionKeywords) {
    const RegisterCase cases[] = {
        {"LOOP: X", "LOOP", 0, 4},
        {"loop: X", "loop", 0, 4},
        {"PROG X", "PROG", 0, 3},
        {"VAR X", "VAR", 0, 2},
        {"MAIN X", "MAIN", 0, 3},
        {"MAIN: X", "MAIN", 0, 4},
        {"#MAIN X", "MAIN", 0, 4},
        {"#main X", "MAIN", 0, 4},
        {"#PROG X", "PROG", 0, 4},
        {"$VAR X", "VAR", 0, 3},
        {"*MAIN X", "MAIN", 0, 4},
        {"PROG: X", "PROG", 0, 4},
        {"BODY X", nullptr, 0, 0},
        {"BODY: X", nullptr, 0, 0},
        {"#BODY X", nullptr, 0, 0},
        {"LOOP X", nullptr, 0, 0},
        {"@LOOP X", nullptr, 0, 0},
        {"^MAIN X", nullptr, 0, 0},
        {"MOV: X", nullptr, 0, 0},
        {"RET X", nullptr, 0, 0},
        {"5 X", nullptr, 0, 0},
    };
    for (const RegisterCase& c : cases) {
        SCOPED_TRACE(::testing::Message() << '"' << c.Text << '"');
        TestMachine m;
        m.SetProgram(c.Text);
        ASSERT_EQ(m.Scan(m.TokenText), 0u);
        if (!c.Label) {
            EXPECT_EQ(m.Labels.size(), 0);
            continue;
        }
        EXPECT_EQ(m.Labels.size(), 1);
        const Label* label = m.Labels.lookup(c.Label, 0, 0, false);
        ASSERT_NE(label, nullptr);
        EXPECT_EQ(label->LabelName, QString(c.Label));
        EXPECT_EQ(label->LabelStart, c.Start);
        EXPECT_EQ(label->LabelEnd, c.End);
    }
}

TEST(ScanLabels, RegistrationAtAnOffset) {
    TestMachine m;
    m.SetProgram("MOV 1 R0 LOOP: ADD 1 R0 JMP LOOP RET");
    while (m.TokenCode != ttEND) ASSERT_EQ(m.Scan(m.TokenText), 0u);
    EXPECT_EQ(m.Labels.size(), 1);
    const Label* loop = m.Labels.lookup("LOOP", 0, 0, false);
    ASSERT_NE(loop, nullptr);
    EXPECT_EQ(loop->LabelStart, 9);
    EXPECT_EQ(loop->LabelEnd, 13);
}

TEST(ScanLabels, FirstOccurrenceWinsAndRescanningChangesNothing) {
    TestMachine m;
    m.SetProgram("L1: A L1: B MAIN C MAIN: D RET");
    for (int pass = 0; pass < 2; ++pass) {
        ASSERT_EQ(m.Seek(0), 0u);
        m.TokenCode = ttNONE;
        while (m.TokenCode != ttEND) ASSERT_EQ(m.Scan(m.TokenText), 0u);
        EXPECT_EQ(m.Labels.size(), 2);
        const Label* l1 = m.Labels.lookup("L1", 99, 99, true);
        ASSERT_NE(l1, nullptr);
        EXPECT_EQ(l1->LabelStart, 0);
        EXPECT_EQ(l1->LabelEnd, 2);
        const Label* main = m.Labels.lookup("MAIN", 99, 99, true);
        ASSERT_NE(main, nullptr);
        EXPECT_EQ(main->LabelStart, 12);
        EXPECT_EQ(main->LabelEnd, 15);
    }
}

TEST(ScanLabels, LabelsAreCaseSensitive) {
    TestMachine m;
    m.SetProgram("loop: LOOP: Loop: X");
    for (int i = 0; i < 3; ++i) ASSERT_EQ(m.Scan(m.TokenText), 0u);
    EXPECT_EQ(m.Labels.size(), 3);
    EXPECT_EQ(m.Labels.lookup("loop", 0, 0, false)->LabelStart, 0);
    EXPECT_EQ(m.Labels.lookup("LOOP", 0, 0, false)->LabelStart, 6);
    EXPECT_EQ(m.Labels.lookup("Loop", 0, 0, false)->LabelStart, 12);
}

// ---- Long tokens ----
// Each is read to its end; TokenText keeps the first 255 characters and is
// terminated; nothing is written past it.

struct LongCase {
    std::string Text;
    Qz::uint32_t Result;
    uint8_t Code;
    std::string Token;
    int End;
};

TEST(ScanLong, TenThousandCharacterTokens) {
    const std::string n(10000, 'n');
    const std::string upper(255, 'N');
    const LongCase cases[] = {
        {n + " X", 0, ttNAME, n.substr(0, 255), 9999},
        {n + ": X", 0, ttLABEL, n.substr(0, 255), 10000},
        {"@" + n + " X", 0, ttVAR, upper, 10000},
        {"^" + n + " X", 0, ttREF, upper, 10000},
        {"#" + n + " X", 41, 0, upper, 0},
        {"$" + n + " X", 42, 0, upper, 0},
        {"*" + n + " X", 63, 0, upper, 0},
        {"-" + std::string(9999, '1') + " X", 0, ttNUMBER, std::string(255, '1'), 9999},
    };
    for (const LongCase& c : cases) {
        SCOPED_TRACE(::testing::Message() << c.Text.substr(0, 3) << "... of " << c.Text.size());
        TestMachine m;
        std::memcpy(m.ProgramName, "GUARD", 6);
        m.SetProgram(c.Text);
        EXPECT_EQ(m.Scan(m.TokenText), c.Result);
        EXPECT_EQ(std::strlen(m.TokenText), 255u);
        EXPECT_EQ(m.TokenText[255], 0);
        EXPECT_EQ(std::string(m.TokenText), c.Token);
        EXPECT_STREQ(m.ProgramName, "GUARD");
        if (c.Result == 0) {
            EXPECT_EQ(unsigned(m.TokenCode), unsigned(c.Code));
            EXPECT_EQ(m.TokenStart, 0);
            EXPECT_EQ(m.TokenEnd, c.End);
            EXPECT_EQ(m.CurChar, 'X');
            EXPECT_EQ(m.TextPos, m.TextLen);
        } else {
            EXPECT_EQ(m.CurChar, ' ');  // the whole word was read before it was refused
            EXPECT_EQ(m.TextPos, m.TextLen - 1);
        }
    }
}

TEST(ScanLong, LongLabelIsRegisteredUnderItsKeptText) {
    const std::string name(10000, 'L');
    TestMachine m;
    m.SetProgram("A " + name + ": B");
    ASSERT_EQ(m.Scan(m.TokenText), 0u);
    ASSERT_EQ(m.Scan(m.TokenText), 0u);
    EXPECT_EQ(m.TokenCode, ttLABEL);
    ASSERT_EQ(m.Labels.size(), 1);
    const Label* label = m.Labels.lookup(name.substr(0, 255).c_str(), 0, 0, false);
    ASSERT_NE(label, nullptr);
    EXPECT_EQ(label->LabelName.size(), 255);
    EXPECT_EQ(label->LabelStart, 2);
    EXPECT_EQ(label->LabelEnd, 10002);
    EXPECT_EQ(m.CurChar, 'B');
}

TEST(ScanLong, LongTokensAtTheEndOfTheText) {
    for (const std::string& text : {std::string(10000, 'x'), "@" + std::string(10000, 'x'),
                                    std::string(10000, '9'), "#" + std::string(10000, 'x')}) {
        TestMachine m;
        m.SetProgram(text);
        EXPECT_EQ(m.Scan(m.TokenText), 6u);
        EXPECT_EQ(std::strlen(m.TokenText), 255u);
        EXPECT_EQ(m.CurChar, 0);
        EXPECT_EQ(m.TextPos, 10000 + (text[0] == '@' || text[0] == '#'));
    }
}

TEST(ScanLong, BoundaryLengthsAroundTheBuffer) {
    for (size_t length : {253u, 254u, 255u, 256u, 257u}) {
        const std::string name(length, 'q');
        TestMachine m;
        m.SetProgram(name + " X");
        ASSERT_EQ(m.Scan(m.TokenText), 0u) << length;
        EXPECT_EQ(std::string(m.TokenText), name.substr(0, 255)) << length;
        EXPECT_EQ(m.TokenEnd, int(length) - 1);
        EXPECT_EQ(m.CurChar, 'X');
    }
}

TEST(ScanLong, ManyTokensOnOneLine) {
    std::string text;
    for (int i = 0; i < 5000; ++i) text += "ADD 1 R0 ";
    text += "RET";
    TestMachine m;
    m.SetProgram(text);
    int tokens = 0;
    while (m.TokenCode != ttEND) {
        ASSERT_EQ(m.Scan(m.TokenText), 0u) << tokens;
        ++tokens;
    }
    EXPECT_EQ(tokens, 15001);
}

}  // namespace
