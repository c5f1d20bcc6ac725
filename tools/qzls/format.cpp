#include "format.h"

#include "qz_tokens.h"
#include "words.h"

#include <algorithm>

namespace qzls {
namespace {

constexpr size_t kIndent = 4;
constexpr size_t kWordWidth = 8;      // instruction word and its padding
constexpr size_t kOperandWidth = 12;  // first operand and its padding
constexpr size_t kNameWidth = 12;
constexpr size_t kKindWidth = 4;
constexpr size_t kDeclarationCommentColumn = 32;

enum class LineKind { Verbatim, Code, Blank, CommentOnly, Section, Label, Instruction, Declaration };

struct Line {
    std::string Original;
    LineKind Kind = LineKind::Verbatim;
    std::vector<std::string> Words;
    std::string Comment;     // a trailing comment, "" for none
    bool AtMargin = false;   // a RET that ends a body
    size_t Group = 0;        // declaration lines of one run share columns
};

size_t RoundUp4(size_t n) { return (n + 3) / 4 * 4; }

bool IsSpace(char c) { return c == ' ' || c == '\t' || c == '\f' || c == '\v' || c == '\r'; }

std::string TrimRight(std::string s) {
    while (!s.empty() && IsSpace(s.back())) s.pop_back();
    return s;
}

void PadTo(std::string& s, size_t column) {
    s.append(s.size() < column ? column - s.size() : 1, ' ');
}

// Splits a line into words and a trailing comment. `inComment` carries an
// open "(*" from line to line; a line that is not words and then at most
// one comment is kept as it is.
void Split(Line& line, bool& inComment) {
    const std::string& s = line.Original;
    size_t i = 0;
    if (inComment) {
        const size_t close = s.find("*)");
        if (close == std::string::npos) return;  // wholly inside the comment
        inComment = false;
        line.Kind = LineKind::Verbatim;
        i = close + 2;
        if (s.find("(*", i) != std::string::npos) inComment = s.find("*)", s.rfind("(*")) == std::string::npos;
        return;
    }
    while (i < s.size()) {
        if (IsSpace(s[i])) { ++i; continue; }
        if (s.compare(i, 2, "//") == 0) { line.Comment = TrimRight(s.substr(i)); break; }
        if (s.compare(i, 2, "(*") == 0) {
            const size_t close = s.find("*)", i + 2);
            if (close == std::string::npos) { inComment = true; line.Kind = LineKind::Verbatim; return; }
            if (s.find_first_not_of(" \t\r", close + 2) != std::string::npos) {
                line.Kind = LineKind::Verbatim;  // code after a comment: left alone
                inComment = s.rfind("(*") > close && s.find("*)", s.rfind("(*")) == std::string::npos;
                return;
            }
            line.Comment = TrimRight(s.substr(i));
            break;
        }
        const size_t begin = i;
        while (i < s.size() && !IsSpace(s[i]) && s.compare(i, 2, "(*") != 0) ++i;
        line.Words.push_back(s.substr(begin, i - begin));
    }
    line.Kind = line.Words.empty() ? (line.Comment.empty() ? LineKind::Blank : LineKind::CommentOnly) : LineKind::Code;
}

size_t OperandCount(const QZ_InstructionInfo& info) {
    if (*info.Operands == 0) return 0;
    return size_t(std::count(info.Operands, info.Operands + std::char_traits<char>::length(info.Operands), ' ')) + 1;
}

bool IsKindCode(uint8_t code) { return code >= ttV && code <= ttVR; }

void Classify(Line& line) {
    if (line.Kind != LineKind::Code) return;
    const std::string& first = line.Words[0];
    const uint8_t code = FindKeyword(first.c_str());
    if (code == ttPROG || code == ttVARSECTION || code == ttMAIN || code == ttBODY) {
        line.Kind = LineKind::Section;
    } else if (first.size() > 1 && first.back() == ':' && line.Words.size() == 1) {
        line.Kind = LineKind::Label;
    } else if (const QZ_InstructionInfo* info = InstructionInfoOf(code)) {
        if (line.Words.size() == OperandCount(*info) + 1) line.Kind = LineKind::Instruction;
    } else if (line.Words.size() >= 4 && IsKindCode(FindKeyword(line.Words[1].c_str()))) {
        line.Kind = LineKind::Declaration;
    }
}

// A RET stands at the margin when it ends a body: what follows is the end
// of the text, another RET, or a subprogram's label (then BODY or locals).
void MarkBodyEnds(std::vector<Line>& lines) {
    std::vector<std::pair<size_t, std::string>> words;  // line, word
    for (size_t i = 0; i < lines.size(); ++i)
        if (lines[i].Kind != LineKind::Verbatim)
            for (const std::string& w : lines[i].Words) words.emplace_back(i, w);
    auto code = [&](size_t k) { return k < words.size() ? FindKeyword(words[k].second.c_str()) : uint8_t(ttNONE); };
    for (size_t k = 0; k < words.size(); ++k) {
        if (code(k) != ttRET || lines[words[k].first].Kind != LineKind::Instruction) continue;
        const bool last = k + 1 == words.size() || code(k + 1) == ttRET;
        const bool label = k + 1 < words.size() && words[k + 1].second.back() == ':' &&
                           (code(k + 2) == ttBODY || IsKindCode(code(k + 3)));
        lines[words[k].first].AtMargin = last || label;
    }
}

struct Columns {
    size_t SecondOperand = kOperandWidth;
    std::vector<size_t> Name, Type;  // per declaration group
};

Columns Measure(std::vector<Line>& lines) {
    Columns c;
    size_t group = 0;
    bool inGroup = false;
    for (Line& line : lines) {
        if (line.Kind == LineKind::Instruction && line.Words.size() == 3)
            c.SecondOperand = std::max(c.SecondOperand, RoundUp4(line.Words[2].size() + 1));
        if (line.Kind == LineKind::Declaration) {
            if (!inGroup) { c.Name.push_back(kNameWidth); c.Type.push_back(0); group = c.Name.size() - 1; }
            inGroup = true;
            line.Group = group;
            c.Name[group] = std::max(c.Name[group], RoundUp4(line.Words[0].size() + 1));
            c.Type[group] = std::max(c.Type[group], line.Words[2].size() + 1);
        } else if (line.Kind != LineKind::Blank && line.Kind != LineKind::CommentOnly) {
            inGroup = false;
        }
    }
    return c;
}

std::string WithComment(std::string code, const std::string& comment, size_t column) {
    if (comment.empty()) return code;
    if (code.empty()) return comment;
    PadTo(code, column);
    return code + comment;
}

std::string Render(const Line& line, const Columns& c) {
    const size_t instructionComments = kIndent + kWordWidth + kOperandWidth + c.SecondOperand;
    std::string out;
    switch (line.Kind) {
    case LineKind::Verbatim:
    case LineKind::Code:
        return TrimRight(line.Original);
    case LineKind::Blank:
        return "";
    case LineKind::CommentOnly:
        return TrimRight(line.Original);
    case LineKind::Section:
    case LineKind::Label:
        for (const std::string& w : line.Words) out += (out.empty() ? "" : " ") + w;
        return WithComment(out, line.Comment, instructionComments);
    case LineKind::Instruction:
        out = line.AtMargin ? "" : std::string(kIndent, ' ');
        out += line.Words[0];
        if (line.Words.size() > 1) { PadTo(out, out.size() - line.Words[0].size() + kWordWidth); out += line.Words[1]; }
        if (line.Words.size() > 2) { PadTo(out, kIndent + kWordWidth + kOperandWidth); out += line.Words[2]; }
        return WithComment(out, line.Comment, instructionComments);
    case LineKind::Declaration: {
        out = std::string(kIndent, ' ') + line.Words[0];
        PadTo(out, kIndent + c.Name[line.Group]);
        out += line.Words[1];
        PadTo(out, kIndent + c.Name[line.Group] + kKindWidth);
        out += line.Words[2];
        const size_t valueColumn = kIndent + c.Name[line.Group] + kKindWidth + c.Type[line.Group];
        PadTo(out, valueColumn);
        for (size_t i = 3; i < line.Words.size(); ++i) out += (i > 3 ? " " : "") + line.Words[i];
        return WithComment(out, line.Comment, std::max(kDeclarationCommentColumn, valueColumn + 6));
    }
    }
    return line.Original;
}

}  // namespace

std::vector<std::string> FormatLines(const std::string& text) {
    const LineIndex index(text);
    std::vector<Line> lines(index.LineCount());
    bool inComment = false;
    for (size_t i = 0; i < lines.size(); ++i) {
        lines[i].Original = text.substr(index.LineStart(i), index.LineEnd(text, i) - index.LineStart(i));
        Split(lines[i], inComment);
        Classify(lines[i]);
    }
    MarkBodyEnds(lines);
    const Columns columns = Measure(lines);
    std::vector<std::string> out;
    out.reserve(lines.size());
    for (const Line& line : lines) out.push_back(Render(line, columns));
    return out;
}

Json Formatting(const Document& document, Encoding encoding) {
    const std::vector<std::string> lines = FormatLines(document.Text);
    Json edits = Json::array();
    for (size_t i = 0; i < lines.size(); ++i) {
        const size_t begin = document.Lines.LineStart(i);
        const size_t end = document.Lines.LineEnd(document.Text, i);
        if (document.Text.compare(begin, end - begin, lines[i]) == 0) continue;
        edits.push_back({{"range", RangeJson(document, begin, end, encoding)}, {"newText", lines[i]}});
    }
    return edits;
}

}  // namespace qzls
