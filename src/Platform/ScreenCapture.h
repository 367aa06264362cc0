#pragma once
#include <cstdint>
#include <exception>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "Platform/Geometry.h"
#include "Platform/PixelBuffer.h"
#include "Platform/PlatformValue.h"
#include "TslCore/Support/Error.h"

namespace tsl {

// A capture call the platform refused; the text is the platform's own.
struct ScreenCaptureError : Error {
    using Error::Error;
};

// A window that may be captured.
struct ShareableWindow {
    uint32_t windowID = 0;
    Rect frame;  // points
    std::string title;
    int32_t ownerPID = 0;
    bool isOnScreen = false;
    bool operator==(const ShareableWindow&) const = default;
};

struct ShareableContent {
    std::vector<ShareableWindow> windows;
};

// What one stream captures: a single window, whatever covers it.
struct ContentFilter {
    uint32_t windowID = 0;
    double pointPixelScale = 1.0;  // pixels per point of the window's display
};

struct CaptureConfiguration {
    int64_t width = 0;  // pixels
    int64_t height = 0;
    int64_t minimumFrameIntervalValue = 0;      // the interval is value / timescale seconds;
    int32_t minimumFrameIntervalTimescale = 0;  // 0 means as fast as content changes
    uint32_t pixelFormat = PixelBuffer::bgra;
    int64_t queueDepth = 3;  // buffers the client may hold at once; frames wait for a free one
    bool showsCursor = true;
    bool capturesAudio = false;
    bool ignoreShadowsSingleWindow = false;
    bool operator==(const CaptureConfiguration&) const = default;
};

enum class CaptureOutputType : uint8_t { screen, audio };

// Per-frame information, in the first dictionary of a sample's attachments.
struct CaptureFrameInfo {
    static constexpr const char* keyStatus = "SCStreamFrameInfoStatus";            // integer, see Status
    static constexpr const char* keyScaleFactor = "SCStreamFrameInfoScaleFactor";  // display pixels per point
    static constexpr const char* keyContentScale = "SCStreamFrameInfoContentScale";  // how far the content was scaled to fit
    enum class Status : int64_t { complete = 0, idle = 1, blank = 2, suspended = 3, started = 4, stopped = 5 };
};

// One delivered frame. A sample may be invalid or carry no picture; the
// attachments array is absent when the platform made none.
struct CaptureSample {
    bool isValid = true;
    std::shared_ptr<PixelBuffer> imageBuffer;
    std::optional<ValueList> attachments;
};

// One running capture. Frames reach the output handler on the stream's own
// serial thread, one at a time. Completions may run before the call returns,
// and on any thread; a null exception means success.
class CaptureStream {
public:
    using Completion = std::function<void(std::exception_ptr)>;
    using OutputHandler = std::function<void(const CaptureSample&, CaptureOutputType)>;

    virtual ~CaptureStream() = default;

    // Throws ScreenCaptureError when the output can't be added.
    virtual void addStreamOutput(CaptureOutputType type, OutputHandler handler) = 0;
    virtual void startCapture(Completion completion) = 0;
    // The same stream goes on at the new size; frames of that size follow.
    virtual void updateConfiguration(const CaptureConfiguration& configuration, Completion completion) = 0;
    virtual void stopCapture(Completion completion) = 0;
};

class ScreenCapture {
public:
    using ContentCompletion = std::function<void(std::optional<ShareableContent>, std::exception_ptr)>;
    // Called once when the platform ends a stream on its own (the window
    // went away, say), on any thread.
    using StopHandler = std::function<void(std::exception_ptr)>;

    virtual ~ScreenCapture() = default;

    // Whether screen recording is allowed, without asking the user.
    virtual bool preflightAccess() = 0;
    // The same, bringing up the system's request to the user if not.
    virtual bool requestAccess() = 0;

    virtual void shareableContent(bool excludingDesktopWindows, bool onScreenWindowsOnly,
                                  ContentCompletion completion) = 0;
    virtual ContentFilter filter(const ShareableWindow& desktopIndependentWindow) = 0;
    virtual std::shared_ptr<CaptureStream> makeStream(const ContentFilter& filter,
                                                      const CaptureConfiguration& configuration,
                                                      StopHandler didStopWithError) = 0;
};

}  // namespace tsl
