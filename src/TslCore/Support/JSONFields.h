#pragma once
#include <array>
#include <chrono>
#include <concepts>
#include <map>
#include <nlohmann/json.hpp>
#include <optional>
#include <set>
#include <string>
#include <string_view>
#include <type_traits>
#include <typeinfo>
#include <utility>
#include <vector>

#include "TslCore/Support/Bytes.h"
#include "TslCore/Support/Error.h"
#include "TslCore/Support/ISO8601.h"
#include "TslCore/Support/JSONInteger.h"

// The one way records meet JSON. A record lists its fields once, in a
// `fields(v, record)` that argument-dependent lookup finds (namespace tsl):
//
//     template <class V, JSONFields::Is<Rect> R>
//     void fields(V& v, R& r) { v("x", r.x); v("note", r.note); v("count", r.count, JSONFields::lenient); }
//
// and that one list encodes, decodes and names the record's keys. A field of
// optional type is optional: absent or null reads as nothing, and nothing is
// left out. Any other field is required, unless it is `lenient`: then
// absent, null or a wrong value leaves the record's default. A list field
// that is `lenientElements` is lenient and also drops each element that does
// not decode. Keys a record does not list are never looked at. Values are
// strict: a Boolean is never a number, an integer is whole and fits its type
// (`jsonInteger`), a date is ISO 8601 text, bytes are Base64.
//
// A value of a type of its own (an enumeration, say) reads and writes through
// `toJSON(value)` and `fromJSON(j, at, value)` beside its type, in namespace tsl.
namespace tsl::JSONFields {

using json = nlohmann::json;

// Documents from outside may nest without end; readers stop here.
constexpr size_t maxDepth = 512;

// Where a value sits, for error texts; built on the stack as the reader
// descends, and only turned into text when something fails.
struct Path {
    const Path* parent = nullptr;
    std::string_view key;  // empty for an array element
    size_t index = 0;
    size_t depth = 0;

    Path child(std::string_view k) const { return Path{this, k, 0, depth + 1}; }
    Path element(size_t i) const { return Path{this, {}, i, depth + 1}; }

    // "events[3].at"; empty at the root.
    std::string text() const;
};

// A value that does not fit its field: "<problem> at <path>", or the problem
// alone at the root.
struct DecodeError : Error {
    DecodeError(std::string problem, std::string path);
    std::string problem;
    std::string path;
};

// A value that JSON cannot carry (a number that is not finite).
struct EncodeError : Error {
    using Error::Error;
};

[[noreturn]] void fail(const std::string& problem, const Path& at);
[[noreturn]] void mismatch(const char* expected, const json& value, const Path& at);
void checkDepth(const Path& at);

// The document a reader walks: a mutable one gives its strings away.
template <class J>
concept Source = std::same_as<J, json> || std::same_as<J, const json>;

template <class R, class T>
concept Is = std::same_as<std::remove_const_t<R>, T>;

struct Lenient {};
struct LenientElements {};
inline constexpr Lenient lenient{};
inline constexpr LenientElements lenientElements{};

struct AnyField {
    template <class T, class... Policy>
    void operator()(std::string_view, T&, Policy...) {}
};

template <class T>
concept Integer = std::integral<T> && !std::same_as<T, bool>;

template <class R>
concept Record = requires(AnyField& v, R& r) {
    fields(v, r);
};

// ---- Values. Declared first so that the templates below see every overload.

json toJSON(bool value);
json toJSON(const std::string& value);
json toJSON(double value);  // whole values without a fraction ("scale":1)
template <Integer T>
json toJSON(T value);
json toJSON(const Bytes& value);
json toJSON(Date value);
json toJSON(std::chrono::system_clock::time_point value);
template <class T>
json toJSON(const std::vector<T>& values);
template <class T>
json toJSON(const std::set<T>& values);
template <class T>
json toJSON(const std::map<std::string, T>& values);
template <Record R>
json toJSON(const R& record);

template <Source J>
void fromJSON(J& j, const Path& at, bool& out);
template <Source J>
void fromJSON(J& j, const Path& at, std::string& out);
void fromJSON(const json& j, const Path& at, double& out);
template <Integer T>
void fromJSON(const json& j, const Path& at, T& out);
void bytesFromJSON(const json& j, const Path& at, Bytes& out);
template <Source J>  // over the list of numbers that Bytes also is
void fromJSON(J& j, const Path& at, Bytes& out) {
    bytesFromJSON(j, at, out);
}
void fromJSON(const json& j, const Path& at, Date& out);
void fromJSON(const json& j, const Path& at, std::chrono::system_clock::time_point& out);
template <Source J, class T>
void fromJSON(J& j, const Path& at, std::vector<T>& out);
template <Source J, class T>
void fromJSON(J& j, const Path& at, std::set<T>& out);
template <Source J, class T>
void fromJSON(J& j, const Path& at, std::map<std::string, T>& out);
template <Source J, Record R>
void fromJSON(J& j, const Path& at, R& out);

// An enumeration by the position of its text in a list of texts.
template <class E, size_t N>
json textToJSON(E value, const std::array<std::string_view, N>& texts) {
    return texts[size_t(value)];
}
template <class E, size_t N>
void textFromJSON(const json& j, const Path& at, E& out, const std::array<std::string_view, N>& texts) {
    const std::string* text = j.get_ptr<const json::string_t*>();
    if (!text) mismatch("a string", j, at);
    for (size_t i = 0; i < N; ++i)
        if (texts[i] == *text) return void(out = E(i));
    fail("invalid value " + j.dump(), at);
}

// A value read through `parse`, which gives nothing for a text it refuses.
template <class T, class Parse>
void parsedFromJSON(const json& j, const Path& at, T& out, Parse parse) {
    const std::string* text = j.get_ptr<const json::string_t*>();
    if (!text) mismatch("a string", j, at);
    std::optional<T> value = parse(*text);
    if (!value) fail("invalid value " + j.dump(), at);
    out = std::move(*value);
}

template <Integer T>
json toJSON(T value) {
    return value;
}

template <class T>
json toJSON(const std::vector<T>& values) {
    json::array_t array;
    array.reserve(values.size());
    for (const T& v : values) array.push_back(toJSON(v));
    return array;
}

template <class T>
json toJSON(const std::set<T>& values) {
    json::array_t array;
    array.reserve(values.size());
    for (const T& v : values) array.push_back(toJSON(v));
    return array;
}

template <class T>
json toJSON(const std::map<std::string, T>& values) {
    json j(json::value_t::object);
    auto& object = *j.get_ptr<json::object_t*>();
    for (const auto& [key, value] : values) object.emplace(key, toJSON(value));
    return j;
}

template <Source J>
void fromJSON(J& j, const Path& at, bool& out) {
    const bool* value = j.template get_ptr<const json::boolean_t*>();
    if (!value) mismatch("a Boolean", j, at);
    out = *value;
}

template <Source J>
void fromJSON(J& j, const Path& at, std::string& out) {
    auto* value = j.template get_ptr<std::conditional_t<std::is_const_v<J>, const json::string_t*, json::string_t*>>();
    if (!value) mismatch("a string", j, at);
    if constexpr (std::is_const_v<J>) out = *value;
    else out = std::move(*value);  // the document is thrown away after decoding
}

template <class T>
std::string widthName() {
    return (std::is_signed_v<T> ? "i" : "u") + std::to_string(sizeof(T) * 8);
}

// An integral value written with a fraction or an exponent ("7.0", "1e2")
// counts as that integer.
template <Integer T>
void fromJSON(const json& j, const Path& at, T& out) {
    if (const auto value = jsonInteger<T>(j)) return void(out = *value);
    if (!j.is_number()) mismatch("a number", j, at);
    fail("number " + j.dump() + " does not fit " + widthName<T>(), at);
}

template <Source J, class T>
void fromJSON(J& j, const Path& at, std::vector<T>& out) {
    auto* array = j.template get_ptr<std::conditional_t<std::is_const_v<J>, const json::array_t*, json::array_t*>>();
    if (!array) mismatch("an array", j, at);
    checkDepth(at);
    out.clear();
    out.resize(array->size());
    for (size_t i = 0; i < array->size(); ++i) fromJSON((*array)[i], at.element(i), out[i]);
}

template <Source J, class T>
void fromJSON(J& j, const Path& at, std::set<T>& out) {
    std::vector<T> list;
    fromJSON(j, at, list);
    out = std::set<T>(std::make_move_iterator(list.begin()), std::make_move_iterator(list.end()));
}

template <Source J, class T>
void fromJSON(J& j, const Path& at, std::map<std::string, T>& out) {
    auto* object = j.template get_ptr<std::conditional_t<std::is_const_v<J>, const json::object_t*, json::object_t*>>();
    if (!object) mismatch("an object", j, at);
    checkDepth(at);
    out.clear();
    for (auto& [key, value] : *object) fromJSON(value, at.child(key), out[key]);
}

// ---- Records.

struct Writer {
    json::object_t& object;

    template <class T, class... Policy>
    void operator()(std::string_view key, const T& value, Policy...) {
        object.emplace(key, toJSON(value));
    }
    template <class T, class... Policy>
    void operator()(std::string_view key, const std::optional<T>& value, Policy...) {
        if (value) object.emplace(key, toJSON(*value));
    }
};

template <Source J>
struct Reader {
    using Object = std::conditional_t<std::is_const_v<J>, const json::object_t, json::object_t>;
    Object& object;
    const Path& path;

    // Null counts as absent.
    J* find(std::string_view key) {
        auto it = object.find(key);
        return it == object.end() || it->second.is_null() ? nullptr : &it->second;
    }
    J& require(std::string_view key) {
        auto it = object.find(key);
        if (it == object.end()) fail("missing key \"" + std::string(key) + "\"", path);
        if (it->second.is_null()) fail("null for required key \"" + std::string(key) + "\"", path);
        return it->second;
    }

    template <class T>
    void operator()(std::string_view key, T& out) {
        fromJSON(require(key), path.child(key), out);
    }
    template <class T>
    void operator()(std::string_view key, std::optional<T>& out) {
        J* value = find(key);
        if (!value) return out.reset();
        // Not emplace(): clang takes a nested record with member
        // initialisers for one without a default constructor.
        T read{};
        fromJSON(*value, path.child(key), read);
        out = std::move(read);
    }
    // On any failure `out` keeps what it held: the record's default.
    template <class T>
    void operator()(std::string_view key, T& out, Lenient) {
        J* value = find(key);
        if (!value) return;
        try {
            T read{};
            fromJSON(*value, path.child(key), read);
            out = std::move(read);
        } catch (const DecodeError&) {
        }
    }
    template <class T>
    void operator()(std::string_view key, std::optional<T>& out, Lenient) {
        std::optional<T> read;
        try {
            operator()(key, read);
        } catch (const DecodeError&) {
            read.reset();
        }
        out = std::move(read);
    }
    template <class T>
    void operator()(std::string_view key, std::vector<T>& out, LenientElements) {
        J* value = find(key);
        auto* array =
            value
                ? value
                      ->template get_ptr<std::conditional_t<std::is_const_v<J>, const json::array_t*, json::array_t*>>()
                : nullptr;
        if (!array) return;
        const Path at = path.child(key);
        checkDepth(at);
        out.clear();
        for (size_t i = 0; i < array->size(); ++i) {
            try {
                T element{};
                fromJSON((*array)[i], at.element(i), element);
                out.push_back(std::move(element));
            } catch (const DecodeError&) {
            }
        }
    }
};

template <Record R>
json toJSON(const R& record) {
    json j(json::value_t::object);
    Writer writer{*j.get_ptr<json::object_t*>()};
    fields(writer, record);
    return j;
}

// Lenient fields leave the record's defaults, so reading starts from them.
template <Source J, Record R>
void fromJSON(J& j, const Path& at, R& out) {
    auto* object = j.template get_ptr<std::conditional_t<std::is_const_v<J>, const json::object_t*, json::object_t*>>();
    if (!object) mismatch("an object", j, at);
    checkDepth(at);
    out = R{};
    Reader<J> reader{*object, at};
    fields(reader, out);
}

// For readers that promise the library's own exception: the same text.
nlohmann::json::other_error libraryError(const DecodeError& error);

template <class T>
void decodeAsLibrary(const json& j, T& out) {
    try {
        fromJSON(j, Path{}, out);
    } catch (const DecodeError& e) {
        throw libraryError(e);
    }
}

template <Record R, Source J>
R decode(J& j) {
    R record;
    fromJSON(j, Path{}, record);
    return record;
}

// ---- Keys: every key that a record, or a record inside it, reads.

using KeySet = std::set<std::string, std::less<>>;

template <class T>
struct FieldType {
    using type = T;
};
template <class T>
struct FieldType<std::optional<T>> : FieldType<T> {};
template <class T>
struct FieldType<std::vector<T>> : FieldType<T> {};
template <class T>
struct FieldType<std::set<T>> : FieldType<T> {};
template <class T>
struct FieldType<std::map<std::string, T>> : FieldType<T> {};

struct KeyCollector {
    KeySet& keys;
    std::set<const std::type_info*>& seen;  // records nest themselves (menus)

    template <class T>
    void collect() {
        using R = typename FieldType<T>::type;
        if constexpr (Record<R>) {
            if (!seen.insert(&typeid(R)).second) return;
            R record{};
            fields(*this, record);
        }
    }

    template <class T, class... Policy>
    void operator()(std::string_view key, T&, Policy...) {
        keys.emplace(key);
        collect<T>();
    }
};

template <class... R>
void collectKeys(KeySet& keys) {
    std::set<const std::type_info*> seen;
    KeyCollector collector{keys, seen};
    (collector.collect<R>(), ...);
}

}  // namespace tsl::JSONFields
