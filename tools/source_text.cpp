#include "source_text.h"

#include "../qz_st_intrpr/text/qz_source.h"

#include <algorithm>

namespace qzrun {

SourceText::SourceText(std::string path, std::string bytes) : Path_(std::move(path)), Bytes_(std::move(bytes)) {
    LineStarts_.push_back(0);
    for (size_t i = 0; i < Bytes_.size(); ++i)
        if (Bytes_[i] == '\n') LineStarts_.push_back(i + 1);
}

bool SourceText::Flatten(size_t& errorOffset) {
    Flat_ = Bytes_;
    return qz::BlankComments(Flat_, errorOffset);
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

size_t SourceText::EndOfProgram() const { return qz::EndOfProgram(Flat_); }

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
