#pragma once
#include <cstdint>
#include <optional>

#include "Platform/PixelBuffer.h"

namespace tsl {

// Reads the test pattern back out of a received frame. `scale` is the frame's
// pixels per point, `originY` the points above the pattern's top edge.
namespace TestPatternProbe {
// Whether the square shows white, judged over its inside, 8 points clear of
// each edge so that scaling and compression blur at the borders don't count.
std::optional<bool> squareIsWhite(PixelBuffer& frame, double scale, double originY);
// The low 16 bits of the frame counter, read from the middle of each cell;
// nothing when any cell cannot be read.
std::optional<uint64_t> counter(PixelBuffer& frame, double scale, double originY);
}  // namespace TestPatternProbe

}  // namespace tsl
