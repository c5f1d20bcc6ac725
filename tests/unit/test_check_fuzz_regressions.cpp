// The checker's fuzz harness on the inputs it once failed on
// (tests/regressions/check/), and on every case of tests/check/: each must
// now pass the harness's invariants.
#define QZ_FUZZ_NO_MAIN
#include "../../fuzz/fuzz_check.cpp"

#include <gtest/gtest.h>

#include <dirent.h>
#include <fstream>
#include <sstream>

namespace {

std::vector<std::string> FilesIn(const std::string& dir) {
    std::vector<std::string> files;
    if (DIR* d = opendir(dir.c_str())) {
        while (dirent* entry = readdir(d))
            if (entry->d_name[0] != '.' && std::string(entry->d_name) != "README.md") files.push_back(dir + "/" + entry->d_name);
        closedir(d);
    }
    return files;
}

void Replay(const std::string& file) {
    std::ifstream in(file, std::ios::binary);
    std::stringstream buffer;
    buffer << in.rdbuf();
    const std::string bytes = buffer.str();
    QzFuzzCheck(reinterpret_cast<const uint8_t*>(bytes.data()), bytes.size());
}

TEST(CheckFuzzRegressions, SavedInputsPass) {
    const std::vector<std::string> files = FilesIn(QZ_CHECK_REGRESSIONS);
    EXPECT_FALSE(files.empty()) << QZ_CHECK_REGRESSIONS;
    for (const std::string& file : files) {
        SCOPED_TRACE(file);
        Replay(file);
    }
}

TEST(CheckFuzzRegressions, CasesPass) {
    for (const std::string& file : FilesIn(QZ_CHECK_CASES)) {
        SCOPED_TRACE(file);
        Replay(file);
    }
}

}  // namespace
