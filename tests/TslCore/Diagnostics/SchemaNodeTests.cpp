// The closed schema language: what the parser refuses, and how values validate.
#include <gtest/gtest.h>

#include <nlohmann/json.hpp>

#include "Support/Errors.h"
#include "TslCore/Diagnostics/DiagnosticsSchemaFile.h"
#include "TslCore/Diagnostics/SchemaNode.h"
#include "TslCore/Diagnostics/SchemaRegex.h"
#include "TslCore/Support/DoubleText.h"

using namespace tsl;
using nlohmann::json;
using Problem = DiagnosticsValidator::Problem;

namespace {

std::string parseError(const json& node) {
    try {
        SchemaNode(node, "#/$defs/x");
    } catch (const SchemaNode::ParseError& error) {
        return error.text;
    }
    return "accepted";
}

std::string fileError(const std::string& text) {
    try {
        SchemaNode::parseFile(text);
    } catch (const SchemaNode::ParseError& error) {
        return error.text;
    }
    return "accepted";
}

// "field: reason" of the first problem, or "valid".
std::string problem(const SchemaNode& node, const json* value, const SchemaDefs& defs = {}) {
    try {
        node.validate(value, defs, "v");
    } catch (const Problem& p) {
        return p.description();
    }
    return "valid";
}
std::string problem(const SchemaNode& node, const json& value, const SchemaDefs& defs = {}) {
    return problem(node, &value, defs);
}

SchemaNode parsed(const json& node) { return SchemaNode(node, "#"); }

}  // namespace

TEST(SchemaNode, PrintedSchemaParsesBackIntoTheConstantDefinitions) {
    const auto file = SchemaNode::parseFile(DiagnosticsSchemaFile::document().dump(2));
    EXPECT_EQ(file.root, "diagnosticsBatch");
    EXPECT_EQ(file.rules, DiagnosticsSchemaFile::rules());
    ASSERT_EQ(file.defs.size(), 13u);
    EXPECT_EQ(file.defs, DiagnosticsSchemaFile::defs());
    // Equality really looks at structure: one changed bound breaks it.
    auto changed = file.defs;
    changed.insert_or_assign("durationS", SchemaNode(SchemaNode::Integer{0, 2592001}));
    EXPECT_NE(changed, DiagnosticsSchemaFile::defs());
}

TEST(SchemaNode, DocumentLevelRefusals) {
    EXPECT_EQ(fileError("[1]"), "not a JSON object");
    EXPECT_EQ(fileError("{"), "not a JSON object");
    EXPECT_EQ(fileError(R"({"$ref": "#/$defs/a", "$defs": {}, "examples": []})"), "top level: unknown keyword examples");
    EXPECT_EQ(fileError(R"({"$ref": "other.json#/a", "$defs": {}})"), "top level: $ref/$defs missing");
    EXPECT_EQ(fileError(R"({"$ref": "#/$defs/a"})"), "top level: $ref/$defs missing");
    EXPECT_EQ(fileError(R"({"$ref": "#/$defs/a", "$defs": {"a": {"type": "integer"}}})"),
              "#/$defs/a: needs minimum and maximum");
    const auto file = SchemaNode::parseFile(R"({"$ref": "#/$defs/a", "x-tsl-rules": "no list",
                                              "$defs": {"a": {"const": "x"}}})");
    EXPECT_EQ(file.root, "a");
    EXPECT_TRUE(file.rules.empty());
}

TEST(SchemaNode, NodeRefusalsKeepTheLanguageClosed) {
    EXPECT_EQ(parseError(json::array()), "#/$defs/x: not an object");
    EXPECT_EQ(parseError({{"$ref", "https://elsewhere/#/a"}}), "#/$defs/x: only local $defs references");
    EXPECT_EQ(parseError({{"const", 1.5}}), "#/$defs/x: unsupported const");
    EXPECT_EQ(parseError({{"enum", json::array()}}), "#/$defs/x: enum must list strings");
    EXPECT_EQ(parseError({{"enum", {"a", 1}}}), "#/$defs/x: enum must list strings");
    EXPECT_EQ(parseError({{"oneOf", "a"}}), "#/$defs/x: oneOf must be a list");
    EXPECT_EQ(parseError({{"oneOf", {{{"type", "boolean"}}}}}), "#/$defs/x/oneOf/0: unsupported or missing type");
    EXPECT_EQ(parseError({{"minimum", 1}}), "#/$defs/x: unsupported or missing type");
    EXPECT_EQ(parseError({{"type", "string"}, {"format", "uuid"}}),
              "#/$defs/x: keyword format not implemented for type string");
    EXPECT_EQ(parseError({{"type", "string"}, {"pattern", "[a-z]+$"}}), "#/$defs/x: pattern must be anchored with ^…$");
    EXPECT_EQ(parseError({{"type", "string"}, {"pattern", "^[a-z]+"}}), "#/$defs/x: pattern must be anchored with ^…$");
    EXPECT_EQ(parseError({{"type", "string"}, {"pattern", "^[a-z]+\\$"}}), "#/$defs/x: pattern must be anchored with ^…$");
    EXPECT_EQ(parseError({{"type", "string"}, {"maxLength", 2.5}}), "#/$defs/x: maxLength not an integer");
    EXPECT_EQ(parseError({{"type", "string"}, {"maxLength", true}}), "#/$defs/x: maxLength not an integer");
    EXPECT_EQ(parseError({{"type", "string"}, {"maxLength", UINT64_MAX}}), "#/$defs/x: maxLength not an integer");
    EXPECT_EQ(parseError({{"type", "string"}, {"maxLength", (int64_t(1) << 53) + 1}}),
              "#/$defs/x: maxLength not an integer");
    EXPECT_EQ(parseError({{"type", "integer"}, {"minimum", 0}}), "#/$defs/x: needs minimum and maximum");
    EXPECT_EQ(parseError({{"type", "number"}, {"maximum", 1}}), "#/$defs/x: needs minimum and maximum");
    EXPECT_EQ(parseError({{"type", "array"}}), "#/$defs/x: array without items");
    EXPECT_EQ(parseError({{"type", "array"}, {"items", {{"type", "object"}}}}),
              "#/$defs/x/items: objects must say additionalProperties: false");
    EXPECT_EQ(parseError({{"type", "object"}, {"additionalProperties", true}}),
              "#/$defs/x: objects must say additionalProperties: false");
    EXPECT_EQ(parseError({{"type", "object"}, {"additionalProperties", false}, {"required", {"a"}}}),
              "#/$defs/x: required key without a property");
    EXPECT_EQ(parseError({{"type", "object"},
                          {"additionalProperties", false},
                          {"properties", {{"a", {{"type", "number"}}}}}}),
              "#/$defs/x/a: needs minimum and maximum");
    // The object's own fault is found before its properties are read.
    EXPECT_EQ(parseError({{"type", "object"},
                          {"additionalProperties", false},
                          {"required", {"b"}},
                          {"properties", {{"a", {{"type", "number"}}}}}}),
              "#/$defs/x: required key without a property");
    // Self-nesting without end is refused rather than followed.
    json deep = {{"type", "string"}};
    for (int i = 0; i < 200; ++i) deep = {{"type", "array"}, {"items", deep}};
    EXPECT_NE(parseError(deep), "accepted");
}

TEST(SchemaNode, DeepValuesUnderAnyKeyAreNeverWalked) {
    // Far deeper than the stack could follow: only the depth of schema nodes
    // is ever walked, and that is bounded.
    const std::string deep = std::string(500000, '[') + std::string(500000, ']');
    EXPECT_EQ(fileError(R"({"$ref": "#/$defs/a", "$defs": {"a": {"type": "string", "x": )" + deep + "}}}"),
              "#/$defs/a: keyword x not implemented for type string");
    EXPECT_EQ(fileError(R"({"$ref": "#/$defs/a", "title": )" + deep +
                        R"(, "$defs": {"a": {"const": 1, "description": )" + deep + "}}}"),
              "accepted");
    EXPECT_EQ(fileError(R"({"$ref": "#/$defs/a", "$defs": {"a": {"const": )" + deep + "}}}"),
              "#/$defs/a: unsupported const");
}

TEST(SchemaNode, NodeFormsAndComments) {
    EXPECT_TRUE(parsed({{"const", 1}}).as<SchemaNode::ConstInt>());
    EXPECT_TRUE(parsed({{"const", true}}).as<SchemaNode::ConstBool>());
    EXPECT_TRUE(parsed({{"const", "app"}}).as<SchemaNode::ConstString>());
    EXPECT_EQ(parsed({{"type", "string"}, {"pattern", "^a$"}, {"description", "a comment"}}),
              SchemaNode(SchemaNode::String{"^a$", std::nullopt, std::nullopt}));
    EXPECT_EQ(parsed({{"type", "integer"}, {"minimum", 0}, {"maximum", 10.0}}), SchemaNode(SchemaNode::Integer{0, 10}));
    const auto object = parsed({{"type", "object"},
                                {"additionalProperties", false},
                                {"required", {"b", "a"}},
                                {"properties", {{"a", {{"const", 1}}}, {"b", {{"const", 2}}}}}});
    EXPECT_EQ(object.as<SchemaNode::Object>()->required, (std::vector<std::string>{"a", "b"}));
}

TEST(SchemaNode, ScalarsValidateByJSONType) {
    const SchemaNode integer = SchemaNode::Integer{0, 10};
    EXPECT_EQ(problem(integer, json(true)), "v: not an integer in 0…10");
    EXPECT_EQ(problem(integer, json(10.0)), "valid");
    EXPECT_EQ(problem(integer, json(10.5)), "v: not an integer in 0…10");
    EXPECT_EQ(problem(integer, json(11)), "v: not an integer in 0…10");
    EXPECT_EQ(problem(SchemaNode(SchemaNode::Integer{0, INT64_MAX}), json(1e16)), "v: not an integer in 0…9223372036854775807");
    EXPECT_EQ(problem(integer, nullptr), "v: not an integer in 0…10");

    const SchemaNode number = SchemaNode::Number{0, 240};
    EXPECT_EQ(problem(number, json(240)), "valid");
    EXPECT_EQ(problem(number, json(240.5)), "v: not a number in 0.0…240.0");
    EXPECT_EQ(problem(number, json(false)), "v: not a number in 0.0…240.0");
    EXPECT_EQ(doubleText(0.5), "0.5");
    EXPECT_EQ(doubleText(1e-05), "1e-05");
    EXPECT_EQ(doubleText(1e16), "1e+16");
    EXPECT_EQ(doubleText(100000), "100000.0");
    EXPECT_EQ(doubleText(0.0001), "0.0001");

    EXPECT_EQ(problem(SchemaNode::ConstBool{true}, json(1)), "v: must be true");
    EXPECT_EQ(problem(SchemaNode::ConstInt{1}, json(true)), "v: must be 1");
    EXPECT_EQ(problem(SchemaNode::ConstInt{1}, json(1.0)), "valid");
    EXPECT_EQ(problem(SchemaNode::ConstString{"app"}, json("apps")), "v: must be app");
    EXPECT_EQ(problem(SchemaNode::OneOfStrings{{"a", "b"}}, json("c")), "v: unknown value");
    EXPECT_EQ(problem(SchemaNode::OneOfStrings{{"1"}}, json(1)), "v: unknown value");
}

TEST(SchemaNode, StringsCountScalarsAndAnchorPatterns) {
    const SchemaNode two = SchemaNode::String{std::nullopt, 2, 2};
    EXPECT_EQ(problem(two, json("e\u0301")), "valid");  // a letter and a combining accent
    EXPECT_EQ(problem(two, json("é")), "v: shorter than 2");
    EXPECT_EQ(problem(two, json("abc")), "v: longer than 2");
    EXPECT_EQ(problem(two, nullptr), "v: not a string");

    const SchemaNode letter = SchemaNode::String{"^[a-z]$", std::nullopt, std::nullopt};
    EXPECT_EQ(problem(letter, json("a")), "valid");
    EXPECT_EQ(problem(letter, json("a\n")), "v: outside its pattern");
    // The alternation stays within the anchors.
    const SchemaNode either = SchemaNode::String{"^ab|cd$", std::nullopt, std::nullopt};
    EXPECT_EQ(problem(either, json("cd")), "valid");
    EXPECT_EQ(problem(either, json("abx")), "v: outside its pattern");
    EXPECT_EQ(problem(SchemaNode::String{"^($", std::nullopt, std::nullopt}, json("(")), "v: outside its pattern");
    EXPECT_FALSE(SchemaRegex::compiled("a$"));
}

TEST(SchemaRegex, RunawayPatternsEndAsNoMatch) {
    // Exponential backtracking on the input below; the time limit ends it.
    EXPECT_FALSE(SchemaRegex::matches("^(a+)+$", std::string(40, 'a') + "!"));
    EXPECT_TRUE(SchemaRegex::matches("^(a+)+$", std::string(40, 'a')));
}

TEST(SchemaNode, ObjectsReportSurplusBeforeMissingInSortedOrder) {
    const SchemaNode object = SchemaNode::Object{
        {{"a", SchemaNode::Integer{0, 1}}, {"b", SchemaNode::Integer{0, 1}}}, {"a", "b"}};
    EXPECT_EQ(problem(object, json{{"z", 1}, {"y", 1}}), "v.y: not allowed");
    EXPECT_EQ(problem(object, json{{"b", 1}}), "v.a: missing");
    EXPECT_EQ(problem(object, json{{"a", 1}, {"b", 2}}), "v.b: not an integer in 0…1");
    EXPECT_EQ(problem(object, nullptr), "v: missing");
    EXPECT_EQ(problem(object, json::array()), "v: not an object");
    // At the root, a child's path is its plain key.
    const json empty = json::object();
    EXPECT_EQ(test::thrownBy<Problem>([&] { object.validate(&empty, {}, ""); }).field, "a");
}

TEST(SchemaNode, ArraysAndReferences) {
    const SchemaDefs defs{{"bit", SchemaNode::Integer{0, 1}}};
    const SchemaNode list = SchemaNode::Array{SchemaNode::Ref{"bit"}, 1, 2};
    EXPECT_EQ(problem(list, json::array(), defs), "v: fewer than 1 items");
    EXPECT_EQ(problem(list, json{0, 1, 0}, defs), "v: more than 2 items");
    EXPECT_EQ(problem(list, json{0, 2}, defs), "v[1]: not an integer in 0…1");
    EXPECT_EQ(problem(list, json(1), defs), "v: not a list");
    EXPECT_EQ(problem(SchemaNode::Ref{"none"}, json(1), defs), "v: schema has no definition none");
    // A reference loop ends in a problem, not in a crash.
    const SchemaDefs loop{{"a", SchemaNode::Ref{"b"}}, {"b", SchemaNode::Ref{"a"}}};
    EXPECT_THROW(SchemaNode(SchemaNode::Ref{"a"}).validate(nullptr, loop, "v"), Problem);
    EXPECT_FALSE(SchemaNode(SchemaNode::Ref{"a"}).intRange(loop));
}

TEST(SchemaNode, SchemasThatMultiplyTheirWorkAreWalkedOnce) {
    // Each level tries both alternatives on the same value: 2^32 walks
    // unless the second asks what the first already answered.
    const auto doubling = SchemaNode::parseFile(
        R"({"$ref":"#/$defs/a","$defs":{"a":{"oneOf":[{"$ref":"#/$defs/a"},{"$ref":"#/$defs/a"}]}}})");
    EXPECT_EQ(problem(SchemaNode::Ref{"a"}, json::object(), doubling.defs), "v: nested too deeply");
    // Without a cycle: each definition tries the next one twice.
    SchemaDefs chain{{"d24", SchemaNode::Integer{0, 1}}};
    for (int i = 0; i < 24; ++i) {
        const SchemaNode next = SchemaNode::Ref{"d" + std::to_string(i + 1)};
        chain.emplace("d" + std::to_string(i), SchemaNode::OneOf{{next, next}});
    }
    EXPECT_EQ(problem(SchemaNode::Ref{"d0"}, json(1), chain), "v: matches more than one kind of event");
    EXPECT_EQ(problem(SchemaNode::Ref{"d0"}, json(2), chain), "v: not an integer in 0…1");
    // Alternatives that consume the value at each level double as well.
    const SchemaDefs nesting{{"a", SchemaNode::OneOf{{SchemaNode::Array{SchemaNode::Ref{"a"}, std::nullopt, std::nullopt},
                                                      SchemaNode::Array{SchemaNode::Ref{"a"}, std::nullopt, std::nullopt}}}}};
    json value = json::array();
    for (int i = 0; i < 40; ++i) value = json::array({value});
    EXPECT_TRUE(problem(SchemaNode::Ref{"a"}, value, nesting).ends_with("]: nested too deeply"));

    // A full batch of the system's own schema is far from the bound.
    json event = {{"type", "setup"}, {"at", 1}, {"step", "ready"}, {"status", "ok"}};
    const json batch = {{"schema", 1},
                        {"batch", std::string(22, 'A')},
                        {"app", {{"version", "1.0"}, {"build", "2026.1.1"}}},
                        {"consent", {{"diagnostics", true}, {"version", "2026-10-05"}}},
                        {"events", json(std::vector<json>(200, event))}};
    EXPECT_EQ(problem(SchemaNode::Ref{"diagnosticsBatch"}, batch, DiagnosticsSchemaFile::defs()), "valid");
}

TEST(SchemaNode, OneOfSpeaksOfTheClaimedKind) {
    auto kind = [](const char* type) {
        return SchemaNode::Object{{{"type", SchemaNode::ConstString{type}}, {"n", SchemaNode::Integer{0, 1}}},
                                  {"type"}};
    };
    const SchemaDefs defs{{"a", kind("a")}, {"b", kind("b")}, {"c", kind("c")}};
    const SchemaNode oneOf = SchemaNode::OneOf{{SchemaNode::Ref{"a"}, SchemaNode::Ref{"b"}, SchemaNode::Ref{"c"}}};
    EXPECT_EQ(problem(oneOf, json{{"type", "b"}}, defs), "valid");
    EXPECT_EQ(problem(oneOf, json{{"type", "b"}, {"n", 7}}, defs), "v.n: not an integer in 0…1");
    EXPECT_EQ(problem(oneOf, json{{"type", "d"}}, defs), "v.type: unknown");
    EXPECT_EQ(problem(oneOf, json(3), defs), "v.type: unknown");
    EXPECT_EQ(problem(SchemaNode::OneOf{}, json{{"type", "a"}}, defs), "v.type: unknown");
    const SchemaNode twice = SchemaNode::OneOf{{SchemaNode::Ref{"a"}, SchemaNode::Ref{"a"}}};
    EXPECT_EQ(problem(twice, json{{"type", "a"}}, defs), "v: matches more than one kind of event");
    // Untyped alternatives: the value's missing type and theirs are both nothing.
    const SchemaNode untyped = SchemaNode::OneOf{{SchemaNode::Integer{0, 1}}};
    EXPECT_EQ(problem(untyped, json(5), defs), "v: not an integer in 0…1");
}

TEST(SchemaNode, LookupsFollowReferences) {
    const auto& defs = DiagnosticsSchemaFile::defs();
    const SchemaNode app = SchemaNode::Ref{"appEvent"};
    EXPECT_EQ(app.typeConst(defs), "app");
    EXPECT_EQ(app.property("ttfwMs", defs)->intRange(defs), (std::pair<int64_t, int64_t>{0, 600000}));
    EXPECT_EQ(app.property("version", defs)->pattern(defs), "^[A-Za-z0-9][A-Za-z0-9 .()+_-]{0,39}$");
    EXPECT_EQ(app.property("at", defs)->numberRange(defs), (std::pair<double, double>{0, 4102444800.0}));
    EXPECT_FALSE(app.property("nothing", defs));
    EXPECT_FALSE(app.pattern(defs));
    EXPECT_FALSE(SchemaNode(SchemaNode::Ref{"os"}).typeConst(defs));
}
