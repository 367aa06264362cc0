#pragma once
#include <string>

namespace tsl {

// A double as the guest platform prints it by default: the shortest text that
// reads back to it, with ".0" on whole numbers ("5.0", "0.5", "100000.0"),
// and exponent form below 1e-4 and from 2^53 up ("1e-05", "1e+16").
std::string doubleText(double value);

}  // namespace tsl
