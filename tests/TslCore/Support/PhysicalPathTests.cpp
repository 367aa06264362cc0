#include <gtest/gtest.h>
#include <unistd.h>

#include <filesystem>

#include "Support/TempDir.h"
#include "TslCore/Migration/SafePaths.h"
#include "TslCore/Support/PathNames.h"
#include "TslCore/Support/PhysicalPath.h"

using namespace tsl;

TEST(PhysicalPath, FollowsLinksAsTheKernelWalksThemWhereSafePathsDoesNot) {
    test::TempDir dir;
    const std::string base = SafePaths::resolvedPath(dir.path().string());
    std::filesystem::create_directories(base + "/real/inner");
    std::filesystem::create_directory_symlink(base + "/real/inner", base + "/link");
    std::filesystem::create_directory_symlink(base + "/later", base + "/dangling");

    // ".." after a link leaves the link's target, not the link's folder.
    EXPECT_EQ(PhysicalPath::resolved(base + "/link/../x"), base + "/real/x");
    EXPECT_EQ(SafePaths::resolvedPath(base + "/link/../x"), base + "/x");
    // A write through a dangling link lands at its target.
    EXPECT_EQ(PhysicalPath::resolved(base + "/dangling/a"), base + "/later/a");
    EXPECT_EQ(SafePaths::resolvedPath(base + "/dangling/a"), base + "/dangling/a");

    std::filesystem::create_directory_symlink(base + "/loop", base + "/loop");
    EXPECT_EQ(PhysicalPath::resolved(base + "/loop/a"), base + "/loop/a") << "a loop ends the walk";
    EXPECT_EQ(PathNames::absolutePath("a/../b/"), PathNames::standardizedPath(".") + "/a/../b/");
}
