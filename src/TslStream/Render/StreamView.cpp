#include "TslStream/Render/StreamView.h"

#include <SDL.h>

#include <atomic>
#include <cmath>
#include <map>

#if defined(__SANITIZE_ADDRESS__)
#include <sanitizer/lsan_interface.h>
#endif

#include "TslCore/Support/Error.h"
#include "TslStream/Codec/PixelBuffers.h"

namespace tsl {
namespace {

// The window system's libraries keep allocations for the life of the process
// (displays, atoms, the session bus), some in modules loaded at run time that
// the leak checker can't name; what they allocate while this lives isn't
// counted as a leak of ours.
struct WindowSystemAllocations {
#if defined(__SANITIZE_ADDRESS__)
    WindowSystemAllocations() { __lsan_disable(); }
    ~WindowSystemAllocations() { __lsan_enable(); }
#endif
};

// Views by their window-system window, to route events; main thread only.
std::map<uint32_t, StreamView*>& views() {
    static std::map<uint32_t, StreamView*> table;
    return table;
}

std::optional<uint32_t> eventWindow(const SDL_Event& e) {
    switch (e.type) {
        case SDL_WINDOWEVENT: return e.window.windowID;
        case SDL_KEYDOWN:
        case SDL_KEYUP: return e.key.windowID;
        case SDL_MOUSEMOTION: return e.motion.windowID;
        case SDL_MOUSEBUTTONDOWN:
        case SDL_MOUSEBUTTONUP: return e.button.windowID;
        case SDL_MOUSEWHEEL: return e.wheel.windowID;
        case SDL_DROPBEGIN:
        case SDL_DROPFILE:
        case SDL_DROPTEXT:
        case SDL_DROPCOMPLETE: return e.drop.windowID;
        default: return std::nullopt;
    }
}

}  // namespace

struct StreamView::Window {
    SDL_Window* window = nullptr;
    SDL_Renderer* renderer = nullptr;
    SDL_Texture* texture = nullptr;
    int textureWidth = 0, textureHeight = 0;

    ~Window() {
        if (texture) SDL_DestroyTexture(texture);
        if (renderer) SDL_DestroyRenderer(renderer);
        if (window) SDL_DestroyWindow(window);
    }
};

bool StreamView::displayAvailable() {
    static const bool available = [] {
        // A click into an inactive window reaches the guest, as the first click should.
        SDL_SetHint(SDL_HINT_MOUSE_FOCUS_CLICKTHROUGH, "1");
        [[maybe_unused]] WindowSystemAllocations kept;
        if (SDL_InitSubSystem(SDL_INIT_VIDEO) != 0) return false;
        SDL_EventState(SDL_DROPTEXT, SDL_DISABLE);  // only files are taken
        return true;
    }();
    return available;
}

StreamView::StreamView(uint32_t windowID, double x, double y, double width, double height, const std::string& title)
    : StreamView(std::make_shared<SharedInputMapper>(windowID), x, y, width, height, title) {}

StreamView::StreamView(std::shared_ptr<SharedInputMapper> input, double x, double y, double width, double height,
                       const std::string& title)
    : window(std::make_unique<Window>()), mapper(std::move(input)) {
    if (!displayAvailable()) throw Error(std::string("no display: ") + SDL_GetError());
    int w = std::max(1, int(std::lround(width))), h = std::max(1, int(std::lround(height)));
    [[maybe_unused]] WindowSystemAllocations kept;
    window->window = SDL_CreateWindow(title.c_str(), int(std::lround(x)), int(std::lround(y)), w, h,
                                      SDL_WINDOW_RESIZABLE | SDL_WINDOW_ALLOW_HIGHDPI | SDL_WINDOW_HIDDEN);
    if (!window->window) throw Error(std::string("cannot open a window: ") + SDL_GetError());
    window->renderer = SDL_CreateRenderer(window->window, -1, 0);
    if (!window->renderer) throw Error(std::string("cannot draw into a window: ") + SDL_GetError());
    // Shown only now: making the renderer may replace the window underneath.
    SDL_ShowWindow(window->window);
    views()[SDL_GetWindowID(window->window)] = this;
    lastBackingScale = backingScale();
    present();
}

StreamView::~StreamView() {
    [[maybe_unused]] WindowSystemAllocations kept;
    views().erase(SDL_GetWindowID(window->window));
    window.reset();
}

double StreamView::sanitizedScale(double scale) {
    if (!std::isfinite(scale)) return 1.0;
    return std::clamp(scale, 0.25, 8.0);
}

double StreamView::backingScale() const {
    int pw = 0, ph = 0, ww = 0, wh = 0;
    SDL_GetRendererOutputSize(window->renderer, &pw, &ph);
    SDL_GetWindowSize(window->window, &ww, &wh);
    return ww > 0 && pw > 0 ? double(pw) / ww : 1.0;
}

void StreamView::show(std::shared_ptr<PixelBuffer> frame, double contentScale) {
    [[maybe_unused]] WindowSystemAllocations kept;
    if (!frame || !frame->hasSharedSurface() || frame->pixelFormat() != PixelBuffer::bgra) return;
    double scale = sanitizedScale(contentScale);
    {
        PixelBufferLock locked(*frame, PixelBuffer::lockReadOnly);
        if (!locked.base()) return;
        int w = int(frame->width()), h = int(frame->height());
        if (!window->texture || window->textureWidth != w || window->textureHeight != h) {
            if (window->texture) SDL_DestroyTexture(window->texture);
            // ARGB8888 lies in memory as B, G, R, A on a little-endian host: the frame's own order.
            window->texture = SDL_CreateTexture(window->renderer, SDL_PIXELFORMAT_ARGB8888,
                                                SDL_TEXTUREACCESS_STREAMING, w, h);
            window->textureWidth = window->texture ? w : 0;
            window->textureHeight = window->texture ? h : 0;
            if (!window->texture) return;
        }
        SDL_UpdateTexture(window->texture, nullptr, locked.base(), int(frame->bytesPerRow()));
    }
    displayed = std::move(frame);
    _contentPixelsPerPoint = scale;
    _contentPointSize = {double(displayed->width()) / scale, double(displayed->height()) / scale};
    _framesShown += 1;
    present();
}

void StreamView::present() {
    [[maybe_unused]] WindowSystemAllocations kept;
    draw();
    SDL_RenderPresent(window->renderer);
}

void StreamView::draw() {
    SDL_Renderer* r = window->renderer;
    SDL_SetRenderDrawColor(r, 0, 0, 0, 255);
    SDL_RenderClear(r);
    if (displayed && window->texture) {
        // One guest point per host point from the top-left corner: the frame is never fitted to the window.
        double k = backingScale() / _contentPixelsPerPoint;
        SDL_Rect dst{0, 0, int(std::lround(window->textureWidth * k)), int(std::lround(window->textureHeight * k))};
        SDL_RenderCopy(r, window->texture, nullptr, &dst);
    }
}

std::shared_ptr<PixelBuffer> StreamView::readBack() {
    [[maybe_unused]] WindowSystemAllocations kept;
    int w = 0, h = 0;
    SDL_GetRendererOutputSize(window->renderer, &w, &h);
    auto out = PixelBuffers::make(w, h);
    draw();  // what was presented is gone from the back buffer
    PixelBufferLock locked(*out, 0);
    SDL_RenderReadPixels(window->renderer, nullptr, SDL_PIXELFORMAT_ARGB8888, locked.base(), int(out->bytesPerRow()));
    return out;
}

void StreamView::resizeWindow(double width, double height) {
    [[maybe_unused]] WindowSystemAllocations kept;
    SDL_SetWindowSize(window->window, std::max(1, int(std::lround(width))), std::max(1, int(std::lround(height))));
    present();
}

namespace {

// The event that ends a wait; at most one is ever queued.
const uint32_t wakeEvent = SDL_RegisterEvents(1);
std::atomic<bool> wakeQueued{false};

}  // namespace

void StreamView::wake() {
    if (wakeEvent == uint32_t(-1) || wakeQueued.exchange(true)) return;
    SDL_Event event{};
    event.type = wakeEvent;
    if (SDL_PushEvent(&event) != 1) wakeQueued = false;
}

bool StreamView::pumpEvents(std::chrono::milliseconds wait) {
    bool keepGoing = true;
    [[maybe_unused]] WindowSystemAllocations kept;
    SDL_Event event;
    bool got = wait.count() > 0 ? SDL_WaitEventTimeout(&event, int(wait.count())) == 1 : SDL_PollEvent(&event) == 1;
    for (; got; got = SDL_PollEvent(&event) == 1) {
        if (event.type == wakeEvent) wakeQueued = false;
        if (event.type == SDL_QUIT) keepGoing = false;
        if (auto id = eventWindow(event)) {
            auto found = views().find(*id);
            if (found != views().end()) found->second->handle(event);
        }
        if (event.type == SDL_DROPFILE || event.type == SDL_DROPTEXT) SDL_free(event.drop.file);
    }
    return keepGoing;
}

void StreamView::deliver(const InputMapper::HostEvent& event) {
    // The sequence moves whether or not anyone listens.
    auto mapped = mapper->map(event);
    if (mapped && onInput) onInput(*mapped);
}

void StreamView::setTitle(const std::string& title) {
    if (window && window->window) SDL_SetWindowTitle(window->window, title.c_str());
}

void StreamView::handle(const SDL_Event& e) {
    [[maybe_unused]] WindowSystemAllocations kept;
    switch (e.type) {
        case SDL_WINDOWEVENT:
            if (e.window.event == SDL_WINDOWEVENT_EXPOSED || e.window.event == SDL_WINDOWEVENT_SIZE_CHANGED) present();
            if (e.window.event == SDL_WINDOWEVENT_SIZE_CHANGED || e.window.event == SDL_WINDOWEVENT_DISPLAY_CHANGED) {
                double now = backingScale();
                if (now != lastBackingScale) {
                    lastBackingScale = now;
                    if (onBackingScaleChange) onBackingScaleChange(now);
                }
            }
            if (e.window.event == SDL_WINDOWEVENT_RESIZED && onResize) onResize(e.window.data1, e.window.data2);
            return;
        case SDL_DROPBEGIN: pendingDrop.clear(); return;
        case SDL_DROPFILE:
            if (e.drop.file) pendingDrop.emplace_back(e.drop.file);
            return;
        case SDL_DROPCOMPLETE: {
            auto files = std::move(pendingDrop);
            pendingDrop.clear();
            if (onDropFiles && !files.empty()) onDropFiles(std::move(files));
            return;
        }
        default: break;
    }
    if (const auto input = translator.translate(e, uint16_t(SDL_GetModState())))
        for (const auto& event : shortcuts.pass(input->event, input->usage)) deliver(event);
}

}  // namespace tsl
