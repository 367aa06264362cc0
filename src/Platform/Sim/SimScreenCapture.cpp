#include "Platform/Sim/SimCaptureStream.h"
#include "Platform/Sim/SimPorts.h"
#include "Platform/Sim/World.h"

namespace tsl::Sim {

bool SimScreenCapture::preflightAccess() {
    return _desktop->read([](World& w) { return w.screenRecordingGranted; });
}

bool SimScreenCapture::requestAccess() {
    return _desktop->change([](World& w) {
        if (!w.screenRecordingGranted) ++w.permissionPrompts;
        return w.screenRecordingGranted;
    });
}

void SimScreenCapture::shareableContent(bool excludingDesktopWindows, bool onScreenWindowsOnly,
                                        ContentCompletion completion) {
    std::exception_ptr error;
    ShareableContent content = _desktop->read([&](World& w) {
        ShareableContent c;
        if (w.captureFaults.content) {
            error = std::make_exception_ptr(ScreenCaptureError("The shareable content could not be read."));
        } else if (!w.screenRecordingGranted) {
            error = std::make_exception_ptr(ScreenCaptureError("The user declined screen recording."));
        } else {
            for (const SimWindow* win : w.stacked()) {
                const bool visible = w.isVisible(*win);
                if (excludingDesktopWindows && win->setup.desktopElement) continue;
                if (onScreenWindowsOnly && !visible) continue;
                c.windows.push_back({.windowID = win->id, .frame = win->setup.frame, .title = win->setup.title,
                                     .ownerPID = win->pid, .isOnScreen = visible});
            }
        }
        return c;
    });
    if (error) completion(std::nullopt, error);
    else completion(std::move(content), nullptr);
}

ContentFilter SimScreenCapture::filter(const ShareableWindow& window) {
    return {.windowID = window.windowID, .pointPixelScale = 1.0};
}

std::shared_ptr<CaptureStream> SimScreenCapture::makeStream(const ContentFilter& filter,
                                                            const CaptureConfiguration& configuration,
                                                            StopHandler didStopWithError) {
    auto stream = std::make_shared<SimCaptureStream>(_desktop, filter, configuration, std::move(didStopWithError));
    _desktop->registerStream(stream);
    _desktop->change([](World& w) { ++w.captureCounts.streamsMade; });
    return stream;
}

}  // namespace tsl::Sim
