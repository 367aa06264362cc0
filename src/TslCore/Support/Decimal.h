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
    constexpr uint64_t limit = std::numeric_limits<T>::max();
    uint64_t v = 0;
    for (char c : s) {
        if (c < '0' || c > '9') return std::nullopt;
        const uint64_t digit = uint64_t(c - '0');
        // Tested before the step, which could wrap at 64 bits.
        if (v > (limit - digit) / 10) return std::nullopt;
        v = v * 10 + digit;
    }
    return T(v);
}

}  // namespace tsl
