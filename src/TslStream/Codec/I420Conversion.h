#pragma once
#include <cstddef>
#include <cstdint>

namespace tsl {

// The three planes of a 4:2:0 picture, chroma at half size each way.
struct I420Planes {
    uint8_t* y = nullptr;
    int strideY = 0;
    uint8_t* u = nullptr;
    int strideU = 0;
    uint8_t* v = nullptr;
    int strideV = 0;
};

// BGRA bytes (blue first) into I420 with BT.601 limited-range coefficients,
// the form H.264 decoders assume by default. False if the converter refused.
bool convertBGRAToI420(const uint8_t* bgra, size_t bytesPerRow, int64_t width, int64_t height, const I420Planes& out);

}  // namespace tsl
