#include "TslCore/Measure/TestPattern.h"

#include <algorithm>
#include <cstring>

namespace tsl {
namespace {

constexpr uint32_t background = 0xFF303030, bar = 0xFF808080, white = 0xFFFFFFFF, black = 0xFF000000;

}  // namespace

void fillBGRA(uint8_t* base, int64_t width, int64_t height, size_t bytesPerRow, int64_t x, int64_t y, int64_t w,
              int64_t h, uint32_t colour) {
    const int64_t x0 = std::max<int64_t>(x, 0), y0 = std::max<int64_t>(y, 0);
    const int64_t x1 = std::min(x + w, width), y1 = std::min(y + h, height);
    if (x0 >= x1 || y0 >= y1) return;
    const uint8_t le[4] = {uint8_t(colour), uint8_t(colour >> 8), uint8_t(colour >> 16), uint8_t(colour >> 24)};
    uint32_t pixel;
    std::memcpy(&pixel, le, 4);
    for (int64_t row = y0; row < y1; ++row) {
        auto* p = reinterpret_cast<uint32_t*>(base + size_t(row) * bytesPerRow) + x0;
        std::fill_n(p, x1 - x0, pixel);
    }
}

void drawTestPattern(uint8_t* base, int64_t width, int64_t height, size_t bytesPerRow, double scale,
                     uint64_t counter, bool squareWhite) {
    using namespace TestPatternSpec;
    auto px = [scale](double points) { return int64_t(scale * points); };
    fillBGRA(base, width, height, bytesPerRow, 0, 0, width, height, background);
    const int64_t barX = int64_t(counter % 60) * width / 60;
    fillBGRA(base, width, height, bytesPerRow, barX, 0, std::max<int64_t>(width / 40, 1), height, bar);
    fillBGRA(base, width, height, bytesPerRow, px(squareX), px(squareY), px(squareSize), px(squareSize),
             squareWhite ? white : black);
    for (int i = 0; i < barcodeBits; ++i) {
        const bool set = (counter >> i) & 1;
        fillBGRA(base, width, height, bytesPerRow, px(barcodeX + barcodeCell * i), px(barcodeY), px(barcodeCell),
                 px(barcodeHeight), set ? white : black);
    }
}

}  // namespace tsl
