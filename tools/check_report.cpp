#include "check_report.h"

#include "input_file.h"
#include "qz_st_check.h"

#include <nlohmann/json.hpp>

#include <algorithm>
#include <cstdio>
#include <string_view>

namespace qzrun {
namespace {

struct Finding {
    bool Error;
    uint32_t Code;
    std::string Id;
    size_t Begin, End;
    uint32_t Line, Column;
    std::string Message, Note;
};

void Collect(void* context, const QZDiagnostic* d) {
    static_cast<std::vector<Finding>*>(context)->push_back(Finding{d->Severity == QZ_DIAGNOSTIC_ERROR, d->Code, d->Id,
                                                                   d->Begin, d->End, d->Line, d->Column, d->Message,
                                                                   d->Note});
}

bool KnownWarning(const std::string& id) {
    for (size_t i = 0; const char* known = QZCheckWarning(i, nullptr); ++i)
        if (id == known) return true;
    return false;
}

std::vector<Finding> Check(const std::string& bytes, const CheckOptions& options) {
    std::vector<Finding> all;
    if (QZCheckProgram(bytes.data(), bytes.size(), Collect, &all) != 0) throw std::bad_alloc();
    std::vector<Finding> kept;
    for (Finding& f : all)
        if (f.Error || !options.Silenced.count(f.Id)) kept.push_back(std::move(f));
    return kept;
}

bool IsContinuationByte(char c) { return (static_cast<unsigned char>(c) & 0xC0) == 0x80; }

std::string_view LineOf(const std::string& bytes, size_t offset) {
    offset = std::min(offset, bytes.size());
    const size_t begin = bytes.rfind('\n', offset == 0 ? 0 : offset - 1);
    const size_t start = (begin == std::string::npos || (offset == 0 && bytes[0] != '\n')) ? 0 : begin + 1;
    size_t end = bytes.find('\n', offset);
    if (end == std::string::npos) end = bytes.size();
    if (end > start && bytes[end - 1] == '\r') --end;
    return std::string_view(bytes).substr(start, end - start);
}

// The line (up to 200 bytes around the place) and a caret under the range.
void PrintSnippet(FILE* out, const std::string& bytes, const Finding& f) {
    constexpr size_t kWidth = 200, kLead = 60;
    const std::string_view line = LineOf(bytes, f.Begin);
    const size_t column = std::min(size_t(f.Column - 1), line.size());
    size_t begin = 0, end = line.size();
    if (line.size() > kWidth) {
        begin = std::min(column > kLead ? column - kLead : 0, line.size() - kWidth);
        end = begin + kWidth;
        while (begin > 0 && begin < line.size() && IsContinuationByte(line[begin])) ++begin;
        while (end < line.size() && end > begin && IsContinuationByte(line[end])) --end;
    }
    const char* before = begin > 0 ? "..." : "";
    const char* after = end < line.size() ? "..." : "";
    const std::string_view shown = line.substr(begin, end - begin);
    std::fprintf(out, "%5u | %s%.*s%s\n", f.Line, before, int(shown.size()), shown.data(), after);
    std::string marker(std::string_view(before).size(), ' ');
    for (size_t i = begin; i < column && i < end; ++i)
        if (line[i] == '\t') marker += '\t';
        else if (!IsContinuationByte(line[i])) marker += ' ';
    marker += '^';
    const size_t length = f.End > f.Begin ? f.End - f.Begin : 1;
    for (size_t i = 1; i < length && column + i < end; ++i)
        if (!IsContinuationByte(line[column + i])) marker += '~';
    std::fprintf(out, "      | %s\n", marker.c_str());
}

void PrintText(FILE* out, const std::string& path, const std::string& bytes, const std::vector<Finding>& findings) {
    for (const Finding& f : findings) {
        std::fprintf(out, "%s:%u:%u: %s %s: %s\n", path.c_str(), f.Line, f.Column, f.Error ? "error" : "warning",
                     f.Id.c_str(), f.Message.c_str());
        PrintSnippet(out, bytes, f);
        if (!f.Note.empty()) std::fprintf(out, "%s:%u:%u: note: %s\n", path.c_str(), f.Line, f.Column, f.Note.c_str());
    }
}

// Columns of SARIF regions count Unicode code points (declared in the run).
uint32_t CodePointColumn(const std::string& bytes, size_t offset, uint32_t byteColumn) {
    uint32_t column = 1;
    for (size_t i = offset - (byteColumn - 1); i < offset; ++i)
        if (!IsContinuationByte(bytes[i])) ++column;
    return column;
}

nlohmann::json Region(const std::string& bytes, const Finding& f) {
    const size_t end = std::max(f.End, f.Begin);
    uint32_t endLine = f.Line;
    size_t lineStart = f.Begin - (f.Column - 1);
    for (size_t i = f.Begin; i < end; ++i)
        if (bytes[i] == '\n') {
            ++endLine;
            lineStart = i + 1;
        }
    uint32_t endColumn = 1;
    for (size_t i = lineStart; i < end; ++i)
        if (!IsContinuationByte(bytes[i])) ++endColumn;
    return {{"startLine", f.Line},
            {"startColumn", CodePointColumn(bytes, f.Begin, f.Column)},
            {"endLine", endLine},
            {"endColumn", endColumn},
            {"byteOffset", f.Begin},
            {"byteLength", end - f.Begin}};
}

struct FileFindings {
    std::string Path, Bytes;
    std::vector<Finding> Findings;
};

nlohmann::json Sarif(const std::vector<FileFindings>& files) {
    nlohmann::json rules = nlohmann::json::array();
    for (size_t i = 0; const char* id = QZCheckWarning(i, nullptr); ++i) {
        const char* meaning = nullptr;
        QZCheckWarning(i, &meaning);
        rules.push_back({{"id", id}, {"shortDescription", {{"text", meaning}}},
                         {"defaultConfiguration", {{"level", "warning"}}}});
    }
    nlohmann::json results = nlohmann::json::array();
    for (const FileFindings& file : files)
        for (const Finding& f : file.Findings) {
            nlohmann::json result = {
                {"ruleId", f.Error ? "error-" + f.Id : f.Id},
                {"level", f.Error ? "error" : "warning"},
                {"message", {{"text", f.Note.empty() ? f.Message : f.Message + " (" + f.Note + ")"}}},
                {"locations",
                 {{{"physicalLocation",
                    {{"artifactLocation", {{"uri", file.Path}}}, {"region", Region(file.Bytes, f)}}}}}}};
            if (f.Error) result["properties"] = {{"resultCode", f.Code}};
            results.push_back(std::move(result));
        }
    return {{"$schema", "https://json.schemastore.org/sarif-2.1.0.json"},
            {"version", "2.1.0"},
            {"runs",
             {{{"tool", {{"driver", {{"name", "qzrun"}, {"rules", rules}}}}},
               {"columnKind", "unicodeCodePoints"},
               {"results", results}}}}};
}

nlohmann::json JsonList(const std::vector<FileFindings>& files) {
    nlohmann::json list = nlohmann::json::array();
    for (const FileFindings& file : files)
        for (const Finding& f : file.Findings)
            list.push_back({{"file", file.Path},
                            {"line", f.Line},
                            {"column", f.Column},
                            {"begin", f.Begin},
                            {"end", f.End},
                            {"severity", f.Error ? "error" : "warning"},
                            {"id", f.Id},
                            {"code", f.Code},
                            {"message", f.Message},
                            {"note", f.Note}});
    return list;
}

}  // namespace

bool SetWarningOption(CheckOptions& options, const std::string& value, std::string& error) {
    if (value.compare(0, 3, "no-") != 0 || !KnownWarning(value.substr(3))) {
        error = "-W needs no-ID with the ID of a warning (see docs/diagnostics.md), not '" + value + "'";
        return false;
    }
    options.Silenced.insert(value.substr(3));
    return true;
}

bool SetFormat(CheckOptions& options, const std::string& value, std::string& error) {
    if (value == "text") options.Output = CheckOptions::Format::Text;
    else if (value == "json") options.Output = CheckOptions::Format::Json;
    else if (value == "sarif") options.Output = CheckOptions::Format::Sarif;
    else {
        error = "--format takes text, json or sarif, not '" + value + "'";
        return false;
    }
    return true;
}

int CheckFiles(const std::vector<std::string>& paths, const CheckOptions& options, uint64_t maxFileBytes) {
    std::vector<FileFindings> files;
    bool unreadable = false, failing = false;
    for (const std::string& path : paths) {
        FileFindings file;
        file.Path = path;
        std::string error;
        if (!ReadInputFile(path, maxFileBytes, file.Bytes, error)) {
            std::fprintf(stderr, "qzrun: error: %s\n", error.c_str());
            unreadable = true;
            continue;
        }
        file.Findings = Check(file.Bytes, options);
        for (const Finding& f : file.Findings)
            if (f.Error || options.WarningsAreErrors) failing = true;
        if (options.Output == CheckOptions::Format::Text) PrintText(stderr, path, file.Bytes, file.Findings);
        files.push_back(std::move(file));
    }
    if (options.Output == CheckOptions::Format::Sarif) std::printf("%s\n", Sarif(files).dump(2).c_str());
    if (options.Output == CheckOptions::Format::Json) std::printf("%s\n", JsonList(files).dump(2).c_str());
    return unreadable ? 2 : failing ? 1 : 0;
}

int PrintWarnings(const std::string& path, const std::string& bytes, const CheckOptions& options) {
    std::vector<Finding> warnings;
    for (Finding& f : Check(bytes, options))
        if (!f.Error) warnings.push_back(std::move(f));
    PrintText(stderr, path, bytes, warnings);
    return int(warnings.size());
}

}  // namespace qzrun
