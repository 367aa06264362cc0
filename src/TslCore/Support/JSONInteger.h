#pragma once
#include <cmath>
#include <limits>
#include <nlohmann/json.hpp>
#include <optional>
#include <utility>

namespace tsl {

// The integer a JSON number holds exactly, when it fits T: an integer in
// range, or a float without a fraction in range. Nothing for Booleans,
// fractions, and numbers too large or too small, which a plain get<T>()
// would wrap or truncate without a word.
template <class T>
std::optional<T> jsonInteger(const nlohmann::json& j) {
    // Unsigned first: the library hands an unsigned number out as a signed
    // one too, wrapped.
    if (const auto* u = j.get_ptr<const nlohmann::json::number_unsigned_t*>())
        return std::in_range<T>(*u) ? std::optional<T>(T(*u)) : std::nullopt;
    if (const auto* i = j.get_ptr<const nlohmann::json::number_integer_t*>())
        return std::in_range<T>(*i) ? std::optional<T>(T(*i)) : std::nullopt;
    if (const auto* d = j.get_ptr<const nlohmann::json::number_float_t*>()) {
        // Powers of two bound T exactly, where T's own limits would round.
        const double above = std::ldexp(1.0, std::numeric_limits<T>::digits);
        const double below = std::is_signed_v<T> ? -above : 0.0;
        if (std::isfinite(*d) && *d == std::trunc(*d) && *d >= below && *d < above) return T(*d);
    }
    return std::nullopt;
}

}  // namespace tsl
