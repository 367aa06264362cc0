#include "Platform/X11/X11ScreenCapture.h"

#include <pthread.h>
#include <sys/mman.h>
#include <unistd.h>
#include <xcb/composite.h>
#include <xcb/damage.h>
#include <xcb/shm.h>
#include <xcb/xfixes.h>

#include <algorithm>
#include <atomic>
#include <condition_variable>
#include <cstring>
#include <mutex>
#include <thread>
#include <utility>
#include <vector>

#include "Platform/X11/X11ClientWindow.h"

namespace tsl::X11 {
namespace {

using Clock = std::chrono::steady_clock;

// A memfd the server maps too (attach_fd); unmapped and detached with the last picture on it.
class ShmPixelBuffer final : public PixelBuffer {
public:
    static std::shared_ptr<ShmPixelBuffer> make(const std::shared_ptr<Connection>& x, int64_t width, int64_t height) {
        const size_t size = size_t(width) * size_t(height) * 4;
        const int fd = ::memfd_create("tsl.capture", MFD_CLOEXEC);
        if (fd < 0) return nullptr;
        void* memory = MAP_FAILED;
        if (::ftruncate(fd, off_t(size)) == 0)
            memory = ::mmap(nullptr, size, PROT_READ | PROT_WRITE, MAP_SHARED, fd, 0);
        if (memory == MAP_FAILED) {
            ::close(fd);
            return nullptr;
        }
        xcb_connection_t* c = x->raw();
        const xcb_shm_seg_t segment = xcb_generate_id(c);
        // xcb closes the descriptor once it is sent.
        if (x->check(xcb_shm_attach_fd_checked(c, segment, fd, 0))) {
            ::munmap(memory, size);
            return nullptr;
        }
        return std::shared_ptr<ShmPixelBuffer>(
            new ShmPixelBuffer(x, segment, static_cast<uint8_t*>(memory), size, width, height));
    }
    ~ShmPixelBuffer() override {
        xcb_shm_detach(x->raw(), segment);
        x->flush();
        ::munmap(memory, size);
    }

    xcb_shm_seg_t seg() const { return segment; }
    uint8_t* pixels() const { return memory; }

    int64_t width() const override { return _width; }
    int64_t height() const override { return _height; }
    size_t bytesPerRow() const override { return size_t(_width) * 4; }
    uint32_t pixelFormat() const override { return bgra; }
    bool hasSharedSurface() const override { return true; }
    int32_t lockBaseAddress(uint32_t) override {
        locks.fetch_add(1, std::memory_order_acq_rel);
        return 0;
    }
    int32_t unlockBaseAddress(uint32_t) override {
        int current = locks.load(std::memory_order_acquire);
        while (current > 0 && !locks.compare_exchange_weak(current, current - 1, std::memory_order_acq_rel)) {
        }
        return current > 0 ? 0 : statusInvalidArgument;
    }
    uint8_t* baseAddress() const override { return locks.load(std::memory_order_acquire) > 0 ? memory : nullptr; }

private:
    ShmPixelBuffer(std::shared_ptr<Connection> x, xcb_shm_seg_t segment, uint8_t* memory, size_t size, int64_t width,
                   int64_t height)
        : x(std::move(x)), segment(segment), memory(memory), size(size), _width(width), _height(height) {}

    const std::shared_ptr<Connection> x;
    const xcb_shm_seg_t segment;
    uint8_t* const memory;
    const size_t size;
    const int64_t _width, _height;
    std::atomic<int> locks{0};
};

// Pictures of one size, at most `depth` out with the client at once; one
// comes back when the client drops its last reference.
class BufferPool : public std::enable_shared_from_this<BufferPool> {
public:
    using Make = std::function<std::shared_ptr<PixelBuffer>(int64_t, int64_t)>;
    explicit BufferPool(Make make) : make(std::move(make)) {}

    std::shared_ptr<PixelBuffer> take(int64_t width, int64_t height, int64_t depth) {
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

private:
    void give(std::shared_ptr<PixelBuffer> buffer) {
        std::lock_guard g(lock);
        --out;
        if (buffer->width() == _width && buffer->height() == _height) free.push_back(std::move(buffer));
    }

    const Make make;
    std::mutex lock;
    int64_t _width = 0, _height = 0, out = 0;
    std::vector<std::shared_ptr<PixelBuffer>> free;
};

// Between pictures; none set means as fast as the window changes.
Clock::duration pictureInterval(const CaptureConfiguration& c) {
    if (c.minimumFrameIntervalValue <= 0 || c.minimumFrameIntervalTimescale <= 0) return Clock::duration::zero();
    const double seconds = std::clamp(double(c.minimumFrameIntervalValue) / c.minimumFrameIntervalTimescale, 0.0, 10.0);
    return std::chrono::duration_cast<Clock::duration>(std::chrono::duration<double>(seconds));
}

// Between idle frames of an unchanged window.
Clock::duration idleInterval(const CaptureConfiguration& c) {
    return std::max<Clock::duration>(pictureInterval(c), std::chrono::milliseconds(16));
}

// Depth-24 windows leave the fourth byte undefined.
void forceOpaque(uint8_t* pixels, size_t count) {
    auto* pairs = reinterpret_cast<uint64_t*>(pixels);
    for (size_t i = 0; i < count / 2; ++i) pairs[i] |= 0xFF000000FF000000ull;
    if (count % 2) reinterpret_cast<uint32_t*>(pixels)[count - 1] |= 0xFF000000u;
}

// `from` (w×h, rows w*4 apart) fitted into `to`, nearest pixel; the rest black.
double fitInto(const uint8_t* from, int64_t w, int64_t h, PixelBuffer& to, uint8_t* base) {
    const int64_t W = to.width(), H = to.height();
    const size_t row = to.bytesPerRow();
    const double scale = std::min(double(W) / w, double(H) / h);
    const int64_t fw = std::min<int64_t>(W, int64_t(w * scale)), fh = std::min<int64_t>(H, int64_t(h * scale));
    for (int64_t y = 0; y < H; ++y) {
        auto* out = reinterpret_cast<uint32_t*>(base + size_t(y) * row);
        if (y >= fh) {
            std::fill(out, out + W, 0xFF000000u);
            continue;
        }
        const auto* in = reinterpret_cast<const uint32_t*>(from) + std::min<int64_t>(h - 1, int64_t(y / scale)) * w;
        for (int64_t x = 0; x < fw; ++x) out[x] = in[std::min<int64_t>(w - 1, int64_t(x / scale))] | 0xFF000000u;
        std::fill(out + fw, out + W, 0xFF000000u);
    }
    return scale;
}

ValueList attachments(CaptureFrameInfo::Status status, double contentScale = 1) {
    if (status != CaptureFrameInfo::Status::complete)
        return ValueList{ValueDict{{CaptureFrameInfo::keyStatus, int64_t(status)}}};
    return ValueList{ValueDict{{CaptureFrameInfo::keyStatus, int64_t(status)},
                               {CaptureFrameInfo::keyScaleFactor, 1.0},
                               {CaptureFrameInfo::keyContentScale, contentScale}}};
}

}  // namespace

// What the stream's thread and the event listener share.
struct X11StreamCore {
    std::mutex lock;
    std::condition_variable changed;
    std::condition_variable progressed;
    CaptureConfiguration configuration;
    CaptureStream::OutputHandler output;
    ScreenCapture::StopHandler didStop;
    bool running = false, stopping = false, exited = false;
    // From the server's events.
    bool damaged = true, stale = true, gone = false, mapped = true;
    bool force = true;  // a picture is due whatever DAMAGE says (start, new size)
    int64_t knownWidth = 0, knownHeight = 0;
};

namespace {

class Capturer {
public:
    Capturer(std::shared_ptr<Connection> x, std::shared_ptr<X11StreamCore> core, xcb_window_t window, bool shm)
        : x(std::move(x)),
          c(this->x->raw()),
          core(std::move(core)),
          window(window),
          shm(shm),
          pool(std::make_shared<BufferPool>([this](int64_t w, int64_t h) { return makeBuffer(w, h); })) {}

    void run() {
        pthread_setname_np(pthread_self(), "tsl.capture");
        begin();
        Clock::time_point nextPicture = Clock::now(), nextIdle = Clock::now();
        for (;;) {
            CaptureConfiguration config;
            CaptureStream::OutputHandler output;
            bool picture, stale, mapped;
            {
                std::unique_lock g(core->lock);
                for (;;) {
                    if (core->stopping || core->gone) break;
                    const bool dirty = core->damaged || core->force || core->stale;
                    const auto due = dirty ? std::min(nextPicture, nextIdle) : nextIdle;
                    if (Clock::now() >= due) break;
                    core->changed.wait_until(g, due);
                }
                if (core->stopping) break;
                if (core->gone) {
                    g.unlock();
                    end(true);
                    return;
                }
                picture = (core->damaged || core->force || core->stale) && Clock::now() >= nextPicture;
                stale = std::exchange(core->stale, false);
                mapped = core->mapped;
                if (picture) core->damaged = core->force = false;
                config = core->configuration;
                output = core->output;
            }
            const auto now = Clock::now();
            const auto interval = pictureInterval(config);
            if (stale && !rename()) {
                // Unmapped since, or gone: the events say which.
                picture = false;
            }
            CaptureSample sample;
            bool retry = false;
            if (!mapped || pixmap == XCB_NONE) {
                sample.attachments = attachments(CaptureFrameInfo::Status::idle);
            } else if (picture) {
                double contentScale = 1;
                sample.imageBuffer = grab(config, contentScale);
                if (sample.imageBuffer) {
                    sample.attachments = attachments(CaptureFrameInfo::Status::complete, contentScale);
                } else {
                    // No picture free, or the read failed: try again a little later.
                    std::lock_guard g(core->lock);
                    core->damaged = true;
                    retry = true;
                }
            } else {
                sample.attachments = attachments(CaptureFrameInfo::Status::idle);
            }
            // Pictures keep to a grid of intervals while the window keeps changing,
            // so a late wake-up doesn't push every later picture back; after a
            // quiet spell the grid starts again from this picture.
            if (picture) nextPicture = now - nextPicture < interval ? nextPicture + interval : now + interval;
            if (retry) nextPicture = now + std::max<Clock::duration>(interval, std::chrono::milliseconds(2));
            nextIdle = now + idleInterval(config);
            if (output && sample.attachments) output(sample, CaptureOutputType::screen);
        }
        end(false);
    }

private:
    std::shared_ptr<PixelBuffer> makeBuffer(int64_t w, int64_t h) {
        if (shm) return ShmPixelBuffer::make(x, w, h);
        return PixelBuffer::make(w, h, {.sharedSurface = false, .bytesPerRow = size_t(w) * 4});
    }

    void begin() {
        damage = xcb_generate_id(c);
        listener =
            x->listen([core = core, window = window, damageEvent = damageEvent(), this](const xcb_generic_event_t& e) {
                const uint8_t type = e.response_type & 0x7f;
                bool wake = false;
                std::lock_guard g(core->lock);
                if (type == damageEvent) {
                    if (reinterpret_cast<const xcb_damage_notify_event_t&>(e).damage == damage)
                        core->damaged = wake = true;
                } else if (type == XCB_DESTROY_NOTIFY) {
                    if (reinterpret_cast<const xcb_destroy_notify_event_t&>(e).window == window)
                        core->gone = wake = true;
                } else if (type == XCB_UNMAP_NOTIFY) {
                    if (reinterpret_cast<const xcb_unmap_notify_event_t&>(e).window == window) {
                        core->mapped = false;
                        wake = true;
                    }
                } else if (type == XCB_MAP_NOTIFY) {
                    if (reinterpret_cast<const xcb_map_notify_event_t&>(e).window == window)
                        core->mapped = core->stale = wake = true;
                } else if (type == XCB_REPARENT_NOTIFY) {
                    if (reinterpret_cast<const xcb_reparent_notify_event_t&>(e).window == window)
                        core->stale = wake = true;
                } else if (type == XCB_CONFIGURE_NOTIFY) {
                    const auto& ce = reinterpret_cast<const xcb_configure_notify_event_t&>(e);
                    if (ce.window == window && (ce.width != core->knownWidth || ce.height != core->knownHeight))
                        core->stale = wake = true;
                }
                if (wake) core->changed.notify_all();
            });
        x->watch(window);
        xcb_composite_redirect_window(c, window, XCB_COMPOSITE_REDIRECT_AUTOMATIC);
        xcb_damage_create(c, damage, window, XCB_DAMAGE_REPORT_LEVEL_NON_EMPTY);
        auto attributes = wait(c, xcb_get_window_attributes_reply, xcb_get_window_attributes(c, window));
        std::lock_guard g(core->lock);
        if (!attributes) core->gone = true;
        else core->mapped = attributes->map_state != XCB_MAP_STATE_UNMAPPED;
    }

    uint8_t damageEvent() const {
        const xcb_query_extension_reply_t* data = xcb_get_extension_data(c, &xcb_damage_id);
        return data ? uint8_t(data->first_event + XCB_DAMAGE_NOTIFY) : 0;
    }

    // Names the window's current pixmap: a resize or a new mapping gives it another.
    bool rename() {
        if (pixmap != XCB_NONE) xcb_free_pixmap(c, pixmap);
        pixmap = XCB_NONE;
        const xcb_pixmap_t named = xcb_generate_id(c);
        if (x->check(xcb_composite_name_window_pixmap_checked(c, window, named))) return false;
        auto geometry = wait(c, xcb_get_geometry_reply, xcb_get_geometry(c, window));
        if (!geometry) {
            xcb_free_pixmap(c, named);
            return false;
        }
        pixmap = named;
        width = geometry->width, height = geometry->height, border = geometry->border_width;
        std::lock_guard g(core->lock);
        core->knownWidth = width, core->knownHeight = height;
        core->force = true;
        return true;
    }

    // Reads the pixmap into `into` (rows width*4 apart); false when the server refused.
    bool read(uint8_t* into, xcb_shm_seg_t segment) {
        if (segment != XCB_NONE) {
            auto reply = wait(c, xcb_shm_get_image_reply,
                              xcb_shm_get_image(c, pixmap, int16_t(border), int16_t(border), uint16_t(width),
                                                uint16_t(height), ~0u, XCB_IMAGE_FORMAT_Z_PIXMAP, segment, 0));
            return bool(reply);
        }
        auto reply = wait(c, xcb_get_image_reply,
                          xcb_get_image(c, XCB_IMAGE_FORMAT_Z_PIXMAP, pixmap, int16_t(border), int16_t(border),
                                        uint16_t(width), uint16_t(height), ~0u));
        const size_t bytes = size_t(width) * height * 4;
        if (!reply || size_t(xcb_get_image_data_length(reply.get())) < bytes) return false;
        std::memcpy(into, xcb_get_image_data(reply.get()), bytes);
        return true;
    }

    std::shared_ptr<PixelBuffer> grab(const CaptureConfiguration& config, double& contentScale) {
        const int64_t w = std::clamp<int64_t>(config.width, 1, 16384), h = std::clamp<int64_t>(config.height, 1, 16384);
        std::shared_ptr<PixelBuffer> buffer = pool->take(w, h, config.queueDepth);
        if (!buffer) return nullptr;
        PixelBufferLock locked(*buffer, 0);
        uint8_t* base = locked.base();
        // Changes from here on damage the window again.
        xcb_damage_subtract(c, damage, XCB_NONE, XCB_NONE);
        if (w == width && h == height) {
            auto* segment = dynamic_cast<ShmPixelBuffer*>(buffer.get());
            if (!read(base, segment ? segment->seg() : XCB_NONE)) return nullptr;
            forceOpaque(base, size_t(w) * h);
        } else {
            // The window's size and the configured one differ (a resize on its
            // way, or a scale): read whole, then fit.
            if (!scratch || scratch->width() != width || scratch->height() != height)
                scratch = makeBuffer(width, height);
            if (!scratch) return nullptr;
            PixelBufferLock scratchLocked(*scratch, 0);
            auto* segment = dynamic_cast<ShmPixelBuffer*>(scratch.get());
            if (!read(scratchLocked.base(), segment ? segment->seg() : XCB_NONE)) return nullptr;
            contentScale = fitInto(scratchLocked.base(), width, height, *buffer, base);
        }
        if (config.showsCursor) blendCursor(*buffer, base, contentScale);
        return buffer;
    }

    void blendCursor(PixelBuffer& buffer, uint8_t* base, double scale) {
        auto origin = wait(c, xcb_translate_coordinates_reply, xcb_translate_coordinates(c, window, x->root(), 0, 0));
        auto cursor = wait(c, xcb_xfixes_get_cursor_image_reply, xcb_xfixes_get_cursor_image(c));
        if (!origin || !cursor) return;
        const int px = cursor->x - origin->dst_x, py = cursor->y - origin->dst_y;
        if (px < 0 || py < 0 || px >= width || py >= height) return;
        const uint32_t* image = xcb_xfixes_get_cursor_image_cursor_image(cursor.get());
        const int left = int(px * scale) - cursor->xhot, top = int(py * scale) - cursor->yhot;
        for (int y = 0; y < cursor->height; ++y) {
            const int by = top + y;
            if (by < 0 || by >= buffer.height()) continue;
            auto* row = reinterpret_cast<uint32_t*>(base + size_t(by) * buffer.bytesPerRow());
            for (int xx = 0; xx < cursor->width; ++xx) {
                const int bx = left + xx;
                if (bx < 0 || bx >= buffer.width()) continue;
                const uint32_t s = image[y * cursor->width + xx], a = s >> 24;
                if (a == 0) continue;
                const uint32_t d = row[bx];
                uint32_t out = 0xFF000000u;
                // Premultiplied: out = s + d·(1−a).
                for (int shift = 0; shift < 24; shift += 8) {
                    const uint32_t v = ((s >> shift) & 0xFF) + ((d >> shift) & 0xFF) * (255 - a) / 255;
                    out |= std::min<uint32_t>(v, 255) << shift;
                }
                row[bx] = out;
            }
        }
    }

    void end(bool windowGone) {
        x->unlisten(listener);
        if (pixmap != XCB_NONE) xcb_free_pixmap(c, pixmap);
        if (!windowGone) {
            xcb_damage_destroy(c, damage);
            xcb_composite_unredirect_window(c, window, XCB_COMPOSITE_REDIRECT_AUTOMATIC);
        }
        x->flush();
        scratch.reset();
        ScreenCapture::StopHandler didStop;
        {
            std::lock_guard g(core->lock);
            core->running = false;
            if (windowGone) didStop = std::exchange(core->didStop, nullptr);
        }
        core->progressed.notify_all();
        if (didStop)
            didStop(std::make_exception_ptr(
                ScreenCaptureError("The window " + std::to_string(window) + " is no longer available for capture.")));
    }

public:
    const std::shared_ptr<Connection> x;

private:
    xcb_connection_t* const c;
    const std::shared_ptr<X11StreamCore> core;
    const xcb_window_t window;
    const bool shm;
    std::shared_ptr<BufferPool> pool;
    std::shared_ptr<PixelBuffer> scratch;
    uint64_t listener = 0;
    xcb_damage_damage_t damage = 0;
    xcb_pixmap_t pixmap = XCB_NONE;
    int64_t width = 0, height = 0, border = 0;
};

class X11CaptureStream final : public CaptureStream {
public:
    X11CaptureStream(std::shared_ptr<Connection> x, bool shm, uint32_t window, CaptureConfiguration configuration,
                     ScreenCapture::StopHandler didStop)
        : x(std::move(x)), shm(shm), window(window), core(std::make_shared<X11StreamCore>()) {
        core->configuration = std::move(configuration);
        core->didStop = std::move(didStop);
    }
    ~X11CaptureStream() override { halt(); }

    void addStreamOutput(CaptureOutputType type, OutputHandler handler) override {
        if (type != CaptureOutputType::screen) return;  // no sound from X
        std::lock_guard g(core->lock);
        core->output = std::move(handler);
    }

    void startCapture(Completion completion) override {
        std::exception_ptr error;
        {
            std::lock_guard t(threadLock);
            std::lock_guard g(core->lock);
            if (core->running || core->stopping || thread.joinable()) {
                error = std::make_exception_ptr(ScreenCaptureError("The stream is already running."));
            } else {
                core->running = true;
                thread = std::thread([capturer = std::make_shared<Capturer>(x, core, window, shm), core = core] {
                    capturer->run();
                    {
                        std::lock_guard g(core->lock);
                        core->exited = true;
                    }
                    core->progressed.notify_all();
                });
            }
        }
        completion(error);
    }

    void updateConfiguration(const CaptureConfiguration& configuration, Completion completion) override {
        {
            std::lock_guard g(core->lock);
            core->configuration = configuration;
            core->force = true;
        }
        core->changed.notify_all();
        completion(nullptr);
    }

    void stopCapture(Completion completion) override {
        bool wasRunning;
        {
            std::lock_guard g(core->lock);
            wasRunning = core->running;
        }
        halt();
        completion(wasRunning ? nullptr : std::make_exception_ptr(ScreenCaptureError("The stream is not running.")));
    }

private:
    void halt() {
        {
            std::lock_guard g(core->lock);
            core->stopping = true;
        }
        core->changed.notify_all();
        std::thread t;
        {
            std::lock_guard g(threadLock);
            t = std::move(thread);
        }
        if (!t.joinable()) return;
        if (t.get_id() == std::this_thread::get_id()) {
            t.detach();
            return;
        }
        // An output blocked on a host that stopped reading must not hold up
        // the stop: the thread is let go and ends once the output returns.
        bool exited;
        {
            std::unique_lock g(core->lock);
            exited = core->progressed.wait_for(g, std::chrono::seconds(2), [&] { return core->exited; });
        }
        if (exited) t.join();
        else t.detach();
    }

    const std::shared_ptr<Connection> x;
    const bool shm;
    const uint32_t window;
    const std::shared_ptr<X11StreamCore> core;
    std::mutex threadLock;
    std::thread thread;
};

}  // namespace

X11ScreenCapture::X11ScreenCapture(std::shared_ptr<Connection> x, CaptureOptions options) : x(std::move(x)) {
    xcb_connection_t* c = this->x->raw();
    // Damage and XFIXES answer a client only after it has said which version it speaks.
    wait(c, xcb_damage_query_version_reply, xcb_damage_query_version(c, 1, 1));
    wait(c, xcb_xfixes_query_version_reply, xcb_xfixes_query_version(c, 4, 0));
    wait(c, xcb_composite_query_version_reply, xcb_composite_query_version(c, 0, 4));
    if (options.sharedMemory) {
        const xcb_query_extension_reply_t* data = xcb_get_extension_data(c, &xcb_shm_id);
        if (data && data->present) {
            auto version = wait(c, xcb_shm_query_version_reply, xcb_shm_query_version(c));
            useShm =
                version && (version->major_version > 1 || (version->major_version == 1 && version->minor_version >= 2));
        }
    }
}

bool X11ScreenCapture::preflightAccess() { return !x->lost(); }

bool X11ScreenCapture::requestAccess() { return !x->lost(); }

void X11ScreenCapture::shareableContent(bool excludingDesktopWindows, bool onScreenWindowsOnly,
                                        ContentCompletion completion) {
    const std::vector<ClientWindow> clients = ClientWindow::list(*x);
    if (x->lost()) {
        completion(std::nullopt, std::make_exception_ptr(ScreenCaptureError("The X server is gone.")));
        return;
    }
    ShareableContent content;
    for (const ClientWindow& w : clients) {
        if ((excludingDesktopWindows && w.desktopElement) || (onScreenWindowsOnly && !w.onScreen())) continue;
        content.windows.push_back({.windowID = w.id,
                                   .frame = w.bounds,
                                   .title = w.title.value_or(""),
                                   .ownerPID = w.pid.value_or(0),
                                   .isOnScreen = w.onScreen()});
    }
    completion(std::move(content), nullptr);
}

ContentFilter X11ScreenCapture::filter(const ShareableWindow& window) {
    return {.windowID = window.windowID, .pointPixelScale = 1.0};
}

std::shared_ptr<CaptureStream> X11ScreenCapture::makeStream(const ContentFilter& filter,
                                                            const CaptureConfiguration& configuration,
                                                            StopHandler didStopWithError) {
    return std::make_shared<X11CaptureStream>(x, useShm, filter.windowID, configuration, std::move(didStopWithError));
}

}  // namespace tsl::X11
