#include "Platform/PlatformValue.h"

#include <cmath>

namespace tsl {

std::optional<double> PlatformValue::asNumber() const {
    if (auto i = get<int64_t>()) return double(*i);
    if (auto d = get<double>()) return *d;
    return std::nullopt;
}

std::optional<int64_t> PlatformValue::asInteger() const {
    if (auto i = get<int64_t>()) return *i;
    if (auto d = get<double>()) {
        // The range test comes first: converting an out-of-range double is undefined.
        if (std::isfinite(*d) && *d >= -9.2e18 && *d <= 9.2e18 && std::trunc(*d) == *d) return int64_t(*d);
    }
    return std::nullopt;
}

const PlatformValue* PlatformValue::find(const std::string& key) const {
    const ValueDict* dict = asDict();
    if (!dict) return nullptr;
    auto it = dict->find(key);
    return it == dict->end() ? nullptr : &it->second;
}

std::optional<Rect> rectFromDictionary(const PlatformValue& value) {
    auto number = [&](const char* key) -> std::optional<double> {
        const PlatformValue* v = value.find(key);
        return v ? v->asNumber() : std::nullopt;
    };
    auto x = number("X"), y = number("Y"), w = number("Width"), h = number("Height");
    if (!x || !y || !w || !h) return std::nullopt;
    return Rect{*x, *y, *w, *h};
}

PlatformValue dictionaryFromRect(const Rect& rect) {
    return ValueDict{{"X", rect.x}, {"Y", rect.y}, {"Width", rect.width}, {"Height", rect.height}};
}

}  // namespace tsl
