#pragma once
#include <atomic>
#include <cstddef>
#include <cstdint>
#include <memory>

namespace tsl {

// A picture in memory: 32-bit pixels, rows `bytesPerRow` apart (which may
// exceed width times 4). The pixels are reachable only between lock and
// unlock. A buffer on a shared surface can go to the compositor as it is.
class PixelBuffer {
public:
    static constexpr uint32_t bgra = 0x42475241;  // 'BGRA': blue, green, red, alpha bytes
    static constexpr uint32_t lockReadOnly = 1;
    static constexpr int32_t statusInvalidArgument = -6661;  // e.g. an unlock without a lock
    static constexpr int32_t statusInvalidSize = -6681;      // what a failed make stands for

    struct Attributes {
        bool sharedSurface = true;
        size_t bytesPerRow = 0;  // 0: width times 4, rounded up to 64 bytes
    };

    virtual ~PixelBuffer() = default;

    virtual int64_t width() const = 0;
    virtual int64_t height() const = 0;
    virtual size_t bytesPerRow() const = 0;
    virtual uint32_t pixelFormat() const = 0;
    virtual bool hasSharedSurface() const = 0;

    // 0 on success, else a status. Locks nest; each lock needs its unlock.
    virtual int32_t lockBaseAddress(uint32_t flags) = 0;
    virtual int32_t unlockBaseAddress(uint32_t flags) = 0;
    // The first row's first byte while locked; null otherwise.
    virtual uint8_t* baseAddress() const = 0;

    // A BGRA buffer in ordinary memory, zero-filled. Null for a side below 1
    // or above 16384, or a row length below width times 4 (or over 4096 bytes
    // above it).
    static std::shared_ptr<PixelBuffer> make(int64_t width, int64_t height, Attributes attributes);
    static std::shared_ptr<PixelBuffer> make(int64_t width, int64_t height) { return make(width, height, Attributes{}); }
};

// A BGRA buffer over memory its subclass owns and frees: counts the locks,
// and hands the memory out only while one is held.
class MemoryBackedPixelBuffer : public PixelBuffer {
public:
    int64_t width() const override { return _width; }
    int64_t height() const override { return _height; }
    size_t bytesPerRow() const override { return _bytesPerRow; }
    uint32_t pixelFormat() const override { return bgra; }
    bool hasSharedSurface() const override { return _sharedSurface; }
    int32_t lockBaseAddress(uint32_t flags) override;
    int32_t unlockBaseAddress(uint32_t flags) override;
    uint8_t* baseAddress() const override;

protected:
    MemoryBackedPixelBuffer(int64_t width, int64_t height, size_t bytesPerRow, bool sharedSurface, uint8_t* memory)
        : _width(width), _height(height), _bytesPerRow(bytesPerRow), _sharedSurface(sharedSurface), _memory(memory) {}
    uint8_t* memory() const { return _memory; }

private:
    const int64_t _width;
    const int64_t _height;
    const size_t _bytesPerRow;
    const bool _sharedSurface;
    uint8_t* const _memory;
    std::atomic<int> _locks{0};
};

// Holds a buffer's lock for one scope.
class PixelBufferLock {
public:
    PixelBufferLock(PixelBuffer& buffer, uint32_t flags)
        : _buffer(buffer), _flags(flags), _status(buffer.lockBaseAddress(flags)) {}
    ~PixelBufferLock() {
        if (_status == 0) _buffer.unlockBaseAddress(_flags);
    }
    PixelBufferLock(const PixelBufferLock&) = delete;
    PixelBufferLock& operator=(const PixelBufferLock&) = delete;

    int32_t status() const { return _status; }
    // Null when the lock failed or the buffer has no memory.
    uint8_t* base() const { return _status == 0 ? _buffer.baseAddress() : nullptr; }

private:
    PixelBuffer& _buffer;
    uint32_t _flags;
    int32_t _status;
};

}  // namespace tsl
