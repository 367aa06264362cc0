#pragma once
#include <cstdint>
#include <memory>
#include <optional>
#include <span>

#include "Platform/PixelBuffer.h"
#include "TslCore/Support/Bytes.h"
#include "TslCore/Support/Error.h"

namespace tsl {

// A pixel buffer that could not be made, locked or read.
class PixelBufferError : public Error {
public:
    enum class Kind : uint8_t { createFailed, lockFailed, unsupportedFormat };

    static PixelBufferError createFailed(int32_t status);
    static PixelBufferError lockFailed(int32_t status);
    static PixelBufferError unsupportedFormat(uint32_t format);

    Kind kind() const { return _kind; }
    // The status, or the format for unsupportedFormat.
    int64_t value() const { return _value; }
    bool operator==(const PixelBufferError& o) const { return _kind == o._kind && _value == o._value; }

private:
    PixelBufferError(Kind kind, int64_t value, std::string description)
        : Error(std::move(description)), _kind(kind), _value(value) {}
    Kind _kind;
    int64_t _value;
};

// Making, reading and filling 32-bit BGRA pixel buffers, on both ends of a stream.
namespace PixelBuffers {

inline constexpr uint32_t bgra = PixelBuffer::bgra;

struct RawPayload {
    Bytes data;  // bytesPerRow times height, row padding included
    uint32_t bytesPerRow = 0;
};

struct Pixel {
    uint8_t b = 0, g = 0, r = 0, a = 0;
    bool operator==(const Pixel&) const = default;
};

// A new zero-filled BGRA buffer; throws PixelBufferError.createFailed.
std::shared_ptr<PixelBuffer> make(int64_t width, int64_t height);
// The buffer's bytes as they lie, stride and all; throws PixelBufferError.
RawPayload rawPayload(PixelBuffer& buffer);
// A new buffer from rows `bytesPerRow` apart. Rows that `data` doesn't hold
// whole stay zero; a wider stride keeps only width times 4 bytes a row.
std::shared_ptr<PixelBuffer> fromRaw(int64_t width, int64_t height, size_t bytesPerRow, std::span<const uint8_t> data);
// Nothing outside the buffer, for another format, or when the lock fails.
std::optional<Pixel> pixel(PixelBuffer& buffer, int64_t x, int64_t y);
// Mean luma (0 to 255) over the square at x, y of side `size`, clipped to the
// buffer, sampling every second pixel of every second row. Nothing when the
// clipped square is empty or the buffer can't be read.
std::optional<double> meanLuma(PixelBuffer& buffer, int64_t x, int64_t y, int64_t size);

}  // namespace PixelBuffers

}  // namespace tsl
