#include "stimulus.h"

#include "input_file.h"

#include <cerrno>
#include <cmath>
#include <cstdlib>
#include <set>
#include <sstream>

namespace qzrun {
namespace {

std::string Trim(const std::string& s) {
    const size_t first = s.find_first_not_of(" \t\r\n");
    if (first == std::string::npos) return {};
    const size_t last = s.find_last_not_of(" \t\r\n");
    return s.substr(first, last - first + 1);
}

std::string Upper(std::string s) {
    for (char& c : s)
        if (c >= 'a' && c <= 'z') c = char(c - 'a' + 'A');
    return s;
}

}  // namespace

bool SplitFields(const std::string& line, char separator, std::vector<std::string>& fields) {
    fields.clear();
    std::string field;
    bool quoted = false;
    bool wasQuoted = false;
    for (size_t i = 0; i < line.size(); ++i) {
        const char c = line[i];
        if (quoted) {
            if (c == '"' && i + 1 < line.size() && line[i + 1] == '"') {
                field += '"';
                ++i;
            } else if (c == '"') {
                quoted = false;
            } else {
                field += c;
            }
        } else if (c == '"' && Trim(field).empty()) {
            quoted = wasQuoted = true;
            field.clear();
        } else if (c == separator) {
            fields.push_back(wasQuoted ? field : Trim(field));
            field.clear();
            wasQuoted = false;
        } else {
            field += c;
        }
    }
    if (quoted) return false;
    fields.push_back(wasQuoted ? field : Trim(field));
    return true;
}

bool ParseValue(const std::string& text, double& value) {
    const std::string word = Upper(Trim(text));
    if (word == "TRUE") {
        value = 1.0;
        return true;
    }
    if (word == "FALSE") {
        value = 0.0;
        return true;
    }
    if (word.empty()) return false;
    errno = 0;
    char* end = nullptr;
    value = std::strtod(word.c_str(), &end);
    return end && *end == '\0' && errno != ERANGE;
}

bool ReadStimulus(const std::string& path, uint64_t maxBytes, Stimulus& stimulus, std::string& error) {
    std::string bytes;
    if (!ReadInputFile(path, maxBytes, bytes, error)) return false;
    std::istringstream in(std::move(bytes));
    stimulus = Stimulus{};
    char separator = ',';
    bool haveHeader = false;
    std::string line;
    std::vector<std::string> fields;
    int lineNumber = 0;
    auto fail = [&](const std::string& message) {
        error = path + ":" + std::to_string(lineNumber) + ": " + message;
        return false;
    };
    while (std::getline(in, line)) {
        ++lineNumber;
        if (lineNumber == 1 && line.compare(0, 3, "\xEF\xBB\xBF") == 0) line.erase(0, 3);
        const std::string trimmed = Trim(line);
        if (trimmed.empty() || trimmed[0] == '#') continue;
        if (!haveHeader) {
            if (trimmed.find(';') != std::string::npos && trimmed.find(',') == std::string::npos) separator = ';';
            if (!SplitFields(line, separator, fields)) return fail("unterminated quote");
            std::set<std::string> seen;
            for (const std::string& name : fields) {
                if (name.empty()) return fail("empty input name in the header");
                if (!seen.insert(Upper(name)).second) return fail("input '" + name + "' named twice in the header");
            }
            stimulus.Names = fields;
            haveHeader = true;
            continue;
        }
        if (!SplitFields(line, separator, fields)) return fail("unterminated quote");
        if (fields.size() != stimulus.Names.size())
            return fail(std::to_string(fields.size()) + " values for " + std::to_string(stimulus.Names.size()) +
                        " inputs");
        std::vector<double> row(fields.size(), 0.0);
        for (size_t i = 0; i < fields.size(); ++i) {
            if (fields[i].empty()) {
                if (!stimulus.Rows.empty()) row[i] = stimulus.Rows.back()[i];
                continue;
            }
            if (!ParseValue(fields[i], row[i]))
                return fail("'" + fields[i] + "' for input " + stimulus.Names[i] + " is not a number");
        }
        stimulus.Rows.push_back(std::move(row));
    }
    if (!haveHeader) {
        lineNumber = lineNumber > 0 ? lineNumber : 1;
        return fail("no header row of input names");
    }
    return true;
}

}  // namespace qzrun
