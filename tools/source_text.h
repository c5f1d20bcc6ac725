// A program file as people write it, and the one-line text the interpreter
// reads.
//
// The interpreter knows only the blank as white space and has no comments.
// Flattening blanks out every comment character, tab and line end, so the
// text keeps the file's length and every offset the interpreter reports is
// an offset into the file.
#ifndef QZRUN_SOURCE_TEXT_H
#define QZRUN_SOURCE_TEXT_H

#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

namespace qzrun {

struct Location {
    int Line;    // from 1
    int Column;  // from 1, in bytes
};

class SourceText {
public:
    // Takes the file's bytes. Flatten() must be called before Flat() is used.
    SourceText(std::string path, std::string bytes);

    // Builds the interpreter's text. Returns false for a comment that is never
    // closed; `errorOffset` then holds the offset of its "(*".
    bool Flatten(size_t& errorOffset);

    const std::string& Path() const { return Path_; }
    const std::string& Bytes() const { return Bytes_; }
    const std::string& Flat() const { return Flat_; }

    Location Locate(size_t offset) const;
    // The file's line `line` without its line end.
    std::string_view Line(int line) const;
    // Offset just past the last character of the program that is neither
    // blank nor comment: where "the end of the text" is shown.
    size_t EndOfProgram() const;
    // The flattened text from `begin` to `end` (exclusive) with every run of
    // blanks reduced to one.
    std::string Excerpt(size_t begin, size_t end) const;

private:
    std::string Path_;
    std::string Bytes_;
    std::string Flat_;
    std::vector<size_t> LineStarts_;
};

}  // namespace qzrun

#endif
