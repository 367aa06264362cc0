#pragma once
#include <cstdint>
#include <functional>
#include <memory>
#include <mutex>
#include <vector>

#include "Platform/PixelBuffer.h"

namespace tsl {

// Pictures of one size for a capture stream, at most `depth` out with the
// client at once. A picture comes back when the client drops its last
// reference; one of an older size is then let go.
class PixelBufferPool : public std::enable_shared_from_this<PixelBufferPool> {
public:
    using Make = std::function<std::shared_ptr<PixelBuffer>(int64_t width, int64_t height)>;
    static std::shared_ptr<PixelBufferPool> create(Make make);

    // Null when `depth` pictures are out, or a new one can't be made.
    std::shared_ptr<PixelBuffer> take(int64_t width, int64_t height, int64_t depth);

private:
    explicit PixelBufferPool(Make make) : make(std::move(make)) {}
    void give(std::shared_ptr<PixelBuffer> buffer);

    const Make make;
    std::mutex lock;
    int64_t _width = 0, _height = 0, out = 0;
    std::vector<std::shared_ptr<PixelBuffer>> free;
};

}  // namespace tsl
