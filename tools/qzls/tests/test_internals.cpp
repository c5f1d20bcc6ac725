// The server's own mechanics below the protocol: line and position
// arithmetic in the three encodings, framing, and the formatter's lines.
#include "format.h"
#include "framing.h"
#include "positions.h"

#include <gtest/gtest.h>

#include <sstream>

namespace {

using qzls::Encoding;
using qzls::LineIndex;
using qzls::Position;

TEST(Positions, LinesEndAtLfCrLfAndLoneCr) {
    const std::string text = "a\nbc\r\nd\re";
    const LineIndex lines(text);
    ASSERT_EQ(lines.LineCount(), 4u);
    EXPECT_EQ(lines.LineStart(1), 2u);
    EXPECT_EQ(lines.LineEnd(text, 1), 4u);  // before "\r\n"
    EXPECT_EQ(lines.LineStart(2), 6u);
    EXPECT_EQ(lines.LineEnd(text, 2), 7u);  // before the lone "\r"
    EXPECT_EQ(lines.LineStart(3), 8u);
    EXPECT_EQ(lines.LineEnd(text, 3), 9u);
}

TEST(Positions, CharactersCountByEncoding) {
    // "Ä" is 2 bytes, 1 UTF-16 unit; the emoji is 4 bytes, 2 UTF-16 units, 1 code point.
    const std::string text = "x\xC3\x84\xF0\x9F\x98\x80y";
    const LineIndex lines(text);
    const size_t y = text.size() - 1;
    EXPECT_EQ(lines.PositionOf(text, y, Encoding::Utf8).Character, 7);
    EXPECT_EQ(lines.PositionOf(text, y, Encoding::Utf16).Character, 4);
    EXPECT_EQ(lines.PositionOf(text, y, Encoding::Utf32).Character, 3);
    EXPECT_EQ(lines.OffsetOf(text, Position{0, 4}, Encoding::Utf16), y);
    EXPECT_EQ(lines.OffsetOf(text, Position{0, 7}, Encoding::Utf8), y);
    EXPECT_EQ(lines.OffsetOf(text, Position{0, 3}, Encoding::Utf32), y);
}

TEST(Positions, APositionInsideACharacterStaysBeforeIt) {
    const std::string text = "\xF0\x9F\x98\x80z";
    const LineIndex lines(text);
    EXPECT_EQ(lines.OffsetOf(text, Position{0, 1}, Encoding::Utf16), 0u);  // between the surrogates
    EXPECT_EQ(lines.OffsetOf(text, Position{0, 2}, Encoding::Utf8), 0u);   // inside the bytes
}

TEST(Positions, OutOfRangePositionsAreClamped) {
    const std::string text = "ab\ncd";
    const LineIndex lines(text);
    EXPECT_EQ(lines.OffsetOf(text, Position{0, 99}, Encoding::Utf16), 2u);  // the line's end
    EXPECT_EQ(lines.OffsetOf(text, Position{7, 0}, Encoding::Utf16), 5u);   // the text's end
    EXPECT_EQ(lines.OffsetOf(text, Position{-1, 0}, Encoding::Utf16), 0u);
    EXPECT_EQ(lines.OffsetOf(text, Position{1, -3}, Encoding::Utf16), 3u);
}

TEST(Positions, InvalidUtf8CountsAByteAsACharacter) {
    const std::string text = "\xFF\xC3z";
    const LineIndex lines(text);
    EXPECT_EQ(lines.PositionOf(text, 2, Encoding::Utf16).Character, 2);
    EXPECT_EQ(lines.OffsetOf(text, Position{0, 2}, Encoding::Utf16), 2u);
}

qzls::ReadResult Read(const std::string& wire) {
    std::istringstream in(wire);
    return qzls::ReadMessage(in);
}

TEST(Framing, ReadsABodyOfExactlyContentLengthBytes) {
    const qzls::ReadResult r = Read("Content-Length: 2\r\nContent-Type: x\r\n\r\n{}trailing");
    EXPECT_EQ(r.Status, qzls::ReadStatus::Message);
    EXPECT_EQ(r.Body, "{}");
}

TEST(Framing, HeaderNamesIgnoreCaseAndBareLineFeedsAreAccepted) {
    const qzls::ReadResult r = Read("content-length: 3\n\n[1]");
    EXPECT_EQ(r.Status, qzls::ReadStatus::Message);
    EXPECT_EQ(r.Body, "[1]");
}

TEST(Framing, BadHeadersAreReportedAndReadingGoesOn) {
    std::istringstream in("Content-Length: x\r\n\r\nContent-Length: 99999999999999\r\n\r\nContent-Length: 1\r\n\r\n7");
    EXPECT_EQ(qzls::ReadMessage(in).Status, qzls::ReadStatus::BadHeader);
    EXPECT_EQ(qzls::ReadMessage(in).Status, qzls::ReadStatus::BadHeader);
    const qzls::ReadResult r = qzls::ReadMessage(in);
    EXPECT_EQ(r.Status, qzls::ReadStatus::Message);
    EXPECT_EQ(r.Body, "7");
    EXPECT_EQ(qzls::ReadMessage(in).Status, qzls::ReadStatus::EndOfInput);
}

TEST(Framing, ABodyCutShortIsTheEndOfInput) {
    EXPECT_EQ(Read("Content-Length: 10\r\n\r\nabc").Status, qzls::ReadStatus::EndOfInput);
}

TEST(Framing, WritesTheLengthInBytes) {
    std::ostringstream out;
    qzls::WriteMessage(out, "\"\xC3\x84\"");
    EXPECT_EQ(out.str(), "Content-Length: 4\r\n\r\n\"\xC3\x84\"");
}

TEST(Formatting, CommentsSpanningLinesAreLeftAlone) {
    const std::string text = "(*\n   MOV   1 R0\n*)\nPROG  P\nVAR\nMAIN\n  MOV 1 R0 (* a\n  b *)\nRET";
    const std::vector<std::string> lines = qzls::FormatLines(text);
    const std::vector<std::string> expected = {"(*", "   MOV   1 R0", "*)", "PROG P", "VAR", "MAIN",
                                               "  MOV 1 R0 (* a", "  b *)", "RET"};
    EXPECT_EQ(lines, expected);
}

TEST(Formatting, AFieldTooLongForItsColumnGetsOneBlank) {
    const std::vector<std::string> lines = qzls::FormatLines("MAIN\nMOV @A_VERY_LONG_NAME R0 // x\nRET");
    EXPECT_EQ(lines[1], "    MOV     @A_VERY_LONG_NAME R0        // x");  // the comment at 40
}

TEST(Formatting, TvrDeclarationsKeepAllTheirNumbers) {
    const std::vector<std::string> lines = qzls::FormatLines("VAR\nT TVR REAL 1  2 3   4\nMAIN");
    EXPECT_EQ(lines[1], "    T           TVR REAL 1 2 3 4");
}

}  // namespace
