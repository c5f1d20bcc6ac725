// The variable table: find-or-create ignoring case (Unicode rules for UTF-8
// names, bytes as they are otherwise), the keyed hash and the buckets that
// grow, the per-kind declaration lists, Clear, deleteVar, and GetVar of the
// current frame.
#include "colliding_names.h"
#include "test_machine.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <clocale>
#include <cstring>
#include <list>
#include <string>
#include <vector>

namespace {

constexpr uint32_t kBuckets = 2048;

// The program's table over a bucket array the test can look into.
struct Table {
    Var* Buckets[kBuckets];
    CQZ_Vars Vars{Buckets, kBuckets};
};

Var* Create(CQZ_Vars& vars, const std::string& name, uint8_t kind = ttV, double value = 0.0, int index = 0) {
    return vars.lookup(name.c_str(), char(kind), char(ttDINT), value, index, true);
}
Var* Find(CQZ_Vars& vars, const std::string& name) {
    return vars.lookup(name.c_str(), 0, 0, 0.0, 0, false);
}
std::list<Var> List(const CQZ_Vars& vars, uint8_t kind, bool* listed = nullptr) {
    std::list<Var> out;
    const bool ok = vars.GetVarsList(out, char(kind));
    if (listed) *listed = ok;
    return out;
}
std::vector<std::string> Names(const std::list<Var>& list) {
    std::vector<std::string> names;
    for (const Var& v : list) names.push_back(v.VarName);
    return names;
}

bool InChain(Var* head, const Var* var) {
    for (; head; head = head->Next)
        if (head == var) return true;
    return false;
}
// The bucket of the first array a record sits in.
uint32_t BucketOf(const Var* var) { return var->KeyHash % kBuckets; }

// Creates "N0", "N1", ... until one lands in a bucket already taken; returns
// that record, which heads its chain with the earlier one behind it.
Var* CreateUntilTwoShareABucket(CQZ_Vars& vars) {
    for (int i = 0;; ++i) {
        Var* var = vars.lookup(("N" + std::to_string(i)).c_str(), char(ttV), char(ttDINT), 0.0, 0, true);
        if (var->Next) return var;
    }
}

// The longest chain among the records of `vars`: a record's chain runs from
// it to the end of its bucket, so the longest is the head's.
size_t LongestChain(const CQZ_Vars& vars) {
    size_t longest = 0;
    for (uint32_t i = 0; i < vars.RecordCount(); ++i) {
        size_t length = 0;
        for (const Var* var = vars.Record(i); var; var = var->Next) ++length;
        longest = std::max(longest, length);
    }
    return longest;
}

// Runs `body` under the C locale and, where installed, a UTF-8 one: names
// must be found the same way whatever the process locale.
template <typename Body>
void UnderEachLocale(Body body) {
    const std::string saved = std::setlocale(LC_ALL, nullptr);
    for (const char* name : {"C", "POSIX", "C.UTF-8", "en_US.UTF-8", "tr_TR.UTF-8"}) {
        if (!std::setlocale(LC_ALL, name)) continue;
        SCOPED_TRACE(name);
        body();
    }
    std::setlocale(LC_ALL, saved.c_str());
}

// ---- Find-or-create ----

TEST(VarTable, StartsEmpty) {
    Table t;
    for (Var* head : t.Buckets) EXPECT_EQ(head, nullptr);
    EXPECT_EQ(Find(t.Vars, "A"), nullptr);
    EXPECT_EQ(Find(t.Vars, ""), nullptr);
    for (uint8_t kind = ttV; kind <= ttTVR; ++kind) EXPECT_TRUE(List(t.Vars, kind).empty());
}

TEST(VarTable, CreatesARecordFromItsArguments) {
    Table t;
    Var* var = t.Vars.lookup("Speed", char(ttTVG), char(ttREAL), 2.5, 7, true, 1.5, -2.0, 3.25, 4e10);
    ASSERT_NE(var, nullptr);
    EXPECT_STREQ(var->VarName, "Speed");
    EXPECT_EQ(var->VarKind, char(ttTVG));
    EXPECT_EQ(var->VarType, char(ttREAL));
    EXPECT_EQ(var->VarValue, 2.5);
    EXPECT_EQ(var->VarIndex, 7);
    EXPECT_EQ(var->VarParam1, 1.5);
    EXPECT_EQ(var->VarParam2, -2.0);
    EXPECT_EQ(var->VarParam3, 3.25);
    EXPECT_EQ(var->VarParam4, 4e10);
    EXPECT_FALSE(var->Rewrited);
    EXPECT_EQ(var->Next, nullptr);
}

TEST(VarTable, FoundIgnoringCaseWithItsNameKept) {
    Table t;
    Var* speed = Create(t.Vars, "Speed");
    for (const char* name : {"Speed", "SPEED", "speed", "sPeEd"}) EXPECT_EQ(Find(t.Vars, name), speed) << name;
    for (const char* name : {"Spee", "Speed2", "Speed ", " Speed", "Sp_eed", ""})
        EXPECT_EQ(Find(t.Vars, name), nullptr) << name;
    EXPECT_STREQ(speed->VarName, "Speed");
}

TEST(VarTable, SecondCreateReturnsTheFirstRecordUnchanged) {
    Table t;
    Var* first = Create(t.Vars, "A", ttV, 1.0, 3);
    Var* again = t.Vars.lookup("a", char(ttVO), char(ttBOOL), 2.0, 9, true, 1, 2, 3, 4);
    EXPECT_EQ(again, first);
    EXPECT_STREQ(first->VarName, "A");
    EXPECT_EQ(first->VarKind, char(ttV));
    EXPECT_EQ(first->VarType, char(ttDINT));
    EXPECT_EQ(first->VarValue, 1.0);
    EXPECT_EQ(first->VarIndex, 3);
    EXPECT_EQ(first->VarParam1, 0.0);
    EXPECT_EQ(List(t.Vars, ttV).size(), 1u);
    EXPECT_TRUE(List(t.Vars, ttVO).empty());
}

TEST(VarTable, LookupWithoutCreateAddsNothing) {
    Table t;
    EXPECT_EQ(t.Vars.lookup("X", char(ttV), char(ttINT), 1.0, 0, false), nullptr);
    EXPECT_EQ(Find(t.Vars, "X"), nullptr);
    EXPECT_TRUE(List(t.Vars, ttV).empty());
    for (Var* head : t.Buckets) EXPECT_EQ(head, nullptr);
}

// ---- Declaration lists ----

TEST(VarLists, EveryKindKeepsItsDeclarationsInOrder) {
    Table t;
    const char* names[] = {"V_", "VI_", "VO_", "VIO_", "VG_", "TVG_", "TVR_", "VA_", "VR_"};
    for (int i = 0; i < 9; ++i) {
        for (int n = 0; n < 3; ++n)
            t.Vars.lookup((names[i] + std::to_string(n)).c_str(), char(ttV + i), char(ttINT), 10.0 * i + n, n, true,
                          i, n, -i, -n);
    }
    for (int i = 0; i < 9; ++i) {
        const uint8_t kind = uint8_t(ttV + i);
        SCOPED_TRACE(names[i]);
        std::list<Var> out(2);  // emptied first, whatever the result
        const bool listed = t.Vars.GetVarsList(out, char(kind));
        if (kind == ttVA || kind == ttVR) {
            EXPECT_FALSE(listed);
            EXPECT_TRUE(out.empty());
            continue;
        }
        EXPECT_TRUE(listed);
        ASSERT_EQ(out.size(), 3u);
        int n = 0;
        for (const Var& copy : out) {
            EXPECT_EQ(std::string(copy.VarName), names[i] + std::to_string(n));
            EXPECT_EQ(copy.VarKind, char(kind));
            EXPECT_EQ(copy.VarType, char(ttINT));
            EXPECT_EQ(copy.VarValue, 10.0 * i + n);
            EXPECT_EQ(copy.VarIndex, n);
            EXPECT_EQ(copy.VarParam1, double(i));
            EXPECT_EQ(copy.VarParam2, double(n));
            EXPECT_EQ(copy.VarParam3, double(-i));
            EXPECT_EQ(copy.VarParam4, double(-n));
            ++n;
        }
    }
    // VA and VR are still found by name.
    EXPECT_NE(Find(t.Vars, "va_0"), nullptr);
    EXPECT_NE(Find(t.Vars, "VR_2"), nullptr);
}

TEST(VarLists, OtherKindsAreRefused) {
    Table t;
    Create(t.Vars, "X", 0x00);
    Create(t.Vars, "Y", ttBOOL);
    for (int kind : {0x00, 0x01, 0x13, int(ttVA), int(ttVR), 0x1d, 0x20, 0x7f, 0x80, 0xff}) {
        std::list<Var> out(1);
        EXPECT_FALSE(t.Vars.GetVarsList(out, char(kind))) << kind;
        EXPECT_TRUE(out.empty()) << kind;
    }
    // Records of other kinds exist in the buckets only.
    EXPECT_NE(Find(t.Vars, "x"), nullptr);
    EXPECT_NE(Find(t.Vars, "y"), nullptr);
    for (uint8_t kind = ttV; kind <= ttTVR; ++kind) EXPECT_TRUE(List(t.Vars, kind).empty()) << int(kind);
}

TEST(VarLists, CopiesKeepTheDeclaredValue) {
    Table t;
    Var* live = Create(t.Vars, "COUNT", ttV, 5.0);
    live->VarValue = 99.0;
    live->Rewrited = true;
    const std::list<Var> copies = List(t.Vars, ttV);
    ASSERT_EQ(copies.size(), 1u);
    EXPECT_EQ(copies.front().VarValue, 5.0);
    EXPECT_FALSE(copies.front().Rewrited);
    // The caller's list is a copy too.
    std::list<Var> mine = List(t.Vars, ttV);
    mine.front().VarValue = -1.0;
    EXPECT_EQ(List(t.Vars, ttV).front().VarValue, 5.0);
}

TEST(VarLists, TvrIsListedWithItsParameters) {
    Table t;
    t.Vars.lookup("T1", char(ttTVR), char(ttREAL), 1.0, 0, true, 10, 20, 30, 40);
    bool listed = false;
    const std::list<Var> copies = List(t.Vars, ttTVR, &listed);
    EXPECT_TRUE(listed);
    ASSERT_EQ(copies.size(), 1u);
    EXPECT_STREQ(copies.front().VarName, "T1");
    EXPECT_EQ(copies.front().VarParam4, 40.0);
}

// ---- Clear and deleteVar ----

TEST(VarTable, ClearEmptiesEverything) {
    Table t;
    for (int i = 0; i < 9; ++i) Create(t.Vars, "N" + std::to_string(i), uint8_t(ttV + i));
    Create(t.Vars, "OTHER", ttBOOL);
    t.Vars.Clear();
    for (Var* head : t.Buckets) EXPECT_EQ(head, nullptr);
    for (int i = 0; i < 9; ++i) EXPECT_EQ(Find(t.Vars, "N" + std::to_string(i)), nullptr);
    EXPECT_EQ(Find(t.Vars, "OTHER"), nullptr);
    for (uint8_t kind = ttV; kind <= ttTVR; ++kind) {
        bool listed = false;
        EXPECT_TRUE(List(t.Vars, kind, &listed).empty());
        EXPECT_TRUE(listed);
    }
    // The table fills again as new.
    Var* again = Create(t.Vars, "N0", ttVO, 4.0);
    EXPECT_EQ(again->VarValue, 4.0);
    EXPECT_EQ(again->VarKind, char(ttVO));
    EXPECT_EQ(Names(List(t.Vars, ttVO)), std::vector<std::string>{"N0"});
    EXPECT_TRUE(List(t.Vars, ttV).empty());
    t.Vars.Clear();
    t.Vars.Clear();  // twice is harmless
    EXPECT_EQ(Find(t.Vars, "N0"), nullptr);
}

TEST(VarTable, DeleteVarRemovesTheChainFromThatRecordOn) {
    Table t;
    Var* head = CreateUntilTwoShareABucket(t.Vars);
    Var* tail = head->Next;
    ASSERT_EQ(tail->Next, nullptr);
    const uint32_t bucket = BucketOf(head);
    ASSERT_EQ(t.Buckets[bucket], head);
    const std::string headName = head->VarName;
    const std::string tailName = tail->VarName;
    const size_t declared = List(t.Vars, ttV).size();

    t.Vars.deleteVar(nullptr);  // nothing
    EXPECT_EQ(Find(t.Vars, tailName), tail);

    t.Vars.deleteVar(tail);  // the tail only
    EXPECT_EQ(Find(t.Vars, tailName), nullptr);
    EXPECT_EQ(Find(t.Vars, headName), head);
    EXPECT_EQ(t.Buckets[bucket], head);
    EXPECT_EQ(head->Next, nullptr);

    Var* again = Create(t.Vars, tailName);
    ASSERT_EQ(t.Buckets[bucket], again);
    t.Vars.deleteVar(t.Buckets[bucket]);  // head and everything behind it
    EXPECT_EQ(t.Buckets[bucket], nullptr);
    EXPECT_EQ(Find(t.Vars, tailName), nullptr);
    EXPECT_EQ(Find(t.Vars, headName), nullptr);
    if (tailName != "N0") {
        EXPECT_NE(Find(t.Vars, "N0"), nullptr);  // other chains stay
    }
    // The declaration lists are not touched.
    const std::vector<std::string> names = Names(List(t.Vars, ttV));
    ASSERT_EQ(names.size(), declared + 1);
    EXPECT_EQ(names.back(), tailName);
}

// ---- Hash and buckets ----

TEST(VarHash, RecordsSitInTheBucketOfTheirKeysHash) {
    Table t;
    struct Case {
        std::string Name;
        std::string Key;
    };
    const Case cases[] = {
        {"", ""},
        {"A", "A"},
        {"speed", "SPEED"},
        {"Motor_1.Temp", "MOTOR_1.TEMP"},
        {"\xD1\x81\xD1\x87\xD0\xB5\xD1\x82\xD1\x87\xD0\xB8\xD0\xBA",  // счетчик
         "\xD0\xA1\xD0\xA7\xD0\x95\xD0\xA2\xD0\xA7\xD0\x98\xD0\x9A"},  // СЧЕТЧИК
        {"\xE2\x82\xACuro", "\xE2\x82\xAC" "URO"},                    // €uro
        {"\xFFtemp", "\xFFTEMP"},                                       // not UTF-8: ASCII letters only
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.Key);
        Var* var = Create(t.Vars, c.Name);
        ASSERT_NE(var, nullptr);
        EXPECT_EQ(var->KeyHash, uint32_t(var->KeyCheck));  // the bucket hash is the check's low half
        EXPECT_TRUE(InChain(t.Buckets[BucketOf(var)], var));
        // The key's own spelling hashes alike and finds the record.
        Table other;
        EXPECT_EQ(Create(other.Vars, c.Key)->KeyCheck, var->KeyCheck);
        EXPECT_EQ(Find(t.Vars, c.Key), var);
    }
}

TEST(VarHash, EveryTableOfTheProcessHashesAlike) {
    // AddRecord takes records built in another table with their hash.
    Table program;
    CQZ_Vars frame;
    for (const char* name : {"A", "Speed", "counter_7"})
        EXPECT_EQ(Create(program.Vars, name)->KeyCheck, Create(frame, name)->KeyCheck) << name;
}

TEST(VarHash, NamesCraftedForTheOldHashSpreadOut) {
    // 1024 names that all shared the old h * 31 hash, and so one bucket.
    const std::vector<std::string> names = colliding::ByteHashCollidingNames(1024);
    Table t;
    for (const std::string& name : names) Create(t.Vars, name);
    size_t used = 0;
    for (Var* head : t.Buckets) used += head != nullptr;
    EXPECT_GT(used, 600u);  // about 800 expected from a random hash
    EXPECT_LT(LongestChain(t.Vars), 10u);
}

TEST(VarHash, NamesSharingABucketStayApart) {
    Table t;
    Var* head = CreateUntilTwoShareABucket(t.Vars);
    Var* tail = head->Next;
    EXPECT_EQ(t.Buckets[BucketOf(head)], head);
    EXPECT_EQ(BucketOf(tail), BucketOf(head));
    head->VarValue = 1.0;
    tail->VarValue = 2.0;
    EXPECT_EQ(Find(t.Vars, head->VarName), head);
    EXPECT_EQ(Find(t.Vars, tail->VarName), tail);
    // Names that shared the whole old hash (31 * 'A' + 'B' == 31 * 'B' + '#').
    ASSERT_EQ(colliding::ByteHash31("AB"), colliding::ByteHash31("B#"));
    Var* ab = Create(t.Vars, "ab", ttV, 3.0);
    Var* bh = Create(t.Vars, "b#", ttV, 4.0);
    EXPECT_NE(ab, bh);
    EXPECT_EQ(Find(t.Vars, "AB"), ab);
    EXPECT_EQ(Find(t.Vars, "B#"), bh);
    EXPECT_EQ(Find(t.Vars, "B"), nullptr);
    EXPECT_EQ(bh->VarValue, 4.0);
}

TEST(VarHash, ProgramTableGrowsPastItsFirstArray) {
    Table t;
    std::vector<Var*> vars;
    for (int i = 0; i < 20000; ++i) vars.push_back(Create(t.Vars, "var" + std::to_string(i), ttV, i));
    // The records moved to the table's own buckets; the caller's array is
    // left with no chains that could go stale.
    for (Var* head : t.Buckets) EXPECT_EQ(head, nullptr);
    EXPECT_LT(LongestChain(t.Vars), 16u);
    for (int i = 0; i < 20000; ++i) ASSERT_EQ(Find(t.Vars, "VAR" + std::to_string(i)), vars[size_t(i)]) << i;
    for (uint32_t i = 0; i < t.Vars.RecordCount(); ++i) ASSERT_EQ(t.Vars.Record(i), vars[i]);
    EXPECT_EQ(List(t.Vars, ttV).size(), 20000u);
    // Later creations, deleteVar and Clear work on the grown buckets.
    Var* late = Create(t.Vars, "late");
    EXPECT_EQ(Find(t.Vars, "LATE"), late);
    t.Vars.deleteVar(late);
    EXPECT_EQ(Find(t.Vars, "LATE"), nullptr);
    EXPECT_EQ(Find(t.Vars, "VAR7"), vars[7]);
    t.Vars.Clear();
    EXPECT_EQ(Find(t.Vars, "VAR7"), nullptr);
    EXPECT_EQ(t.Vars.RecordCount(), 0u);
    Var* fresh = Create(t.Vars, "var7", ttV, 1.0);
    EXPECT_EQ(Find(t.Vars, "VAR7"), fresh);
    EXPECT_EQ(Names(List(t.Vars, ttV)), std::vector<std::string>{"var7"});
}

TEST(VarHash, ManyNamesAllFound) {
    Table t;
    std::vector<Var*> vars;
    for (int i = 0; i < 6000; ++i) vars.push_back(Create(t.Vars, "var" + std::to_string(i), ttV, i));
    for (int i = 0; i < 6000; ++i) {
        ASSERT_EQ(Find(t.Vars, "VAR" + std::to_string(i)), vars[size_t(i)]) << i;
        ASSERT_EQ(vars[size_t(i)]->VarValue, double(i));
    }
    EXPECT_EQ(List(t.Vars, ttV).size(), 6000u);
}

TEST(VarHash, FrameTablesFindTheSameWay) {
    CQZ_Vars frame;  // a subprogram frame's own small table
    std::vector<Var*> vars;
    for (int i = 0; i < 500; ++i) vars.push_back(Create(frame, "Local" + std::to_string(i), ttV, i));
    for (int i = 0; i < 500; ++i) ASSERT_EQ(Find(frame, "LOCAL" + std::to_string(i)), vars[size_t(i)]) << i;
    EXPECT_EQ(Create(frame, "local7"), vars[7]);
    EXPECT_LT(LongestChain(frame), 10u);  // its 64 buckets grew
    frame.Clear();
    EXPECT_EQ(Find(frame, "LOCAL7"), nullptr);
}

// ---- Unicode and other bytes ----

TEST(VarNames, UnicodeCaseIsIgnoredWhateverTheLocale) {
    UnderEachLocale([] {
        struct Case {
            const char* Created;
            std::vector<const char*> Found;
            std::vector<const char*> NotFound;
        };
        const Case cases[] = {
            {"\xD1\x81\xD1\x87\xD0\xB5\xD1\x82\xD1\x87\xD0\xB8\xD0\xBA",  // счетчик
             {"\xD0\xA1\xD0\xA7\xD0\x95\xD0\xA2\xD0\xA7\xD0\x98\xD0\x9A",  // СЧЕТЧИК
              "\xD0\xA1\xD1\x87\xD0\xB5\xD1\x82\xD1\x87\xD0\xB8\xD0\xBA"},  // Счетчик
             {"\xD1\x81\xD1\x87\xD0\xB5\xD1\x82\xD1\x87\xD0\xB8\xD0\xBA" "2",
              "\xD1\x81\xD1\x87\xD1\x91\xD1\x82\xD1\x87\xD0\xB8\xD0\xBA"}},  // счётчик is another name
            {"Stra\xC3\x9F" "e",  // Straße
             {"STRASSE", "strasse", "STRA\xC3\x9F" "E", "stra\xC3\x9F" "e"},
             {"STRASE", "Strasse2"}},
            {"\xC3\xA4\xC3\xB6\xC3\xBC",  // äöü
             {"\xC3\x84\xC3\x96\xC3\x9C", "\xC3\x84\xC3\xB6\xC3\x9C"},  // ÄÖÜ, ÄöÜ
             {"AOU", "\xC3\xA4\xC3\xB6"}},
            {"\xCE\xBA\xCF\x8C\xCF\x83\xCE\xBC\xCE\xBF\xCF\x82",  // κόσμος, with a final sigma
             {"\xCE\x9A\xCE\x8C\xCE\xA3\xCE\x9C\xCE\x9F\xCE\xA3",  // ΚΌΣΜΟΣ
              "\xCE\xBA\xCF\x8C\xCF\x83\xCE\xBC\xCE\xBF\xCF\x83"},  // κόσμοσ
             {"\xCE\x9A\xCE\x9F\xCE\xA3\xCE\x9C\xCE\x9F\xCE\xA3"}},  // ΚΟΣΜΟΣ: the accent counts
            {"\xE2\x82\xAC" "uro", {"\xE2\x82\xAC" "URO", "\xE2\x82\xAC" "uRo"}, {"EURO", "\xE2\x82\xAC"}},
        };
        for (const Case& c : cases) {
            SCOPED_TRACE(c.Created);
            Table t;
            Var* var = Create(t.Vars, c.Created);
            EXPECT_STREQ(var->VarName, c.Created);  // stored as given
            for (const char* name : c.Found) EXPECT_EQ(Find(t.Vars, name), var) << name;
            for (const char* name : c.NotFound) EXPECT_EQ(Find(t.Vars, name), nullptr) << name;
            // Creating under another case finds the first record.
            EXPECT_EQ(Create(t.Vars, c.Found.front()), var);
            EXPECT_EQ(List(t.Vars, ttV).size(), 1u);
        }
    });
}

TEST(VarNames, AsciiNameFoundThroughItsUnicodeSpelling) {
    UnderEachLocale([] {
        Table t;
        Var* var = Create(t.Vars, "STRASSE");
        EXPECT_EQ(Find(t.Vars, "Stra\xC3\x9F" "e"), var);
    });
}

TEST(VarNames, InvalidUtf8WorksByteExact) {
    UnderEachLocale([] {
        Table t;
        Var* ff = Create(t.Vars, "\xFFtemp");
        Var* latin = Create(t.Vars, "\xE9t\xE9");  // Latin-1 "été": not UTF-8
        Var* lone = Create(t.Vars, "\xC3");          // a cut-off sequence
        EXPECT_EQ(Find(t.Vars, "\xFFTEMP"), ff);
        EXPECT_EQ(Find(t.Vars, "\xFFtEmP"), ff);
        EXPECT_EQ(Find(t.Vars, "\xFEtemp"), nullptr);
        EXPECT_EQ(Find(t.Vars, "\xE9T\xE9"), latin);
        EXPECT_EQ(Find(t.Vars, "\xC9T\xC9"), nullptr);  // bytes beyond ASCII are not case-folded
        EXPECT_EQ(Find(t.Vars, "\xC3"), lone);
        EXPECT_EQ(Find(t.Vars, "\xC3\xA9"), nullptr);
        EXPECT_STREQ(ff->VarName, "\xFFtemp");
        EXPECT_EQ(List(t.Vars, ttV).size(), 3u);
    });
}

// ---- Long names ----

TEST(VarNames, TenThousandCharacterNameKeeps255AndIsFound) {
    const std::string name(10000, 'x');
    Table t;
    Var* var = Create(t.Vars, name, ttVO, 1.0);
    ASSERT_NE(var, nullptr);
    EXPECT_EQ(std::strlen(var->VarName), 255u);
    EXPECT_EQ(var->VarName[255], 0);
    EXPECT_EQ(std::string(var->VarName), name.substr(0, 255));
    // The name is found as given, as kept, and in another case.
    EXPECT_EQ(Find(t.Vars, name), var);
    EXPECT_EQ(Find(t.Vars, name.substr(0, 255)), var);
    EXPECT_EQ(Find(t.Vars, std::string(10000, 'X')), var);
    EXPECT_EQ(Find(t.Vars, std::string(300, 'X')), var);
    EXPECT_EQ(Find(t.Vars, name.substr(0, 254)), nullptr);
    // Creating it again finds the first record: names stay unique.
    EXPECT_EQ(Create(t.Vars, name, ttVO, 2.0), var);
    const std::list<Var> outputs = List(t.Vars, ttVO);
    ASSERT_EQ(outputs.size(), 1u);
    EXPECT_EQ(std::strlen(outputs.front().VarName), 255u);
}

TEST(VarNames, NamesAroundTheLimit) {
    for (size_t length : {254u, 255u, 256u}) {
        const std::string name(length, 'k');
        Table t;
        Var* var = Create(t.Vars, name);
        EXPECT_EQ(std::string(var->VarName), name.substr(0, 255)) << length;
        EXPECT_EQ(Find(t.Vars, name), var) << length;
    }
}

TEST(VarNames, LongUtf8NameIsFoundAsGiven) {
    std::string name;
    for (int i = 0; i < 5000; ++i) name += "\xD1\x89";  // щ, 10,000 bytes
    Table t;
    Var* var = Create(t.Vars, name);
    EXPECT_EQ(std::strlen(var->VarName), 255u);
    EXPECT_EQ(var->VarName[255], 0);
    EXPECT_EQ(Find(t.Vars, name), var);
    EXPECT_EQ(Create(t.Vars, name), var);
    EXPECT_EQ(List(t.Vars, ttV).size(), 1u);
}

// ---- GetVar: the current table only ----

TEST(GetVar, SearchesTheInnermostFrameOnly) {
    TestMachine m;
    Var* global = m.Vars.lookup("GLOBAL", char(ttV), char(ttDINT), 1.0, 0, true);
    EXPECT_EQ(m.GetVar("global"), global);

    CQZ_Vars frame;
    Var* local = frame.lookup("Local", char(ttV), char(ttINT), 2.0, 0, true);
    m.TableStack.push_back(&frame);
    EXPECT_EQ(m.GetVar("GLOBAL"), nullptr);
    EXPECT_EQ(m.GetVar("LOCAL"), local);

    CQZ_Vars inner;
    m.TableStack.push_back(&inner);
    EXPECT_EQ(m.GetVar("LOCAL"), nullptr);
    m.TableStack.pop_back();
    m.TableStack.pop_back();

    EXPECT_EQ(m.GetVar("Global"), global);
    EXPECT_EQ(m.GetVar("LOCAL"), nullptr);
}

TEST(GetVar, NeverCreates) {
    TestMachine m;
    EXPECT_EQ(m.GetVar("NEW"), nullptr);
    EXPECT_EQ(m.GetVar("NEW"), nullptr);
    EXPECT_EQ(m.GetVar(""), nullptr);
    for (Var* head : m.ProgramBuckets) EXPECT_EQ(head, nullptr);
}

}  // namespace
