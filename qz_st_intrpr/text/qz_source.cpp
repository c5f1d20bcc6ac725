#include "qz_source.h"

#include <algorithm>

namespace qz {

bool BlankComments(std::string& text, size_t& errorOffset) {
    const size_t n = text.size();
    auto blank = [&](size_t from, size_t to) { std::fill(text.begin() + long(from), text.begin() + long(to), ' '); };

    size_t i = 0;
    // Editors on some systems start a UTF-8 file with a byte order mark; to
    // the interpreter it would glue itself to the first token.
    if (text.compare(0, 3, "\xEF\xBB\xBF") == 0) {
        blank(0, 3);
        i = 3;
    }
    while (i < n) {
        const char c = text[i];
        const char next = i + 1 < n ? text[i + 1] : '\0';
        if (c == '(' && next == '*') {
            const size_t close = text.find("*)", i + 2);
            if (close == std::string::npos) {
                errorOffset = i;
                return false;
            }
            blank(i, close + 2);
            i = close + 2;
            continue;
        }
        if (c == '/' && next == '/') {
            size_t end = text.find('\n', i);
            if (end == std::string::npos) end = n;
            blank(i, end);
            i = end;
            continue;
        }
        if (c == '\t' || c == '\r' || c == '\n' || c == '\f' || c == '\v') text[i] = ' ';
        ++i;
    }
    return true;
}

size_t EndOfProgram(const std::string& blanked) {
    const size_t last = blanked.find_last_not_of(' ');
    return last == std::string::npos ? 0 : last + 1;
}

}  // namespace qz
