#include "diagnostics.h"

#include <algorithm>
#include <cstring>
#include <string_view>

namespace qzrun {
namespace {

std::string Quote(const std::string& token) {
    constexpr size_t kLimit = 40;
    if (token.size() <= kLimit) return "'" + token + "'";
    return "'" + token.substr(0, kLimit) + "...'";
}

// Of a long source line, the part shown: the error and what surrounds it.
constexpr size_t kSnippetLead = 60;  // characters shown before the error when cut

// [begin, end) of `line` to show for an error at byte `column`: the whole
// line when it is short, else kSnippetWidth bytes starting a little before
// the error, moved off the middle of UTF-8 characters.
std::pair<size_t, size_t> SnippetWindow(std::string_view line, size_t column) {
    if (line.size() <= kSnippetWidth) return {0, line.size()};
    size_t begin = column > kSnippetLead ? column - kSnippetLead : 0;
    begin = std::min(begin, line.size() - kSnippetWidth);
    size_t end = begin + kSnippetWidth;
    while (begin > 0 && begin < line.size() && IsContinuationByte(line[begin])) ++begin;
    while (end < line.size() && end > begin && IsContinuationByte(line[end])) --end;
    return {begin, end};
}

}  // namespace

void PrintSnippet(const SourceText& source, size_t offset, size_t length, FILE* out) {
    const qzrun::Location at = source.Locate(offset);
    const std::string_view line = source.Line(at.Line);
    const size_t column = size_t(at.Column - 1);
    const auto [begin, end] = SnippetWindow(line, std::min(column, line.size()));
    const std::string_view shown = line.substr(begin, end - begin);
    const char* before = begin > 0 ? kCut : "";
    const char* after = end < line.size() ? kCut : "";
    std::fprintf(out, "%5d | %s%.*s%s\n", at.Line, before, int(shown.size()), shown.data(), after);

    std::string marker(std::strlen(before), ' ');
    for (size_t i = begin; i < column && i < end; ++i) {
        const char c = line[i];
        if (c == '\t') marker += '\t';
        else if (!IsContinuationByte(c)) marker += ' ';  // one column a UTF-8 character
    }
    marker += '^';
    const size_t visible = std::min(length, end > column ? end - column : size_t(0));
    for (size_t i = 1; i < visible; ++i)
        if (!IsContinuationByte(line[column + i])) marker += '~';
    std::fprintf(out, "      | %s\n", marker.c_str());
}

void ReportFailure(const SourceText& source, qz_st_interpretator::IQZSTInterpretator* interpreter,
                   Qz::uint32_t code, long long cycle) {
    QZScanPosition position{};
    QZGetScanPosition(interpreter, &position);
    const std::string& text = source.Flat();
    const char* meaning = Qz::ResultMeaning(code);
    if (!meaning) meaning = "unknown result code";

    const bool atEnd =
        code == Qz::rcEndOfText || position.TokenStart < 0 || size_t(position.TokenStart) >= text.size();
    size_t offset;
    size_t length;
    std::string where;
    if (atEnd) {
        offset = source.EndOfProgram();
        length = 1;
        where = "at the end of the program";
    } else {
        offset = size_t(position.TokenStart);
        size_t end;  // one past the token
        if (position.TokenEnd >= position.TokenStart && size_t(position.TokenEnd) < text.size()) {
            end = size_t(position.TokenEnd) + 1;
        } else {
            // The scanner stopped inside the token before marking its end.
            end = text.find(' ', offset);
            if (end == std::string::npos) end = text.size();
        }
        length = std::max<size_t>(end - offset, 1);
        where = "at " + Quote(text.substr(offset, end - offset));
    }
    if (cycle > 0) where += " in cycle " + std::to_string(cycle);

    const qzrun::Location at = source.Locate(offset);
    std::fprintf(stderr, "%s:%d:%d: error %u: %s, %s\n", source.Path().c_str(), at.Line, at.Column, code, meaning,
                 where.c_str());
    PrintSnippet(source, offset, length, stderr);

    // A subprogram whose RET is the last word of the text runs into the end
    // of the text instead of returning; the cycle then stops with the call
    // still open and fails on whatever comes next.
    const size_t end = source.EndOfProgram();
    if (cycle > 0 && !atEnd && offset + 3 == end && text.compare(offset, 3, "RET") == 0 &&
        (" " + text + " ").find(" BODY ") != std::string::npos)
        std::fprintf(stderr,
                     "%s:%d:%d: note: this RET ends the program text and returns from no subprogram; "
                     "close the file with a RET of its own after the last subprogram\n",
                     source.Path().c_str(), at.Line, at.Column);

    if (code == Qz::rcEndOfText && cycle == 0) {
        if (end < 3 || text.compare(end - 3, 3, "RET") != 0 || (end > 3 && text[end - 4] != ' '))
            std::fprintf(stderr, "%s:%d:%d: note: the last word of a program must be RET\n", source.Path().c_str(),
                         at.Line, at.Column);
    }
}
std::string ShownInstruction(const SourceText& source, size_t start, size_t end) {
    std::string instruction = source.Excerpt(start, end);
    if (instruction.size() > kSnippetWidth) {
        size_t cut = kSnippetWidth;
        while (cut > 0 && IsContinuationByte(instruction[cut])) --cut;
        instruction.resize(cut);
        instruction += kCut;
    }
    return instruction;
}

}  // namespace qzrun
