#pragma once
#include <string>
#include <string_view>

namespace tsl::UTF8 {

// Strict UTF-8: no overlong forms, no surrogates, nothing above U+10FFFF.
bool isValid(std::string_view bytes);

// The bytes with each maximal ill-formed subsequence replaced by U+FFFD.
std::string repaired(std::string_view bytes);

}  // namespace tsl::UTF8
