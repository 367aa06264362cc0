#include <gtest/gtest.h>

#include <filesystem>

#include "Support/Errors.h"
#include "Support/Files.h"
#include "Support/TempDir.h"
#include "TslCore/Support/AtomicFile.h"

namespace tsl {
namespace {

TEST(AtomicFile, ReplacesWholeFileWithModeAndLeavesNothingBeside) {
    test::TempDir dir;
    std::string path = dir / "state.json";
    writeFileAtomically(path, "old", 0600);
    writeFileAtomically(path, "new content", 0600);
    EXPECT_EQ(test::readFile(path), "new content");
    EXPECT_EQ(test::modeOf(path) & 07777, 0600u);
    writeFileAtomically(path, "", 0644);
    EXPECT_EQ(test::readFile(path), "");
    EXPECT_EQ(std::distance(std::filesystem::directory_iterator(dir.path()), {}), 1);
}

TEST(AtomicFile, FailureNamesThePathAndKeepsTheOldFile) {
    test::TempDir dir;
    std::string path = dir / "kept";
    writeFileAtomically(path, "kept");
    auto error = test::thrownBy<Error>([&] { writeFileAtomically(dir / "missing" / "x", "y"); });
    EXPECT_NE(error.description().find("missing/x"), std::string::npos) << error;
    // A folder standing where the file should go cannot be replaced.
    std::filesystem::create_directory(dir / "folder");
    std::filesystem::create_directory(dir / "folder" / "inside");
    EXPECT_THROW(writeFileAtomically(dir / "folder", "y"), Error);
    EXPECT_EQ(test::readFile(path), "kept");
    EXPECT_EQ(std::distance(std::filesystem::directory_iterator(dir.path()), {}), 2);
}

}  // namespace
}  // namespace tsl
