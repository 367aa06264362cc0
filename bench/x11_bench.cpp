// The X11 desktop against bare XCB on an Xvfb of its own, with openbox:
// listing 20 real windows against the round trips the list needs at least
// (QueryTree and one batch of the same requests per window), and a key
// through the event poster (the HID route, the pattern holding the focus)
// until the pattern's square shows white, against
// the same key sent with XTEST directly.
#include <xcb/res.h>
#include <xcb/xtest.h>

#include <cstdio>

#include "BenchSupport.h"
#include "Platform/X11/X11Desktop.h"
#include "Platform/X11/X11OwnerPid.h"
#include "Support/XDisplay.h"
#include "TslCore/Measure/TestPattern.h"

using namespace tsl;

namespace {

constexpr int windowCount = 20;
constexpr uint8_t f1Keycode = 67;

// The requests a list can't do without: the stacking order, then everything
// about each window in one batch.
void bareList(X11::Connection& x, const std::vector<xcb_window_t>& clients) {
    xcb_connection_t* c = x.raw();
    std::free(xcb_query_tree_reply(c, xcb_query_tree(c, x.root()), nullptr));
    const xcb_atom_t properties[] = {x.atom("_NET_WM_PID"), x.atom("_NET_WM_NAME"),        XCB_ATOM_WM_NAME,
                                     XCB_ATOM_WM_CLASS,     x.atom("_NET_WM_WINDOW_TYPE"), x.atom("_NET_WM_STATE"),
                                     x.atom("WM_STATE"),    XCB_ATOM_WM_TRANSIENT_FOR,     x.atom("WM_PROTOCOLS")};
    std::vector<xcb_get_property_cookie_t> props;
    std::vector<xcb_get_window_attributes_cookie_t> attributes;
    std::vector<xcb_get_geometry_cookie_t> geometries;
    std::vector<xcb_translate_coordinates_cookie_t> positions;
    std::vector<xcb_res_query_client_ids_cookie_t> owners;
    for (xcb_window_t w : clients) {
        for (xcb_atom_t p : properties) props.push_back(xcb_get_property(c, 0, w, p, XCB_ATOM_ANY, 0, 256));
        attributes.push_back(xcb_get_window_attributes(c, w));
        geometries.push_back(xcb_get_geometry(c, w));
        positions.push_back(xcb_translate_coordinates(c, w, x.root(), 0, 0));
        owners.push_back(X11::askOwnerPid(c, w));
    }
    for (auto k : props) std::free(xcb_get_property_reply(c, k, nullptr));
    for (auto k : attributes) std::free(xcb_get_window_attributes_reply(c, k, nullptr));
    for (auto k : geometries) std::free(xcb_get_geometry_reply(c, k, nullptr));
    for (auto k : positions) std::free(xcb_translate_coordinates_reply(c, k, nullptr));
    for (auto k : owners) std::free(xcb_res_query_client_ids_reply(c, k, nullptr));
}

void listing(test::XDisplay& display, const PlatformServices& platform) {
    for (int i = 0; i < windowCount; ++i) display.launchPattern(20 * i, 15 * i, 1);
    std::vector<xcb_window_t> clients;
    display.waitUntil([&] {
        clients.clear();
        for (const auto& w : X11::ClientWindow::list(display.connection()))
            if (w.title == TestPatternSpec::windowTitle && w.onScreen()) clients.push_back(w.id);
        return clients.size() == windowCount;
    });
    const uint32_t options = WindowServer::optionOnScreenOnly | WindowServer::optionExcludeDesktopElements;
    size_t listed = 0;
    const auto [ours, bare] = bench::medianMicrosInTurns(
        500, [&] { listed = platform.windowServer->copyWindowInfo(options, 0)->asList()->size(); },
        [&] { bareList(display.connection(), clients); });
    std::printf("copyWindowInfo, %zu windows listed (%zu patterns): %.0f us; bare round trips %.0f us\n", listed,
                clients.size(), ours, bare);
    bench::ratioLine("copyWindowInfo with 20 real windows against its bare round trips", ours, bare, 1.5, false);
    std::fflush(stdout);
}

void keyToPixel(test::XDisplay& display, const std::shared_ptr<X11::X11Desktop>& desktop,
                const PlatformServices& platform) {
    test::ChildProcess& pattern = display.launchPattern(300, 200, 60);
    std::optional<X11::ClientWindow> window;
    display.waitUntil([&] {
        for (const X11::ClientWindow& w : X11::ClientWindow::list(display.connection()))
            if (w.pid == pattern.pid() && w.onScreen()) window = w;
        return window.has_value();
    });
    if (!window) {
        std::fprintf(stderr, "x11_bench: the pattern's window did not appear\n");
        std::exit(1);
    }
    platform.workspace->activate(pattern.pid(), 0);
    using namespace TestPatternSpec;
    auto white = [&] {
        auto luma = display.meanLuma(int(window->bounds.x + squareX), int(window->bounds.y + squareY), int(squareSize),
                                     int(squareSize));
        return luma && *luma > whiteThreshold;
    };
    auto untilWhite = [&](bool wanted) {
        const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(5);
        while (white() != wanted)
            if (std::chrono::steady_clock::now() > deadline) {
                std::fprintf(stderr, "x11_bench: the square never turned %s\n", wanted ? "white" : "back");
                std::exit(1);
            }
    };
    PlatformEvent down = *platform.eventPoster->createKeyboardEvent(std::nullopt, f1KeyCode, true);
    PlatformEvent up = *platform.eventPoster->createKeyboardEvent(std::nullopt, f1KeyCode, false);
    std::vector<double> oursList, bareList;
    xcb_connection_t* c = desktop->connection()->raw();
    const xcb_window_t root = desktop->connection()->root();
    for (int round = 0; round < 60; ++round) {
        auto t0 = std::chrono::steady_clock::now();
        platform.eventPoster->post(EventPoster::Tap::hid, down);
        untilWhite(true);
        oursList.push_back(std::chrono::duration<double, std::micro>(std::chrono::steady_clock::now() - t0).count());
        platform.eventPoster->post(EventPoster::Tap::hid, up);
        untilWhite(false);

        t0 = std::chrono::steady_clock::now();
        xcb_test_fake_input(c, XCB_KEY_PRESS, f1Keycode, XCB_CURRENT_TIME, root, 0, 0, 0);
        xcb_flush(c);
        untilWhite(true);
        bareList.push_back(std::chrono::duration<double, std::micro>(std::chrono::steady_clock::now() - t0).count());
        xcb_test_fake_input(c, XCB_KEY_RELEASE, f1Keycode, XCB_CURRENT_TIME, root, 0, 0, 0);
        xcb_flush(c);
        untilWhite(false);
    }
    const double ours = bench::percentile(oursList, 0.5), bare = bench::percentile(bareList, 0.5);
    std::printf("F1 to a white square on screen: through the port %.0f us, XTEST directly %.0f us (medians)\n", ours,
                bare);
    bench::ratioLine("XTEST key to white square, port against bare xcb", ours, bare, 1.2, false);
}

}  // namespace

int main() {
    test::XDisplay display(true);
    if (!display.ready()) {
        std::fprintf(stderr, "x11_bench: no Xvfb with openbox\n");
        return 1;
    }
    auto desktop = X11::X11Desktop::open(display.name());
    const PlatformServices platform = desktop->services({});
    listing(display, platform);
    keyToPixel(display, desktop, platform);
}
