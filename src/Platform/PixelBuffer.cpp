#include "Platform/PixelBuffer.h"

#include <atomic>
#include <cstdlib>
#include <cstring>
#include <new>

namespace tsl {
namespace {

class MemoryPixelBuffer final : public PixelBuffer {
public:
    MemoryPixelBuffer(int64_t width, int64_t height, size_t bytesPerRow, bool sharedSurface, uint8_t* memory)
        : _width(width), _height(height), _bytesPerRow(bytesPerRow), _sharedSurface(sharedSurface), _memory(memory) {}
    ~MemoryPixelBuffer() override { std::free(_memory); }

    int64_t width() const override { return _width; }
    int64_t height() const override { return _height; }
    size_t bytesPerRow() const override { return _bytesPerRow; }
    uint32_t pixelFormat() const override { return bgra; }
    bool hasSharedSurface() const override { return _sharedSurface; }

    int32_t lockBaseAddress(uint32_t) override {
        _locks.fetch_add(1, std::memory_order_acq_rel);
        return 0;
    }
    int32_t unlockBaseAddress(uint32_t) override {
        int current = _locks.load(std::memory_order_acquire);
        while (current > 0 && !_locks.compare_exchange_weak(current, current - 1, std::memory_order_acq_rel)) {
        }
        return current > 0 ? 0 : statusInvalidArgument;
    }
    uint8_t* baseAddress() const override { return _locks.load(std::memory_order_acquire) > 0 ? _memory : nullptr; }

private:
    const int64_t _width;
    const int64_t _height;
    const size_t _bytesPerRow;
    const bool _sharedSurface;
    uint8_t* const _memory;
    std::atomic<int> _locks{0};
};

}  // namespace

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
