#include "source_text.h"

#include <algorithm>

namespace qzrun {

SourceText::SourceText(std::string path, std::string bytes) : Path_(std::move(path)), Bytes_(std::move(bytes)) {
    LineStarts_.push_back(0);
    for (size_t i = 0; i < Bytes_.size(); ++i)
        if (Bytes_[i] == '\n') LineStarts_.push_back(i + 1);
}

bool SourceText::Flatten(size_t& errorOffset) {
    Flat_ = Bytes_;
    const size_t n = Flat_.size();
    auto blank = [&](size_t from, size_t to) { std::fill(Flat_.begin() + from, Flat_.begin() + to, ' '); };

    size_t i = 0;
    // Editors on some systems start a UTF-8 file with a byte order mark; to
    // the interpreter it would glue itself to the first token.
    if (Flat_.compare(0, 3, "\xEF\xBB\xBF") == 0) {
        blank(0, 3);
        i = 3;
    }
    while (i < n) {
        const char c = Flat_[i];
        const char next = i + 1 < n ? Flat_[i + 1] : '\0';
        if (c == '(' && next == '*') {
            const size_t close = Flat_.find("*)", i + 2);
            if (close == std::string::npos) {
                errorOffset = i;
                return false;
            }
            blank(i, close + 2);
            i = close + 2;
            continue;
        }
        if (c == '/' && next == '/') {
            size_t end = Flat_.find('\n', i);
            if (end == std::string::npos) end = n;
            blank(i, end);
            i = end;
            continue;
        }
        if (c == '\t' || c == '\r' || c == '\n' || c == '\f' || c == '\v') Flat_[i] = ' ';
        ++i;
    }
    return true;
}

Location SourceText::Locate(size_t offset) const {
    offset = std::min(offset, Bytes_.size());
    const auto after = std::upper_bound(LineStarts_.begin(), LineStarts_.end(), offset);
    const size_t line = size_t(after - LineStarts_.begin());  // >= 1: LineStarts_[0] is 0
    return Location{int(line), int(offset - LineStarts_[line - 1]) + 1};
}

std::string_view SourceText::Line(int line) const {
    if (line < 1 || size_t(line) > LineStarts_.size()) return {};
    const size_t begin = LineStarts_[size_t(line) - 1];
    size_t end = size_t(line) < LineStarts_.size() ? LineStarts_[size_t(line)] - 1 : Bytes_.size();
    if (end > begin && Bytes_[end - 1] == '\r') --end;
    return std::string_view(Bytes_).substr(begin, end - begin);
}

size_t SourceText::EndOfProgram() const {
    const size_t last = Flat_.find_last_not_of(' ');
    return last == std::string::npos ? 0 : last + 1;
}

std::string SourceText::Excerpt(size_t begin, size_t end) const {
    end = std::min(end, Flat_.size());
    std::string out;
    for (size_t i = begin; i < end; ++i) {
        if (Flat_[i] == ' ') {
            if (!out.empty() && out.back() != ' ') out += ' ';
        } else {
            out += Flat_[i];
        }
    }
    while (!out.empty() && out.back() == ' ') out.pop_back();
    return out;
}

}  // namespace qzrun
