#include "TslStream/Capture/WindowCapture.h"

#include <algorithm>
#include <cmath>

#include "TslStream/Runtime/Resumption.h"

namespace tsl {
namespace {

std::string describe(const std::exception_ptr& error) {
    try {
        std::rethrow_exception(error);
    } catch (const std::exception& e) {
        return e.what();
    } catch (...) {
        return "unknown error";
    }
}

// Waits for a platform call that reports through a completion. Lambdas in
// co_await expressions capture by reference only: GCC 12 may destroy such
// temporaries twice, which a by-value capture of a shared_ptr does not survive.
template <class Call>
asio::awaitable<void> completion(Call call) {
    co_await Resumption<void>::suspend([&](Resumption<void> done) {
        call([done](std::exception_ptr error) mutable {
            if (error) done.fail(error);
            else done.resume();
        });
    });
}

bool goodScale(const PlatformValue* v) {
    if (!v) return false;
    auto n = v->asNumber();
    return n && std::isfinite(*n) && *n > 0;
}

}  // namespace

WindowCapture::WindowCapture(std::shared_ptr<ScreenCapture> platform, uint32_t windowID, int64_t fps, double scale,
                             FrameHandler onFrame, StopHandler onStop)
    : windowID(windowID),
      fps(fps),
      platform(std::move(platform)),
      onFrame(std::move(onFrame)),
      onStop(std::move(onStop)),
      _scale(scale) {}

CaptureConfiguration WindowCapture::configuration(const CaptureSize& size, int64_t fps) {
    CaptureConfiguration c;
    c.width = size.width;
    c.height = size.height;
    c.minimumFrameIntervalValue = 1;
    c.minimumFrameIntervalTimescale = int32_t(std::clamp<int64_t>(fps, 1, 120));
    c.pixelFormat = PixelBuffer::bgra;
    c.queueDepth = 3;
    c.showsCursor = false;
    c.capturesAudio = false;
    c.ignoreShadowsSingleWindow = true;
    return c;
}

asio::awaitable<void> WindowCapture::start() {
    if (!platform->preflightAccess()) throw CaptureError::permissionDenied();
    auto content = co_await Resumption<ShareableContent>::suspend([&](Resumption<ShareableContent> done) {
        platform->shareableContent(false, false, [done](std::optional<ShareableContent> c, std::exception_ptr error) mutable {
            if (error) done.fail(error);
            else if (c) done.resume(std::move(*c));
            else done.fail(ScreenCaptureError("no shareable content"));
        });
    });
    auto window = std::find_if(content.windows.begin(), content.windows.end(),
                               [&](const ShareableWindow& w) { return w.windowID == windowID; });
    if (window == content.windows.end()) throw CaptureError::windowNotFound(windowID);

    const ContentFilter filter = platform->filter(*window);
    CaptureConfiguration config;
    {
        std::lock_guard g(lock);
        backingScale = filter.pointPixelScale;
        _pointSize = window->frame.size();
        configuredSize = CaptureSize::compute(_pointSize, backingScale, _scale);
        config = configuration(configuredSize, fps);
    }
    std::weak_ptr<const WindowCapture> weak = weak_from_this();
    auto made = platform->makeStream(filter, config, [weak](std::exception_ptr error) {
        if (auto self = weak.lock()) self->platformStopped(error);
    });
    made->addStreamOutput(CaptureOutputType::screen, [weak](const CaptureSample& sample, CaptureOutputType type) {
        if (auto self = weak.lock()) self->handle(sample, type);
    });
    {
        std::lock_guard g(lock);
        stream = made;
    }
    try {
        co_await completion([&](auto done) { made->startCapture(std::move(done)); });
    } catch (...) {
        auto error = std::current_exception();
        {
            std::lock_guard g(lock);
            stream.reset();
        }
        throw CaptureError::startFailed(describe(error));
    }
}

asio::awaitable<void> WindowCapture::resize(Size pointSize) { co_await reconfigure(pointSize, std::nullopt); }

asio::awaitable<void> WindowCapture::setScale(double scale) { co_await reconfigure(std::nullopt, scale); }

asio::awaitable<void> WindowCapture::reconfigure(std::optional<Size> size, std::optional<double> scale) {
    std::shared_ptr<CaptureStream> running;
    CaptureConfiguration config;
    {
        std::lock_guard g(lock);
        if (size) _pointSize = *size;
        if (scale && std::isfinite(*scale)) _scale = std::clamp(*scale, 0.1, 2.0);
        const CaptureSize next = CaptureSize::compute(_pointSize, backingScale, _scale);
        if (!stream || next == configuredSize) co_return;
        // Kept even if the update fails: the same request later changes nothing.
        configuredSize = next;
        config = configuration(next, fps);
        running = stream;
    }
    co_await completion([&](auto done) { running->updateConfiguration(config, std::move(done)); });
}

asio::awaitable<void> WindowCapture::stop() {
    std::shared_ptr<CaptureStream> running;
    {
        std::lock_guard g(lock);
        running = std::move(stream);
    }
    if (!running) co_return;
    try {
        co_await completion([&](auto done) { running->stopCapture(std::move(done)); });
    } catch (...) {
        // A stream that won't stop cleanly is over all the same.
    }
}

FrameGeometry WindowCapture::geometry(const ValueDict* info, double backingScale, double fallback) {
    if (info) {
        auto factor = info->find(CaptureFrameInfo::keyScaleFactor);
        auto content = info->find(CaptureFrameInfo::keyContentScale);
        if (factor != info->end() && content != info->end() && goodScale(&factor->second) &&
            goodScale(&content->second)) {
            const double f = *factor->second.asNumber();
            return {*content->second.asNumber() * f, f};
        }
    }
    return {fallback, backingScale};
}

void WindowCapture::handle(const CaptureSample& sample, CaptureOutputType type) const {
    if (type != CaptureOutputType::screen) return;
    if (!sample.isValid || !sample.imageBuffer) return;
    const ValueDict* info = nullptr;
    if (sample.attachments && !sample.attachments->empty()) info = sample.attachments->front().asDict();
    if (info) {
        if (auto status = info->find(CaptureFrameInfo::keyStatus); status != info->end()) {
            auto value = status->second.asInteger();
            if (value && *value != int64_t(CaptureFrameInfo::Status::complete)) return;
        }
    }
    double backing, fallback;
    {
        std::lock_guard g(lock);
        backing = backingScale;
        fallback = configuredSize.pixelsPerPoint;
    }
    if (onFrame) onFrame(sample.imageBuffer, geometry(info, backing, fallback));
}

void WindowCapture::platformStopped(std::exception_ptr error) const {
    log.error("capture of window %u stopped: %{public}s", windowID, error ? describe(error) : std::string("no error"));
    if (onStop) onStop(error);
}

double WindowCapture::scale() const {
    std::lock_guard g(lock);
    return _scale;
}

Size WindowCapture::pointSize() const {
    std::lock_guard g(lock);
    return _pointSize;
}

CaptureSize WindowCapture::configured() const {
    std::lock_guard g(lock);
    return configuredSize;
}

}  // namespace tsl
