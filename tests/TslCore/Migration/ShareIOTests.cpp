#include <gtest/gtest.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <filesystem>
#include <fstream>
#include <string>

#include "Support/Errors.h"
#include "Support/Files.h"
#include "Support/TempDir.h"
#include "TslCore/Migration/ShareIO.h"

namespace fs = std::filesystem;
using namespace tsl;
using namespace tsl::test;

namespace {

size_t entriesIn(const fs::path& folder) {
    std::error_code ec;
    return static_cast<size_t>(std::distance(fs::directory_iterator(folder, ec), fs::directory_iterator()));
}

}  // namespace

TEST(ShareIO, WorkFoldersAreOwnerOnlyBesideTheShare) {
    test::TempDir tmp;
    const fs::path root = tmp / "share";
    EXPECT_EQ(ShareIO::hostFolder(root), tmp / ".tessel-host");
    EXPECT_EQ(ShareIO::hostFolder(root.native() + "/"), tmp / ".tessel-host");

    auto held = std::make_optional(ShareIO::makeWorkFolder(root));
    const ShareIO::HeldFolder otherHeld = ShareIO::makeWorkFolder(root);
    const fs::path work = held->path, other = otherHeld.path;
    EXPECT_EQ(work.parent_path(), tmp / ".tessel-host");
    EXPECT_NE(work, other);
    EXPECT_TRUE(work.filename().native().starts_with("work-"));
    EXPECT_EQ(work.filename().native().size(), 5u + 36u);
    struct stat st {};
    ASSERT_EQ(::stat(work.c_str(), &st), 0);
    EXPECT_EQ(st.st_mode & 0777, 0700u);

    // What a killed run left is swept; what a live run holds is not.
    writeFile(work / "half-copied", "x");
    fs::create_directories(tmp / ".tessel-host/trash-left/deep");
    fs::create_directories(tmp / ".tessel-host/unrelated");
    ShareIO::sweepAbandoned(root);
    EXPECT_TRUE(fs::exists(work / "half-copied"));
    EXPECT_FALSE(fs::exists(tmp / ".tessel-host/trash-left"));
    EXPECT_TRUE(fs::exists(tmp / ".tessel-host/unrelated"));
    held.reset();
    EXPECT_FALSE(fs::exists(work));
    EXPECT_TRUE(fs::exists(other));
}

TEST(ShareIO, OpenDirectoryRefusesLinksAndOddNames) {
    test::TempDir tmp;
    const fs::path root = tmp / "share";
    fs::create_directory(root);
    fs::create_directory(tmp / "outside");

    int fd = ShareIO::openDirectory({"Migrate", "com.example.app"}, root, true);
    EXPECT_GE(fd, 0);
    ::close(fd);
    EXPECT_TRUE(fs::is_directory(root / "Migrate/com.example.app"));

    fs::create_directory_symlink(tmp / "outside", root / "Migrate/linked");
    // Linux reports a link opened as a folder without following as ENOTDIR.
    auto f = thrownBy<ShareIO::Failure>([&] { ShareIO::openDirectory({"Migrate", "linked"}, root, true); });
    EXPECT_EQ(f, ShareIO::Failure::open("linked", ENOTDIR));
    EXPECT_EQ(f.description(), "cannot open linked in the shared folder (errno " + std::to_string(ENOTDIR) + ")");
    f = thrownBy<ShareIO::Failure>([&] { ShareIO::openDirectory({"Migrate", ".."}, root, true); });
    EXPECT_EQ(f, ShareIO::Failure::open("..", EINVAL));
    f = thrownBy<ShareIO::Failure>([&] { ShareIO::openDirectory({"a/b"}, root, false); });
    EXPECT_EQ(f, ShareIO::Failure::open("a/b", EINVAL));
    f = thrownBy<ShareIO::Failure>([&] { ShareIO::openDirectory({"absent"}, root, false); });
    EXPECT_EQ(f, ShareIO::Failure::open("absent", ENOENT));
    f = thrownBy<ShareIO::Failure>([&] { ShareIO::openDirectory({}, tmp / "no-share", false); });
    EXPECT_EQ(f, ShareIO::Failure::open("no-share", ENOENT));
    EXPECT_EQ(entriesIn(tmp / "outside"), 0u);
}

TEST(ShareIO, MoveInNeverOverwrites) {
    test::TempDir tmp;
    const fs::path root = tmp / "share";
    const ShareIO::HeldFolder held = ShareIO::makeWorkFolder(root);
    const fs::path work = held.path;
    fs::create_directory(work / "App.app");
    writeFile(work / "App.app/new", "new");

    ShareIO::moveIn(work / "App.app", {"Migrate", "com.example.app"}, root);
    EXPECT_EQ(readFile(root / "Migrate/com.example.app/App.app/new"), "new");
    EXPECT_FALSE(entryExists(work / "App.app"));

    fs::create_directory(work / "App.app");
    writeFile(work / "App.app/second", "second");
    const auto f = thrownBy<ShareIO::Failure>([&] {
        ShareIO::moveIn(work / "App.app", {"Migrate", "com.example.app"}, root);
    });
    EXPECT_EQ(f, ShareIO::Failure::rename("App.app", EEXIST));
    EXPECT_EQ(f.description(), "cannot move App.app (errno " + std::to_string(EEXIST) + ")");
    EXPECT_EQ(readFile(root / "Migrate/com.example.app/App.app/new"), "new");
    EXPECT_FALSE(entryExists(root / "Migrate/com.example.app/App.app/second"));
    EXPECT_TRUE(entryExists(work / "App.app/second"));

    // A link planted on the way leads nowhere: the item stays in the work folder.
    fs::create_directory(tmp / "outside");
    fs::create_directory_symlink(tmp / "outside", root / "Migrate/com.example.other");
    EXPECT_EQ(thrownBy<ShareIO::Failure>([&] {
                  ShareIO::moveIn(work / "App.app", {"Migrate", "com.example.other"}, root);
              }),
              ShareIO::Failure::open("com.example.other", ENOTDIR));
    EXPECT_EQ(entriesIn(tmp / "outside"), 0u);
    EXPECT_TRUE(entryExists(work / "App.app/second"));
}

TEST(ShareIO, RemoveTakesOnlyWhatIsReachable) {
    test::TempDir tmp;
    const fs::path root = tmp / "share";
    fs::create_directories(root / "Migrate/com.example.app/App.app/Contents/Locked");
    writeFile(root / "Migrate/com.example.app/App.app/Contents/Locked/file", "x");
    ::chmod((root / "Migrate/com.example.app/App.app/Contents/Locked").c_str(), 0500);

    ShareIO::remove("App.app", {"Migrate", "com.example.app"}, root);
    EXPECT_FALSE(entryExists(root / "Migrate/com.example.app/App.app"));
    EXPECT_EQ(entriesIn(ShareIO::hostFolder(root)), 0u) << "the trash folder goes too";

    // Already gone, or not reachable at all: success, and nothing left behind.
    EXPECT_NO_THROW(ShareIO::remove("App.app", {"Migrate", "com.example.app"}, root));
    EXPECT_NO_THROW(ShareIO::remove("App.app", {"Migrate", "absent"}, root));
    EXPECT_EQ(entriesIn(ShareIO::hostFolder(root)), 0u);

    // A component swapped for a link: the entry behind it isn't touched.
    fs::create_directories(tmp / "outside/App.app");
    writeFile(tmp / "outside/App.app/keep", "keep");
    fs::create_directory_symlink(tmp / "outside", root / "Migrate/com.example.linked");
    EXPECT_NO_THROW(ShareIO::remove("App.app", {"Migrate", "com.example.linked"}, root));
    EXPECT_EQ(readFile(tmp / "outside/App.app/keep"), "keep");

    // The entry itself being a link removes the link, never its target.
    fs::create_directory_symlink(tmp / "outside/App.app", root / "Migrate/com.example.app/Link.app");
    ShareIO::remove("Link.app", {"Migrate", "com.example.app"}, root);
    EXPECT_FALSE(entryExists(root / "Migrate/com.example.app/Link.app"));
    EXPECT_EQ(readFile(tmp / "outside/App.app/keep"), "keep");

    EXPECT_EQ(thrownBy<ShareIO::Failure>([&] { ShareIO::remove("../escape", {"Migrate"}, root); }),
              ShareIO::Failure::open("../escape", EINVAL));
}
