#include "Platform/PixelBufferPool.h"

#include <algorithm>

namespace tsl {

std::shared_ptr<PixelBufferPool> PixelBufferPool::create(Make make) {
    return std::shared_ptr<PixelBufferPool>(new PixelBufferPool(std::move(make)));
}

std::shared_ptr<PixelBuffer> PixelBufferPool::take(int64_t width, int64_t height, int64_t depth) {
    std::shared_ptr<PixelBuffer> buffer;
    {
        std::lock_guard g(lock);
        if (width != _width || height != _height) {
            free.clear();
            _width = width, _height = height;
        }
        if (out >= std::max<int64_t>(depth, 1)) return nullptr;
        if (!free.empty()) {
            buffer = std::move(free.back());
            free.pop_back();
        }
        ++out;
    }
    if (!buffer) buffer = make(width, height);
    if (!buffer) {
        std::lock_guard g(lock);
        --out;
        return nullptr;
    }
    PixelBuffer* raw = buffer.get();
    return std::shared_ptr<PixelBuffer>(raw, [pool = weak_from_this(), buffer](PixelBuffer*) mutable {
        if (auto p = pool.lock()) p->give(std::move(buffer));
    });
}

void PixelBufferPool::give(std::shared_ptr<PixelBuffer> buffer) {
    std::lock_guard g(lock);
    --out;
    if (buffer->width() == _width && buffer->height() == _height) free.push_back(std::move(buffer));
}

}  // namespace tsl
