#pragma once
#include <cstddef>
#include <optional>
#include <string>
#include <string_view>

namespace tsl {

// Reads the scalar value starting at `at` and moves `at` past it. Nothing for a
// malformed sequence (overlong forms, surrogates and values above U+10FFFF included).
std::optional<char32_t> readUtf8Scalar(std::string_view text, size_t& at);

bool isValidUtf8(std::string_view text);

// The text with each maximal ill-formed subsequence replaced by U+FFFD, as
// Unicode recommends.
std::string repairedUtf8(std::string_view text);

// Unicode's White_Space property.
bool isUnicodeWhitespace(char32_t c);

}  // namespace tsl
