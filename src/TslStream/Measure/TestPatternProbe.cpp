#include "TslStream/Measure/TestPatternProbe.h"

#include <algorithm>

#include "TslCore/Measure/TestPattern.h"
#include "TslStream/Codec/PixelBuffers.h"

namespace tsl::TestPatternProbe {

std::optional<bool> squareIsWhite(PixelBuffer& frame, double scale, double originY) {
    using namespace TestPatternSpec;
    constexpr double inset = 8;
    auto luma = PixelBuffers::meanLuma(frame, int64_t((squareX + inset) * scale),
                                       int64_t((originY + squareY + inset) * scale),
                                       int64_t((squareSize - 2 * inset) * scale));
    if (!luma) return std::nullopt;
    return *luma > whiteThreshold;
}

std::optional<uint64_t> counter(PixelBuffer& frame, double scale, double originY) {
    using namespace TestPatternSpec;
    int64_t side = std::max<int64_t>(int64_t(8 * scale), 2);
    int64_t y = int64_t((originY + barcodeY + 4) * scale);
    uint64_t value = 0;
    for (int i = 0; i < barcodeBits; ++i) {
        auto luma = PixelBuffers::meanLuma(frame, int64_t(((i + 0.25) * barcodeCell + barcodeX) * scale), y, side);
        if (!luma) return std::nullopt;
        if (*luma > 128) value |= uint64_t(1) << i;
    }
    return value;
}

}  // namespace tsl::TestPatternProbe
