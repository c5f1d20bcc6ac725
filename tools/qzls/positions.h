// Positions as the protocol counts them (line, and a character offset in
// UTF-8 bytes, UTF-16 code units or code points, as negotiated) against the
// byte offsets the checker's model uses.
#ifndef QZLS_POSITIONS_H
#define QZLS_POSITIONS_H

#include <cstddef>
#include <cstdint>
#include <string_view>
#include <vector>

namespace qzls {

enum class Encoding { Utf8, Utf16, Utf32 };

struct Position {
    int64_t Line = 0;
    int64_t Character = 0;
};

// The starts of the lines of one text. Lines end at "\n", "\r\n" or "\r".
// The text is passed to every call, so the index holds no pointer into a
// string that may move.
class LineIndex {
public:
    LineIndex() = default;
    explicit LineIndex(std::string_view text);

    size_t LineCount() const { return Starts_.size(); }
    size_t LineStart(size_t line) const { return Starts_[line]; }
    // Offset of the line's end, before its line break.
    size_t LineEnd(std::string_view text, size_t line) const;

    // A position past the end of its line means the line's end; a line past
    // the last means the end of the text.
    size_t OffsetOf(std::string_view text, Position position, Encoding encoding) const;
    Position PositionOf(std::string_view text, size_t offset, Encoding encoding) const;

private:
    std::vector<size_t> Starts_;
};

// Length in bytes of the UTF-8 sequence at `i` (1 for a byte that starts no
// valid sequence, which counts as one character).
size_t SequenceLength(std::string_view text, size_t i);

}  // namespace qzls

#endif
