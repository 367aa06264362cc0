#pragma once
#include <xcb/damage.h>
#include <xcb/xcb.h>

#include <chrono>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "Platform/X11/X11ClientWindow.h"
#include "Platform/X11/X11Connection.h"
#include "Support/ChildProcess.h"
#include "Support/TestPaths.h"

namespace tsl::test {

// An X server of the test's own: Xvfb on a display number it picks itself
// (-displayfd), and openbox when asked for. DISPLAY names it for the rest of
// the test program and its children. Clients, the window manager and the
// server end with the fixture, each by its pid.
class XDisplay {
public:
    static constexpr auto limit = std::chrono::seconds(20);

    explicit XDisplay(bool windowManager) {
        server = startServer("/usr/bin/Xvfb", {"-displayfd", "1", "-screen", "0", "1280x1024x24", "-nolisten", "tcp",
                                               "-nolisten", "unix"});
        if (!server->waitForOutput("\n", limit)) return;
        _name = ":" + server->standardOutput().substr(0, server->standardOutput().find('\n'));
        ::setenv("DISPLAY", _name.c_str(), 1);
        x = X11::Connection::open(_name);
        // Every change on screen wakes waits, so a test can wait for a picture.
        xcb_connection_t* c = x->raw();
        std::free(xcb_damage_query_version_reply(c, xcb_damage_query_version(c, 1, 1), nullptr));
        xcb_damage_create(c, xcb_generate_id(c), x->root(), XCB_DAMAGE_REPORT_LEVEL_RAW_RECTANGLES);
        if (windowManager) {
            wm = std::make_unique<ChildProcess>("/usr/bin/openbox", std::vector<std::string>{"--sm-disable"});
            if (!waitUntil([&] { return x->hasWindowManager(); }) || !managesWindows()) x.reset();
        }
    }
    ~XDisplay() {
        clients.clear();
        x.reset();
        wm.reset();
        server.reset();
    }

    bool ready() const { return x != nullptr; }
    const std::string& name() const { return _name; }
    X11::Connection& connection() { return *x; }
    const std::shared_ptr<X11::Connection>& shared() { return x; }

    // Waits, woken by the server's events, until `done` holds.
    bool waitUntil(const std::function<bool()>& done) {
        return x->waitUntil(done, std::chrono::steady_clock::now() + limit);
    }

    // Starts a client on this display, whichever DISPLAY names; it ends with the fixture.
    ChildProcess& launch(const std::string& program, const std::vector<std::string>& arguments) {
        clients.push_back(
            std::make_unique<ChildProcess>(program, arguments, std::vector<std::string>{"DISPLAY=" + _name}));
        return *clients.back();
    }
    ChildProcess& launchPattern(int x, int y, double fps = 30) {
        return launch(testPatternExecutable(),
                      {"--fps", std::to_string(fps), "--position", std::to_string(x) + "," + std::to_string(y)});
    }

    // The client window with this title once it is on screen.
    std::optional<X11::ClientWindow> waitForWindow(const std::string& title) {
        std::optional<X11::ClientWindow> found;
        waitUntil([&] {
            for (const X11::ClientWindow& w : X11::ClientWindow::list(*x))
                if (w.title == title && w.onScreen()) found = w;
            return found.has_value();
        });
        return found;
    }

    // The server's own answers about one window, read without the code under test.
    struct Answer {
        Rect bounds;
        std::optional<uint32_t> netWmPid;
        std::string name;
    };
    std::optional<Answer> ask(xcb_window_t w) {
        xcb_connection_t* c = x->raw();
        auto g = xcb_get_geometry_reply(c, xcb_get_geometry(c, w), nullptr);
        auto t = xcb_translate_coordinates_reply(c, xcb_translate_coordinates(c, w, x->root(), 0, 0), nullptr);
        auto p = xcb_get_property_reply(c, xcb_get_property(c, 0, w, x->atom("_NET_WM_PID"), XCB_ATOM_CARDINAL, 0, 1),
                                        nullptr);
        auto n = xcb_get_property_reply(c, xcb_get_property(c, 0, w, XCB_ATOM_WM_NAME, XCB_ATOM_ANY, 0, 256), nullptr);
        std::optional<Answer> out;
        if (g && t) {
            out = Answer{{double(t->dst_x), double(t->dst_y), double(g->width), double(g->height)}, {}, {}};
            if (p && xcb_get_property_value_length(p) == 4) {
                uint32_t pid;
                std::memcpy(&pid, xcb_get_property_value(p), 4);
                out->netWmPid = pid;
            }
            if (n)
                out->name.assign(static_cast<const char*>(xcb_get_property_value(n)),
                                 size_t(xcb_get_property_value_length(n)));
        }
        std::free(g), std::free(t), std::free(p), std::free(n);
        return out;
    }

    // The mean luma of a rectangle of the screen, read back from the server.
    std::optional<double> meanLuma(int px, int py, int width, int height) {
        xcb_connection_t* c = x->raw();
        auto image = xcb_get_image_reply(c,
                                         xcb_get_image(c, XCB_IMAGE_FORMAT_Z_PIXMAP, x->root(), int16_t(px),
                                                       int16_t(py), uint16_t(width), uint16_t(height), ~0u),
                                         nullptr);
        if (!image) return std::nullopt;
        const uint8_t* data = xcb_get_image_data(image);
        const int length = xcb_get_image_data_length(image);
        double sum = 0;
        for (int i = 0; i + 3 < length; i += 4) sum += 0.114 * data[i] + 0.587 * data[i + 1] + 0.299 * data[i + 2];
        std::free(image);
        return length >= 4 ? std::optional(sum / (length / 4)) : std::nullopt;
    }

private:
    // Openbox names itself before its main loop runs, and a window mapped in
    // between stays unmapped for good. Ready once a probe window gets its
    // WM_STATE; a probe that doesn't within a second is replaced.
    bool managesWindows() {
        xcb_connection_t* c = x->raw();
        const auto deadline = std::chrono::steady_clock::now() + limit;
        while (std::chrono::steady_clock::now() < deadline) {
            xcb_window_t probe = xcb_generate_id(c);
            xcb_create_window(c, XCB_COPY_FROM_PARENT, probe, x->root(), 0, 0, 10, 10, 0, XCB_WINDOW_CLASS_INPUT_OUTPUT,
                              XCB_COPY_FROM_PARENT, 0, nullptr);
            x->watch(probe);
            xcb_map_window(c, probe);
            const bool managed = x->waitUntil(
                [&] {
                    auto r = xcb_get_property_reply(
                        c, xcb_get_property(c, 0, probe, x->atom("WM_STATE"), XCB_ATOM_ANY, 0, 2), nullptr);
                    const bool has = r && r->type != XCB_NONE;
                    std::free(r);
                    return has;
                },
                std::chrono::steady_clock::now() + std::chrono::seconds(1));
            xcb_destroy_window(c, probe);
            x->roundTrip();
            if (managed) return true;
        }
        return false;
    }

    std::string _name;
    std::unique_ptr<ChildProcess> server;
    std::unique_ptr<ChildProcess> wm;
    std::shared_ptr<X11::Connection> x;
    std::vector<std::unique_ptr<ChildProcess>> clients;
};

}  // namespace tsl::test
