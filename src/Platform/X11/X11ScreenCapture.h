#pragma once
#include <memory>

#include "Platform/ScreenCapture.h"
#include "Platform/X11/X11Connection.h"

namespace tsl::X11 {

struct CaptureOptions {
    // Off: every picture comes through a plain GetImage, as on a server
    // without MIT-SHM 1.2 (or one reached over TCP).
    bool sharedMemory = true;
};

// Window capture on a Composite server. Each stream redirects its window
// (automatic, so the screen still shows it), names the window's pixmap and
// reads it into shared memory that is itself the delivered picture: the
// whole client area, without the frame, covered or not. DAMAGE decides
// whether a tick carries a picture or is idle.
class X11ScreenCapture final : public ScreenCapture {
public:
    X11ScreenCapture(std::shared_ptr<Connection> x, CaptureOptions options = {});

    bool preflightAccess() override;
    bool requestAccess() override;
    void shareableContent(bool excludingDesktopWindows, bool onScreenWindowsOnly,
                          ContentCompletion completion) override;
    ContentFilter filter(const ShareableWindow& window) override;
    std::shared_ptr<CaptureStream> makeStream(const ContentFilter& filter, const CaptureConfiguration& configuration,
                                              StopHandler didStopWithError) override;

    // Whether pictures come through shared memory (the server offers fd passing).
    bool sharedMemory() const { return useShm; }

private:
    const std::shared_ptr<Connection> x;
    bool useShm = false;
};

}  // namespace tsl::X11
