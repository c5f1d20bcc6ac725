// How qzrun shows values.
#ifndef QZRUN_VALUE_FORMAT_H
#define QZRUN_VALUE_FORMAT_H

#include <string>

namespace qzrun {

// The shortest text that reads back as the same double.
std::string Shortest(double value);

// An output value as its host type shows it: `dimension` is the host type
// code the interpreter passes with the value (1 BOOL, 2..7 integers, 10 REAL,
// 11 LREAL). BOOL is 0 or 1, integers have no fraction, REAL is the shortest
// text of its single-precision value, LREAL of its double.
std::string FormatOutput(double value, int dimension);

// A register's contents, by the type code it carries (0x20 BOOL .. 0x28
// LREAL), followed by ":TYPE"; a register never written shows its value only.
std::string FormatRegister(double value, char type);

// "BOOL" .. "LREAL" for a type code, or null.
const char* TypeName(char type);

// The host type code of a type code, as the interpreter hands outputs over.
int DimensionOf(char type);

}  // namespace qzrun

#endif
