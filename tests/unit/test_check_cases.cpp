// The programs of tests/check/, each carrying the diagnostics it must get in
// comments beside the line they concern:
//     MOV @Y R0       (* expect: error 23 *)
//     PUSHES: ...     (* expect: warning stack-growth, warning unreachable *)
// The checker's full list for every file must be exactly the expected one:
// nothing missing, nothing extra (line, severity and identifier).
#include "qz_check.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <dirent.h>
#include <fstream>
#include <sstream>

namespace {

struct Expected {
    int Line;
    std::string What;  // "error 22", "warning stack-growth"
    bool operator<(const Expected& o) const { return Line != o.Line ? Line < o.Line : What < o.What; }
    bool operator==(const Expected& o) const { return Line == o.Line && What == o.What; }
};

std::string Trim(std::string s) {
    s.erase(0, s.find_first_not_of(" \t"));
    s.erase(s.find_last_not_of(" \t") + 1);
    return s;
}

std::vector<Expected> Expectations(const std::string& text) {
    std::vector<Expected> out;
    std::istringstream lines(text);
    std::string line;
    for (int number = 1; std::getline(lines, line); ++number) {
        for (size_t at = line.find("(* expect:"); at != std::string::npos; at = line.find("(* expect:", at + 1)) {
            const size_t end = line.find("*)", at);
            std::istringstream items(line.substr(at + 10, end - at - 10));
            std::string item;
            while (std::getline(items, item, ',')) out.push_back({number, Trim(item)});
        }
    }
    return out;
}

std::vector<Expected> Reported(const std::string& text, const qz::check::Model& model) {
    std::vector<Expected> out;
    for (const qz::check::Diagnostic& d : model.Diagnostics) {
        const int line = 1 + int(std::count(text.begin(), text.begin() + long(std::min(d.Where.Begin, text.size())), '\n'));
        out.push_back({line, (d.Level == qz::check::Severity::Error ? "error " : "warning ") + d.Id});
    }
    return out;
}

std::string Show(const std::vector<Expected>& list) {
    std::string s;
    for (const Expected& e : list) s += "  line " + std::to_string(e.Line) + ": " + e.What + "\n";
    return s.empty() ? "  (none)\n" : s;
}

std::vector<std::string> CaseFiles() {
    std::vector<std::string> files;
    if (DIR* dir = opendir(QZ_CHECK_CASES)) {
        while (dirent* entry = readdir(dir)) {
            const std::string name = entry->d_name;
            if (name.size() > 3 && name.compare(name.size() - 3, 3, ".qz") == 0)
                files.push_back(std::string(QZ_CHECK_CASES) + "/" + name);
        }
        closedir(dir);
    }
    std::sort(files.begin(), files.end());
    return files;
}

TEST(CheckCases, EveryFileGetsExactlyItsExpectedDiagnostics) {
    const std::vector<std::string> files = CaseFiles();
    ASSERT_GE(files.size(), 14u) << "cases in " << QZ_CHECK_CASES;
    for (const std::string& file : files) {
        std::ifstream in(file, std::ios::binary);
        std::stringstream buffer;
        buffer << in.rdbuf();
        const std::string text = buffer.str();
        std::vector<Expected> expected = Expectations(text);
        const qz::check::Model model = qz::check::Analyse(text);
        std::vector<Expected> reported = Reported(text, model);
        std::sort(expected.begin(), expected.end());
        std::sort(reported.begin(), reported.end());
        EXPECT_TRUE(reported == expected) << file << "\nexpected:\n" << Show(expected) << "reported:\n" << Show(reported);
        for (const qz::check::Diagnostic& d : model.Diagnostics) {
            EXPECT_FALSE(d.Message.empty()) << file << ": " << d.Id;
            EXPECT_LE(d.Where.End, text.size()) << file;
        }
    }
}

}  // namespace
