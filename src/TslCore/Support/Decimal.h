#pragma once
#include <cstdint>
#include <limits>
#include <optional>
#include <string_view>

namespace tsl {

// An unsigned decimal with an optional leading "+", in range for T, nothing else.
template <typename T>
std::optional<T> parseDecimal(std::string_view s) {
    static_assert(std::numeric_limits<T>::is_integer && !std::numeric_limits<T>::is_signed);
    if (!s.empty() && s[0] == '+') s.remove_prefix(1);
    if (s.empty()) return std::nullopt;
    uint64_t v = 0;
    for (char c : s) {
        if (c < '0' || c > '9') return std::nullopt;
        v = v * 10 + uint64_t(c - '0');
        if (v > std::numeric_limits<T>::max()) return std::nullopt;
    }
    return T(v);
}

}  // namespace tsl
