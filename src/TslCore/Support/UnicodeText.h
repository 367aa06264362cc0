#pragma once
#include <cstddef>
#include <string>
#include <string_view>

namespace tsl {

// Full Unicode lower-casing without regard to locale; text that isn't UTF-8
// is repaired first. Names compared "without regard to case" go through it.
std::string lowercased(std::string_view text);

// The number of characters a reader sees (extended grapheme clusters), so
// "é" written with a combining accent counts once.
size_t characterCount(std::string_view text);

}  // namespace tsl
