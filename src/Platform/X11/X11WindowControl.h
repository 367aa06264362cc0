#pragma once
#include <memory>
#include <optional>
#include <vector>

#include "Platform/X11/X11ClientWindow.h"

namespace tsl::X11 {

// Acting on client windows. Under a window manager every change is a
// request to it (EWMH and ICCCM messages); without one the window is changed
// directly. Each change waits, up to `settle`, until the server shows it
// done, so a caller that reads the window next sees the result.
class WindowControl {
public:
    static constexpr double settle = 0.5;  // seconds

    explicit WindowControl(std::shared_ptr<Connection> x) : x(std::move(x)) {}

    // The client's own area on the root; nothing once it is gone.
    std::optional<Rect> frame(xcb_window_t client);
    // Lands exactly: under a window manager with static gravity.
    bool setFrame(xcb_window_t client, std::optional<Point> origin, std::optional<Size> size);
    bool minimise(xcb_window_t client);
    bool restore(xcb_window_t client);
    // Raises the window and gives it the input focus; true once the focus is
    // there, or, for a window that takes no focus, once nothing covers it.
    bool activate(const ClientWindow& client);
    // What the close button does: the window manager's close, or
    // WM_DELETE_WINDOW to a client that takes it.
    bool close(const ClientWindow& client);

    // The client holding the input focus, among `clients`.
    std::optional<ClientWindow> focused(const std::vector<ClientWindow>& clients);
    bool hasFocus(xcb_window_t client);

    Connection& connection() { return *x; }

private:
    bool sendToRoot(xcb_window_t window, xcb_atom_t type, std::initializer_list<uint32_t> data);
    bool nothingAbove(xcb_window_t topLevel);
    bool waitFor(xcb_window_t client, const std::function<bool()>& done);

    const std::shared_ptr<Connection> x;
};

}  // namespace tsl::X11
