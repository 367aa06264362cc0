#pragma once
#include <optional>

namespace tsl {

// An element that may fail to decode without failing what holds it: `value`
// is then absent (see StateJSON for the decoding).
template <class T>
struct Lossy {
    std::optional<T> value;
    bool operator==(const Lossy&) const = default;
};

}  // namespace tsl
