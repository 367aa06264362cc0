#include "Platform/X11/X11ScreenCapture.h"

#include <poll.h>
#include <pthread.h>
#include <sys/eventfd.h>
#include <sys/mman.h>
#include <unistd.h>
#include <xcb/composite.h>
#include <xcb/damage.h>
#include <xcb/render.h>
#include <xcb/shm.h>
#include <xcb/xfixes.h>

#include <algorithm>
#include <condition_variable>
#include <cstring>
#include <mutex>
#include <thread>
#include <utility>
#include <vector>

#include "Platform/PixelBufferPool.h"
#include "Platform/X11/X11ClientWindow.h"

namespace tsl::X11 {
namespace {

using Clock = std::chrono::steady_clock;

// The capture thread's own connection to the server. Its replies and its
// DAMAGE and window events are read by that thread alone: on the shared
// connection the event thread reads them first and hands each one over,
// which cost a thread wake-up per picture.
using Link = std::shared_ptr<xcb_connection_t>;

Link connectLink(const std::string& display) {
    Link link(xcb_connect(display.empty() ? nullptr : display.c_str(), nullptr), xcb_disconnect);
    if (xcb_connection_has_error(link.get())) return nullptr;
    xcb_connection_t* c = link.get();
    // Damage and XFIXES answer a client only after it has said which version it speaks.
    auto damage = xcb_damage_query_version(c, 1, 1);
    auto fixes = xcb_xfixes_query_version(c, 4, 0);
    auto composite = xcb_composite_query_version(c, 0, 4);
    auto render = xcb_render_query_version(c, 0, 11);
    wait(c, xcb_render_query_version_reply, render);
    wait(c, xcb_damage_query_version_reply, damage);
    wait(c, xcb_xfixes_query_version_reply, fixes);
    wait(c, xcb_composite_query_version_reply, composite);
    return link;
}

// A memfd the server maps too (attach_fd); unmapped and detached with the last picture on it.
class ShmPixelBuffer final : public MemoryBackedPixelBuffer {
public:
    static std::shared_ptr<ShmPixelBuffer> make(const Link& link, int64_t width, int64_t height) {
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
        xcb_connection_t* c = link.get();
        const xcb_shm_seg_t segment = xcb_generate_id(c);
        // xcb closes the descriptor once it is sent.
        if (xcb_generic_error_t* error = xcb_request_check(c, xcb_shm_attach_fd_checked(c, segment, fd, 0))) {
            std::free(error);
            ::munmap(memory, size);
            return nullptr;
        }
        return std::shared_ptr<ShmPixelBuffer>(
            new ShmPixelBuffer(link, segment, static_cast<uint8_t*>(memory), size, width, height));
    }
    ~ShmPixelBuffer() override {
        if (picture != XCB_NONE) xcb_render_free_picture(link.get(), picture);
        if (pixmap != XCB_NONE) xcb_free_pixmap(link.get(), pixmap);
        xcb_shm_detach(link.get(), segment);
        xcb_flush(link.get());
        ::munmap(memory(), size);
    }

    xcb_shm_seg_t seg() const { return segment; }

    // A Render picture over this very memory, so the server can draw a
    // picture straight into it; made on first use. XCB_NONE when refused.
    xcb_render_picture_t target(xcb_window_t root, xcb_render_pictformat_t argb) {
        if (triedTarget) return picture;
        triedTarget = true;
        xcb_connection_t* c = link.get();
        const xcb_pixmap_t p = xcb_generate_id(c);
        const xcb_render_picture_t r = xcb_generate_id(c);
        auto made = xcb_shm_create_pixmap_checked(c, p, root, uint16_t(width()), uint16_t(height()), 32, segment, 0);
        auto drawn = xcb_render_create_picture_checked(c, r, p, argb, 0, nullptr);
        xcb_generic_error_t* pixmapError = xcb_request_check(c, made);
        xcb_generic_error_t* pictureError = xcb_request_check(c, drawn);
        if (!pixmapError) pixmap = p;
        if (!pixmapError && !pictureError) picture = r;
        std::free(pixmapError);
        std::free(pictureError);
        return picture;
    }
    uint8_t* pixels() const { return memory(); }

private:
    ShmPixelBuffer(Link link, xcb_shm_seg_t segment, uint8_t* memory, size_t size, int64_t width, int64_t height)
        : MemoryBackedPixelBuffer(width, height, size_t(width) * 4, true, memory),
          link(std::move(link)),
          segment(segment),
          size(size) {}

    const Link link;
    const xcb_shm_seg_t segment;
    const size_t size;
    // Touched by the capture thread only.
    bool triedTarget = false;
    xcb_pixmap_t pixmap = XCB_NONE;
    xcb_render_picture_t picture = XCB_NONE;
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

// What the stream's thread shares with its owner's.
struct StreamCore {
    std::mutex lock;
    std::condition_variable progressed;
    CaptureConfiguration configuration;
    CaptureStream::OutputHandler output;
    ScreenCapture::StopHandler didStop;
    bool running = false, stopping = false, exited = false;
    bool force = true;  // a picture is due whatever DAMAGE says (start, new configuration)
    // Written to wake the capture thread out of its poll.
    const int wake = ::eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK);
    ~StreamCore() {
        if (wake >= 0) ::close(wake);
    }
    void poke() const {
        const uint64_t one = 1;
        [[maybe_unused]] const ssize_t n = ::write(wake, &one, sizeof one);
    }
};

class Capturer {
public:
    Capturer(Link link, xcb_window_t root, std::shared_ptr<StreamCore> core, xcb_window_t window, ServerWays ways)
        : link(std::move(link)),
          c(this->link.get()),
          root(root),
          core(std::move(core)),
          window(window),
          ways(ways),
          damageEvent(damageEventCode(c)),
          pool(PixelBufferPool::create([this](int64_t w, int64_t h) { return makeBuffer(w, h); })) {}

    void run() {
        pthread_setname_np(pthread_self(), "tsl.capture");
        begin();
        Clock::time_point nextPicture = Clock::now(), nextIdle = Clock::now();
        for (;;) {
            readEvents();
            CaptureConfiguration config;
            CaptureStream::OutputHandler output;
            bool picture = false;
            const auto now = Clock::now();
            Clock::time_point due;
            {
                std::lock_guard g(core->lock);
                if (core->stopping || gone) break;
                const bool dirty = damaged || stale || renamed || core->force;
                due = dirty ? std::min(nextPicture, nextIdle) : nextIdle;
                if (now >= due) {
                    picture = dirty && now >= nextPicture;
                    if (picture) damaged = renamed = core->force = false;
                    config = core->configuration;
                    output = core->output;
                }
            }
            if (now < due) {
                sleepUntil(due);
                continue;
            }
            const auto interval = pictureInterval(config);
            if (std::exchange(stale, false) && !rename()) {
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
                    damaged = retry = true;
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
        end(gone);
    }

private:
    static uint8_t damageEventCode(xcb_connection_t* c) {
        const xcb_query_extension_reply_t* data = xcb_get_extension_data(c, &xcb_damage_id);
        return data ? uint8_t(data->first_event + XCB_DAMAGE_NOTIFY) : 0;
    }

    std::shared_ptr<PixelBuffer> makeBuffer(int64_t w, int64_t h) {
        if (ways.sharedMemory) return ShmPixelBuffer::make(link, w, h);
        return PixelBuffer::make(w, h, {.sharedSurface = false, .bytesPerRow = size_t(w) * 4});
    }

    void begin() {
        damage = xcb_generate_id(c);
        // Our own mask on the window: other clients' masks are theirs.
        const uint32_t mask = XCB_EVENT_MASK_STRUCTURE_NOTIFY;
        xcb_change_window_attributes(c, window, XCB_CW_EVENT_MASK, &mask);
        xcb_composite_redirect_window(c, window, XCB_COMPOSITE_REDIRECT_AUTOMATIC);
        xcb_damage_create(c, damage, window, XCB_DAMAGE_REPORT_LEVEL_NON_EMPTY);
        const auto formatsAsked = xcb_render_query_pict_formats(c);
        auto attributes = wait(c, xcb_get_window_attributes_reply, xcb_get_window_attributes(c, window));
        auto formats = wait(c, xcb_render_query_pict_formats_reply, formatsAsked);
        if (!attributes) gone = true;
        else mapped = attributes->map_state != XCB_MAP_STATE_UNMAPPED;
        if (attributes && formats && ways.sharedPixmaps) pickFormats(formats.get(), attributes->visual);
    }

    // Render draws a picture straight into shared memory, alpha made opaque on
    // the way, when the window has no alpha of its own: a source format
    // without alpha reads as opaque. That saves the pass over every pixel
    // that a GetImage needs afterwards.
    void pickFormats(const xcb_render_query_pict_formats_reply_t* reply, xcb_visualid_t visual) {
        xcb_render_pictformat_t windowFormat = XCB_NONE;
        for (auto s = xcb_render_query_pict_formats_screens_iterator(reply); s.rem; xcb_render_pictscreen_next(&s))
            for (auto d = xcb_render_pictscreen_depths_iterator(s.data); d.rem; xcb_render_pictdepth_next(&d))
                for (auto v = xcb_render_pictdepth_visuals_iterator(d.data); v.rem; xcb_render_pictvisual_next(&v))
                    if (v.data->visual == visual) windowFormat = v.data->format;
        for (auto f = xcb_render_query_pict_formats_formats_iterator(reply); f.rem; xcb_render_pictforminfo_next(&f)) {
            const xcb_render_pictforminfo_t& info = *f.data;
            if (info.type != XCB_RENDER_PICT_TYPE_DIRECT) continue;
            const xcb_render_directformat_t& d = info.direct;
            if (info.depth == 32 && d.alpha_shift == 24 && d.alpha_mask == 0xff && d.red_shift == 16 &&
                d.red_mask == 0xff && d.green_shift == 8 && d.green_mask == 0xff && d.blue_shift == 0 &&
                d.blue_mask == 0xff)
                argb = info.id;
            if (info.id == windowFormat && d.alpha_mask == 0) opaqueWindow = info.id;
        }
        if (argb == XCB_NONE) opaqueWindow = XCB_NONE;
    }

    // Takes in what the server has sent, without waiting.
    void readEvents() {
        while (xcb_generic_event_t* e = xcb_poll_for_event(c)) {
            take(*e);
            std::free(e);
        }
        // A lost server ends the stream as a vanished window does.
        if (xcb_connection_has_error(c)) gone = true;
    }

    void take(const xcb_generic_event_t& e) {
        const uint8_t type = e.response_type & 0x7f;
        if (type == damageEvent) {
            if (reinterpret_cast<const xcb_damage_notify_event_t&>(e).damage == damage) damaged = true;
        } else if (type == XCB_DESTROY_NOTIFY) {
            if (reinterpret_cast<const xcb_destroy_notify_event_t&>(e).window == window) gone = true;
        } else if (type == XCB_UNMAP_NOTIFY) {
            if (reinterpret_cast<const xcb_unmap_notify_event_t&>(e).window == window) mapped = false;
        } else if (type == XCB_MAP_NOTIFY) {
            if (reinterpret_cast<const xcb_map_notify_event_t&>(e).window == window) mapped = stale = true;
        } else if (type == XCB_REPARENT_NOTIFY) {
            if (reinterpret_cast<const xcb_reparent_notify_event_t&>(e).window == window) stale = true;
        } else if (type == XCB_CONFIGURE_NOTIFY) {
            const auto& ce = reinterpret_cast<const xcb_configure_notify_event_t&>(e);
            if (ce.window == window && (ce.width != width || ce.height != height)) stale = true;
        }
    }

    // Until `due`, the server's next message or the owner's wake, whichever comes first.
    void sleepUntil(Clock::time_point due) {
        const auto left = std::max<Clock::duration>(due - Clock::now(), Clock::duration::zero());
        const auto ns = std::chrono::duration_cast<std::chrono::nanoseconds>(left).count();
        const timespec timeout{time_t(ns / 1'000'000'000), long(ns % 1'000'000'000)};
        pollfd fds[2] = {{xcb_get_file_descriptor(c), POLLIN, 0}, {core->wake, POLLIN, 0}};
        if (::ppoll(fds, 2, &timeout, nullptr) > 0 && fds[1].revents) {
            uint64_t count;
            [[maybe_unused]] const ssize_t n = ::read(core->wake, &count, sizeof count);
        }
    }

    // Names the window's current pixmap: a resize or a new mapping gives it another.
    bool rename() {
        if (source != XCB_NONE) xcb_render_free_picture(c, source);
        if (pixmap != XCB_NONE) xcb_free_pixmap(c, pixmap);
        pixmap = source = XCB_NONE;
        const xcb_pixmap_t named = xcb_generate_id(c);
        const auto naming = xcb_composite_name_window_pixmap_checked(c, window, named);
        auto geometry = wait(c, xcb_get_geometry_reply, xcb_get_geometry(c, window));
        if (xcb_generic_error_t* error = xcb_request_check(c, naming)) {
            std::free(error);
            return false;
        }
        if (!geometry) {
            xcb_free_pixmap(c, named);
            return false;
        }
        pixmap = named;
        if (opaqueWindow != XCB_NONE) {
            const xcb_render_picture_t made = xcb_generate_id(c);
            if (xcb_generic_error_t* error =
                    xcb_request_check(c, xcb_render_create_picture_checked(c, made, named, opaqueWindow, 0, nullptr)))
                std::free(error);
            else source = made;
        }
        width = geometry->width, height = geometry->height, border = geometry->border_width;
        renamed = true;
        return true;
    }

    // Reads the pixmap into `into` (rows width*4 apart); false when the server refused.
    bool read(PixelBuffer& buffer, uint8_t* into) {
        auto* shared = dynamic_cast<ShmPixelBuffer*>(&buffer);
        if (shared && source != XCB_NONE) {
            if (const xcb_render_picture_t target = shared->target(root, argb); target != XCB_NONE) {
                xcb_render_composite(c, XCB_RENDER_PICT_OP_SRC, source, XCB_NONE, target, int16_t(border),
                                     int16_t(border), 0, 0, 0, 0, uint16_t(width), uint16_t(height));
                // The reply comes once the server has drawn.
                return bool(wait(c, xcb_get_input_focus_reply, xcb_get_input_focus(c)));
            }
        }
        if (!readImage(into, shared ? shared->seg() : XCB_NONE)) return false;
        forceOpaque(into, size_t(width) * height);
        return true;
    }

    bool readImage(uint8_t* into, xcb_shm_seg_t segment) {
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
            if (!read(*buffer, base)) return nullptr;
        } else {
            // The window's size and the configured one differ (a resize on its
            // way, or a scale): read whole, then fit.
            if (!scratch || scratch->width() != width || scratch->height() != height)
                scratch = makeBuffer(width, height);
            if (!scratch) return nullptr;
            PixelBufferLock scratchLocked(*scratch, 0);
            if (!read(*scratch, scratchLocked.base())) return nullptr;
            contentScale = fitInto(scratchLocked.base(), width, height, *buffer, base);
        }
        if (config.showsCursor) blendCursor(*buffer, base, contentScale);
        return buffer;
    }

    void blendCursor(PixelBuffer& buffer, uint8_t* base, double scale) {
        auto origin = wait(c, xcb_translate_coordinates_reply, xcb_translate_coordinates(c, window, root, 0, 0));
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
        if (source != XCB_NONE) xcb_render_free_picture(c, source);
        if (pixmap != XCB_NONE) xcb_free_pixmap(c, pixmap);
        if (!windowGone) {
            xcb_damage_destroy(c, damage);
            xcb_composite_unredirect_window(c, window, XCB_COMPOSITE_REDIRECT_AUTOMATIC);
        }
        xcb_flush(c);
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

    const Link link;
    xcb_connection_t* const c;
    const xcb_window_t root;
    const std::shared_ptr<StreamCore> core;
    const xcb_window_t window;
    const ServerWays ways;
    const uint8_t damageEvent;
    std::shared_ptr<PixelBufferPool> pool;
    std::shared_ptr<PixelBuffer> scratch;
    xcb_damage_damage_t damage = 0;
    xcb_pixmap_t pixmap = XCB_NONE;
    xcb_render_pictformat_t argb = XCB_NONE, opaqueWindow = XCB_NONE;
    xcb_render_picture_t source = XCB_NONE;  // over `pixmap`, when Render draws the pictures
    int64_t width = 0, height = 0, border = 0;
    // From the server's events; this thread alone reads and writes them.
    bool damaged = true, stale = true, gone = false, mapped = true;
    bool renamed = false;  // a new pixmap: its first picture is due
};

class X11CaptureStream final : public CaptureStream {
public:
    X11CaptureStream(std::shared_ptr<Connection> x, ServerWays ways, uint32_t window,
                     CaptureConfiguration configuration, ScreenCapture::StopHandler didStop)
        : x(std::move(x)), ways(ways), window(window), core(std::make_shared<StreamCore>()) {
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
            Link link;
            if (core->running || core->stopping || thread.joinable()) {
                error = std::make_exception_ptr(ScreenCaptureError("The stream is already running."));
            } else if (core->wake < 0 || !(link = connectLink(x->displayName()))) {
                error = std::make_exception_ptr(
                    ScreenCaptureError("The X server " + x->displayName() + " refused a connection for capture."));
            } else {
                core->running = true;
                auto capturer = std::make_shared<Capturer>(std::move(link), x->root(), core, window, ways);
                thread = std::thread([capturer = std::move(capturer), core = core] {
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
        core->poke();
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
        core->poke();
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
    const ServerWays ways;
    const uint32_t window;
    const std::shared_ptr<StreamCore> core;
    std::mutex threadLock;
    std::thread thread;
};

}  // namespace

X11ScreenCapture::X11ScreenCapture(std::shared_ptr<Connection> x, CaptureOptions options) : x(std::move(x)) {
    xcb_connection_t* c = this->x->raw();
    if (options.sharedMemory) {
        const xcb_query_extension_reply_t* data = xcb_get_extension_data(c, &xcb_shm_id);
        if (data && data->present) {
            auto version = wait(c, xcb_shm_query_version_reply, xcb_shm_query_version(c));
            ways.sharedMemory =
                version && (version->major_version > 1 || (version->major_version == 1 && version->minor_version >= 2));
            ways.sharedPixmaps = ways.sharedMemory && options.sharedPixmaps && version->shared_pixmaps &&
                                 version->pixmap_format == XCB_IMAGE_FORMAT_Z_PIXMAP;
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
    return std::make_shared<X11CaptureStream>(x, ways, filter.windowID, configuration, std::move(didStopWithError));
}

}  // namespace tsl::X11
