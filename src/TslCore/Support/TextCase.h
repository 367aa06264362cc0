#pragma once
#include <string>
#include <string_view>

namespace tsl {

// Full Unicode lower-casing without regard to locale; text that isn't UTF-8
// is repaired first. Names compared "without regard to case" go through it.
std::string lowercased(std::string_view text);

}  // namespace tsl
