#pragma once
#include <xcb/xcb.h>

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "Platform/Geometry.h"
#include "Platform/X11/X11Connection.h"

namespace tsl::X11 {

// One application window as the desktop shows it: the window carrying
// WM_STATE (under a window manager's frame, or at the top without one), or
// an override-redirect popup. Never the frame.
struct ClientWindow {
    xcb_window_t id = 0;
    xcb_window_t topLevel = 0;  // the child of the root that holds it: a frame, or the window itself
    std::optional<int32_t> pid;
    std::string ownerName;
    std::optional<std::string> title;
    Rect bounds;  // on the root, the client's own area
    int64_t layer = 0;
    bool viewable = false;
    bool hidden = false;  // iconic, or _NET_WM_STATE_HIDDEN
    bool overrideRedirect = false;
    bool desktopElement = false;
    bool takesDelete = false;  // WM_DELETE_WINDOW in its WM_PROTOCOLS
    xcb_window_t transientFor = 0;

    bool onScreen() const { return viewable && !hidden; }

    // Every client window, front to back. A few round trips whatever the
    // number of windows: each step's requests go out together.
    static std::vector<ClientWindow> list(Connection& connection);
    // The client holding `window` (itself, or an ancestor below the root).
    static std::optional<ClientWindow> containing(Connection& connection, xcb_window_t window,
                                                  const std::vector<ClientWindow>& clients);
};

}  // namespace tsl::X11
