// `tessel compat` over the toolchain corpus.
#include <gtest/gtest.h>

#include <map>
#include <nlohmann/json.hpp>

#include "Support/Files.h"
#include "Support/MachOCorpus.h"
#include "Support/TempDir.h"
#include "TesselHost/TesselRun.h"

using namespace tsl;
using namespace tsl::test;
using nlohmann::json;

TEST(TesselCompat, GroupsApplicationsAndMarksThoseToKeep) {
    const auto corpus = MachOCorpus::generated();
    TSL_REQUIRE_CORPUS(corpus);
    TempDir dir;
    writeFile(dir / "db.json", R"({"schema":1,"apps":[{"bundleID":"COM.EXAMPLE.ALPHA","name":"Alpha",)"
                               R"("status":"nativeAvailable","vendorURL":"https://alpha.example/download"}]})");
    auto run = runTessel({"compat", corpus.path("Applications"), "--db", dir / "db.json", "--json"});
    ASSERT_EQ(run.status, 0) << run.err;
    const json printed = json::parse(run.out);
    std::map<std::string, std::pair<std::string, bool>> placed;  // bundle file name -> group, preselected
    std::vector<std::string> order;
    for (const auto& group : printed.at("groups")) {
        order.push_back(group.at("group"));
        for (const auto& app : group.at("apps")) {
            const std::string path = app.at("app").at("path");
            placed[path.substr(path.rfind('/') + 1)] = {group.at("group"), app.at("preselected")};
        }
    }
    EXPECT_EQ(order, (std::vector<std::string>{"needsTessel", "updateInstead", "wontRun", "alreadyFine", "other"}));
    EXPECT_EQ(placed["Alpha.app"], std::pair(std::string("updateInstead"), false));
    EXPECT_EQ(placed["Kitted.app"], std::pair(std::string("needsTessel"), true));
    EXPECT_EQ(placed["Legacy.app"], std::pair(std::string("wontRun"), false));
    EXPECT_EQ(placed["Store.app"], std::pair(std::string("alreadyFine"), false));
    EXPECT_EQ(placed["Damaged.app"], std::pair(std::string("other"), false));
    EXPECT_EQ(printed["groups"][1]["apps"][0]["verdict"]["vendorURL"], "https://alpha.example/download");

    auto table = runTessel({"compat", corpus.path("Applications"), "--db", dir / "db.json"});
    ASSERT_EQ(table.status, 0) << table.err;
    size_t at = 0;
    for (const char* heading : {"Needs Tessel: ", "Update instead: ", "Won’t run: ", "Already fine on Apple silicon: ",
                                "Not an app Tessel can read: "}) {
        const size_t found = table.out.find(std::string("\n") + heading, at);
        ASSERT_NE(found, std::string::npos) << heading << "\n" << table.out;
        at = found + 1;
    }
    EXPECT_NE(table.out.find("* Kitted"), std::string::npos) << table.out;
    EXPECT_NE(table.out.find("Intel-only apps that stop working without Rosetta."), std::string::npos);

    writeFile(dir / "bad.json", R"({"schema":3,"apps":[]})");
    auto bad = runTessel({"compat", corpus.path("Applications"), "--db", dir / "bad.json"});
    EXPECT_EQ(bad.status, 1);
    EXPECT_NE(bad.err.find("unsupportedSchema(3)"), std::string::npos) << bad.err;
}
