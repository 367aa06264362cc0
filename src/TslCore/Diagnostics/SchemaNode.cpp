#include "TslCore/Diagnostics/SchemaNode.h"

#include <algorithm>
#include <cmath>
#include <map>
#include <set>
#include <tuple>

#include "TslCore/Diagnostics/SchemaRegex.h"
#include "TslCore/Support/DoubleText.h"
#include "TslCore/Support/JSONFields.h"

namespace tsl {

using nlohmann::json;
using Problem = DiagnosticsValidator::Problem;

json toJSON(const SchemaNode& node) { return node.document(); }

// The keywords of the typed nodes, for reading and printing alike.
struct AnchoredPattern {};

template <class V, JSONFields::Is<SchemaNode::String> R>
void fields(V& v, R& r) {
    v("pattern", r.pattern, AnchoredPattern{});
    v("minLength", r.minLength);
    v("maxLength", r.maxLength);
}

template <class V, JSONFields::Is<SchemaNode::Integer> R>
void fields(V& v, R& r) {
    v("minimum", r.minimum);
    v("maximum", r.maximum);
}

template <class V, JSONFields::Is<SchemaNode::Number> R>
void fields(V& v, R& r) {
    v("minimum", r.minimum);
    v("maximum", r.maximum);
}

template <class V, JSONFields::Is<SchemaNode::Array> R>
void fields(V& v, R& r) {
    v("items", r.items);
    v("minItems", r.minItems);
    v("maxItems", r.maxItems);
}

namespace {

constexpr std::string_view defsPrefix = "#/$defs/";
// Documents and values from outside may nest (or refer) without end; the
// language's own schemas stay far below this.
constexpr int maxSchemaDepth = 64;

template <class... F>
struct Overloaded : F... {
    using F::operator()...;
};
template <class... F>
Overloaded(F...) -> Overloaded<F...>;

[[noreturn]] void fail(const std::string& at, const std::string& message) { throw SchemaNode::ParseError(at + message); }

std::optional<int64_t> readInteger(const json& object, std::string_view key, const std::string& at) {
    auto it = object.find(key);
    if (it == object.end()) return std::nullopt;
    // Its float value must be the integer too: 2^53 + 1 is no integer here.
    if (const auto v = jsonInteger<int64_t>(*it); v && jsonInteger<int64_t>(json(it->get<double>())) == v) return v;
    fail(at, ": " + std::string(key) + " not an integer");
}

SchemaNode::Payload parseNode(const json& node, const std::string& at, int depth);

// Reads a typed node's keywords from its field list, with the language's
// own rules: a null is a wrong value here, not an absent one, and a missing
// bound is reported only once the keywords present have been read.
struct KeywordReader {
    const json& node;
    const std::string& at;
    int depth;
    bool boundMissing = false;

    void operator()(std::string_view key, std::optional<int64_t>& out) { out = readInteger(node, key, at); }
    void operator()(std::string_view key, int64_t& out) {
        const auto value = readInteger(node, key, at);
        boundMissing |= !value;
        out = value.value_or(0);
    }
    void operator()(std::string_view key, double& out) {
        auto it = node.find(key);
        const bool number = it != node.end() && it->is_number() && !it->is_boolean();
        boundMissing |= !number;
        out = number ? it->get<double>() : 0;
    }
    void operator()(std::string_view key, std::optional<std::string>& out, AnchoredPattern) {
        auto it = node.find(key);
        if (it == node.end()) return out.reset();
        const std::string text = it->is_string() ? it->get<std::string>() : "";
        const bool anchored = text.size() >= 2 && text.front() == '^' && text.back() == '$' &&
                              !(text.size() >= 3 && text[text.size() - 2] == '\\');
        if (!anchored) fail(at, ": pattern must be anchored with ^\u2026$");
        out = text;
    }
    void operator()(std::string_view key, SchemaNode& out) {
        auto it = node.find(key);
        if (it == node.end()) fail(at, ": array without " + std::string(key));
        out = SchemaNode(parseNode(*it, at + "/" + std::string(key), depth + 1));
    }
};

template <class P>
P readKeywords(const json& node, const std::string& at, int depth, P payload) {
    KeywordReader reader{node, at, depth};
    fields(reader, payload);
    if (reader.boundMissing) fail(at, ": needs minimum and maximum");
    return payload;
}

// A sample of each typed node, for its keywords.
const SchemaNode::Array sampleArray{SchemaNode::ConstBool{false}, std::nullopt, std::nullopt};

template <class P>
std::set<std::string> keywordsOf(P sample) {
    std::set<std::string> keys{"type"};
    auto add = [&](std::string_view key, auto&&...) { keys.emplace(key); };
    fields(add, sample);
    return keys;
}

bool startsWith(const std::string& s, std::string_view prefix) { return s.compare(0, prefix.size(), prefix) == 0; }

// Reads `node` in place: a copy would be recursive in the depth of whatever
// sits under a key, before the depth check could refuse it.
SchemaNode::Payload parseNode(const json& node, const std::string& at, int depth) {
    if (!node.is_object()) fail(at, ": not an object");
    if (depth > maxSchemaDepth) fail(at, ": nested too deeply");
    std::set<std::string> keys;  // "description" is the one free comment, and not a keyword
    for (const auto& [key, _] : node.items())
        if (key != "description") keys.insert(key);

    if (keys == std::set<std::string>{"$ref"}) {
        const json& ref = node.at("$ref");
        if (!ref.is_string() || !startsWith(ref.get_ref<const std::string&>(), defsPrefix))
            fail(at, ": only local $defs references");
        return SchemaNode::Ref{ref.get<std::string>().substr(defsPrefix.size())};
    }
    if (keys == std::set<std::string>{"const"}) {
        const json& value = node.at("const");
        if (value.is_boolean()) return SchemaNode::ConstBool{value.get<bool>()};
        if (const auto integer = SchemaJSON::integer(value)) return SchemaNode::ConstInt{*integer};
        if (value.is_string()) return SchemaNode::ConstString{value.get<std::string>()};
        fail(at, ": unsupported const");
    }
    if (keys == std::set<std::string>{"enum"}) {
        const json& value = node.at("enum");
        if (!value.is_array() || value.empty() ||
            !std::all_of(value.begin(), value.end(), [](const json& v) { return v.is_string(); }))
            fail(at, ": enum must list strings");
        return SchemaNode::OneOfStrings{value.get<std::vector<std::string>>()};
    }
    if (keys == std::set<std::string>{"oneOf"}) {
        const json& value = node.at("oneOf");
        if (!value.is_array()) fail(at, ": oneOf must be a list");
        SchemaNode::OneOf result;
        for (size_t i = 0; i < value.size(); ++i)
            result.alternatives.emplace_back(parseNode(value.at(i), at + "/oneOf/" + std::to_string(i), depth + 1));
        return result;
    }

    // An object's keywords each carry a rule of their own, read below.
    static const std::map<std::string, std::set<std::string>> allowed{
        {"object", {"type", "additionalProperties", "required", "properties"}},
        {"string", keywordsOf(SchemaNode::String{})},
        {"integer", keywordsOf(SchemaNode::Integer{})},
        {"number", keywordsOf(SchemaNode::Number{})},
        {"array", keywordsOf(sampleArray)},
    };
    const auto typeValue = node.find("type");
    const auto row = typeValue != node.end() && typeValue->is_string() ? allowed.find(typeValue->get<std::string>())
                                                                       : allowed.end();
    if (row == allowed.end()) fail(at, ": unsupported or missing type");
    const std::string& type = row->first;
    for (const auto& key : keys)
        if (!row->second.contains(key)) fail(at, ": keyword " + key + " not implemented for type " + type);

    if (type == "string") return readKeywords(node, at, depth, SchemaNode::String{});
    if (type == "integer") return readKeywords(node, at, depth, SchemaNode::Integer{});
    if (type == "number") return readKeywords(node, at, depth, SchemaNode::Number{});
    if (type == "array") return readKeywords(node, at, depth, sampleArray);
    // object
    const auto additional = node.find("additionalProperties");
    if (additional == node.end() || !additional->is_boolean() || additional->get<bool>())
        fail(at, ": objects must say additionalProperties: false");
    SchemaNode::Object result;
    if (auto required = node.find("required"); required != node.end()) {
        if (!required->is_array() ||
            !std::all_of(required->begin(), required->end(), [](const json& v) { return v.is_string(); }))
            fail(at, ": required must list strings");
        result.required = required->get<std::vector<std::string>>();
        std::sort(result.required.begin(), result.required.end());
    }
    const auto properties = node.find("properties");
    const bool hasProperties = properties != node.end();
    if (hasProperties && !properties->is_object()) fail(at, ": properties must be an object");
    // The object's own fault comes before any fault of a property.
    for (const auto& key : result.required)
        if (!hasProperties || !properties->contains(key)) fail(at, ": required key without a property");
    if (hasProperties)
        for (const auto& [key, value] : properties->items())
            result.properties.emplace(key, SchemaNode(parseNode(value, at + "/" + key, depth + 1)));
    return result;
}

template <class P>
json typedDocument(const char* type, const P& payload) {
    json result = JSONFields::toJSON(payload);
    result["type"] = type;
    return result;
}

std::string child(const std::string& field, const std::string& key) { return field.empty() ? key : field + "." + key; }

std::optional<std::string> typeText(const json* value) {
    if (!value || !value->is_object()) return std::nullopt;
    auto it = value->find("type");
    if (it == value->end() || !it->is_string()) return std::nullopt;
    return it->get<std::string>();
}

}  // namespace

namespace SchemaJSON {

std::optional<int64_t> integer(const json& value) {
    // Within what a double holds exactly, so that every sender's language agrees.
    const auto v = jsonInteger<int64_t>(value);
    if (!v || *v >= int64_t(9e15) || *v <= -int64_t(9e15)) return std::nullopt;
    return v;
}

size_t scalarCount(std::string_view text) {
    return size_t(std::count_if(text.begin(), text.end(), [](char c) { return (uint8_t(c) & 0xC0) != 0x80; }));
}

}  // namespace SchemaJSON

SchemaNode::SchemaNode(Payload payload) : _payload(std::make_shared<const Payload>(std::move(payload))) {}

SchemaNode::SchemaNode(const json& input, const std::string& at) : SchemaNode(parseNode(input, at, 0)) {}

SchemaNode::File SchemaNode::parseFile(std::string_view data) {
    json document = json::parse(data.begin(), data.end(), nullptr, false);
    if (document.is_discarded() || !document.is_object()) throw ParseError("not a JSON object");
    static const std::set<std::string> topLevel{"$schema", "$id", "title", "description", "x-tsl-rules", "$ref", "$defs"};
    for (const auto& [key, _] : document.items())
        if (!topLevel.contains(key)) throw ParseError("top level: unknown keyword " + key);
    const auto ref = document.find("$ref");
    const auto defs = document.find("$defs");
    if (ref == document.end() || !ref->is_string() || !startsWith(ref->get_ref<const std::string&>(), defsPrefix) ||
        defs == document.end() || !defs->is_object())
        throw ParseError("top level: $ref/$defs missing");
    File file;
    for (const auto& [name, value] : defs->items())
        file.defs.emplace(name, SchemaNode(value, std::string(defsPrefix) + name));
    file.root = ref->get<std::string>().substr(defsPrefix.size());
    if (auto rules = document.find("x-tsl-rules"); rules != document.end() && rules->is_array() &&
                                                   std::all_of(rules->begin(), rules->end(),
                                                               [](const json& v) { return v.is_string(); }))
        file.rules = rules->get<std::vector<std::string>>();
    return file;
}

json SchemaNode::document() const {
    return std::visit(Overloaded{
                          [](const Ref& n) {
                              return json{{"$ref", std::string(defsPrefix) + n.name}};
                          },
                          [](const ConstBool& n) {
                              return json{{"const", n.value}};
                          },
                          [](const ConstInt& n) {
                              return json{{"const", n.value}};
                          },
                          [](const ConstString& n) {
                              return json{{"const", n.value}};
                          },
                          [](const OneOfStrings& n) {
                              return json{{"enum", n.values}};
                          },
                          [](const OneOf& n) {
                              json list = json::array();
                              for (const auto& a : n.alternatives) list.push_back(a.document());
                              return json{{"oneOf", list}};
                          },
                          [](const Object& n) {
                              json result{{"type", "object"}, {"additionalProperties", false}};
                              json properties = json::object();
                              for (const auto& [key, node] : n.properties) properties[key] = node.document();
                              if (!n.properties.empty()) result["properties"] = properties;
                              if (!n.required.empty()) result["required"] = n.required;
                              return result;
                          },
                          [](const String& n) { return typedDocument("string", n); },
                          [](const Integer& n) { return typedDocument("integer", n); },
                          [](const Number& n) { return typedDocument("number", n); },
                          [](const Array& n) { return typedDocument("array", n); },
                      },
                      *_payload);
}

// The steps of one validation. A oneOf tries every alternative, so a schema
// whose alternatives lead back to the same nodes would double its walk at
// each level: a few dozen bytes of schema would take billions of steps.
// Where a oneOf walks more than one alternative, each answer is therefore
// kept, by the node it leads to, the value, the depth and the field, and a
// question asked again is answered from there. A sound schema meets each value node at each of its own nodes
// a few times at most, so the walk is also held to that product. Only a walk
// past the free steps pays for measuring it.
struct SchemaNode::Walk {
    static constexpr uint64_t freeSteps = uint64_t(1) << 16;
    static constexpr uint64_t maxSteps = uint64_t(1) << 20;
    static constexpr uint64_t stepsPerPair = 4;

    // Thrown past every oneOf, which would otherwise take it for a failed
    // alternative and go on trying the others.
    struct Exhausted {
        std::string field;
    };

    const json* root;
    const SchemaNode* start;
    const SchemaDefs& defs;
    uint64_t steps = 0;
    uint64_t limit = freeSteps;
    bool measured = false;
    using Question = std::tuple<const SchemaNode*, const json*, int, std::string>;
    std::map<Question, std::optional<Problem>> answers;

    // Nothing, or the problem that fails `node` at `depth`. A reference is
    // asked by its definition, so that two references to one definition
    // share their answer.
    std::optional<Problem> answer(const SchemaNode& node, const json* value, const std::string& field, int depth,
                                  bool remember) {
        if (!remember) return tryNode(node, value, field, depth);
        const SchemaNode* asked = &node;
        if (const auto* ref = node.as<Ref>())
            if (auto it = defs.find(ref->name); it != defs.end()) asked = &it->second;
        Question question{asked, value, asked == &node ? depth : depth + 1, field};
        if (auto it = answers.find(question); it != answers.end()) return it->second;
        auto result = tryNode(node, value, field, depth);
        answers.emplace(std::move(question), result);
        return result;
    }

    std::optional<Problem> tryNode(const SchemaNode& node, const json* value, const std::string& field, int depth) {
        try {
            node.validate(value, defs, field, *this, depth);
            return std::nullopt;
        } catch (const Problem& problem) {
            return problem;
        }
    }

    void step(const std::string& field) {
        if (++steps <= limit) return;
        if (!measured) {
            measured = true;
            limit = std::clamp(stepsPerPair * valueNodes() * schemaNodes(), freeSteps, maxSteps);
            if (steps <= limit) return;
        }
        throw Exhausted{field};
    }

    uint64_t valueNodes() const {
        uint64_t count = 1;  // an absent value is still met
        std::vector<const json*> pending;
        if (root) pending.push_back(root);
        while (!pending.empty()) {
            const json* v = pending.back();
            pending.pop_back();
            ++count;
            if (v->is_structured())
                for (const auto& member : *v) pending.push_back(&member);
        }
        return count;
    }

    uint64_t schemaNodes() const {
        uint64_t count = 0;
        std::vector<const SchemaNode*> pending{start};
        for (const auto& [_, node] : defs) pending.push_back(&node);
        while (!pending.empty()) {
            const SchemaNode* node = pending.back();
            pending.pop_back();
            ++count;
            if (const auto* oneOf = node->as<OneOf>())
                for (const auto& a : oneOf->alternatives) pending.push_back(&a);
            else if (const auto* object = node->as<Object>())
                for (const auto& [_, p] : object->properties) pending.push_back(&p);
            else if (const auto* array = node->as<Array>())
                pending.push_back(&array->items);
        }
        return count;
    }
};

void SchemaNode::validate(const json* value, const SchemaDefs& defs, const std::string& field) const {
    Walk walk{value, this, defs};
    try {
        validate(value, defs, field, walk, 0);
    } catch (const Walk::Exhausted& exhausted) {
        throw Problem(exhausted.field, "too many steps to validate");
    }
}

void SchemaNode::validate(const json* value, const SchemaDefs& defs, const std::string& field, Walk& walk,
                          int depth) const {
    if (depth > maxSchemaDepth) throw Problem(field, "nested too deeply");
    walk.step(field);
    std::visit(
        Overloaded{
            [&](const Ref& n) {
                auto it = defs.find(n.name);
                if (it == defs.end()) throw Problem(field, "schema has no definition " + n.name);
                it->second.validate(value, defs, field, walk, depth + 1);
            },
            [&](const ConstBool& n) {
                if (!value || !value->is_boolean() || value->get<bool>() != n.value)
                    throw Problem(field, n.value ? "must be true" : "must be false");
            },
            [&](const ConstInt& n) {
                const auto v = value ? SchemaJSON::integer(*value) : std::nullopt;
                if (v != n.value) throw Problem(field, "must be " + std::to_string(n.value));
            },
            [&](const ConstString& n) {
                if (!value || !value->is_string() || value->get_ref<const std::string&>() != n.value)
                    throw Problem(field, "must be " + n.value);
            },
            [&](const OneOfStrings& n) {
                if (!value || !value->is_string() ||
                    std::find(n.values.begin(), n.values.end(), value->get_ref<const std::string&>()) == n.values.end())
                    throw Problem(field, "unknown value");
            },
            [&](const OneOf& n) {
                const auto claimed = typeText(value);
                // A value that names another kind fails that kind at its
                // type; walking it would only throw.
                std::vector<std::pair<const SchemaNode*, std::optional<std::string>>> open;
                for (const auto& alternative : n.alternatives)
                    if (auto type = alternative.typeConst(defs); !(claimed && type && *type != *claimed))
                        open.emplace_back(&alternative, std::move(type));
                // Only alternatives walked side by side can meet one question twice.
                const bool remember = open.size() > 1;
                int accepted = 0;
                std::optional<Problem> kept;
                for (const auto& [alternative, type] : open) {
                    if (auto problem = walk.answer(*alternative, value, field, depth + 1, remember)) {
                        if (!kept && type == claimed) kept = std::move(problem);
                    } else {
                        ++accepted;
                    }
                }
                if (accepted == 1) return;
                if (accepted > 1) throw Problem(field, "matches more than one kind of event");
                if (kept) throw *kept;
                throw Problem(field + ".type", "unknown");
            },
            [&](const Object& n) {
                if (!value) throw Problem(field, "missing");
                if (!value->is_object()) throw Problem(field, "not an object");
                for (const auto& [key, _] : value->items())
                    if (!n.properties.contains(key)) throw Problem(child(field, key), "not allowed");
                for (const auto& key : n.required)
                    if (!value->contains(key)) throw Problem(child(field, key), "missing");
                for (const auto& [key, node] : n.properties)
                    if (auto it = value->find(key); it != value->end())
                        node.validate(&*it, defs, child(field, key), walk, depth + 1);
            },
            [&](const String& n) {
                if (!value || !value->is_string()) throw Problem(field, "not a string");
                const auto& text = value->get_ref<const std::string&>();
                const auto length = int64_t(SchemaJSON::scalarCount(text));
                if (n.minLength && length < *n.minLength)
                    throw Problem(field, "shorter than " + std::to_string(*n.minLength));
                if (n.maxLength && length > *n.maxLength)
                    throw Problem(field, "longer than " + std::to_string(*n.maxLength));
                if (n.pattern) {
                    const auto regex = SchemaRegex::compiled(*n.pattern);
                    if (!regex || !SchemaRegex::matches(*regex, text)) throw Problem(field, "outside its pattern");
                }
            },
            [&](const Integer& n) {
                const auto v = value ? SchemaJSON::integer(*value) : std::nullopt;
                if (!v || *v < n.minimum || *v > n.maximum)
                    throw Problem(field, "not an integer in " + std::to_string(n.minimum) + "\u2026" +
                                             std::to_string(n.maximum));
            },
            [&](const Number& n) {
                const bool ok = value && value->is_number() && !value->is_boolean() &&
                                std::isfinite(value->get<double>()) && value->get<double>() >= n.minimum &&
                                value->get<double>() <= n.maximum;
                if (!ok)
                    throw Problem(field, "not a number in " + doubleText(n.minimum) + "\u2026" +
                                             doubleText(n.maximum));
            },
            [&](const Array& n) {
                if (!value || !value->is_array()) throw Problem(field, "not a list");
                const auto count = int64_t(value->size());
                if (n.minItems && count < *n.minItems)
                    throw Problem(field, "fewer than " + std::to_string(*n.minItems) + " items");
                if (n.maxItems && count > *n.maxItems)
                    throw Problem(field, "more than " + std::to_string(*n.maxItems) + " items");
                for (size_t i = 0; i < value->size(); ++i)
                    n.items.validate(&(*value)[i], defs, field + "[" + std::to_string(i) + "]", walk, depth + 1);
            },
        },
        *_payload);
}

const SchemaNode* SchemaNode::resolved(const SchemaDefs& defs) const {
    const SchemaNode* node = this;
    for (int hops = 0; hops <= maxSchemaDepth; ++hops) {
        const auto* ref = node->as<Ref>();
        if (!ref) return node;
        auto it = defs.find(ref->name);
        if (it == defs.end()) return nullptr;
        node = &it->second;
    }
    return nullptr;  // a loop of references
}

std::optional<SchemaNode> SchemaNode::property(const std::string& name, const SchemaDefs& defs) const {
    const auto* node = resolved(defs);
    const auto* object = node ? node->as<Object>() : nullptr;
    if (!object) return std::nullopt;
    auto it = object->properties.find(name);
    if (it == object->properties.end()) return std::nullopt;
    return it->second;
}

std::optional<std::string> SchemaNode::pattern(const SchemaDefs& defs) const {
    const auto* node = resolved(defs);
    const auto* string = node ? node->as<String>() : nullptr;
    return string ? string->pattern : std::nullopt;
}

std::optional<std::pair<int64_t, int64_t>> SchemaNode::intRange(const SchemaDefs& defs) const {
    const auto* node = resolved(defs);
    const auto* integer = node ? node->as<Integer>() : nullptr;
    if (!integer) return std::nullopt;
    return std::pair{integer->minimum, integer->maximum};
}

std::optional<std::pair<double, double>> SchemaNode::numberRange(const SchemaDefs& defs) const {
    const auto* node = resolved(defs);
    if (!node) return std::nullopt;
    if (const auto* number = node->as<Number>()) return std::pair{number->minimum, number->maximum};
    if (const auto* integer = node->as<Integer>()) return std::pair{double(integer->minimum), double(integer->maximum)};
    return std::nullopt;
}

std::optional<std::string> SchemaNode::typeConst(const SchemaDefs& defs) const {
    const auto type = property("type", defs);
    const auto* node = type ? type->resolved(defs) : nullptr;
    const auto* constant = node ? node->as<ConstString>() : nullptr;
    if (!constant) return std::nullopt;
    return constant->value;
}

}  // namespace tsl
