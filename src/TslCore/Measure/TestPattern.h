#pragma once
#include <cstddef>
#include <cstdint>
#include <string_view>

namespace tsl {

// The test pattern's layout, shared by whatever draws it and whatever reads
// it back. Sizes and positions are points from the content's top-left corner.
namespace TestPatternSpec {
inline constexpr double contentWidth = 640.0;
inline constexpr double contentHeight = 400.0;
inline constexpr double squareX = 40.0;
inline constexpr double squareY = 40.0;
inline constexpr double squareSize = 64.0;
inline constexpr double barcodeX = 40.0;
inline constexpr double barcodeY = 140.0;
inline constexpr double barcodeCell = 16.0;
inline constexpr double barcodeHeight = 16.0;
inline constexpr int barcodeBits = 16;
inline constexpr uint16_t f1KeyCode = 122;  // turns the square white while down
inline constexpr std::string_view windowTitle = "Tsl TestPattern";
inline constexpr std::string_view bundleID = "com.tessel.testpattern";
inline constexpr double whiteThreshold = 160.0;  // mean luma above which the square is white
}  // namespace TestPatternSpec

// Fills a rectangle of 32-bit BGRA memory with one colour (0xAARRGGBB),
// clipped to the picture.
void fillBGRA(uint8_t* base, int64_t width, int64_t height, size_t bytesPerRow, int64_t x, int64_t y, int64_t w,
              int64_t h, uint32_t colour);

// Draws the pattern into 32-bit BGRA memory at `scale` pixels per point:
// background, a bar that crosses the picture once every 60 counts, the
// square, and the low 16 bits of `counter` as cells (bit 0 leftmost). Every
// shape is clipped to the picture.
void drawTestPattern(uint8_t* base, int64_t width, int64_t height, size_t bytesPerRow, double scale,
                     uint64_t counter, bool squareWhite);

}  // namespace tsl
