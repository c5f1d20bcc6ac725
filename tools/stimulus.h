// Input values for a run, read from a CSV file: a header row of input names,
// then one row of values a cycle.
#ifndef QZRUN_STIMULUS_H
#define QZRUN_STIMULUS_H

#include <cstdint>
#include <string>
#include <vector>

namespace qzrun {

struct Stimulus {
    std::vector<std::string> Names;         // as written in the header
    std::vector<std::vector<double>> Rows;  // one value a name, a row a cycle
};

// Reads `path`, a regular file of at most `maxBytes` bytes. Fields are separated by commas (or by semicolons when the
// header has semicolons and no comma), may be quoted, and are trimmed. Blank
// lines and lines starting with '#' are skipped. A value is a number or
// TRUE/FALSE; an empty field repeats the value above it. On failure returns
// false with `error` in the form "FILE:LINE: message" (or the reason the file
// cannot be read).
bool ReadStimulus(const std::string& path, uint64_t maxBytes, Stimulus& stimulus, std::string& error);

// Splits one CSV line at `separator`; a quoted field may hold the separator
// and "" for a quote; unquoted fields are trimmed. False for an open quote.
bool SplitFields(const std::string& line, char separator, std::vector<std::string>& fields);

// Parses one value as ReadStimulus does (also used for --set).
bool ParseValue(const std::string& text, double& value);

}  // namespace qzrun

#endif
