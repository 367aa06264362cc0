#include <gtest/gtest.h>

#include <nlohmann/json.hpp>

#include "Support/Errors.h"
#include "TslCore/Compat/CompatDatabase.h"
#include "TslCore/Compat/CompatError.h"

using namespace tsl;
using Status = CompatDatabase::Status;

namespace {

CompatDatabase decode(std::string_view text) {
    return CompatDatabase::decode({reinterpret_cast<const uint8_t*>(text.data()), text.size()});
}

}  // namespace

TEST(CompatDatabase, DecodesTheCurrentFormIgnoringUnknownKeys) {
    const auto db = decode(R"({"schema":1,"updated":"2026-10-01","extra":[1],"apps":[
        {"bundleID":"com.a","name":"A","status":"nativeAvailable","versions":{"min":"1","max":null},
         "note":"n","vendorURL":"https://a","recipe":"r","other":true},
        {"bundleID":"com.b","name":"B","status":"works","note":null}]})");
    EXPECT_EQ(db.schema, 1);
    EXPECT_EQ(db.updated, "2026-10-01");
    ASSERT_EQ(db.apps.size(), 2u);
    EXPECT_EQ(db.apps[0], (CompatDatabase::Entry{"com.a", "A", CompatDatabase::VersionRange{"1", std::nullopt},
                                                 Status::nativeAvailable, "n", "https://a", "r"}));
    EXPECT_EQ(db.apps[1], (CompatDatabase::Entry{"com.b", "B", std::nullopt, Status::works}));

    // Written back and read again, nothing changes.
    const nlohmann::json j = db;
    EXPECT_EQ(decode(j.dump()), db);
}

TEST(CompatDatabase, FallsBackToTheLegacyListAndRefusesOtherSchemas) {
    const auto legacy = decode(R"([{"bundleID":"x","name":"X","status":"partial","note":"slow"},
        {"bundleID":"y","name":"Y","status":"fails"},{"bundleID":"z","name":"Z","status":"works"},
        {"bundleID":"u","name":"U","status":"untested"},{"bundleID":"w","name":"W","status":"weird"}])");
    EXPECT_EQ(legacy.schema, 1);
    EXPECT_EQ(legacy.updated, std::nullopt);
    ASSERT_EQ(legacy.apps.size(), 5u);
    EXPECT_EQ(legacy.apps[0], (CompatDatabase::Entry{"x", "X", std::nullopt, Status::limited, "slow"}));
    std::vector<Status> statuses;
    for (const auto& e : legacy.apps) statuses.push_back(e.status);
    EXPECT_EQ(statuses, (std::vector{Status::limited, Status::wontRun, Status::works, Status::untested, Status::untested}));

    EXPECT_EQ(test::thrownBy<CompatError>([] { decode(R"({"schema":2,"apps":[]})"); }),
              CompatError::unsupportedSchema(2));
    EXPECT_EQ(test::thrownBy<CompatError>([] { decode(R"({"schema":2,"apps":[]})"); }).description(),
              "unsupportedSchema(2)");

    // A misspelt status fails both forms with a decoding error, not a schema error.
    for (const char* bad : {R"({"schema":1,"apps":[{"bundleID":"a","name":"A","status":"work"}]})",
                            R"({"schema":1,"apps":[{"bundleID":"a","status":"works"}]})",
                            R"({"schema":"1","apps":[]})", R"({"schema":1})", R"([{"bundleID":1,"name":"A","status":"works"}])",
                            R"({"schema":1,"apps":[{"bundleID":"a","name":"A","status":"works","note":3}]})",
                            "[", "", "\"text\"", "{\"schema\":1,\"apps\":[]} x", "[\"\xff\"]"}) {
        EXPECT_THROW(decode(bad), nlohmann::json::exception) << bad;
    }
}

TEST(CompatDatabase, TheMostSpecificMatchingEntryWins) {
    const auto db = decode(R"({"schema":1,"apps":[
        {"bundleID":"com.Multi","name":"all","status":"works"},
        {"bundleID":"com.multi","name":"from2","status":"limited","versions":{"min":"2"}},
        {"bundleID":"COM.MULTI","name":"2to3","status":"wontRun","versions":{"min":"2","max":"3"}},
        {"bundleID":"com.multi","name":"upto3","status":"limited","versions":{"max":"3"}},
        {"bundleID":"com.multi","name":"2to3again","status":"works","versions":{"min":"2","max":"3"}},
        {"bundleID":"com.bounded","name":"b","status":"works","versions":{"min":"1"}},
        {"bundleID":"com.empty","name":"e","status":"works","versions":{}},
        {"bundleID":"stra\u00DFe.app","name":"s","status":"works"}]})");
    const auto name = [&](std::optional<std::string> id, std::optional<std::string> version) {
        const auto* e = db.entry(id, version);
        return e ? e->name : std::string("-");
    };
    EXPECT_EQ(name("com.multi", "2.5"), "2to3");
    EXPECT_EQ(name("Com.MULTI", "3"), "2to3");
    EXPECT_EQ(name("com.multi", "4"), "from2");
    EXPECT_EQ(name("com.multi", "1"), "upto3");
    EXPECT_EQ(name("com.multi", std::nullopt), "all");
    EXPECT_EQ(name("com.bounded", std::nullopt), "-");
    EXPECT_EQ(name("com.empty", std::nullopt), "e");
    EXPECT_EQ(name("STRASSE.APP", "1"), "-");   // lower-casing, not folding
    EXPECT_EQ(name("STRA\u00DFE.APP", "1"), "s");
    EXPECT_EQ(name(std::nullopt, "1"), "-");
    EXPECT_EQ(name("com.unknown", "1"), "-");

    // The bounded entry wins from either place.
    auto reordered = db;
    std::swap(reordered.apps[0], reordered.apps[2]);
    reordered.reindex();
    EXPECT_EQ(reordered.entry("com.multi", "2.5")->name, "2to3");

    // Entries added by hand are found without an explicit reindex.
    auto edited = db;
    edited.apps.push_back({"com.new", "new", std::nullopt, Status::works});
    EXPECT_EQ(edited.entry("com.new", std::nullopt)->name, "new");
}
