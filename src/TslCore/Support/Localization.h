#pragma once
#include <string>
#include <string_view>

namespace tsl {

// A text the user reads on the host, looked up with its English wording as
// the key. No translation tables ship yet, so the key is the text.
inline std::string L(std::string_view english) { return std::string(english); }

}  // namespace tsl
