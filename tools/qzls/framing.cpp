#include "framing.h"

#include <cstdint>
#include <limits>

namespace qzls {
namespace {

// Header lines are short; a longer one is garbage and must not grow memory.
constexpr size_t kHeaderLineLimit = 8192;
// Larger bodies than this are refused rather than allocated.
constexpr uint64_t kBodyLimit = uint64_t(256) << 20;

enum class LineStatus { Line, EndOfInput, TooLong };

LineStatus ReadHeaderLine(std::istream& in, std::string& line) {
    line.clear();
    for (;;) {
        const int c = in.get();
        if (c == std::char_traits<char>::eof()) return line.empty() ? LineStatus::EndOfInput : LineStatus::Line;
        if (c == '\n') break;
        if (line.size() == kHeaderLineLimit) {
            in.ignore(std::numeric_limits<std::streamsize>::max(), '\n');
            return LineStatus::TooLong;
        }
        line.push_back(char(c));
    }
    if (!line.empty() && line.back() == '\r') line.pop_back();
    return LineStatus::Line;
}

bool EqualsIgnoringCase(const std::string& a, const char* b) {
    size_t i = 0;
    for (; i < a.size() && b[i] != 0; ++i) {
        const char x = (a[i] >= 'A' && a[i] <= 'Z') ? char(a[i] - 'A' + 'a') : a[i];
        const char y = (b[i] >= 'A' && b[i] <= 'Z') ? char(b[i] - 'A' + 'a') : b[i];
        if (x != y) return false;
    }
    return i == a.size() && b[i] == 0;
}

// Digits only, no sign, no overflow.
bool ParseLength(const std::string& text, uint64_t& value) {
    size_t begin = text.find_first_not_of(' ');
    size_t end = text.find_last_not_of(' ');
    if (begin == std::string::npos) return false;
    value = 0;
    for (size_t i = begin; i <= end; ++i) {
        if (text[i] < '0' || text[i] > '9') return false;
        value = value * 10 + uint64_t(text[i] - '0');
        if (value > kBodyLimit) return false;
    }
    return true;
}

}  // namespace

ReadResult ReadMessage(std::istream& in) {
    ReadResult result;
    bool haveLength = false;
    uint64_t length = 0;
    std::string line;
    bool anyLine = false;
    for (;;) {
        const LineStatus status = ReadHeaderLine(in, line);
        if (status == LineStatus::EndOfInput) {
            result.Status = ReadStatus::EndOfInput;
            return result;
        }
        if (status == LineStatus::TooLong) {
            result.Problem = "header line too long";
            continue;
        }
        if (line.empty()) {
            if (!anyLine) continue;  // stray blank lines between messages
            break;
        }
        anyLine = true;
        const size_t colon = line.find(':');
        if (colon == std::string::npos) {
            result.Problem = "header line without ':'";
            continue;
        }
        if (EqualsIgnoringCase(line.substr(0, colon), "content-length")) {
            if (ParseLength(line.substr(colon + 1), length)) haveLength = true;
            else result.Problem = "unusable Content-Length";
        }
    }
    if (!haveLength) {
        if (result.Problem.empty()) result.Problem = "no Content-Length";
        result.Status = ReadStatus::BadHeader;
        return result;
    }
    // With a usable length the body is read even when another header line
    // was garbage, so that the next message starts where it should.
    result.Body.resize(size_t(length));
    in.read(&result.Body[0], std::streamsize(length));
    if (uint64_t(in.gcount()) != length) {
        result.Status = ReadStatus::EndOfInput;  // cut off in the middle of a body
        return result;
    }
    result.Status = result.Problem.empty() ? ReadStatus::Message : ReadStatus::BadHeader;
    if (!result.Problem.empty()) result.Body.clear();
    return result;
}

void WriteMessage(std::ostream& out, const std::string& body) {
    out << "Content-Length: " << body.size() << "\r\n\r\n" << body;
    out.flush();
}

}  // namespace qzls
