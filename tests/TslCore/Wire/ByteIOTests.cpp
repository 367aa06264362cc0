#include <gtest/gtest.h>

#include <cmath>

#include "TslCore/Wire/ByteIO.h"
#include "WireTestSupport.h"

using namespace tsl;
using tsl::test::wireErrorOf;

TEST(ByteIO, WritesLittleEndianAndReadsBack) {
    ByteWriter w;
    w.u8(0x01);
    w.u16(0x0302);
    w.u32(0x07060504);
    w.u64(0x0F0E0D0C0B0A0908ull);
    w.f32(-1.5f);
    w.zeros(2);
    w.bytes(Bytes{0xAA, 0xBB});
    Bytes expected{1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 14, 15, 0x00, 0x00, 0xC0, 0xBF, 0, 0, 0xAA, 0xBB};
    EXPECT_EQ(w.data, expected);

    ByteReader r(w.data);
    EXPECT_EQ(r.u8(), 1);
    EXPECT_EQ(r.u16(), 0x0302);
    EXPECT_EQ(r.u32(), 0x07060504u);
    EXPECT_EQ(r.u64(), 0x0F0E0D0C0B0A0908ull);
    EXPECT_EQ(r.f32(), -1.5f);
    r.skip(2);
    EXPECT_EQ(r.rest(), (Bytes{0xAA, 0xBB}));
    EXPECT_EQ(r.remaining(), 2);  // rest() does not advance
    EXPECT_EQ(r.data(2), (Bytes{0xAA, 0xBB}));
    EXPECT_EQ(r.remaining(), 0);
}

TEST(ByteIO, ShortReadsThrowTruncatedAndKeepTheOffset) {
    ByteReader r(Bytes{1, 2, 3});
    EXPECT_EQ(wireErrorOf([&] { r.u32(); }).kind(), WireError::Kind::truncated);
    EXPECT_EQ(r.offset, 0);
    EXPECT_EQ(wireErrorOf([&] { r.skip(-1); }).kind(), WireError::Kind::truncated);
    EXPECT_EQ(wireErrorOf([&] { r.data(4); }).kind(), WireError::Kind::truncated);
    EXPECT_EQ(r.offset, 0);
    EXPECT_EQ(r.u16(), 0x0201);
    EXPECT_EQ(wireErrorOf([&] { r.u16(); }).kind(), WireError::Kind::truncated);
    EXPECT_EQ(r.offset, 2);
}
