#include <gtest/gtest.h>

#include <atomic>
#include <filesystem>
#include <nlohmann/json.hpp>
#include <thread>

#include "Support/Errors.h"
#include "Support/Files.h"
#include "Support/TempDir.h"
#include "TslCore/Migration/MigrationPlanner.h"
#include "TslCore/Migration/ShareIO.h"
#include "TslCore/Migration/TreeCopy.h"

namespace fs = std::filesystem;
using namespace tsl;
using namespace tsl::test;

namespace {

struct Staging {
    TempDir tmp;
    fs::path home = tmp / "home";
    fs::path share = tmp / "host/share";
    MigrationPlanner planner{home, share};
    AppBundleInfo app;

    Staging() {
        app.path = (tmp / "Apps/Old Tool.app").native();
        app.name = "Old Tool";
        app.bundleID = "com.example.OldTool";
        app.archClass = ArchClass::intelOnly;
        writeFile(fs::path(app.path) / "Contents/MacOS/Old Tool", std::string(10000, 'x'));
        writeFile(fs::path(app.path) / "Contents/Info.plist", "<plist/>");
        fs::create_directories(share);
    }
    fs::path support(const std::string& name) const { return home / "Library/Application Support" / name; }
    fs::path prefs() const { return home / "Library/Preferences/com.example.OldTool.plist"; }
    std::vector<std::string> migrated() const {
        std::vector<std::string> out;
        std::error_code ec;
        for (const auto& e : fs::recursive_directory_iterator(share / "Migrate", ec))
            out.push_back(fs::relative(e.path(), share / "Migrate").native());
        std::sort(out.begin(), out.end());
        return out;
    }
};

}  // namespace

TEST(MigrationPlanner, RefusesWhatItCannotKeep) {
    Staging s;
    auto app = s.app;
    app.archClass = ArchClass::universal;
    EXPECT_EQ(thrownBy<MigrationError>([&] { s.planner.plan(app); }), MigrationError::notIntelOnly("Old Tool"));
    EXPECT_EQ(thrownBy<MigrationError>([&] { s.planner.plan(app); }).description(),
              "Old Tool isn’t an Intel-only app, so it doesn’t need Tessel.");
    EXPECT_NO_THROW(s.planner.plan(app, true));

    app = s.app;
    app.bundleID = "";
    EXPECT_EQ(thrownBy<MigrationError>([&] { s.planner.plan(app); }).description(),
              "Old Tool has no bundle identifier, so Tessel can’t keep it.");
    app.bundleID = std::nullopt;
    EXPECT_EQ(thrownBy<MigrationError>([&] { s.planner.plan(app); }).kind, MigrationError::Kind::noBundleID);
    app.bundleID = "com..evil";
    EXPECT_EQ(thrownBy<MigrationError>([&] { s.planner.plan(app); }).description(),
              "Tessel refused to copy this app (invalid bundle identifier com..evil).");
}

TEST(MigrationPlanner, FindsPreferencesAndTheFirstRealSupportFolder) {
    Staging s;
    auto bare = s.planner.plan(s.app);
    EXPECT_EQ(bare.prefsPath, std::nullopt);
    EXPECT_EQ(bare.supportPath, std::nullopt);
    EXPECT_EQ(bare.shareFolder, (s.share / "Migrate/com.example.OldTool").native());
    EXPECT_EQ(bare.sharedAppPath(), (s.share / "Migrate/com.example.OldTool/Old Tool.app").native());
    EXPECT_EQ(bare.sharedPrefsPath(), std::nullopt);
    EXPECT_EQ(bare.estimatedBytes, MigrationPlanner::size(s.app.path));
    EXPECT_GE(bare.estimatedBytes, 10000u);

    // Links are never taken: the next candidate wins.
    fs::create_directories(s.tmp / "elsewhere/big");
    writeFile(s.tmp / "elsewhere/prefs.plist", std::string(50000, 'p'));
    fs::create_directories(s.prefs().parent_path());
    fs::create_symlink(s.tmp / "elsewhere/prefs.plist", s.prefs());
    fs::create_directories(s.support("").parent_path() / "Application Support");
    fs::create_directory_symlink(s.tmp / "elsewhere/big", s.support("Old Tool"));
    writeFile(s.support("com.example.OldTool") / "data", std::string(8192, 'd'));
    writeFile(s.support("Old Tool.app"), "a file, not a folder");
    auto linked = s.planner.plan(s.app);
    EXPECT_EQ(linked.prefsPath, std::nullopt);
    EXPECT_EQ(linked.supportPath, s.support("com.example.OldTool").native());
    EXPECT_EQ(linked.estimatedBytes, bare.estimatedBytes + MigrationPlanner::size(s.support("com.example.OldTool")));

    // The name wins over the identifier; a name with "/" is skipped.
    fs::remove(s.support("Old Tool"));
    fs::create_directories(s.support("Old Tool"));
    fs::remove(s.prefs());
    writeFile(s.prefs(), "<plist/>");
    auto named = s.planner.plan(s.app);
    EXPECT_EQ(named.supportPath, s.support("Old Tool").native());
    EXPECT_EQ(named.prefsPath, s.prefs().native());
    EXPECT_EQ(named.sharedSupportPath(), (s.share / "Migrate/com.example.OldTool/Old Tool").native());
    auto slashed = s.app;
    slashed.name = "Old/Tool";
    EXPECT_EQ(s.planner.plan(slashed).supportPath, s.support("com.example.OldTool").native());

    // The plan survives being stored.
    const nlohmann::json j = named;
    EXPECT_EQ(j.get<MigrationPlan>(), named);
    EXPECT_FALSE(nlohmann::json(bare).contains("prefsPath"));
    EXPECT_EQ(nlohmann::json(bare).get<MigrationPlan>(), bare);
    // An altered plan is refused rather than read as another size.
    for (const nlohmann::json& bytes : {nlohmann::json(-1), nlohmann::json(1.5), nlohmann::json(1e30)}) {
        nlohmann::json altered = j;
        altered["estimatedBytes"] = bytes;
        EXPECT_THROW(altered.get<MigrationPlan>(), std::exception) << bytes;
    }
}

TEST(MigrationPlanner, StagesWholeReplacesEarlierCopiesAndUnstages) {
    Staging s;
    writeFile(s.prefs(), "<plist>prefs</plist>");
    writeFile(s.support("Old Tool") / "state.db", "state");
    const auto plan = s.planner.plan(s.app);
    s.planner.stage(plan);
    EXPECT_EQ(s.migrated(), (std::vector<std::string>{
                                "com.example.OldTool", "com.example.OldTool/Old Tool", "com.example.OldTool/Old Tool.app",
                                "com.example.OldTool/Old Tool.app/Contents", "com.example.OldTool/Old Tool.app/Contents/Info.plist",
                                "com.example.OldTool/Old Tool.app/Contents/MacOS",
                                "com.example.OldTool/Old Tool.app/Contents/MacOS/Old Tool",
                                "com.example.OldTool/Old Tool/state.db", "com.example.OldTool/com.example.OldTool.plist"}));
    EXPECT_EQ(readFile(*plan.sharedPrefsPath()), "<plist>prefs</plist>");

    // Staging again replaces the copy with the current state.
    writeFile(s.support("Old Tool") / "state.db", "newer");
    s.planner.stage(plan);
    EXPECT_EQ(readFile(fs::path(*plan.sharedSupportPath()) / "state.db"), "newer");
    EXPECT_EQ(std::distance(fs::directory_iterator(ShareIO::hostFolder(s.share)), fs::directory_iterator()), 0);

    s.planner.unstage(plan);
    EXPECT_TRUE(s.migrated().empty());
    EXPECT_NO_THROW(s.planner.unstage(plan));

    // What vanished since planning fails the staging, and nothing new appears.
    s.planner.stage(plan);
    fs::remove(s.prefs());
    EXPECT_THROW(s.planner.stage(plan), TreeCopy::Failure);
    EXPECT_TRUE(s.migrated().empty());
}

TEST(MigrationPlanner, AnAlteredPlanIsRefusedBeforeAnythingIsTouched) {
    Staging s;
    auto plan = s.planner.plan(s.app);
    s.planner.stage(plan);
    const auto before = s.migrated();
    for (const std::string& folder : {(s.tmp / "elsewhere/com.example.OldTool").native(),
                                      (s.share / "Migrate/../Migrate/../com.example.OldTool").native(),
                                      (s.share / "Migrate/com.example.Other").native(), (s.share / "Migrate").native()}) {
        auto altered = plan;
        altered.shareFolder = folder;
        const auto error = thrownBy<MigrationError>([&] { s.planner.stage(altered); });
        EXPECT_EQ(error.kind, MigrationError::Kind::unsafe);
        EXPECT_EQ(error.detail, "staging folder " + fs::path(folder).lexically_normal().native()) << folder;
        EXPECT_THROW(s.planner.unstage(altered), MigrationError);
    }
    auto badID = plan;
    badID.bundleID = "..";
    badID.shareFolder = (s.share / "Migrate/..").native();
    EXPECT_THROW(s.planner.stage(badID), MigrationError);
    EXPECT_EQ(s.migrated(), before);
    EXPECT_FALSE(fs::exists(s.tmp / "elsewhere"));
}

TEST(MigrationPlanner, ALinkSwappedIntoTheShareWhileStagingIsRefused) {
    Staging s;
    for (int i = 0; i < 400; ++i)
        writeFile(fs::path(s.app.path) / "Contents/Resources" / std::to_string(i), std::string(4096, 'r'));
    const auto plan = s.planner.plan(s.app);
    fs::create_directories(s.share / "Migrate");
    const fs::path outside = s.tmp / "outside";
    fs::create_directories(outside);

    std::atomic<bool> swapped{false};
    std::thread guest([&] {
        // As soon as a work folder exists, replace "Migrate" by a link out of the share.
        const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(20);
        while (std::chrono::steady_clock::now() < deadline) {
            std::error_code ec;
            if (fs::directory_iterator(ShareIO::hostFolder(s.share), ec) != fs::directory_iterator()) break;
            std::this_thread::yield();
        }
        fs::rename(s.share / "Migrate", s.share / "Migrate.old");
        fs::create_directory_symlink(outside, s.share / "Migrate");
        swapped = true;
    });
    bool refused = false;
    try {
        s.planner.stage(plan);
    } catch (const ShareIO::Failure& failure) {
        refused = true;
        EXPECT_EQ(failure.kind, ShareIO::Failure::Kind::open);
    }
    guest.join();
    ASSERT_TRUE(swapped);
    EXPECT_TRUE(fs::is_empty(outside));
    // Either the copy arrived before the swap, under the real folder, or it was refused.
    EXPECT_NE(refused, fs::exists(s.share / "Migrate.old/com.example.OldTool/Old Tool.app/Contents/Info.plist"));
    EXPECT_TRUE(fs::is_empty(ShareIO::hostFolder(s.share)));
}
