#include "TslStream/Codec/PixelBuffers.h"

#include <algorithm>
#include <cstring>
#include <string>

namespace tsl {

PixelBufferError PixelBufferError::createFailed(int32_t status) {
    return {Kind::createFailed, status, "pixel buffer could not be created (status " + std::to_string(status) + ")"};
}

PixelBufferError PixelBufferError::lockFailed(int32_t status) {
    return {Kind::lockFailed, status, "pixel buffer could not be locked (status " + std::to_string(status) + ")"};
}

PixelBufferError PixelBufferError::unsupportedFormat(uint32_t format) {
    return {Kind::unsupportedFormat, format, "unsupported pixel format " + std::to_string(format)};
}

namespace PixelBuffers {

std::shared_ptr<PixelBuffer> make(int64_t width, int64_t height) {
    auto buffer = PixelBuffer::make(width, height, PixelBuffer::Attributes{.sharedSurface = true});
    if (!buffer) throw PixelBufferError::createFailed(PixelBuffer::statusInvalidSize);
    return buffer;
}

RawPayload rawPayload(PixelBuffer& buffer) {
    if (buffer.pixelFormat() != bgra) throw PixelBufferError::unsupportedFormat(buffer.pixelFormat());
    PixelBufferLock locked(buffer, PixelBuffer::lockReadOnly);
    if (locked.status() != 0) throw PixelBufferError::lockFailed(locked.status());
    const uint8_t* base = locked.base();
    if (!base) throw PixelBufferError::lockFailed(-1);
    const size_t stride = buffer.bytesPerRow();
    const size_t count = stride * size_t(buffer.height());
    RawPayload payload{Bytes(base, base + count), 0};
    payload.bytesPerRow = uint32_t(stride);
    return payload;
}

std::shared_ptr<PixelBuffer> fromRaw(int64_t width, int64_t height, size_t bytesPerRow, std::span<const uint8_t> data) {
    auto buffer = make(width, height);
    PixelBufferLock locked(*buffer, 0);
    if (locked.status() != 0) throw PixelBufferError::lockFailed(locked.status());
    uint8_t* base = locked.base();
    if (!base) throw PixelBufferError::lockFailed(-1);
    const size_t stride = buffer->bytesPerRow();
    const size_t rows = size_t(height);
    if (stride == bytesPerRow && data.size() / rows >= bytesPerRow) {
        std::memcpy(base, data.data(), bytesPerRow * rows);
        return buffer;
    }
    const size_t rowBytes = std::min({stride, size_t(width) * 4, bytesPerRow});
    for (size_t y = 0; y < rows; ++y) {
        const size_t from = y * bytesPerRow;
        if (bytesPerRow == 0 || from > data.size() || data.size() - from < rowBytes) break;
        std::memcpy(base + y * stride, data.data() + from, rowBytes);
    }
    return buffer;
}

std::optional<Pixel> pixel(PixelBuffer& buffer, int64_t x, int64_t y) {
    if (buffer.pixelFormat() != bgra) return std::nullopt;
    if (x < 0 || y < 0 || x >= buffer.width() || y >= buffer.height()) return std::nullopt;
    PixelBufferLock locked(buffer, PixelBuffer::lockReadOnly);
    const uint8_t* base = locked.base();
    if (!base) return std::nullopt;
    const uint8_t* p = base + size_t(y) * buffer.bytesPerRow() + size_t(x) * 4;
    return Pixel{p[0], p[1], p[2], p[3]};
}

std::optional<double> meanLuma(PixelBuffer& buffer, int64_t x, int64_t y, int64_t size) {
    if (buffer.pixelFormat() != bgra || size <= 0) return std::nullopt;
    const int64_t x0 = std::max<int64_t>(x, 0), y0 = std::max<int64_t>(y, 0);
    const int64_t x1 = std::min(x + size, buffer.width()), y1 = std::min(y + size, buffer.height());
    if (x0 >= x1 || y0 >= y1) return std::nullopt;
    PixelBufferLock locked(buffer, PixelBuffer::lockReadOnly);
    const uint8_t* base = locked.base();
    if (!base) return std::nullopt;
    double sum = 0;
    int64_t count = 0;
    for (int64_t row = y0; row < y1; row += 2) {
        const uint8_t* line = base + size_t(row) * buffer.bytesPerRow();
        for (int64_t col = x0; col < x1; col += 2) {
            const uint8_t* p = line + size_t(col) * 4;
            sum += 0.2126 * p[2] + 0.7152 * p[1] + 0.0722 * p[0];
            ++count;
        }
    }
    return sum / double(count);
}

}  // namespace PixelBuffers

}  // namespace tsl
