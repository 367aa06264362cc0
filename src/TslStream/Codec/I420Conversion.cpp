#include "TslStream/Codec/I420Conversion.h"

#include <libyuv/convert.h>

namespace tsl {

bool convertBGRAToI420(const uint8_t* bgra, size_t bytesPerRow, int64_t width, int64_t height, const I420Planes& out) {
    // libyuv names formats by the 32-bit word, little-endian: its ARGB is our
    // byte order B, G, R, A.
    return libyuv::ARGBToI420(bgra, int(bytesPerRow), out.y, out.strideY, out.u, out.strideU, out.v, out.strideV,
                              int(width), int(height)) == 0;
}

}  // namespace tsl
