#include "words.h"

#include <algorithm>

namespace qzls {

std::string BlankComments(std::string_view text) {
    std::string flat(text);
    const size_t n = flat.size();
    auto blank = [&](size_t from, size_t to) { std::fill(flat.begin() + from, flat.begin() + to, ' '); };
    size_t i = 0;
    if (flat.compare(0, 3, "\xEF\xBB\xBF") == 0) {
        blank(0, 3);
        i = 3;
    }
    while (i < n) {
        const char c = flat[i];
        const char next = i + 1 < n ? flat[i + 1] : '\0';
        if (c == '(' && next == '*') {
            size_t close = flat.find("*)", i + 2);
            close = close == std::string::npos ? n : close + 2;
            blank(i, close);
            i = close;
        } else if (c == '/' && next == '/') {
            size_t end = flat.find('\n', i);
            if (end == std::string::npos) end = n;
            blank(i, end);
            i = end;
        } else {
            if (c == '\t' || c == '\r' || c == '\n' || c == '\f' || c == '\v') flat[i] = ' ';
            ++i;
        }
    }
    return flat;
}

Span WordAt(std::string_view flat, size_t offset) {
    if (offset >= flat.size() || IsBlank(flat[offset])) return {offset, offset};
    size_t begin = offset;
    while (begin > 0 && !IsBlank(flat[begin - 1])) --begin;
    size_t end = offset;
    while (end < flat.size() && !IsBlank(flat[end])) ++end;
    return {begin, end};
}

std::vector<Span> WordsBefore(std::string_view text, std::string_view flat, size_t offset, size_t count) {
    std::vector<Span> words;
    size_t i = std::min(offset, flat.size());
    while (words.size() < count && i > 0) {
        if (text[i - 1] == '\n' || text[i - 1] == '\r') break;
        if (IsBlank(flat[i - 1])) {
            --i;
            continue;
        }
        const size_t end = i;
        while (i > 0 && !IsBlank(flat[i - 1])) --i;
        words.push_back({i, end});
    }
    return words;
}

}  // namespace qzls
