#include "waveform.h"

#include "input_file.h"
#include "table.h"
#include "value_format.h"

#include <cmath>
#include <cstdlib>
#include <fstream>
#include <sstream>

namespace qzrun {
namespace {

constexpr char kDebianChartJs[] = "/usr/share/javascript/chart.js/chart.min.js";

const char* RoleName(Role role) {
    switch (role) {
        case Role::Input: return "input";
        case Role::Output: return "output";
        case Role::Variable: return "watched";
    }
    return "";
}

const char* ScopeName(Role role) {
    switch (role) {
        case Role::Input: return "inputs";
        case Role::Output: return "outputs";
        case Role::Variable: return "watched";
    }
    return "";
}

// Bits of an integer type by its host type code (2..7: SINT .. UDINT).
int IntegerWidth(int dimension) {
    static const int widths[] = {8, 8, 16, 16, 32, 32};
    return dimension >= 2 && dimension <= 7 ? widths[dimension - 2] : 0;
}

// VCD identifiers: short words of printable characters.
std::string VcdId(size_t index) {
    std::string id;
    do {
        id += char('!' + index % 94);
        index /= 94;
    } while (index > 0);
    return id;
}

std::string VcdValue(const Signal& signal, double value, const std::string& id) {
    if (signal.Dimension == 1) return std::string(value != 0.0 ? "1" : "0") + id;
    if (const int width = IntegerWidth(signal.Dimension)) {
        const long long whole = std::isfinite(value) ? (long long)std::trunc(value) : 0;
        const unsigned long long bits = (unsigned long long)whole & ((1ull << width) - 1);
        std::string binary;
        for (int b = width - 1; b >= 0; --b)
            if (!binary.empty() || (bits >> b) & 1) binary += (bits >> b) & 1 ? '1' : '0';
        return "b" + (binary.empty() ? std::string("0") : binary) + " " + id;
    }
    return "r" + Shortest(value) + " " + id;
}

// One time unit a cycle when the cycle time is a power of ten milliseconds,
// which a VCD timescale can express; else milliseconds.
void ChooseTimescale(uint32_t cycleMs, std::string& timescale, uint64_t& unitsPerCycle) {
    static const std::pair<uint32_t, const char*> scales[] = {
        {1, "1 ms"}, {10, "10 ms"}, {100, "100 ms"}, {1000, "1 s"}, {10000, "10 s"}, {100000, "100 s"}};
    const uint32_t ms = cycleMs ? cycleMs : 1;
    for (const auto& [length, name] : scales)
        if (length == ms) {
            timescale = name;
            unitsPerCycle = 1;
            return;
        }
    timescale = "1 ms";
    unitsPerCycle = ms;
}

std::string Identifier(const std::string& text) {
    std::string word;
    for (char c : text) word += std::isalnum(static_cast<unsigned char>(c)) || c == '_' ? c : '_';
    return word.empty() ? "program" : word;
}

bool Finish(std::ofstream& out, const std::string& path, std::string& error) {
    out.flush();
    if (out) return true;
    error = "cannot write '" + path + "'";
    return false;
}

// A JSON string literal that is also safe inside an HTML <script>.
std::string JsonString(const std::string& text) {
    std::string quoted = "\"";
    for (char c : text) {
        switch (c) {
            case '"': quoted += "\\\""; break;
            case '\\': quoted += "\\\\"; break;
            case '<': quoted += "\\u003c"; break;
            case '>': quoted += "\\u003e"; break;
            case '&': quoted += "\\u0026"; break;
            case '\n': quoted += "\\n"; break;
            default:
                if (static_cast<unsigned char>(c) < 0x20) {
                    char buffer[8];
                    std::snprintf(buffer, sizeof buffer, "\\u%04x", c);
                    quoted += buffer;
                } else {
                    quoted += c;
                }
        }
    }
    return quoted + "\"";
}

std::string HtmlText(const std::string& text) {
    std::string escaped;
    for (char c : text) {
        switch (c) {
            case '<': escaped += "&lt;"; break;
            case '>': escaped += "&gt;"; break;
            case '&': escaped += "&amp;"; break;
            case '"': escaped += "&quot;"; break;
            default: escaped += c;
        }
    }
    return escaped;
}

// The run as the page's script reads it.
std::string RunJson(const std::string& title, const Recording& recording) {
    std::ostringstream json;
    json << "{\"program\":" << JsonString(title) << ",\"cycleMs\":" << recording.CycleMs
         << ",\"cycles\":" << recording.Rows.size() << ",\"signals\":[";
    for (size_t s = 0; s < recording.Signals.size(); ++s) {
        const Signal& signal = recording.Signals[s];
        json << (s ? "," : "") << "{\"name\":" << JsonString(signal.Heading()) << ",\"role\":\""
             << RoleName(signal.Kind) << "\",\"bool\":" << (signal.Dimension == 1 ? "true" : "false")
             << ",\"forced\":" << (signal.Forced ? "true" : "false") << ",\"values\":[";
        for (size_t row = 0; row < recording.Rows.size(); ++row) {
            // The value as the table shows it (a REAL as its single-precision value).
            const std::string shown = FormatSample(signal, recording.At(row, s).Value);
            const double value = std::strtod(shown.c_str(), nullptr);
            json << (row ? "," : "") << (std::isfinite(value) ? shown : "null");
        }
        json << "]}";
    }
    json << "]}";
    return json.str();
}

void WriteHtmlTable(std::ofstream& out, const Recording& recording) {
    out << "<table id=\"run-table\">\n<thead><tr><th>cycle</th>";
    for (const Signal& signal : recording.Signals)
        out << "<th class=\"" << RoleName(signal.Kind) << "\">" << HtmlText(signal.Heading())
            << (signal.Forced ? "!" : "") << "</th>";
    out << "</tr></thead>\n<tbody>\n";
    for (size_t row = 0; row < recording.Rows.size(); ++row) {
        out << "<tr><td>" << row + 1 << "</td>";
        for (size_t s = 0; s < recording.Signals.size(); ++s) {
            const Sample sample = recording.At(row, s);
            out << "<td>" << HtmlText(FormatSample(recording.Signals[s], sample.Value)) << (sample.Written ? "*" : "")
                << "</td>";
        }
        out << "</tr>\n";
    }
    out << "</tbody></table>\n";
}

// Draws a lane a signal, stacked like a logic analyser's, from the data above.
const char kPageScript[] = R"JS(
(function () {
  const colors = ['#1f77b4', '#d62728', '#2ca02c', '#ff7f0e', '#9467bd', '#8c564b', '#e377c2', '#17becf'];
  const labels = [];
  for (let c = 1; c <= run.cycles; ++c) labels.push(run.cycleMs ? (c - 1) * run.cycleMs : c);
  const scales = {
    x: { title: { display: true, text: run.cycleMs ? 'time (ms)' : 'cycle' }, ticks: { maxTicksLimit: 20 } }
  };
  const datasets = run.signals.map(function (signal, i) {
    const axis = 'y' + i;
    scales[axis] = {
      type: 'linear', stack: 'lanes', stackWeight: 1, offset: true, position: 'left',
      title: { display: true, text: signal.name + (signal.forced ? '!' : '') },
      grid: { borderColor: '#888' }
    };
    if (signal.bool) {
      Object.assign(scales[axis], { min: -0.2, max: 1.2 });
      scales[axis].afterBuildTicks = function (scale) { scale.ticks = [{ value: 0 }, { value: 1 }]; };
    }
    return {
      label: signal.name, data: signal.values, yAxisID: axis, stepped: true,
      borderColor: colors[i % colors.length], backgroundColor: colors[i % colors.length],
      borderWidth: 2, pointRadius: 0
    };
  });
  // The first signal on top: stacked axes are laid out from the bottom.
  const ordered = {};
  Object.keys(scales).reverse().forEach(function (key) { ordered[key] = scales[key]; });
  window.qzChart = new Chart(document.getElementById('timing'), {
    type: 'line',
    data: { labels: labels, datasets: datasets },
    options: {
      animation: false, responsive: true, maintainAspectRatio: false,
      interaction: { mode: 'index', intersect: false },
      plugins: { legend: { position: 'top' } },
      scales: ordered
    }
  });
})();
)JS";

}  // namespace

bool WriteVcd(const std::string& path, const std::string& scope, const Recording& recording, std::string& error) {
    std::ofstream out(path, std::ios::binary | std::ios::trunc);
    if (!out) {
        error = "cannot write '" + path + "'";
        return false;
    }
    std::string timescale;
    uint64_t unitsPerCycle;
    ChooseTimescale(recording.CycleMs, timescale, unitsPerCycle);
    out << "$version qzrun $end\n$timescale " << timescale << " $end\n";
    out << "$scope module " << Identifier(scope) << " $end\n";
    for (Role role : {Role::Input, Role::Output, Role::Variable}) {
        bool opened = false;
        for (size_t s = 0; s < recording.Signals.size(); ++s) {
            const Signal& signal = recording.Signals[s];
            if (signal.Kind != role) continue;
            if (!opened) out << "$scope module " << ScopeName(role) << " $end\n";
            opened = true;
            const int width = signal.Dimension == 1 ? 1 : IntegerWidth(signal.Dimension);
            out << "$var " << (width ? "wire " : "real ") << (width ? width : 64) << ' ' << VcdId(s) << ' '
                << Identifier(signal.Name) << " $end\n";
        }
        if (opened) out << "$upscope $end\n";
    }
    out << "$upscope $end\n$enddefinitions $end\n";
    std::vector<std::string> last(recording.Signals.size());
    for (size_t row = 0; row < recording.Rows.size(); ++row) {
        out << '#' << row * unitsPerCycle << '\n';
        if (row == 0) out << "$dumpvars\n";
        for (size_t s = 0; s < recording.Signals.size(); ++s) {
            std::string value = VcdValue(recording.Signals[s], recording.At(row, s).Value, VcdId(s));
            if (value == last[s]) continue;
            out << value << '\n';
            last[s] = std::move(value);
        }
        if (row == 0) out << "$end\n";
    }
    // The end of the last cycle, so that it has a width in a viewer.
    out << '#' << recording.Rows.size() * unitsPerCycle << '\n';
    return Finish(out, path, error);
}

std::string ChartLibraryPath() {
    const char* override = std::getenv("QZRUN_CHART_JS");
    return override && *override ? override : kDebianChartJs;
}

bool ReadChartLibrary(std::string& script, std::string& error) {
    const std::string path = ChartLibraryPath();
    if (ReadInputFile(path, 64ull << 20, script, error)) return true;
    error = "--html needs Chart.js: " + error + " (install the Debian package libjs-chart.js)";
    return false;
}

bool WriteHtml(const std::string& path, const std::string& title, const std::string& chartLibrary,
               const Recording& recording, std::string& error) {
    std::ofstream out(path, std::ios::binary | std::ios::trunc);
    if (!out) {
        error = "cannot write '" + path + "'";
        return false;
    }
    // The library must not end the <script> element it is put into.
    std::string library = chartLibrary;
    for (size_t at = 0; (at = library.find("</script", at)) != std::string::npos; at += 3) library.replace(at, 2, "<\\/");
    const size_t lanes = recording.Signals.size();
    out << "<!DOCTYPE html>\n<html lang=\"en\">\n<head>\n<meta charset=\"utf-8\">\n<title>qzrun: " << HtmlText(title)
        << "</title>\n<style>\nbody { font-family: sans-serif; margin: 1.5em; }\n"
        << "#chart { position: relative; height: " << 90 + 70 * lanes << "px; }\n"
        << "table { border-collapse: collapse; margin-top: 1.5em; font-family: monospace; }\n"
        << "th, td { border: 1px solid #ccc; padding: 2px 8px; text-align: right; }\n"
        << "th.input { background: #eef; } th.output { background: #efe; } th.watched { background: #ffe; }\n"
        << "</style>\n<script>\n" << library << "\n</script>\n</head>\n<body>\n<h1>" << HtmlText(title) << "</h1>\n<p>"
        << recording.Rows.size() << " cycles"
        << (recording.CycleMs ? ", " + std::to_string(recording.CycleMs) + " ms a cycle" : std::string())
        << ". '*' marks a value written by the program in its cycle, '!' a signal held by --force.</p>\n"
        << "<div id=\"chart\"><canvas id=\"timing\"></canvas></div>\n";
    WriteHtmlTable(out, recording);
    out << "<script>\nconst run = " << RunJson(title, recording) << ";\n" << kPageScript << "</script>\n</body>\n</html>\n";
    return Finish(out, path, error);
}

}  // namespace qzrun
