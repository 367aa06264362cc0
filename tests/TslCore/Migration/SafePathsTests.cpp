#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <climits>
#include <cstdlib>
#include <filesystem>
#include <string>

#include "Support/Errors.h"
#include "Support/TempDir.h"
#include "TslCore/Migration/SafePaths.h"

namespace fs = std::filesystem;
using namespace tsl;
using tsl::test::thrownBy;

namespace {

std::string realPath(const fs::path& p) {
    char buffer[PATH_MAX];
    return ::realpath(p.c_str(), buffer) ? std::string(buffer) : std::string();
}

}  // namespace

TEST(SafePaths, BundleIDsAreShortDottedASCII) {
    EXPECT_TRUE(SafePaths::isValidBundleID("com.example.App-2_x"));
    EXPECT_TRUE(SafePaths::isValidBundleID(std::string(255, 'a')));
    EXPECT_FALSE(SafePaths::isValidBundleID(std::string(256, 'a')));
    EXPECT_FALSE(SafePaths::isValidBundleID(""));
    EXPECT_FALSE(SafePaths::isValidBundleID(".com.example"));
    EXPECT_FALSE(SafePaths::isValidBundleID("com.example."));
    EXPECT_FALSE(SafePaths::isValidBundleID("com..example"));
    EXPECT_FALSE(SafePaths::isValidBundleID("com.exämple"));
    EXPECT_FALSE(SafePaths::isValidBundleID("com/example"));
    EXPECT_FALSE(SafePaths::isValidBundleID("com example"));
    EXPECT_FALSE(SafePaths::isValidBundleID(std::string("com\0x", 5)));
}

TEST(SafePaths, SingleComponentsCountBytesNotCharacters) {
    EXPECT_TRUE(SafePaths::isSingleComponent("Report 2024.pdf"));
    EXPECT_TRUE(SafePaths::isSingleComponent(std::string(255, 'x')));
    EXPECT_FALSE(SafePaths::isSingleComponent(std::string(256, 'x')));
    std::string wide;
    for (int i = 0; i < 128; ++i) wide += "é";  // 128 characters, 256 bytes
    EXPECT_FALSE(SafePaths::isSingleComponent(wide));
    EXPECT_TRUE(SafePaths::isSingleComponent(wide.substr(2)));
    EXPECT_FALSE(SafePaths::isSingleComponent(""));
    EXPECT_FALSE(SafePaths::isSingleComponent("."));
    EXPECT_FALSE(SafePaths::isSingleComponent(".."));
    EXPECT_FALSE(SafePaths::isSingleComponent(".hidden"));
    EXPECT_FALSE(SafePaths::isSingleComponent("a/b"));
    EXPECT_FALSE(SafePaths::isSingleComponent(std::string("a\0b", 3)));
}

TEST(SafePaths, ResolvedPathFollowsExistingLinksAndKeepsTheMissingTail) {
    test::TempDir tmp;
    const std::string base = realPath(tmp.path());
    fs::create_directory(tmp / "real");
    fs::create_directory_symlink(tmp / "real", tmp / "link");
    fs::create_symlink(tmp / "nowhere", tmp / "dangling");
    fs::create_directory_symlink("/", tmp / "top");

    EXPECT_EQ(SafePaths::resolvedPath((tmp / "link").native()), base + "/real");
    EXPECT_EQ(SafePaths::resolvedPath((tmp / "link/not/yet").native()), base + "/real/not/yet");
    EXPECT_EQ(SafePaths::resolvedPath((tmp / "link/../link/./x/").native()), base + "/real/x");
    // A dangling link counts as missing: its name stays, unresolved.
    EXPECT_EQ(SafePaths::resolvedPath((tmp / "dangling/x").native()), base + "/dangling/x");
    // A link to the root followed by a missing tail gives no double slash.
    EXPECT_EQ(SafePaths::resolvedPath((tmp / "top/tsl-missing-entry").native()), "/tsl-missing-entry");
    EXPECT_EQ(SafePaths::resolvedPath("/"), "/");
    EXPECT_EQ(SafePaths::resolvedPath("/tsl-missing-entry/a/../b"), "/tsl-missing-entry/b");

    const fs::path previous = fs::current_path();
    fs::current_path(tmp / "link");
    EXPECT_EQ(SafePaths::resolvedPath("sub/file"), base + "/real/sub/file");
    fs::current_path(previous);
}

TEST(SafePaths, CheckNoSymlinksRefusesEscapesAndLinksOnTheWay) {
    test::TempDir tmp;
    const fs::path root = tmp / "share";
    fs::create_directories(root / "a/b");
    fs::create_directory(tmp / "elsewhere");

    EXPECT_NO_THROW(SafePaths::checkNoSymlinks(root, root));
    EXPECT_NO_THROW(SafePaths::checkNoSymlinks(root / "a/b", root));
    EXPECT_NO_THROW(SafePaths::checkNoSymlinks(root / "a/missing/deeper", root));

    auto v = thrownBy<SafePaths::Violation>([&] { SafePaths::checkNoSymlinks(tmp / "share-sibling/x", root); });
    EXPECT_EQ(v.kind, SafePaths::Violation::Kind::outside);
    EXPECT_EQ(v.path, (tmp / "share-sibling/x").native());
    EXPECT_EQ(v.description(), "path escapes its root: " + (tmp / "share-sibling/x").native());
    v = thrownBy<SafePaths::Violation>([&] { SafePaths::checkNoSymlinks(root / "a/../../elsewhere", root); });
    EXPECT_EQ(v, SafePaths::Violation::outside((tmp / "elsewhere").native()));

    // The other side swaps a folder for a link after a first check passed.
    fs::remove_all(root / "a");
    fs::create_directory_symlink(tmp / "elsewhere", root / "a");
    v = thrownBy<SafePaths::Violation>([&] { SafePaths::checkNoSymlinks(root / "a/b", root); });
    EXPECT_EQ(v, SafePaths::Violation::symlink((root / "a").native()));
    EXPECT_EQ(v.description(), "refusing to follow a symlink inside a shared folder: " + (root / "a").native());

    // A root that is itself a link is refused, also when it is the target.
    fs::create_directory_symlink(root, tmp / "rootlink");
    v = thrownBy<SafePaths::Violation>([&] { SafePaths::checkNoSymlinks(tmp / "rootlink", tmp / "rootlink"); });
    EXPECT_EQ(v, SafePaths::Violation::symlink((tmp / "rootlink").native()));
}
