#pragma once
#include <memory>

#include "Platform/ScreenCapture.h"
#include "Platform/X11/X11Connection.h"

namespace tsl::X11 {

struct CaptureOptions {
    // Off: every picture comes through a plain GetImage, as on a server
    // without MIT-SHM 1.2 (or one reached over TCP).
    bool sharedMemory = true;
    // Off: pictures are read with SHM GetImage and made opaque afterwards, as
    // for windows with alpha of their own.
    bool sharedPixmaps = true;
};

// What the server lets a capture use.
struct ServerWays {
    bool sharedMemory = false;   // MIT-SHM 1.2: segments passed as descriptors
    bool sharedPixmaps = false;  // pixmaps over those segments, for Render to draw into
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
    bool sharedMemory() const { return ways.sharedMemory; }
    // Whether Render may draw pictures into shared pixmaps.
    bool sharedPixmaps() const { return ways.sharedPixmaps; }

private:
    const std::shared_ptr<Connection> x;
    ServerWays ways;
};

}  // namespace tsl::X11
