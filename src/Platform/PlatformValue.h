#pragma once
#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <variant>
#include <vector>

#include "Platform/Geometry.h"
#include "TslCore/Support/Bytes.h"

namespace tsl {

struct PlatformValue;
using ValueList = std::vector<PlatformValue>;
using ValueDict = std::map<std::string, PlatformValue>;

// A loosely typed value as the platform hands it out: window dictionaries,
// frame attachments, preference values. Readers check the type of every
// entry themselves, so a missing key or a value of the wrong type stays a
// case they can handle (and test).
struct PlatformValue {
    std::variant<bool, int64_t, double, std::string, Bytes, ValueList, ValueDict> storage;

    PlatformValue() : storage(int64_t(0)) {}
    PlatformValue(bool v) : storage(v) {}
    PlatformValue(int v) : storage(int64_t(v)) {}
    PlatformValue(int64_t v) : storage(v) {}
    PlatformValue(uint32_t v) : storage(int64_t(v)) {}
    PlatformValue(double v) : storage(v) {}
    PlatformValue(const char* v) : storage(std::string(v)) {}
    PlatformValue(std::string v) : storage(std::move(v)) {}
    PlatformValue(Bytes v) : storage(std::move(v)) {}
    PlatformValue(ValueList v) : storage(std::move(v)) {}
    PlatformValue(ValueDict v) : storage(std::move(v)) {}

    template <typename T> const T* get() const { return std::get_if<T>(&storage); }

    const bool* asBool() const { return get<bool>(); }
    const std::string* asString() const { return get<std::string>(); }
    const Bytes* asData() const { return get<Bytes>(); }
    const ValueList* asList() const { return get<ValueList>(); }
    const ValueDict* asDict() const { return get<ValueDict>(); }

    // A number of either kind; booleans are not numbers here.
    std::optional<double> asNumber() const;
    // An integer, or a floating value that is exactly one.
    std::optional<int64_t> asInteger() const;

    // The entry of a dictionary; nothing for a missing key or a non-dictionary.
    const PlatformValue* find(const std::string& key) const;

    bool operator==(const PlatformValue&) const = default;
};

// The dictionary form of a rectangle (keys "X", "Y", "Width", "Height"), as
// the window server writes bounds; nothing unless all four are numbers.
std::optional<Rect> rectFromDictionary(const PlatformValue& value);
PlatformValue dictionaryFromRect(const Rect& rect);

}  // namespace tsl
