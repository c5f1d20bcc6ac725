// Waveforms of a run: a Value Change Dump for waveform viewers, and a
// self-contained web page with a timing diagram and the table.
#ifndef QZRUN_WAVEFORM_H
#define QZRUN_WAVEFORM_H

#include "recording.h"

#include <string>

namespace qzrun {

// Writes the recording as a VCD file. BOOL signals are 1-bit wires, integers
// vectors of their type's width (two's complement), REAL and LREAL reals.
// `scope` names the top module (the program).
bool WriteVcd(const std::string& path, const std::string& scope, const Recording& recording, std::string& error);

// Where the page's chart library is read from: $QZRUN_CHART_JS, or the file
// of Debian's libjs-chart.js.
std::string ChartLibraryPath();
// Reads the chart library; false with `error` saying what to install.
bool ReadChartLibrary(std::string& script, std::string& error);

// Writes one HTML page: the program's name, a timing diagram (a trace a
// signal, drawn by the chart library put into the page) and the table.
bool WriteHtml(const std::string& path, const std::string& title, const std::string& chartLibrary,
               const Recording& recording, std::string& error);

}  // namespace qzrun

#endif
