#include "Platform/Sim/SimCaptureStream.h"

#include <pthread.h>

#include <algorithm>
#include <utility>

#include "Platform/PixelBufferPool.h"
#include "Platform/Sim/World.h"

namespace tsl::Sim {
namespace {

using Clock = std::chrono::steady_clock;

Clock::duration frameInterval(const CaptureConfiguration& c) {
    // No interval means "as fast as the content changes"; here content changes every frame.
    double seconds = 1.0 / 60;
    if (c.minimumFrameIntervalValue > 0 && c.minimumFrameIntervalTimescale > 0)
        seconds = double(c.minimumFrameIntervalValue) / c.minimumFrameIntervalTimescale;
    seconds = std::clamp(seconds, 0.001, 10.0);
    return std::chrono::duration_cast<Clock::duration>(std::chrono::duration<double>(seconds));
}

// What one tick needs from the world, copied under the desktop's lock.
struct Look {
    bool exists = false;
    bool visible = false;
    ContentSnapshot content;
    uint64_t frameNumber = 0;
    Desktop::AttachmentFilter attachmentFilter;
};

}  // namespace

struct StreamCore {
    std::mutex lock;
    std::condition_variable changed;     // to the thread: stop, wake, configuration, request
    std::condition_variable progressed;  // from the thread: a tick handled, or the end
    CaptureConfiguration configuration;
    CaptureStream::OutputHandler output;
    ScreenCapture::StopHandler didStop;
    bool manual = false;
    bool running = false;
    bool stopping = false;
    bool wakeUp = false;
    bool exited = false;     // the thread has returned
    uint64_t requested = 0;  // manual mode
    uint64_t handled = 0;    // ticks done, whether or not a frame went out
    std::shared_ptr<PixelBufferPool> pool =
        PixelBufferPool::create([](int64_t w, int64_t h) { return PixelBuffer::make(w, h); });
};

namespace {

void finishTick(StreamCore& core) {
    {
        std::lock_guard g(core.lock);
        ++core.handled;
    }
    core.progressed.notify_all();
}

// Ends the stream from the platform's side: the window went away.
void endStream(StreamCore& core, uint32_t windowID) {
    ScreenCapture::StopHandler didStop;
    {
        std::lock_guard g(core.lock);
        core.running = false;
        didStop = std::move(core.didStop);
        core.didStop = nullptr;
    }
    core.progressed.notify_all();
    if (didStop)
        didStop(std::make_exception_ptr(ScreenCaptureError("The window " + std::to_string(windowID) +
                                                           " is no longer available for capture.")));
}

// One frame of the window in `buffer` (nothing when none was free): its
// content fitted in, with the attachments the platform gives complete frames.
CaptureSample render(std::shared_ptr<PixelBuffer> buffer, const Look& look) {
    CaptureSample sample;
    constexpr double scaleFactor = 1.0;  // the simulated display's backing scale
    if (!look.visible) {
        // Nothing on screen to show: an idle frame without a picture.
        sample.attachments = ValueList{ValueDict{
            {CaptureFrameInfo::keyStatus, int64_t(CaptureFrameInfo::Status::idle)}}};
    } else {
        if (!buffer) return sample;
        const int64_t width = buffer->width(), height = buffer->height();
        const Size points = look.content.size;
        double contentScale = 1.0;
        if (points.width > 0 && points.height > 0)
            contentScale = std::min(width / (points.width * scaleFactor), height / (points.height * scaleFactor));
        {
            PixelBufferLock locked(*buffer, 0);
            if (uint8_t* base = locked.base())
                drawWindowContent(look.content, base, width, height, buffer->bytesPerRow(),
                                  contentScale * scaleFactor, look.frameNumber);
        }
        sample.imageBuffer = std::move(buffer);
        sample.attachments = ValueList{ValueDict{
            {CaptureFrameInfo::keyStatus, int64_t(CaptureFrameInfo::Status::complete)},
            {CaptureFrameInfo::keyScaleFactor, scaleFactor},
            {CaptureFrameInfo::keyContentScale, contentScale}}};
    }
    if (look.attachmentFilter) sample.attachments = look.attachmentFilter(std::move(sample.attachments));
    return sample;
}

void run(std::shared_ptr<StreamCore> core, std::weak_ptr<Desktop> weakDesktop, uint32_t windowID) {
    pthread_setname_np(pthread_self(), "tsl.capture");
    struct Exit {
        StreamCore& core;
        ~Exit() {
            {
                std::lock_guard g(core.lock);
                core.exited = true;
            }
            core.progressed.notify_all();
        }
    } exit{*core};
    Clock::time_point next = Clock::now();
    for (;;) {
        CaptureConfiguration config;
        CaptureStream::OutputHandler output;
        bool tick;
        {
            std::unique_lock g(core->lock);
            if (core->manual)
                core->changed.wait(g, [&] { return core->stopping || core->wakeUp || core->requested > core->handled; });
            else
                core->changed.wait_until(g, next, [&] { return core->stopping || core->wakeUp; });
            if (core->stopping) return;
            tick = core->manual ? core->requested > core->handled : Clock::now() >= next;
            core->wakeUp = false;
            config = core->configuration;
            output = core->output;
        }

        // A tick with no picture free draws nothing, so the pattern's count doesn't move.
        std::shared_ptr<PixelBuffer> buffer;
        if (tick)
            buffer = core->pool->take(std::clamp<int64_t>(config.width, 1, 16384),
                                      std::clamp<int64_t>(config.height, 1, 16384), config.queueDepth);
        Look look;
        if (auto desktop = weakDesktop.lock()) {
            look = desktop->change([&](World& w) {
                Look l;
                SimWindow* win = w.window(windowID);
                if (!win) return l;
                l.exists = true;
                if (!tick) return l;
                l.visible = w.isVisible(*win);
                SimProcess* p = w.process(win->pid);
                l.content = {.kind = p ? p->setup.kind : AppKind::scripted,
                             .squareWhite = p && p->squareWhite,
                             .size = win->setup.frame.size(),
                             .tint = 0xFF000000 | (0x404040 + 0x2F1D0B * (windowID % 5))};
                if (p && p->setup.kind == AppKind::testPattern && l.visible && buffer) l.frameNumber = ++p->patternCounter;
                if (auto f = w.attachmentFilters.find(windowID); f != w.attachmentFilters.end())
                    l.attachmentFilter = f->second;
                return l;
            });
        } else {
            finishTick(*core);
            return;  // the desktop is gone, and its windows with it
        }
        if (!look.exists) {
            endStream(*core, windowID);
            return;
        }
        if (!tick) continue;

        CaptureSample sample = render(std::move(buffer), look);
        const bool delivered = output && (sample.imageBuffer || !look.visible);
        if (auto desktop = weakDesktop.lock()) {
            desktop->change([&](World& w) {
                if (sample.imageBuffer || !look.visible) ++w.captureCounts.framesDelivered;
                else ++w.captureCounts.framesSkipped;
            });
        }
        if (delivered) output(sample, CaptureOutputType::screen);
        sample = {};  // the picture goes back to the pool unless the client kept it
        finishTick(*core);

        if (!core->manual) {
            const auto interval = frameInterval(config);
            next += interval;
            const auto now = Clock::now();
            if (next <= now) next += ((now - next) / interval + 1) * interval;
        }
    }
}

}  // namespace

SimCaptureStream::SimCaptureStream(std::weak_ptr<Desktop> desktop, ContentFilter filter,
                                   CaptureConfiguration configuration, ScreenCapture::StopHandler didStop)
    : _desktop(std::move(desktop)), _windowID(filter.windowID), _core(std::make_shared<StreamCore>()) {
    _core->configuration = std::move(configuration);
    _core->didStop = std::move(didStop);
    if (auto d = _desktop.lock()) _core->manual = d->options().manualCapture;
}

SimCaptureStream::~SimCaptureStream() { halt(); }

void SimCaptureStream::halt() {
    {
        std::lock_guard g(_core->lock);
        _core->stopping = true;
        _core->running = false;
    }
    _core->changed.notify_all();
    _core->progressed.notify_all();
    std::thread thread;
    bool indicatorShown;
    {
        std::lock_guard g(_threadLock);
        thread = std::move(_thread);
        indicatorShown = std::exchange(_indicatorShown, false);
    }
    if (indicatorShown)
        if (auto desktop = _desktop.lock()) desktop->change([&](World& w) { w.captureEnded(_windowID); });
    if (!thread.joinable()) return;
    if (thread.get_id() == std::this_thread::get_id()) {
        thread.detach();
        return;
    }
    // A client whose output blocks (a frame written to a host that stopped
    // reading) must not hold up the stop: the thread is let go and ends on
    // its own once the output returns, seeing the stream stopped.
    bool exited;
    {
        std::unique_lock g(_core->lock);
        exited = _core->progressed.wait_for(g, std::chrono::seconds(2), [&] { return _core->exited; });
    }
    if (exited) thread.join();
    else thread.detach();
}

namespace {

// Whether the desktop says this call fails, and with what.
template <typename Pick>
std::exception_ptr fault(const std::weak_ptr<Desktop>& weak, Pick pick, const char* what) {
    auto desktop = weak.lock();
    if (!desktop) return std::make_exception_ptr(ScreenCaptureError("The capture service is not available."));
    const bool fails = desktop->change([&](World& w) { return pick(w.captureFaults); });
    return fails ? std::make_exception_ptr(ScreenCaptureError(what)) : nullptr;
}

template <typename Count>
void count(const std::weak_ptr<Desktop>& weak, Count f) {
    if (auto desktop = weak.lock()) desktop->change([&](World& w) { f(w.captureCounts); });
}

}  // namespace

void SimCaptureStream::addStreamOutput(CaptureOutputType type, OutputHandler handler) {
    if (auto error = fault(_desktop, [](const CaptureFaults& f) { return f.addOutput; }, "The stream output could not be added."))
        std::rethrow_exception(error);
    if (type != CaptureOutputType::screen) return;  // the simulated desktop has no sound
    std::lock_guard g(_core->lock);
    _core->output = std::move(handler);
}

void SimCaptureStream::startCapture(Completion completion) {
    std::exception_ptr error = fault(_desktop, [](const CaptureFaults& f) { return f.start; }, "The stream failed to start.");
    if (!error) {
        std::lock_guard g(_threadLock);
        {
            std::lock_guard core(_core->lock);
            if (_core->running || _core->stopping || _thread.joinable()) {
                error = std::make_exception_ptr(ScreenCaptureError("The stream is already running."));
            } else {
                _core->running = true;
                _thread = std::thread(run, _core, _desktop, _windowID);
            }
        }
        // Still under _threadLock, so that a concurrent stop takes it down after this.
        if (!error) {
            _indicatorShown = true;
            if (auto desktop = _desktop.lock()) desktop->change([&](World& w) { w.captureBegan(_windowID); });
        }
    }
    if (!error) count(_desktop, [](CaptureCounts& c) { ++c.starts; });
    completion(error);
}

void SimCaptureStream::updateConfiguration(const CaptureConfiguration& configuration, Completion completion) {
    std::exception_ptr error =
        fault(_desktop, [](const CaptureFaults& f) { return f.update; }, "The stream configuration could not be updated.");
    if (!error) {
        std::lock_guard g(_core->lock);
        _core->configuration = configuration;
    }
    if (!error) count(_desktop, [](CaptureCounts& c) { ++c.updates; });
    completion(error);
}

void SimCaptureStream::stopCapture(Completion completion) {
    bool wasRunning;
    {
        std::lock_guard g(_core->lock);
        wasRunning = _core->running;
    }
    halt();
    count(_desktop, [](CaptureCounts& c) { ++c.stops; });
    completion(wasRunning ? nullptr
                          : std::make_exception_ptr(ScreenCaptureError("The stream is not running.")));
}

void SimCaptureStream::wake() {
    {
        std::lock_guard g(_core->lock);
        _core->wakeUp = true;
    }
    _core->changed.notify_all();
}

std::optional<uint64_t> SimCaptureStream::requestFrame() {
    uint64_t target;
    {
        std::lock_guard g(_core->lock);
        if (!_core->running || _core->stopping) return std::nullopt;
        target = ++_core->requested;
    }
    _core->changed.notify_all();
    return target;
}

bool SimCaptureStream::waitForFrames(uint64_t count, Clock::time_point deadline) {
    std::unique_lock g(_core->lock);
    return _core->progressed.wait_until(g, deadline, [&] { return _core->handled >= count || !_core->running; }) &&
           _core->handled >= count;
}

}  // namespace tsl::Sim
