#include <gtest/gtest.h>

#include <vector>

#include "TslStream/Codec/I420Conversion.h"

namespace tsl {
namespace {

struct Picture {
    int64_t width, height;
    int strideY, strideC;
    std::vector<uint8_t> y, u, v;
    Picture(int64_t w, int64_t h)
        : width(w), height(h), strideY(int(w) + 16), strideC(int((w + 1) / 2) + 8),
          y(size_t(strideY) * size_t(h), 0xEE), u(size_t(strideC) * size_t((h + 1) / 2), 0xEE), v(u) {}
    I420Planes planes() { return {y.data(), strideY, u.data(), strideC, v.data(), strideC}; }
};

// Split in two halves, the picture must be the one a single pass makes,
// chroma rows at the seam included, padding untouched.
TEST(I420Converter, SplitPicturesMatchOnePassByteForByte) {
    I420Converter converter;
    for (auto [w, h] : {std::pair<int64_t, int64_t>{1280, 800}, {1920, 1080}, {642, 363}, {800, 601}, {320, 200}}) {
        const size_t bytesPerRow = size_t(w) * 4 + 64;
        std::vector<uint8_t> bgra(bytesPerRow * size_t(h));
        for (size_t i = 0; i < bgra.size(); ++i) bgra[i] = uint8_t((i * 2654435761u) >> 13);
        Picture whole(w, h), split(w, h);
        ASSERT_TRUE(convertBGRAToI420(bgra.data(), bytesPerRow, w, h, whole.planes()));
        ASSERT_TRUE(converter.convert(bgra.data(), bytesPerRow, w, h, split.planes()));
        EXPECT_EQ(split.y, whole.y) << w << "x" << h;
        EXPECT_EQ(split.u, whole.u) << w << "x" << h;
        EXPECT_EQ(split.v, whole.v) << w << "x" << h;
    }
}

}  // namespace
}  // namespace tsl
