#include "format.h"

#include "qz_tokens.h"
#include "words.h"

#include <algorithm>
#include <map>

namespace qzls {
namespace {

constexpr size_t kIndent = 4;
constexpr size_t kWordWidth = 8;      // instruction word and its padding
constexpr size_t kOperandWidth = 12;  // first operand and its padding
constexpr size_t kNameWidth = 12;
constexpr size_t kKindWidth = 4;
constexpr size_t kDeclarationCommentColumn = 32;
constexpr size_t kInstructionCommentColumn = 40;

enum class LineKind { Verbatim, Code, Blank, CommentOnly, Section, Label, Instruction, Declaration };

struct Line {
    std::string Original;
    LineKind Kind = LineKind::Verbatim;
    std::vector<std::string> Words;
    std::vector<size_t> Columns;  // where each word starts in Original
    std::string Comment;     // a trailing comment, "" for none
    size_t CommentColumn = 0;
    bool AtMargin = false;   // a RET that ends a body
    size_t Group = 0;        // declaration lines of one run share columns
};


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
        if (s.compare(i, 2, "//") == 0) {
            line.Comment = TrimRight(s.substr(i));
            line.CommentColumn = i;
            break;
        }
        if (s.compare(i, 2, "(*") == 0) {
            const size_t close = s.find("*)", i + 2);
            if (close == std::string::npos) { inComment = true; line.Kind = LineKind::Verbatim; return; }
            if (s.find_first_not_of(" \t\r", close + 2) != std::string::npos) {
                line.Kind = LineKind::Verbatim;  // code after a comment: left alone
                inComment = s.rfind("(*") > close && s.find("*)", s.rfind("(*")) == std::string::npos;
                return;
            }
            line.Comment = TrimRight(s.substr(i));
            line.CommentColumn = i;
            break;
        }
        const size_t begin = i;
        line.Columns.push_back(i);
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

// The widths a file already uses: the most common one among the fields
// that were padded on purpose (two blanks or more before the next field).
// Fields that overflow get one blank and do not vote, so formatting twice
// gives what formatting once gave.
class Votes {
public:
    void Add(size_t width, size_t gap) {
        if (gap >= 2) ++Counts_[width];
    }
    // Widths below `floor` (the standard width unless given) are a careless
    // layout, not a choice.
    size_t Winner(size_t standard, size_t floor = 0) const {
        if (floor == 0) floor = standard;
        size_t best = standard, most = 0;
        for (const auto& [width, count] : Counts_)
            if (width >= floor && count >= most) best = width, most = count;
        return best;
    }

private:
    std::map<size_t, size_t> Counts_;
};

struct Widths {
    size_t Word = kWordWidth, Operand = kOperandWidth, Comment = kInstructionCommentColumn;
};

struct DeclarationWidths {
    size_t Name = kNameWidth, Kind = kKindWidth, Type = 0, Comment = 0;
};

struct Columns {
    Widths Instructions;
    std::vector<DeclarationWidths> Declarations;  // per run of declaration lines
};

size_t CodeEnd(const Line& line) { return line.Columns.back() + line.Words.back().size(); }

// The gap between field `i` and what follows it on the line as written.
size_t GapAfter(const Line& line, size_t i) {
    const size_t end = line.Columns[i] + line.Words[i].size();
    const size_t next = i + 1 < line.Words.size() ? line.Columns[i + 1] : line.CommentColumn;
    return next - end;
}

size_t WidthOf(const Line& line, size_t i) {
    const size_t next = i + 1 < line.Words.size() ? line.Columns[i + 1] : line.CommentColumn;
    return next - line.Columns[i];
}

// Comment columns are counted as if the line had the standard indentation.
void VoteComment(Votes& votes, const Line& line) {
    if (line.Comment.empty() || line.Columns[0] == 0) return;
    votes.Add(line.CommentColumn - line.Columns[0] + kIndent, line.CommentColumn - CodeEnd(line));
}

Widths MeasureInstructions(const std::vector<Line>& lines) {
    Votes word, operand, comment;
    for (const Line& line : lines) {
        if (line.Kind != LineKind::Instruction) continue;
        if (line.Words.size() > 2) word.Add(WidthOf(line, 0), GapAfter(line, 0));
        if (line.Words.size() > 2) operand.Add(WidthOf(line, 1), GapAfter(line, 1));
        VoteComment(comment, line);
    }
    return {word.Winner(kWordWidth), operand.Winner(kOperandWidth), comment.Winner(kInstructionCommentColumn, kIndent + kWordWidth)};
}

DeclarationWidths MeasureDeclarations(const std::vector<const Line*>& group) {
    Votes name, kind, comment;
    size_t type = 0;
    for (const Line* line : group) {
        name.Add(WidthOf(*line, 0), GapAfter(*line, 0));
        kind.Add(WidthOf(*line, 1), GapAfter(*line, 1));
        type = std::max(type, line->Words[2].size() + 1);
        VoteComment(comment, *line);
    }
    DeclarationWidths w{name.Winner(kNameWidth), kind.Winner(kKindWidth), type, 0};
    w.Comment = comment.Winner(std::max(kDeclarationCommentColumn, kIndent + w.Name + w.Kind + w.Type + 6), kIndent + w.Name);
    return w;
}

Columns Measure(std::vector<Line>& lines) {
    Columns c;
    c.Instructions = MeasureInstructions(lines);
    std::vector<const Line*> group;
    auto close = [&] {
        if (!group.empty()) c.Declarations.push_back(MeasureDeclarations(group));
        group.clear();
    };
    for (Line& line : lines) {
        if (line.Kind == LineKind::Declaration) {
            line.Group = c.Declarations.size();
            group.push_back(&line);
        } else if (line.Kind != LineKind::Blank && line.Kind != LineKind::CommentOnly) {
            close();
        }
    }
    close();
    return c;
}

std::string WithComment(std::string code, const std::string& comment, size_t column) {
    if (comment.empty()) return code;
    if (code.empty()) return comment;
    PadTo(code, column);
    return code + comment;
}

std::string RenderInstruction(const Line& line, const Widths& w) {
    std::string out = line.AtMargin ? "" : std::string(kIndent, ' ');
    const size_t start = out.size();
    out += line.Words[0];
    if (line.Words.size() > 1) {
        PadTo(out, start + w.Word);
        out += line.Words[1];
    }
    if (line.Words.size() > 2) {
        PadTo(out, start + w.Word + w.Operand);
        out += line.Words[2];
    }
    return WithComment(out, line.Comment, w.Comment);
}

std::string RenderDeclaration(const Line& line, const DeclarationWidths& w) {
    std::string out = std::string(kIndent, ' ') + line.Words[0];
    PadTo(out, kIndent + w.Name);
    out += line.Words[1];
    PadTo(out, kIndent + w.Name + w.Kind);
    out += line.Words[2];
    PadTo(out, kIndent + w.Name + w.Kind + w.Type);
    for (size_t i = 3; i < line.Words.size(); ++i) out += (i > 3 ? " " : "") + line.Words[i];
    return WithComment(out, line.Comment, w.Comment);
}

std::string Render(const Line& line, const Columns& c) {
    std::string out;
    switch (line.Kind) {
    case LineKind::Verbatim:
    case LineKind::Code:
    case LineKind::CommentOnly:
        return TrimRight(line.Original);
    case LineKind::Blank:
        return "";
    case LineKind::Section:
    case LineKind::Label:
        for (const std::string& w : line.Words) out += (out.empty() ? "" : " ") + w;
        return WithComment(out, line.Comment, c.Instructions.Comment);
    case LineKind::Instruction:
        return RenderInstruction(line, c.Instructions);
    case LineKind::Declaration:
        return RenderDeclaration(line, c.Declarations[line.Group]);
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
