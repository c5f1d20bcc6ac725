// Words of a program text as the editor needs them around the cursor: the
// text with its comments blanked as the runner blanks them, and the blank-
// separated word under or before an offset. Everything the language means
// by those words comes from the checker's model and the keyword tables.
#ifndef QZLS_WORDS_H
#define QZLS_WORDS_H

#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

namespace qzls {

struct Span {
    size_t Begin = 0;
    size_t End = 0;
    bool Empty() const { return Begin == End; }
    bool Contains(size_t offset) const { return offset >= Begin && offset < End; }
};

// The text as the library blanks it for the checker and the runner. An
// unclosed "(*" blanks the rest of the text, which is what an editor wants
// while the comment is being typed.
std::string BlankComments(std::string_view text);

inline bool IsBlank(char c) { return c == ' '; }

// The word of the blanked text that holds `offset` (empty when it is a blank).
Span WordAt(std::string_view flat, size_t offset);

// The words before `offset` back to the previous line break of the original
// text, nearest first, at most `count`.
std::vector<Span> WordsBefore(std::string_view text, std::string_view flat, size_t offset, size_t count);

}  // namespace qzls

#endif
