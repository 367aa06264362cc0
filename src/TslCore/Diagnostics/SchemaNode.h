#pragma once
#include <cstdint>
#include <map>
#include <memory>
#include <nlohmann/json.hpp>
#include <optional>
#include <string>
#include <string_view>
#include <type_traits>
#include <utility>
#include <variant>
#include <vector>

#include "TslCore/Diagnostics/DiagnosticsProblem.h"
#include "TslCore/Support/Error.h"

namespace tsl {

class SchemaNode;
template <typename T, typename... U>
inline constexpr bool isOneOf = (std::is_same_v<T, U> || ...);
using SchemaDefs = std::map<std::string, SchemaNode>;

// One node of the closed schema language: a strict subset of JSON Schema in
// which every object is closed, every pattern anchored and every number
// bounded. Immutable and shared; compares by structure.
class SchemaNode {
public:
    struct Ref;
    struct ConstBool;
    struct ConstInt;
    struct ConstString;
    struct OneOfStrings;
    struct OneOf;
    struct Object;
    struct String;
    struct Integer;
    struct Number;
    struct Array;
    using Payload = std::variant<Ref, ConstBool, ConstInt, ConstString, OneOfStrings, OneOf, Object, String, Integer,
                                 Number, Array>;

    class ParseError : public Error {
    public:
        explicit ParseError(std::string text) : Error(text), text(std::move(text)) {}
        std::string text;
    };

    struct File {
        std::string root;
        SchemaDefs defs;
        std::vector<std::string> rules;
    };

    explicit SchemaNode(Payload payload);
    // Every payload is a node.
    template <typename T>
        requires(isOneOf<std::remove_cvref_t<T>, Ref, ConstBool, ConstInt, ConstString, OneOfStrings, OneOf, Object,
                         String, Integer, Number, Array>)
    SchemaNode(T&& payload);  // NOLINT(google-explicit-constructor)
    // Reads one node of a parsed document; `at` is the path used in messages.
    SchemaNode(const nlohmann::json& json, const std::string& at);

    static File parseFile(std::string_view data);

    template <typename T>
    const T* as() const;
    const Payload& payload() const;

    // The node in the document form that the parser reads back.
    nlohmann::json document() const;

    // Throws DiagnosticsValidator::Problem for the first thing wrong; any other
    // error passes unchanged. `value` is null when its key was absent. A walk
    // that takes far more steps than the value and the schema have nodes
    // between them ends in a problem too.
    void validate(const nlohmann::json* value, const SchemaDefs& defs, const std::string& field) const;

    // Lookups that follow references through `defs`; nothing for a node of
    // another kind or a reference that leads nowhere.
    std::optional<SchemaNode> property(const std::string& name, const SchemaDefs& defs) const;
    std::optional<std::string> pattern(const SchemaDefs& defs) const;
    std::optional<std::pair<int64_t, int64_t>> intRange(const SchemaDefs& defs) const;
    std::optional<std::pair<double, double>> numberRange(const SchemaDefs& defs) const;
    std::optional<std::string> typeConst(const SchemaDefs& defs) const;

    bool operator==(const SchemaNode& other) const;

private:
    const SchemaNode* resolved(const SchemaDefs& defs) const;
    struct Walk;
    void validate(const nlohmann::json* value, const SchemaDefs& defs, const std::string& field, Walk& walk,
                  int depth) const;

    std::shared_ptr<const Payload> _payload;
};

struct SchemaNode::Ref {
    std::string name;
    bool operator==(const Ref&) const = default;
};
struct SchemaNode::ConstBool {
    bool value;
    bool operator==(const ConstBool&) const = default;
};
struct SchemaNode::ConstInt {
    int64_t value;
    bool operator==(const ConstInt&) const = default;
};
struct SchemaNode::ConstString {
    std::string value;
    bool operator==(const ConstString&) const = default;
};
struct SchemaNode::OneOfStrings {
    std::vector<std::string> values;
    bool operator==(const OneOfStrings&) const = default;
};
struct SchemaNode::OneOf {
    std::vector<SchemaNode> alternatives;
    bool operator==(const OneOf&) const = default;
};
struct SchemaNode::Object {
    std::map<std::string, SchemaNode> properties;
    std::vector<std::string> required;  // sorted
    bool operator==(const Object&) const = default;
};
struct SchemaNode::String {
    std::optional<std::string> pattern;
    std::optional<int64_t> minLength, maxLength;
    bool operator==(const String&) const = default;
};
struct SchemaNode::Integer {
    int64_t minimum, maximum;
    bool operator==(const Integer&) const = default;
};
struct SchemaNode::Number {
    double minimum, maximum;
    bool operator==(const Number&) const = default;
};
struct SchemaNode::Array {
    SchemaNode items;
    std::optional<int64_t> minItems, maxItems;
    bool operator==(const Array&) const = default;
};

template <typename T>
    requires(isOneOf<std::remove_cvref_t<T>, SchemaNode::Ref, SchemaNode::ConstBool, SchemaNode::ConstInt,
                     SchemaNode::ConstString, SchemaNode::OneOfStrings, SchemaNode::OneOf, SchemaNode::Object,
                     SchemaNode::String, SchemaNode::Integer, SchemaNode::Number, SchemaNode::Array>)
SchemaNode::SchemaNode(T&& payload) : SchemaNode(Payload(std::forward<T>(payload))) {}

template <typename T>
const T* SchemaNode::as() const {
    return std::get_if<T>(_payload.get());
}
inline const SchemaNode::Payload& SchemaNode::payload() const { return *_payload; }

inline bool SchemaNode::operator==(const SchemaNode& other) const {
    return _payload == other._payload || *_payload == *other._payload;
}

namespace SchemaJSON {

// An integer as the language counts it: a JSON number, no Boolean, finite,
// without fraction and below 9e15 in magnitude.
std::optional<int64_t> integer(const nlohmann::json& value);

// Unicode scalars of valid UTF-8 text.
size_t scalarCount(std::string_view text);


}  // namespace SchemaJSON

}  // namespace tsl
