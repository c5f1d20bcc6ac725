// The protocol's framing: a block of "Name: value" header lines ended by an
// empty line, then exactly Content-Length bytes of JSON.
#ifndef QZLS_FRAMING_H
#define QZLS_FRAMING_H

#include <istream>
#include <ostream>
#include <string>

namespace qzls {

enum class ReadStatus { Message, EndOfInput, BadHeader };

struct ReadResult {
    ReadStatus Status = ReadStatus::EndOfInput;
    std::string Body;     // the message when Status is Message
    std::string Problem;  // what was wrong with a bad header block
};

// Reads the next header block and its body. A block without a usable
// Content-Length is consumed and reported as BadHeader, so that reading
// resumes at the next block instead of guessing where a body ends; a block
// with one but with a garbled line is reported too, its body skipped.
ReadResult ReadMessage(std::istream& in);

void WriteMessage(std::ostream& out, const std::string& body);

}  // namespace qzls

#endif
