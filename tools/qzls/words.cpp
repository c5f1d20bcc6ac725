#include "words.h"

#include "qz_source.h"

#include <algorithm>

namespace qzls {

std::string BlankComments(std::string_view text) {
    std::string flat(text);
    size_t unclosed = 0;
    if (!qz::BlankComments(flat, unclosed)) std::fill(flat.begin() + unclosed, flat.end(), ' ');
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
