#include <gtest/gtest.h>

#include "TslStream/Codec/PixelBuffers.h"

namespace tsl {
namespace {

void fill(PixelBuffer& buffer, uint8_t b, uint8_t g, uint8_t r) {
    PixelBufferLock locked(buffer, 0);
    for (int64_t y = 0; y < buffer.height(); ++y)
        for (int64_t x = 0; x < buffer.width(); ++x) {
            uint8_t* p = locked.base() + size_t(y) * buffer.bytesPerRow() + size_t(x) * 4;
            p[0] = b, p[1] = g, p[2] = r, p[3] = 255;
        }
}

TEST(PixelBuffers, RawPayloadAndFromRawKeepEveryByte) {
    auto buffer = PixelBuffers::make(5, 3);
    {
        PixelBufferLock locked(*buffer, 0);
        for (size_t i = 0; i < buffer->bytesPerRow() * 3; ++i) locked.base()[i] = uint8_t(i * 7);
    }
    auto raw = PixelBuffers::rawPayload(*buffer);
    EXPECT_EQ(raw.bytesPerRow, buffer->bytesPerRow());
    ASSERT_EQ(raw.data.size(), buffer->bytesPerRow() * 3);  // row padding travels too
    auto copy = PixelBuffers::fromRaw(5, 3, raw.bytesPerRow, raw.data);
    EXPECT_EQ(PixelBuffers::rawPayload(*copy).data, raw.data);
    EXPECT_EQ(PixelBuffers::pixel(*copy, 4, 2), PixelBuffers::pixel(*buffer, 4, 2));
}

TEST(PixelBuffers, FromRawHandlesShortDataAndOtherStrides) {
    // Stride 24 (wider than 5 pixels' 20 bytes and unlike the new buffer's 64):
    // only 20 bytes a row are taken, and a row not held whole stays zero.
    Bytes data(24 * 2 + 10, 0x11);
    auto buffer = PixelBuffers::fromRaw(5, 3, 24, data);
    EXPECT_EQ(PixelBuffers::pixel(*buffer, 4, 1), (PixelBuffers::Pixel{0x11, 0x11, 0x11, 0x11}));
    EXPECT_EQ(PixelBuffers::pixel(*buffer, 0, 2), (PixelBuffers::Pixel{0, 0, 0, 0}));
    EXPECT_NO_THROW(PixelBuffers::fromRaw(5, 3, 0, {}));
    EXPECT_THROW(PixelBuffers::fromRaw(0, 3, 20, data), PixelBufferError);
}

TEST(PixelBuffers, PixelAndMeanLumaStayInside) {
    auto buffer = PixelBuffers::make(10, 6);
    fill(*buffer, 0, 0, 255);
    EXPECT_EQ(PixelBuffers::pixel(*buffer, 9, 5), (PixelBuffers::Pixel{0, 0, 255, 255}));
    EXPECT_FALSE(PixelBuffers::pixel(*buffer, 10, 0));
    EXPECT_FALSE(PixelBuffers::pixel(*buffer, 0, -1));

    EXPECT_NEAR(*PixelBuffers::meanLuma(*buffer, 0, 0, 1), 0.2126 * 255, 1e-9);
    EXPECT_NEAR(*PixelBuffers::meanLuma(*buffer, -5, -5, 100), 0.2126 * 255, 1e-9);
    EXPECT_FALSE(PixelBuffers::meanLuma(*buffer, 10, 0, 4));
    EXPECT_FALSE(PixelBuffers::meanLuma(*buffer, -4, 0, 4));
    {
        // Only every second pixel counts, starting at the clipped corner.
        PixelBufferLock locked(*buffer, 0);
        uint8_t* p = locked.base() + 4;  // pixel (1, 0) turns white
        p[0] = p[1] = p[2] = 255;
    }
    EXPECT_NEAR(*PixelBuffers::meanLuma(*buffer, 0, 0, 2), 0.2126 * 255, 1e-9);
    EXPECT_NEAR(*PixelBuffers::meanLuma(*buffer, 1, 0, 1), 255, 1e-9);
}

}  // namespace
}  // namespace tsl
