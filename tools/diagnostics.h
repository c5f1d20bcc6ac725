// Messages that point into the program file, like a compiler's.
#ifndef QZRUN_DIAGNOSTICS_H
#define QZRUN_DIAGNOSTICS_H

#include "qz_st_interpretator.h"
#include "source_text.h"

#include <cstddef>
#include <cstdio>
#include <string>

namespace qzrun {

// Of a long source line only this many bytes are shown, cut with kCut.
constexpr size_t kSnippetWidth = 200;
constexpr char kCut[] = "...";

inline bool IsContinuationByte(char c) { return (static_cast<unsigned char>(c) & 0xC0) == 0x80; }

// The source line (or its part around `offset`) on `out`, with a caret
// under [offset, offset + length).
void PrintSnippet(const SourceText& source, size_t offset, size_t length, FILE* out);

// FILE:LINE:COLUMN: error CODE: MEANING, at TOKEN [in cycle N], the snippet
// and the notes that explain the common mistakes; `cycle` 0 for a load error.
void ReportFailure(const SourceText& source, qz_st_interpretator::IQZSTInterpretator* interpreter,
                   Qz::uint32_t code, long long cycle);

// The instruction between two offsets as one line, cut to kSnippetWidth.
std::string ShownInstruction(const SourceText& source, size_t start, size_t end);

}  // namespace qzrun

#endif
