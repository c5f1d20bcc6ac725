// A program file as people write it, turned into the one-line text the
// interpreter reads, for the C API's qz_load_source. The same rules as the
// qzrun runner's (tools/source_text.cpp): every comment character, tab and
// line end becomes a blank, so the text keeps the file's length and every
// offset the interpreter reports is an offset into the file.
#ifndef QZ_C_SOURCE_H
#define QZ_C_SOURCE_H

#include <cstddef>
#include <string>

// Blanks (* ... *) and // comments, \t \r \n \f \v and a leading UTF-8 byte
// order mark in `text`. False for a (* that is never closed; `errorOffset`
// then holds its offset.
bool QZ_BlankComments(std::string& text, size_t& errorOffset);

// Offset just past the last character that is not a blank: where "the end
// of the text" is shown.
size_t QZ_EndOfProgram(const std::string& flat);

#endif
