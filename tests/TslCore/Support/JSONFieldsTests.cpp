// The field vocabulary on records of its own: one list gives the encoding,
// the decoding with each field's leniency, the keys, and errors that say
// where the value sits.
#include <gtest/gtest.h>

#include <cmath>
#include <nlohmann/json.hpp>

#include "TslCore/Support/BoundedJSON.h"
#include "TslCore/Support/JSONFields.h"

using namespace tsl;
using JSONFields::Is;
using nlohmann::json;

namespace {

struct Part {
    int64_t count = 0;
    std::optional<std::string> note;
    std::vector<Part> parts;  // records may nest themselves
    bool operator==(const Part&) const = default;
};

template <class V, Is<Part> R>
void fields(V& v, R& r) {
    v("count", r.count);
    v("note", r.note);
    v("parts", r.parts);
}

struct Whole {
    std::string name;
    double scale = 0;
    Bytes data;
    Date at;
    std::vector<Part> items;
    std::map<std::string, uint32_t> sizes;
    std::set<std::string> tags;
    int64_t cores = 4;  // lenient: damage leaves this default
    std::optional<bool> flag;
    std::vector<Part> kept;
    bool operator==(const Whole&) const = default;
};

template <class V, Is<Whole> R>
void fields(V& v, R& r) {
    v("name", r.name);
    v("scale", r.scale);
    v("data", r.data);
    v("at", r.at);
    v("items", r.items);
    v("sizes", r.sizes);
    v("tags", r.tags);
    v("cores", r.cores, JSONFields::lenient);
    v("flag", r.flag, JSONFields::lenient);
    v("kept", r.kept, JSONFields::lenientElements);
}

const json sampleJSON = json::parse(R"({"name":"n","scale":1.5,"data":"AAE=","at":"2026-10-07T12:00:05Z",
    "items":[{"count":1,"parts":[]},{"count":2,"note":"x","parts":[{"count":3,"parts":[]}]}],
    "sizes":{"a":1},"tags":["a","b"],"cores":8,"flag":true,"kept":[{"count":5,"parts":[]}]})");

Whole decoded(const json& j) { return JSONFields::decode<Whole>(j); }

std::string errorOf(const json& j) {
    try {
        decoded(j);
    } catch (const JSONFields::DecodeError& e) {
        return e.description();
    }
    return "decoded";
}

json with(const std::string& pointer, const json& value) {
    json j = sampleJSON;
    j[json::json_pointer(pointer)] = value;
    return j;
}

}  // namespace

TEST(JSONFields, OneListEncodesAndDecodesTheSameRecord) {
    const Whole whole = decoded(sampleJSON);
    EXPECT_EQ(whole.items[1].parts[0].count, 3);
    EXPECT_EQ(whole.data, (Bytes{0, 1}));
    EXPECT_EQ(whole.tags, (std::set<std::string>{"a", "b"}));
    const json again = JSONFields::toJSON(whole);
    EXPECT_EQ(again, sampleJSON);
    EXPECT_EQ(decoded(again), whole);

    // Absent optionals are left out; whole numbers go without a fraction.
    Whole bare;
    bare.scale = 2;
    const json out = JSONFields::toJSON(bare);
    EXPECT_FALSE(out.contains("flag"));
    EXPECT_EQ(out["scale"].dump(), "2");
    bare.scale = NAN;
    EXPECT_THROW(JSONFields::toJSON(bare), JSONFields::EncodeError);
}

TEST(JSONFields, ErrorsSayWhereTheValueSits) {
    const std::vector<std::pair<json, std::string>> cases{
        {with("/items/1/count", "2"), "expected a number, found string at items[1].count"},
        {with("/items/1/parts/0/note", 7), "expected a string, found number at items[1].parts[0].note"},
        {with("/items/0", json::object()), R"(missing key "count" at items[0])"},
        {with("/name", nullptr), R"(null for required key "name")"},
        {with("/sizes/a", -1), "number -1 does not fit u32 at sizes.a"},
        {with("/at", "yesterday"), R"(not an ISO 8601 date: "yesterday" at at)"},
        {with("/data", "A"), "invalid Base64 at data"},
        {json::array(), "expected an object, found array"},
    };
    for (const auto& [j, text] : cases) EXPECT_EQ(errorOf(j), text) << j.dump();

    JSONFields::DecodeError error("expected a Boolean, found number", "events[3].at");
    EXPECT_EQ(error.problem, "expected a Boolean, found number");
    EXPECT_EQ(error.path, "events[3].at");
}

TEST(JSONFields, IntegersAreWholeAndFitTheirType) {
    const auto count = [](const json& value) -> std::optional<int64_t> {
        try {
            return decoded(with("/items/0/count", value)).items[0].count;
        } catch (const JSONFields::DecodeError&) {
            return std::nullopt;
        }
    };
    EXPECT_EQ(count(json(1)), 1);
    EXPECT_EQ(count(json(1.0)), 1);
    EXPECT_EQ(count(json::parse("1e3")), 1000);
    EXPECT_EQ(count(json::parse("-9223372036854775808")), INT64_MIN);
    for (const json& no :
         {json(1.5), json::parse("9223372036854775808"), json::parse("9.3e18"), json(true), json("1"), json(1e300)})
        EXPECT_EQ(count(no), std::nullopt) << no.dump();

    uint64_t big = 0;
    JSONFields::fromJSON(json::parse("9223372036854775808"), {}, big);
    EXPECT_EQ(big, uint64_t(1) << 63);
    uint8_t small = 0;
    EXPECT_THROW(JSONFields::fromJSON(json(256), {}, small), JSONFields::DecodeError);
}

TEST(JSONFields, LenientFieldsKeepTheRecordsDefault) {
    EXPECT_EQ(decoded(with("/cores", "many")).cores, 4);
    EXPECT_EQ(decoded(with("/cores", nullptr)).cores, 4);
    json absent = sampleJSON;
    absent.erase("cores");
    absent.erase("flag");
    EXPECT_EQ(decoded(absent).cores, 4);
    EXPECT_EQ(decoded(absent).flag, std::nullopt);
    EXPECT_EQ(decoded(with("/flag", 1)).flag, std::nullopt);
    EXPECT_EQ(decoded(with("/kept", "none")).kept, std::vector<Part>{});

    // Each element on its own, in order.
    const Whole kept = decoded(with("/kept", json::parse(R"([{"count":1,"parts":[]},{"count":"2"},7,
                                                            {"count":3,"parts":[]}])")));
    ASSERT_EQ(kept.kept.size(), 2u);
    EXPECT_EQ(kept.kept[1].count, 3);

    // An optional field forgives absence and null, not a wrong value.
    EXPECT_EQ(decoded(with("/items/0/note", nullptr)).items[0].note, std::nullopt);
    EXPECT_NE(errorOf(with("/items/0/note", false)), "decoded");
}

TEST(JSONFields, KeysComeFromTheListsAndBoundTheParse) {
    JSONFields::KeySet keys;
    JSONFields::collectKeys<Whole>(keys);
    EXPECT_EQ(keys, (JSONFields::KeySet{"at", "cores", "count", "data", "flag", "items", "kept", "name", "note",
                                        "parts", "scale", "sizes", "tags"}));

    const std::string text = R"({"name":"n","other":[[[{"deep":1}]]],"parts":[1]})";
    const json parsed = JSONFields::parseBounded(reinterpret_cast<const uint8_t*>(text.data()), text.size(), keys);
    EXPECT_EQ(parsed, json::parse(R"({"name":"n","parts":[1]})"));

    const std::string deep = std::string(600, '[') + std::string(600, ']');
    try {
        JSONFields::parseBounded(reinterpret_cast<const uint8_t*>(deep.data()), deep.size(), keys);
        ADD_FAILURE() << "parsed";
    } catch (const JSONFields::DecodeError& e) {
        EXPECT_EQ(e.description(), "nesting deeper than 512 levels");
    }
}
