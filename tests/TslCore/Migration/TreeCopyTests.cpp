#include <gtest/gtest.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <sys/xattr.h>
#include <unistd.h>

#include <cerrno>
#include <filesystem>
#include <fstream>
#include <string>

#include "Support/Errors.h"
#include "Support/Files.h"
#include "Support/TempDir.h"
#include "TslCore/Migration/TreeCopy.h"

namespace fs = std::filesystem;
using namespace tsl;
using namespace tsl::test;

namespace {}  // namespace

TEST(TreeCopy, CopiesLinksAsLinksAndNeverTheirTargets) {
    test::TempDir tmp;
    const fs::path src = tmp / "App.app";
    fs::create_directories(src / "Contents/MacOS");
    fs::create_directories(src / "Contents/Locked");
    writeFile(src / "Contents/MacOS/App", "binary");
    writeFile(src / "Contents/.hidden", "h");
    writeFile(tmp / "secret", "outside");
    ::chmod((src / "Contents/MacOS/App").c_str(), 0751);
    ::chmod((src / "Contents/Locked").c_str(), 0500);
    fs::create_symlink(tmp / "secret", src / "Contents/absolute");
    fs::create_symlink("../../secret", src / "Contents/relative");
    fs::create_symlink("does/not/exist", src / "Contents/dangling");
    fs::create_directory_symlink(tmp.path(), src / "Contents/up");
    fs::create_symlink(std::string("bad\xFF"
                                   "name"),
                       src / "Contents/garbled");
    struct timespec old[2] = {{1000000000, 0}, {1000000000, 0}};
    ::utimensat(AT_FDCWD, (src / "Contents/MacOS/App").c_str(), old, 0);
    const bool attributes = ::setxattr((src / "Contents/MacOS/App").c_str(), "user.tessel.test", "v1", 2, 0) == 0 &&
                            ::setxattr((src / "Contents").c_str(), "user.tessel.folder", "v2", 2, 0) == 0;

    const fs::path dst = tmp / "copy/App.app";
    fs::create_directory(tmp / "copy");
    TreeCopy::copy(src, dst);

    EXPECT_EQ(readFile(dst / "Contents/MacOS/App"), "binary");
    EXPECT_EQ(readFile(dst / "Contents/.hidden"), "h");
    EXPECT_EQ(modeOf(dst / "Contents/MacOS/App") & 07777, 0751u);
    EXPECT_EQ(modeOf(dst / "Contents/Locked") & 07777, 0500u);
    EXPECT_EQ(fs::last_write_time(dst / "Contents/MacOS/App"), fs::last_write_time(src / "Contents/MacOS/App"));
    for (const char* name : {"absolute", "relative", "dangling", "up"}) {
        EXPECT_TRUE(S_ISLNK(modeOf(dst / "Contents" / name))) << name;
        EXPECT_EQ(linkText(dst / "Contents" / name), linkText(src / "Contents" / name)) << name;
    }
    EXPECT_EQ(linkText(dst / "Contents/garbled"), "bad\xEF\xBF\xBDname");
    EXPECT_EQ(readFile(tmp / "secret"), "outside");
    for (const auto& entry : fs::recursive_directory_iterator(dst)) {
        if (S_ISREG(modeOf(entry.path()))) {
            EXPECT_NE(readFile(entry.path()), "outside") << "a link's target was copied: " << entry.path();
        }
    }
    if (attributes) {
        char value[8] = {};
        EXPECT_EQ(::getxattr((dst / "Contents/MacOS/App").c_str(), "user.tessel.test", value, sizeof value), 2);
        EXPECT_EQ(std::string(value), "v1");
        EXPECT_EQ(::getxattr((dst / "Contents").c_str(), "user.tessel.folder", value, sizeof value), 2);
    }
    ::chmod((dst / "Contents/Locked").c_str(), 0700);
    ::chmod((src / "Contents/Locked").c_str(), 0700);
}

TEST(TreeCopy, NeverWritesOverAnExistingDestination) {
    test::TempDir tmp;
    fs::create_directory(tmp / "src");
    writeFile(tmp / "src/file", "new");
    fs::create_directory(tmp / "dst");
    writeFile(tmp / "dst/keep", "old");

    auto f = thrownBy<TreeCopy::Failure>([&] { TreeCopy::copy(tmp / "src", tmp / "dst"); });
    EXPECT_EQ(f, TreeCopy::Failure((tmp / "dst").native(), "create", EEXIST));
    EXPECT_EQ(f.description(), "create " + (tmp / "dst").native() + ": File exists (17)");
    EXPECT_EQ(readFile(tmp / "dst/keep"), "old");
    EXPECT_FALSE(entryExists(tmp / "dst/file"));

    // A dangling link is an existing destination too, and stays as it was.
    fs::create_symlink(tmp / "target", tmp / "dangling");
    f = thrownBy<TreeCopy::Failure>([&] { TreeCopy::copy(tmp / "src", tmp / "dangling"); });
    EXPECT_EQ(f.operation, "create");
    EXPECT_FALSE(entryExists(tmp / "target"));
    EXPECT_TRUE(S_ISLNK(modeOf(tmp / "dangling")));

    f = thrownBy<TreeCopy::Failure>([&] { TreeCopy::copy(tmp / "missing", tmp / "fresh"); });
    EXPECT_EQ(f, TreeCopy::Failure((tmp / "missing").native(), "lstat", ENOENT));
    EXPECT_FALSE(entryExists(tmp / "fresh"));
}

TEST(TreeCopy, APipeAbortsTheCopyAndLeavesNothing) {
    test::TempDir tmp;
    const fs::path src = tmp / "src";
    fs::create_directories(src / "a-first/inner");
    writeFile(src / "a-first/inner/file", "x");
    ::chmod((src / "a-first/inner").c_str(), 0555);
    ASSERT_EQ(::mkfifo((src / "m-pipe").c_str(), 0600), 0);
    writeFile(src / "z-last", "never copied");

    const auto f = thrownBy<TreeCopy::Failure>([&] { TreeCopy::copy(src, tmp / "dst"); });
    EXPECT_EQ(f, TreeCopy::Failure((src / "m-pipe").native(), "copy (not a file, folder or link)", EINVAL));
    EXPECT_FALSE(entryExists(tmp / "dst")) << "a failed copy leaves nothing, read-only folders included";

    // A single file copies on its own, and a pipe at the top fails the same way.
    TreeCopy::copy(src / "z-last", tmp / "single");
    EXPECT_EQ(readFile(tmp / "single"), "never copied");
    EXPECT_EQ(thrownBy<TreeCopy::Failure>([&] { TreeCopy::copy(src / "m-pipe", tmp / "pipe-copy"); }).operation,
              "copy (not a file, folder or link)");
    EXPECT_FALSE(entryExists(tmp / "pipe-copy"));
    ::chmod((src / "a-first/inner").c_str(), 0755);
}
