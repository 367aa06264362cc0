#include "TslCore/Support/DoubleText.h"

#include <charconv>
#include <cmath>

namespace tsl {

std::string doubleText(double value) {
    if (std::isnan(value)) return "nan";
    if (std::isinf(value)) return value < 0 ? "-inf" : "inf";
    char buffer[64];
    const double magnitude = std::fabs(value);
    const bool scientific = magnitude != 0 && (magnitude >= 9007199254740992.0 || magnitude < 1e-4);
    auto result = std::to_chars(buffer, buffer + sizeof buffer, value,
                                scientific ? std::chars_format::scientific : std::chars_format::fixed);
    std::string text(buffer, result.ptr);
    if (!scientific && text.find('.') == std::string::npos) text += ".0";
    return text;
}

}  // namespace tsl
