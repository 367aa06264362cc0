// `tessel migrate`, and what a reader of the share sees while staging is killed.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/stat.h>
#include <unistd.h>

#include <atomic>
#include <filesystem>
#include <nlohmann/json.hpp>
#include <random>
#include <thread>

#include "Support/ChildProcess.h"
#include "Support/Files.h"
#include "Support/TempDir.h"
#include "TesselHost/TesselRun.h"

namespace fs = std::filesystem;
using namespace tsl::test;

namespace {

const std::string bundleID = "com.example.Heavy";

struct HeavyApp {
    TempDir dir;
    fs::path app = dir / "Heavy.app";
    fs::path share = dir / "share";
    fs::path home = dir / "home";
    size_t files = 0;

    // Mixed sizes, enough that a copy takes a while.
    explicit HeavyApp(size_t count) {
        writeFile(app / "Contents/Info.plist",
                  "<?xml version=\"1.0\" encoding=\"UTF-8\"?><plist version=\"1.0\"><dict>"
                  "<key>CFBundleIdentifier</key><string>" + bundleID + "</string>"
                  "<key>CFBundleName</key><string>Heavy</string></dict></plist>");
        std::mt19937 random(7);
        for (size_t i = 0; i < count; ++i) {
            const size_t size = i % 50 == 0 ? 1 << 20 : random() % 40000;
            writeFile(app / "Contents/Resources" / std::to_string(i % 20) / std::to_string(i), std::string(size, 'h'));
        }
        files = count + 1;
        fs::create_directories(share);
        fs::create_directories(home);
    }
    std::vector<std::string> stageArgs() const {
        return {"migrate", "stage", app, "--share", share, "--home", home, "--allow-non-intel"};
    }
};

// Files under `folder`, or nothing when the walk met an error (the folder
// was taken away meanwhile).
std::optional<size_t> countFiles(const fs::path& folder) {
    std::error_code ec;
    size_t n = 0;
    fs::recursive_directory_iterator it(folder, ec);
    if (ec) return std::nullopt;
    for (; it != fs::recursive_directory_iterator(); it.increment(ec)) {
        if (ec) return std::nullopt;
        if (it->is_regular_file(ec)) ++n;
        if (ec) return std::nullopt;
    }
    if (ec) return std::nullopt;
    return n;
}

}  // namespace

TEST(TesselMigrate, PlansStagesAndUnstages) {
    HeavyApp heavy(30);
    auto plan = runTessel({"migrate", "plan", heavy.app, "--share", heavy.share, "--home", heavy.home, "--json"});
    EXPECT_EQ(plan.status, 1);  // not Intel-only: no executable at all
    EXPECT_NE(plan.err.find("Heavy isn’t an Intel-only app, so it doesn’t need Tessel."), std::string::npos) << plan.err;

    plan = runTessel({"migrate", "plan", heavy.app, "--share", heavy.share, "--home", heavy.home, "--json",
                      "--allow-non-intel"});
    ASSERT_EQ(plan.status, 0) << plan.err;
    const auto j = nlohmann::json::parse(plan.out).at("plan");
    EXPECT_EQ(j.at("bundleID"), bundleID);
    EXPECT_EQ(j.at("shareFolder"), (heavy.share / "Migrate" / bundleID).native());
    EXPECT_GT(j.at("estimatedBytes").get<uint64_t>(), 0u);
    EXPECT_FALSE(fs::exists(heavy.share / "Migrate"));

    auto staged = runTessel(heavy.stageArgs());
    ASSERT_EQ(staged.status, 0) << staged.err;
    EXPECT_EQ(countFiles(heavy.share / "Migrate" / bundleID), heavy.files);
    EXPECT_EQ(runTessel({"migrate", "unstage", heavy.app, "--share", heavy.share, "--home", heavy.home}).status, 0);
    EXPECT_FALSE(fs::exists(heavy.share / "Migrate" / bundleID));
    EXPECT_EQ(runTessel({"migrate", "stage", heavy.app}).status, 2);
}

TEST(TesselMigrate, AKilledStagingNeverShowsAPartialFolder) {
    HeavyApp heavy(600);
    const fs::path staged = heavy.share / "Migrate" / bundleID;
    std::atomic<bool> done{false};
    std::atomic<size_t> complete{0}, partial{0};
    // A walk counts only when the same folder stood in the share before and
    // after it: a folder taken out and emptied meanwhile is no longer shown.
    // The open descriptor keeps its inode from being reused.
    std::thread reader([&] {
        while (!done) {
            std::this_thread::yield();
            const int fd = ::open(staged.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
            if (fd < 0) continue;
            struct stat before {
            }, after{};
            const bool opened = ::fstat(fd, &before) == 0;
            const auto n = countFiles(staged);
            if (opened && n && ::stat(staged.c_str(), &after) == 0 && after.st_ino == before.st_ino &&
                after.st_dev == before.st_dev)
                (*n == heavy.files ? complete : partial)++;
            ::close(fd);
        }
    });

    // The first run tells how long a copy takes here; kills fall at random moments of it.
    const auto start = std::chrono::steady_clock::now();
    ASSERT_EQ(runTessel(heavy.stageArgs()).status, 0);
    const auto whole = std::chrono::duration_cast<std::chrono::microseconds>(std::chrono::steady_clock::now() - start);
    std::mt19937 random(11);
    for (int round = 0; round < 10; ++round) {
        ChildProcess child(tesselExecutable(), heavy.stageArgs());
        std::this_thread::sleep_for(std::chrono::microseconds(random() % (whole.count() + 1)));
        child.signal(SIGKILL);
        ASSERT_TRUE(child.wait().has_value());
    }
    ASSERT_EQ(runTessel(heavy.stageArgs()).status, 0);
    done = true;
    reader.join();
    EXPECT_EQ(partial.load(), 0u);
    EXPECT_GT(complete.load(), 0u);
    EXPECT_EQ(countFiles(staged), heavy.files);
    // Only the staged folder is in the share; what the killed runs left beside
    // it went with the next run.
    EXPECT_EQ(std::distance(fs::directory_iterator(heavy.share / "Migrate"), fs::directory_iterator()), 1);
    EXPECT_TRUE(fs::is_empty(heavy.share.parent_path() / ".tessel-host"));
}
