// Formatting as the examples are laid out: sections and labels at the left
// margin, instructions indented with their operands in columns, declarations
// in columns, trailing comments aligned. Only blanks change.
#ifndef QZLS_FORMAT_H
#define QZLS_FORMAT_H

#include "answers.h"

#include <string>
#include <vector>

namespace qzls {

// The formatted lines of `text`, one per line of the text (line breaks
// not included).
std::vector<std::string> FormatLines(const std::string& text);

// TextEdits that replace the lines that change.
Json Formatting(const Document& document, Encoding encoding);

}  // namespace qzls

#endif
