#include "positions.h"

#include <algorithm>

namespace qzls {

LineIndex::LineIndex(std::string_view text) {
    Starts_.push_back(0);
    for (size_t i = 0; i < text.size(); ++i) {
        if (text[i] == '\n') {
            Starts_.push_back(i + 1);
        } else if (text[i] == '\r') {
            if (i + 1 < text.size() && text[i + 1] == '\n') ++i;
            Starts_.push_back(i + 1);
        }
    }
}

size_t LineIndex::LineEnd(std::string_view text, size_t line) const {
    if (line + 1 >= Starts_.size()) return text.size();
    size_t end = Starts_[line + 1] - 1;  // the '\n' or lone '\r'
    if (text[end] == '\n' && end > Starts_[line] && text[end - 1] == '\r') --end;
    return end;
}

size_t SequenceLength(std::string_view text, size_t i) {
    const unsigned char lead = static_cast<unsigned char>(text[i]);
    size_t length = 1;
    if (lead >= 0xC2 && lead <= 0xDF) length = 2;
    else if (lead >= 0xE0 && lead <= 0xEF) length = 3;
    else if (lead >= 0xF0 && lead <= 0xF4) length = 4;
    if (i + length > text.size()) return 1;
    for (size_t k = 1; k < length; ++k)
        if ((static_cast<unsigned char>(text[i + k]) & 0xC0) != 0x80) return 1;
    return length;
}

namespace {

// Units one character of `length` bytes counts in `encoding`.
int64_t UnitsOf(size_t length, Encoding encoding) {
    switch (encoding) {
    case Encoding::Utf8:
        return int64_t(length);
    case Encoding::Utf16:
        return length == 4 ? 2 : 1;
    case Encoding::Utf32:
        return 1;
    }
    return 1;
}

}  // namespace

size_t LineIndex::OffsetOf(std::string_view text, Position position, Encoding encoding) const {
    if (position.Line < 0) return 0;
    if (size_t(position.Line) >= Starts_.size()) return text.size();
    const size_t line = size_t(position.Line);
    const size_t end = LineEnd(text, line);
    size_t offset = Starts_[line];
    int64_t units = 0;
    while (offset < end && units < position.Character) {
        const size_t length = SequenceLength(text, offset);
        const int64_t step = UnitsOf(length, encoding);
        if (units + step > position.Character) break;  // inside a character: stay before it
        units += step;
        offset += length;
    }
    return offset;
}

Position LineIndex::PositionOf(std::string_view text, size_t offset, Encoding encoding) const {
    offset = std::min(offset, text.size());
    const auto after = std::upper_bound(Starts_.begin(), Starts_.end(), offset);
    const size_t line = size_t(after - Starts_.begin()) - 1;
    const size_t end = std::min(offset, LineEnd(text, line));
    Position position{int64_t(line), 0};
    for (size_t i = Starts_[line]; i < end;) {
        const size_t length = SequenceLength(text, i);
        position.Character += UnitsOf(length, encoding);
        i += length;
    }
    return position;
}

}  // namespace qzls
