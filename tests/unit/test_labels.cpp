// The label table: find-or-create with the first registration winning,
// case-sensitive byte-exact names, Clear, and seeking to a label's position.
#include "test_machine.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace {

TEST(LabelTable, StartsEmpty) {
    CQZ_Labels labels;
    EXPECT_EQ(labels.size(), 0);
    EXPECT_EQ(labels.lookup("MAIN", 0, 0, false), nullptr);
    EXPECT_EQ(labels.size(), 0);
}

TEST(LabelTable, CreatesWithItsPosition) {
    CQZ_Labels labels;
    Label* l1 = labels.lookup("L1", 10, 12, true);
    ASSERT_NE(l1, nullptr);
    EXPECT_EQ(l1->LabelName, QString("L1"));
    EXPECT_EQ(l1->LabelStart, 10);
    EXPECT_EQ(l1->LabelEnd, 12);
    EXPECT_EQ(labels.size(), 1);
    EXPECT_EQ(labels.lookup("L1", 0, 0, false), l1);
}

TEST(LabelTable, FirstRegistrationWins) {
    CQZ_Labels labels;
    Label* first = labels.lookup("L1", 10, 12, true);
    EXPECT_EQ(labels.lookup("L1", 50, 52, true), first);
    EXPECT_EQ(labels.lookup("L1", 70, 72, false), first);
    EXPECT_EQ(first->LabelStart, 10);
    EXPECT_EQ(first->LabelEnd, 12);
    EXPECT_EQ(labels.size(), 1);
}

TEST(LabelTable, UnknownNameWithoutCreateAddsNothing) {
    CQZ_Labels labels;
    labels.lookup("A", 1, 2, true);
    EXPECT_EQ(labels.lookup("B", 3, 4, false), nullptr);
    EXPECT_EQ(labels.size(), 1);
    EXPECT_EQ(labels.lookup("B", 0, 0, false), nullptr);
}

TEST(LabelTable, NamesAreCaseSensitive) {
    CQZ_Labels labels;
    Label* lower = labels.lookup("loop", 1, 5, true);
    Label* upper = labels.lookup("LOOP", 20, 24, true);
    ASSERT_NE(lower, upper);
    EXPECT_EQ(labels.size(), 2);
    EXPECT_EQ(labels.lookup("loop", 0, 0, false)->LabelStart, 1);
    EXPECT_EQ(labels.lookup("LOOP", 0, 0, false)->LabelStart, 20);
    EXPECT_EQ(labels.lookup("Loop", 0, 0, false), nullptr);
}

TEST(LabelTable, NamesCompareByteForByte) {
    CQZ_Labels labels;
    Label* e = labels.lookup("\xC3\xA9t\xC3\xA9", 1, 1, true);   // été in UTF-8
    Label* E = labels.lookup("\xC3\x89T\xC3\x89", 2, 2, true);   // ÉTÉ
    Label* latin = labels.lookup("\xE9t\xE9", 3, 3, true);        // été in Latin-1
    Label* ff = labels.lookup("\xFF", 4, 4, true);
    EXPECT_EQ(labels.size(), 4);
    EXPECT_EQ(labels.lookup("\xC3\xA9t\xC3\xA9", 0, 0, false), e);
    EXPECT_EQ(labels.lookup("\xC3\x89T\xC3\x89", 0, 0, false), E);
    EXPECT_EQ(labels.lookup("\xE9t\xE9", 0, 0, false), latin);
    EXPECT_EQ(labels.lookup("\xFF", 0, 0, false), ff);
    EXPECT_EQ(labels.lookup("\xFE", 0, 0, false), nullptr);
}

TEST(LabelTable, NullNameIsTheEmptyName) {
    CQZ_Labels labels;
    Label* empty = labels.lookup(nullptr, 3, 4, true);
    ASSERT_NE(empty, nullptr);
    EXPECT_TRUE(empty->LabelName.isEmpty());
    EXPECT_EQ(labels.lookup("", 0, 0, false), empty);
    EXPECT_EQ(labels.lookup(nullptr, 0, 0, false), empty);
}

TEST(LabelTable, ClearForgetsEveryName) {
    CQZ_Labels labels;
    for (const char* name : {"PROG", "VAR", "MAIN", "L1", "l1"}) labels.lookup(name, 1, 2, true);
    EXPECT_EQ(labels.size(), 5);
    labels.Clear();
    EXPECT_EQ(labels.size(), 0);
    for (const char* name : {"PROG", "VAR", "MAIN", "L1", "l1"}) EXPECT_EQ(labels.lookup(name, 0, 0, false), nullptr);
    // A new registration after Clear takes its new position.
    EXPECT_EQ(labels.lookup("L1", 30, 32, true)->LabelStart, 30);
    labels.Clear();
    labels.Clear();
    EXPECT_EQ(labels.size(), 0);
}

TEST(LabelTable, ManyLabelsKeepTheirOwnPositions) {
    CQZ_Labels labels;
    for (int i = 0; i < 10000; ++i) labels.lookup(("L" + std::to_string(i)).c_str(), i, i + 2, true);
    EXPECT_EQ(labels.size(), 10000);
    for (int i = 0; i < 10000; ++i) {
        const Label* label = labels.lookup(("L" + std::to_string(i)).c_str(), 0, 0, false);
        ASSERT_NE(label, nullptr) << i;
        ASSERT_EQ(label->LabelStart, i);
        ASSERT_EQ(label->LabelEnd, i + 2);
    }
}

TEST(LabelTable, LongNameIsKeptWhole) {
    // The table takes names as given; the scanner is what keeps 255 characters.
    const std::string name(10000, 'L');
    CQZ_Labels labels;
    Label* label = labels.lookup(name.c_str(), 5, 6, true);
    EXPECT_EQ(label->LabelName.size(), 10000);
    EXPECT_EQ(labels.lookup(name.c_str(), 0, 0, false), label);
    EXPECT_EQ(labels.lookup(name.substr(0, 255).c_str(), 0, 0, false), nullptr);
}

// ---- Seeking to a label ----

TEST(LabelSeek, AtOrBeyondTheEndReportsSix) {
    TestMachine m;
    m.SetProgram("MOV 1 R0 RET");
    for (int start : {12, 13, 1000}) {
        const Label* label = m.Labels.lookup(("AT" + std::to_string(start)).c_str(), start, start, true);
        EXPECT_EQ(m.Seek(label->LabelStart), 6u) << start;
        EXPECT_EQ(m.CurChar, 0) << start;
    }
    const Label* last = m.Labels.lookup("LAST", 11, 11, true);
    EXPECT_EQ(m.Seek(last->LabelStart), 0u);
    EXPECT_EQ(m.CurChar, 'T');
    EXPECT_EQ(m.TextPos, 12);
}

TEST(LabelSeek, JumpToALabelPastTheEndReportsSix) {
    TestMachine m;
    m.SetProgram("JMP GONE RET");
    m.Labels.lookup("GONE", m.TextLen, m.TextLen + 4, true);
    EXPECT_EQ(m.Run(), 6u);
    EXPECT_EQ(m.CurChar, 0);
}

TEST(LabelSeek, JumpGoesToTheFirstDefinition) {
    const std::string text = "JMP L1 RET L1: MOV 1 R0 RET L1: MOV 2 R0 RET";
    TestMachine m;
    m.SetProgram(text);
    while (m.TokenCode != ttEND) ASSERT_EQ(m.Scan(m.TokenText), 0u);  // registers both, the first wins
    const Label* l1 = m.Labels.lookup("L1", 0, 0, false);
    ASSERT_NE(l1, nullptr);
    EXPECT_EQ(l1->LabelStart, 11);
    EXPECT_EQ(l1->LabelEnd, 13);

    m.SetProgram(text);
    ASSERT_EQ(m.Run(), 0u);  // JMP L1
    EXPECT_EQ(m.TokenCode, ttLABEL);
    EXPECT_EQ(m.TokenStart, 11);
    EXPECT_EQ(m.CurChar, 'M');
    EXPECT_EQ(m.TextPos, 16);
    ASSERT_EQ(m.Run(), 0u);  // MOV 1 R0
    char type = 0;
    double value = 0.0;
    ASSERT_EQ(m.GetValueFromRegister(char(ttR0), type, value), 0u);
    EXPECT_EQ(value, 1.0);
}

TEST(LabelSeek, RegisteredPositionsDecideWhereAJumpGoes) {
    // Registered by hand at 10..12 and then at 50..52: the first stays.
    std::string text = "JMP L1 RET";
    text.resize(10, ' ');
    text += "L1: MOV 7 R0 RET";
    text.resize(50, ' ');
    text += "L1: MOV 8 R0 RET";
    TestMachine m;
    m.SetProgram(text);
    m.Labels.lookup("L1", 10, 12, true);
    m.Labels.lookup("L1", 50, 52, true);
    EXPECT_EQ(m.Labels.lookup("L1", 0, 0, false)->LabelStart, 10);
    ASSERT_EQ(m.Run(), 0u);
    ASSERT_EQ(m.Run(), 0u);
    char type = 0;
    double value = 0.0;
    ASSERT_EQ(m.GetValueFromRegister(char(ttR0), type, value), 0u);
    EXPECT_EQ(value, 7.0);
}

TEST(LabelSeek, MissingLabelIsNotFound) {
    TestMachine m;
    m.SetProgram("JMP NOWHERE RET");
    EXPECT_EQ(m.Run(), 22u);
    EXPECT_EQ(m.Labels.size(), 0);
}

}  // namespace
