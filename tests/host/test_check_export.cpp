// QZCheckProgram as a host reaches it: through dlopen and dlsym, with the
// public C header only.
#include "qz_st_check.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <dlfcn.h>
#include <string>
#include <vector>

namespace {

struct Seen {
    uint32_t Severity, Code;
    std::string Id;
    size_t Begin, End;
    uint32_t Line, Column;
    std::string Message, Note;
};

void Collect(void* context, const QZDiagnostic* d) {
    static_cast<std::vector<Seen>*>(context)->push_back(
        Seen{d->Severity, d->Code, d->Id, d->Begin, d->End, d->Line, d->Column, d->Message, d->Note});
}

class CheckExport : public ::testing::Test {
protected:
    void SetUp() override {
        Handle = dlopen(QZ_PLUGIN_PATH, RTLD_NOW | RTLD_LOCAL);
        ASSERT_NE(Handle, nullptr) << dlerror();
        Check = reinterpret_cast<decltype(&QZCheckProgram)>(dlsym(Handle, "QZCheckProgram"));
        ASSERT_NE(Check, nullptr);
    }
    void TearDown() override {
        if (Handle) dlclose(Handle);
    }
    void* Handle = nullptr;
    decltype(&QZCheckProgram) Check = nullptr;
};

TEST_F(CheckExport, ReportsEachDiagnosticWithItsPlace) {
    const std::string text =
        "(* lamp *)\nPROG P\nVAR\n  LAMP VO BOOL 0\nMAIN\n  MOV 1 @LMAP\n  MOV 1 @LAMP\nRET\n";
    std::vector<Seen> seen;
    ASSERT_EQ(Check(text.data(), text.size(), Collect, &seen), 0u);
    ASSERT_EQ(seen.size(), 1u);
    EXPECT_EQ(seen[0].Severity, uint32_t(QZ_DIAGNOSTIC_ERROR));
    EXPECT_EQ(seen[0].Code, 23u);
    EXPECT_EQ(seen[0].Id, "23");
    EXPECT_EQ(text.substr(seen[0].Begin, seen[0].End - seen[0].Begin), "@LMAP");
    EXPECT_EQ(seen[0].Line, 6u);
    EXPECT_EQ(seen[0].Column, 9u);
    EXPECT_EQ(seen[0].Message, "variable not found (or not a valid reference)");
    EXPECT_EQ(seen[0].Note, "did you mean `@LAMP`?");
}

TEST_F(CheckExport, CleanTextReportsNothing) {
    const std::string text = "PROG P VAR LAMP VO BOOL 0 MAIN MOV 1 @LAMP RET";
    std::vector<Seen> seen;
    EXPECT_EQ(Check(text.data(), text.size(), Collect, &seen), 0u);
    EXPECT_TRUE(seen.empty());
}

TEST_F(CheckExport, TextNeedNotEndInNul) {
    const std::string text = "PROG P VAR MAIN RET garbage";
    std::vector<Seen> seen;
    EXPECT_EQ(Check(text.data(), 19, Collect, &seen), 0u);  // "PROG P VAR MAIN RET"
    EXPECT_TRUE(seen.empty());
}

TEST_F(CheckExport, NullArguments) {
    std::vector<Seen> seen;
    EXPECT_EQ(Check(nullptr, 5, Collect, &seen), 19u);
    EXPECT_TRUE(seen.empty());
    EXPECT_EQ(Check(nullptr, 0, Collect, &seen), 0u);
    ASSERT_EQ(seen.size(), 1u);
    EXPECT_EQ(seen[0].Code, 19u);  // the empty text
    EXPECT_EQ(Check("PROG P MAIN mov RET", 19, nullptr, nullptr), 0u);
}

TEST_F(CheckExport, WarningTableIsListed) {
    auto warning = reinterpret_cast<decltype(&QZCheckWarning)>(dlsym(Handle, "QZCheckWarning"));
    ASSERT_NE(warning, nullptr);
    std::vector<std::string> ids;
    const char* meaning = nullptr;
    for (size_t i = 0; const char* id = warning(i, &meaning); ++i) {
        ids.push_back(id);
        EXPECT_NE(std::string(meaning), "");
    }
    EXPECT_EQ(ids.size(), 15u);
    EXPECT_NE(std::find(ids.begin(), ids.end(), "stack-growth"), ids.end());
    EXPECT_EQ(warning(ids.size(), nullptr), nullptr);
}

}  // namespace
