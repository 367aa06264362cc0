#include <gtest/gtest.h>

#include "TslCore/Support/ByteSpan.h"

using namespace tsl;

TEST(ByteSpan, ReadsFieldsInEitherOrderAndNothingPastTheEnd) {
    const uint8_t bytes[] = {0x01, 0x02, 0x03, 0x04, 0xFF};
    const std::span<const uint8_t> data(bytes);
    EXPECT_EQ(ByteSpan::uintAt(data, 0, 4, Endian::big), 0x01020304u);
    EXPECT_EQ(ByteSpan::uintAt(data, 0, 4, Endian::little), 0x04030201u);
    EXPECT_EQ(ByteSpan::uintAt(data, 4, 1, Endian::big), 0xFFu);
    EXPECT_EQ(ByteSpan::uintAt(data, 2, 4, Endian::big), std::nullopt);
    EXPECT_EQ(ByteSpan::uintAt(data, 5, 1, Endian::big), std::nullopt);
    // An offset near the top of the range must not wrap into the bytes.
    EXPECT_EQ(ByteSpan::uintAt(data, UINT64_MAX - 1, 4, Endian::big), std::nullopt);
    EXPECT_EQ(ByteSpan::uintAt(data, 0, 9, Endian::big), std::nullopt);
    EXPECT_EQ(ByteSpan::sliceAt(data, 5, 0)->size(), 0u);
    EXPECT_EQ(ByteSpan::sliceAt(data, 1, 5), std::nullopt);
}
