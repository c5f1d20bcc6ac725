// The checker behind the C interface of qz_st_check.h.
#include "qz_st_check.h"

#include "qz_check.h"
#include "qz_st_result_codes.h"

#include <algorithm>
#include <new>
#include <string_view>
#include <vector>

namespace {

void Deliver(std::string_view text, const qz::check::Model& model, QZDiagnosticFunction report, void* context) {
    std::vector<size_t> lineStarts{0};
    for (size_t i = 0; i < text.size(); ++i)
        if (text[i] == '\n') lineStarts.push_back(i + 1);
    for (const qz::check::Diagnostic& d : model.Diagnostics) {
        const size_t line = size_t(std::upper_bound(lineStarts.begin(), lineStarts.end(), d.Where.Begin) -
                                   lineStarts.begin());
        QZDiagnostic out;
        out.Severity = d.Level == qz::check::Severity::Error ? QZ_DIAGNOSTIC_ERROR : QZ_DIAGNOSTIC_WARNING;
        out.Code = d.Code;
        out.Id = d.Id.c_str();
        out.Begin = d.Where.Begin;
        out.End = d.Where.End;
        out.Line = uint32_t(line);
        out.Column = uint32_t(d.Where.Begin - lineStarts[line - 1] + 1);
        out.Message = d.Message.c_str();
        out.Note = d.Note.c_str();
        report(context, &out);
    }
}

}  // namespace

uint32_t QZCheckProgram(const char* text, size_t length, QZDiagnosticFunction report, void* context) {
    if (!text && length != 0) return Qz::rcEmptyText;
    try {
        const std::string_view view(text ? text : "", length);
        const qz::check::Model model = qz::check::Analyse(view);
        if (report) Deliver(view, model, report, context);
        return Qz::rcOK;
    } catch (const std::bad_alloc&) {
        return Qz::rcOutOfMemory;
    } catch (...) {
        return Qz::rcInternalFailure;
    }
}

const char* QZCheckWarning(size_t index, const char** meaning) {
    const std::vector<qz::check::WarningInfo>& warnings = qz::check::Warnings();
    if (index >= warnings.size()) return nullptr;
    if (meaning) *meaning = warnings[index].Meaning;
    return warnings[index].Id;
}
