// A program file as people write it, turned into the one-line text the
// interpreter reads: comments, tabs and line ends become blanks, one blank a
// byte, so every offset into the text is the same offset into the file.
//
// Dependency-free on purpose: the runner compiles this file into itself, so
// the file it runs and the text the checker reads are blanked by one rule.
#ifndef QZ_SOURCE_H
#define QZ_SOURCE_H

#include <cstddef>
#include <string>

namespace qz {

// Blanks `text` in place. Returns false for a comment "(*" that is never
// closed; `errorOffset` then holds its offset and the text from there on is
// left as it was.
bool BlankComments(std::string& text, size_t& errorOffset);

// Offset just past the last character of a blanked text that is not a blank:
// where "the end of the text" is shown.
size_t EndOfProgram(const std::string& blanked);

}  // namespace qz

#endif
