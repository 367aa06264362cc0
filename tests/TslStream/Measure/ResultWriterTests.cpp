#include <gtest/gtest.h>

#include "Support/Files.h"
#include "Support/TempDir.h"
#include "TslStream/Measure/ResultWriter.h"

namespace tsl {
namespace {

TEST(ResultWriter, WritesCsvAndTextIntoAFolderItMakes) {
    test::TempDir dir;
    ResultWriter writer((dir / "a" / "b").string(), "run1");
    std::string csv = writer.write("latency", "n,ms", {"1,8.5", "2,\"9\""});
    EXPECT_EQ(csv, (dir / "a" / "b" / "run1-latency.csv").string());
    EXPECT_EQ(test::readFile(csv), "n,ms\n1,8.5\n2,\"9\"\n");
    EXPECT_EQ(test::readFile(writer.write("empty", "h", {})), "h\n");
    std::string text = writer.writeText("summary.txt", "p50 ≈ 8 ms");
    EXPECT_EQ(text, (dir / "a" / "b" / "run1-summary.txt").string());
    EXPECT_EQ(test::readFile(text), "p50 ≈ 8 ms");
}

}  // namespace
}  // namespace tsl
