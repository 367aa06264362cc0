// `tessel share check`.
#include <gtest/gtest.h>

#include <filesystem>
#include <nlohmann/json.hpp>

#include "Support/TempDir.h"
#include "TesselHost/TesselRun.h"

namespace fs = std::filesystem;
using namespace tsl::test;

TEST(TesselShare, CheckAcceptsRefusesAndNamesFolders) {
    TempDir dir;
    const fs::path home = fs::canonical(dir.path()) / "home";
    for (const char* p : {"Documents/Work", "Library/Prefs", ".ssh", "Projects/Work"}) fs::create_directories(home / p);
    auto run = runTessel({"share", "check", home / "Documents/Work", home / "Projects/Work", home / "Library/Prefs",
                          home / ".ssh", home / "missing", home / "Documents", "--home", home, "--json"});
    EXPECT_EQ(run.status, 1) << run.err;
    const auto folders = nlohmann::json::parse(run.out).at("folders");
    ASSERT_EQ(folders.size(), 6u);
    EXPECT_EQ(folders[0].at("name"), "Documents");  // covered by Documents, listed later
    EXPECT_EQ(folders[0].at("guestPath"), "/Volumes/My Shared Files/Documents/Work");
    EXPECT_EQ(folders[1].at("name"), "Work 2");      // "Work" was taken first, and stays taken
    EXPECT_EQ(folders[2].at("rejection"), "library");
    EXPECT_EQ(folders[3].at("rejection"), "hidden");
    EXPECT_EQ(folders[4].at("rejection"), "notAFolder");
    EXPECT_EQ(folders[5].at("guestPath"), "/Volumes/My Shared Files/Documents");

    auto table = runTessel({"share", "check", home / "Documents", "--home", home});
    EXPECT_EQ(table.status, 0) << table.err;
    EXPECT_NE(table.out.find("shared as \"Documents\" at /Volumes/My Shared Files/Documents"), std::string::npos)
        << table.out;
    // The product's data lives in the home, so the home overlaps it before it is the home.
    auto own = runTessel({"share", "check", home, "--home", home});
    EXPECT_EQ(own.status, 1);
    EXPECT_NE(own.out.find("refused: overlaps Tessel’s own data"), std::string::npos) << own.out;
    auto elsewhere = runTessel({"share", "check", home, "--home", home, "--json"});
    EXPECT_EQ(nlohmann::json::parse(elsewhere.out)["folders"][0]["rejection"], "tesselData");
    EXPECT_EQ(runTessel({"share", "check"}).status, 2);
}
