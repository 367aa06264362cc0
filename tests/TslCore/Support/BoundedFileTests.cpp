#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include "Support/Files.h"
#include "Support/TempDir.h"
#include "TslCore/Support/BoundedFile.h"

using namespace tsl;
using namespace tsl::test;

namespace {

std::error_code refusal(const std::filesystem::path& path, size_t limit) {
    try {
        BoundedFile::read(path, limit);
    } catch (const FileReadError& e) {
        return e.code();
    }
    return {};
}

}  // namespace

TEST(BoundedFile, ReadsARegularFileUpToItsLimitAndTellsWhichFileItWas) {
    TempDir dir;
    writeFile(dir / "f", "12345");
    const auto file = BoundedFile::read(dir / "f", 5);
    EXPECT_EQ(file.bytes, "12345");
    struct stat st {};
    ASSERT_EQ(::stat((dir / "f").c_str(), &st), 0);
    EXPECT_EQ(file.inode, st.st_ino);
    EXPECT_EQ(BoundedFile::bytesOf(dir / "f", 4), std::nullopt);
    EXPECT_EQ(refusal(dir / "f", 4), FileRefusal::tooLarge);
    // Files the kernel reports as empty are read to their end all the same.
    EXPECT_FALSE(BoundedFile::read("/proc/self/status", 1 << 16).bytes.empty());
}

TEST(BoundedFile, RefusesWhatIsNoRegularFileOrTooLargeBeforeReadingIt) {
    TempDir dir;
    const auto fifo = dir / "fifo";
    ASSERT_EQ(::mkfifo(fifo.c_str(), 0600), 0);
    EXPECT_EQ(refusal(fifo, 100), FileRefusal::notRegularFile) << "a pipe with no writer, without waiting";
    EXPECT_EQ(refusal("/dev/zero", 100), FileRefusal::notRegularFile);
    EXPECT_EQ(refusal(dir.path(), 100), std::errc::is_a_directory);
    EXPECT_EQ(refusal(dir / "none", 100), std::errc::no_such_file_or_directory);

    // A sparse gigabyte: refused by its size.
    const auto huge = dir / "huge";
    writeFile(huge, "");
    ASSERT_EQ(::truncate(huge.c_str(), off_t(1) << 30), 0);
    EXPECT_EQ(refusal(huge, 1 << 20), FileRefusal::tooLarge);

    try {
        BoundedFile::read(dir.path(), 1);
        FAIL();
    } catch (const FileReadError& e) {
        EXPECT_EQ(e.description(), dir.path().string() + ": a folder, not a file");
    }
}

TEST(BoundedFile, StreamsStopOneBytePastTheirLimit) {
    int fds[2];
    ASSERT_EQ(::pipe(fds), 0);
    ASSERT_EQ(::write(fds[1], "abcdef", 6), 6);
    EXPECT_THROW(BoundedFile::readStream(fds[0], "standard input", 3), FileReadError);
    ::close(fds[1]);
    std::string rest(8, '\0');
    EXPECT_EQ(::read(fds[0], rest.data(), rest.size()), 2) << "four bytes taken, not all six";
    ::close(fds[0]);
}
