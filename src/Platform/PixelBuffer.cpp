#include "Platform/PixelBuffer.h"

#include <cstdlib>

namespace tsl {
namespace {

class MemoryPixelBuffer final : public MemoryBackedPixelBuffer {
public:
    MemoryPixelBuffer(int64_t width, int64_t height, size_t bytesPerRow, bool sharedSurface, uint8_t* memory)
        : MemoryBackedPixelBuffer(width, height, bytesPerRow, sharedSurface, memory) {}
    ~MemoryPixelBuffer() override { std::free(memory()); }
};

}  // namespace

int32_t MemoryBackedPixelBuffer::lockBaseAddress(uint32_t) {
    _locks.fetch_add(1, std::memory_order_acq_rel);
    return 0;
}

int32_t MemoryBackedPixelBuffer::unlockBaseAddress(uint32_t) {
    int current = _locks.load(std::memory_order_acquire);
    while (current > 0 && !_locks.compare_exchange_weak(current, current - 1, std::memory_order_acq_rel)) {
    }
    return current > 0 ? 0 : statusInvalidArgument;
}

uint8_t* MemoryBackedPixelBuffer::baseAddress() const {
    return _locks.load(std::memory_order_acquire) > 0 ? _memory : nullptr;
}

std::shared_ptr<PixelBuffer> PixelBuffer::make(int64_t width, int64_t height, Attributes attributes) {
    constexpr int64_t maxSide = 16384;
    if (width < 1 || height < 1 || width > maxSide || height > maxSide) return nullptr;
    const size_t minimumRow = size_t(width) * 4;
    size_t bytesPerRow = attributes.bytesPerRow;
    if (bytesPerRow == 0) bytesPerRow = (minimumRow + 63) / 64 * 64;
    if (bytesPerRow < minimumRow || bytesPerRow > minimumRow + 4096) return nullptr;
    auto* memory = static_cast<uint8_t*>(std::calloc(size_t(height), bytesPerRow));
    if (!memory) return nullptr;
    return std::make_shared<MemoryPixelBuffer>(width, height, bytesPerRow, attributes.sharedSurface, memory);
}

}  // namespace tsl
