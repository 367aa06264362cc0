#include "TslStream/Codec/I420Conversion.h"

#include <libyuv/convert.h>

namespace tsl {

bool convertBGRAToI420(const uint8_t* bgra, size_t bytesPerRow, int64_t width, int64_t height, const I420Planes& out) {
    // libyuv names formats by the 32-bit word, little-endian: its ARGB is our
    // byte order B, G, R, A.
    return libyuv::ARGBToI420(bgra, int(bytesPerRow), out.y, out.strideY, out.u, out.strideU, out.v, out.strideV,
                              int(width), int(height)) == 0;
}

I420Converter::I420Converter() {
    if (std::thread::hardware_concurrency() > 1) helper = std::thread([this] { work(); });
}

I420Converter::~I420Converter() {
    {
        std::lock_guard g(lock);
        stopping = true;
    }
    changed.notify_all();
    if (helper.joinable()) helper.join();
}

void I420Converter::work() {
    std::unique_lock g(lock);
    for (;;) {
        changed.wait(g, [&] { return pending || stopping; });
        if (stopping) return;
        const Part p = part;
        g.unlock();
        const bool ok = convertBGRAToI420(p.bgra, p.bytesPerRow, p.width, p.height, p.out);
        g.lock();
        pending = false;
        finished = true;
        partOK = ok;
        changed.notify_all();
    }
}

bool I420Converter::convert(const uint8_t* bgra, size_t bytesPerRow, int64_t width, int64_t height,
                            const I420Planes& out) {
    if (!helper.joinable() || width * height < splitFromPixels || height < 4)
        return convertBGRAToI420(bgra, bytesPerRow, width, height, out);
    // Split on an even row, so each half owns whole chroma rows.
    const int64_t top = (height / 2) & ~int64_t(1);
    const I420Planes lower{out.y + top * out.strideY, out.strideY, out.u + top / 2 * out.strideU, out.strideU,
                           out.v + top / 2 * out.strideV, out.strideV};
    {
        std::lock_guard g(lock);
        part = {bgra + size_t(top) * bytesPerRow, bytesPerRow, width, height - top, lower};
        pending = true;
        finished = false;
    }
    changed.notify_all();
    const bool upperOK = convertBGRAToI420(bgra, bytesPerRow, width, top, out);
    std::unique_lock g(lock);
    changed.wait(g, [&] { return finished; });
    return upperOK && partOK;
}

}  // namespace tsl
