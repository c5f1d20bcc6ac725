#include "value_format.h"

#include <charconv>
#include <cmath>
#include <cstdint>

namespace qzrun {
namespace {

template <typename T>
std::string ToChars(T value) {
    char buffer[64];
    const auto result = std::to_chars(buffer, buffer + sizeof buffer, value);
    return std::string(buffer, result.ptr);
}

bool IsIntegral(double value) { return std::isfinite(value) && std::trunc(value) == value && std::fabs(value) < 9.0e18; }

}  // namespace

std::string Shortest(double value) { return ToChars(value); }

std::string FormatOutput(double value, int dimension) {
    switch (dimension) {
    case 1:
        return value != 0.0 ? "1" : "0";  // NaN is true, as when stored into a BOOL
    case 2: case 3: case 4: case 5: case 6: case 7:
        if (IsIntegral(value)) return std::to_string(static_cast<long long>(value));
        return ToChars(value);  // an initial value written with a fraction, as declared
    case 10:
        // Stored REAL values are single precision; show them as such.
        if (std::isnan(value) || double(float(value)) == value) return ToChars(float(value));
        return ToChars(value);
    default:
        return ToChars(value);
    }
}

const char* TypeName(char type) {
    static const char* const names[] = {"BOOL", "SINT", "USINT", "INT", "UINT", "DINT", "UDINT", "REAL", "LREAL"};
    const int index = int(static_cast<unsigned char>(type)) - 0x20;
    return index >= 0 && index < 9 ? names[index] : nullptr;
}

int DimensionOf(char type) {
    static const int dimensions[] = {1, 2, 3, 4, 5, 6, 7, 10, 11};
    const int index = int(static_cast<unsigned char>(type)) - 0x20;
    return index >= 0 && index < 9 ? dimensions[index] : 11;
}

std::string FormatRegister(double value, char type) {
    const char* name = TypeName(type);
    if (!name) return ToChars(value);
    // A register holds values as they were produced, never narrowed, so the
    // double is shown as it is except for BOOL and whole integers.
    const int dimension = DimensionOf(type);
    std::string text = dimension == 10 || dimension == 11 ? ToChars(value) : FormatOutput(value, dimension);
    if (dimension == 1 && value != 0.0 && value != 1.0) text = ToChars(value);
    return text + ":" + name;
}

}  // namespace qzrun
