#pragma once
#include <asio/awaitable.hpp>

#include <cstdint>
#include <exception>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>

#include "Platform/ScreenCapture.h"
#include "TslStream/Capture/CaptureError.h"
#include "TslStream/Capture/CaptureSize.h"
#include "TslStream/Support/Logger.h"

namespace tsl {

// The capture of one guest window for one stream: owns the platform's
// capture stream, decides the pixel size, and hands each good frame with its
// geometry to onFrame. Idle, blank and other incomplete frames never reach it.
//
// Threading: start, resize, setScale and stop from the main actor (one caller
// at a time); onFrame runs on the platform's capture thread ("tsl.capture")
// without any lock held; onStop on any thread. The lock guards the fields
// below it and is never held across a platform call that completes later.
// Held by shared_ptr; the platform's callbacks hold it weakly.
class WindowCapture : public std::enable_shared_from_this<WindowCapture> {
public:
    using FrameHandler = std::function<void(const std::shared_ptr<PixelBuffer>&, FrameGeometry)>;
    using StopHandler = std::function<void(std::exception_ptr)>;

    WindowCapture(std::shared_ptr<ScreenCapture> platform, uint32_t windowID, int64_t fps, double scale,
                  FrameHandler onFrame, StopHandler onStop);

    static bool hasPermission(ScreenCapture& platform) { return platform.preflightAccess(); }

    // Throws CaptureError, or the platform's own error unchanged when the
    // content query fails or the output can't be added. Called once.
    asio::awaitable<void> start();
    // New window size in points; the running stream changes size, no restart.
    asio::awaitable<void> resize(Size pointSize);
    asio::awaitable<void> setScale(double scale);
    // Never throws; a second call does nothing.
    asio::awaitable<void> stop();

    // Pixels per point from the frame's own attachments when both scale keys
    // are good, otherwise `fallback` with the backing scale.
    static FrameGeometry geometry(const ValueDict* info, double backingScale, double fallback);
    static CaptureConfiguration configuration(const CaptureSize& size, int64_t fps);

    double scale() const;
    Size pointSize() const;
    CaptureSize configured() const;

    const uint32_t windowID;
    const int64_t fps;

private:
    asio::awaitable<void> reconfigure(std::optional<Size> size, std::optional<double> scale);
    void handle(const CaptureSample& sample, CaptureOutputType type) const;
    void platformStopped(std::exception_ptr error) const;

    const std::shared_ptr<ScreenCapture> platform;
    const FrameHandler onFrame;
    const StopHandler onStop;
    Logger log{"com.tessel.stream", "capture"};
    mutable std::mutex lock;
    std::shared_ptr<CaptureStream> stream;
    double backingScale = 1.0;
    double _scale;
    CaptureSize configuredSize;
    Size _pointSize;
};

}  // namespace tsl
