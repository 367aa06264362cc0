// tessel sim end to end: the real host tool starting the real agent, headless
// and in a real window on an X server of its own, seen through a screenshot.
#include <gtest/gtest.h>

#include <filesystem>
#include <nlohmann/json.hpp>

#include "Support/Files.h"
#include "Support/TempDir.h"
#include "Support/TestPaths.h"
#include "TesselHost/TesselRun.h"
#include "TslCore/Measure/TestPattern.h"

// Xlib's macros (None, Bool, Status) clash with test names: included last.
#include <X11/Xlib.h>
#include <X11/Xutil.h>
#include <X11/extensions/XTest.h>
#include <X11/keysym.h>
#undef None
#undef Bool
#undef Status

namespace tsl::test {
namespace {

namespace fs = std::filesystem;

bool noSimulationLeft(const fs::path& home) {
    fs::path cache = home / ".cache" / "tessel";
    return !fs::exists(cache) || fs::is_empty(cache);
}

TEST(SimCommand, HeadlessRunMeasuresAndLeavesNothingBehind) {
    TempDir home(TempDir::simulationBase());
    auto out = home / "results";
    ChildProcess sim("/usr/bin/env", {"HOME=" + home.path().string(), tesselExecutable(), "sim", "--headless",
                                      "--measure", "6", "--duration", "1", "--fps", "30", "--out", out.string(),
                                      "--json", "--agent", agentExecutable()});
    ASSERT_EQ(sim.wait(std::chrono::seconds(60)), 0) << sim.standardError();
    auto summary = nlohmann::json::parse(sim.standardOutput());
    EXPECT_EQ(summary["roundTrips"], 6);
    EXPECT_GT(summary["framesReceived"].get<int>(), 0);
    EXPECT_EQ(summary["decodeErrors"], 0);
    EXPECT_TRUE(summary["latencyMs"]["p50"].is_number());
    for (const char* name : {"sim-latency.csv", "sim-fps.csv", "sim-summary.txt", "sim-chart.svg"})
        EXPECT_TRUE(fs::exists(out / name)) << name;
    EXPECT_EQ(readFile(out / "sim-latency.csv").substr(0, 23), "round_trip,milliseconds");
    EXPECT_NE(readFile(out / "sim-summary.txt").find("input-to-pixel p50 / floor"), std::string::npos);
    EXPECT_TRUE(noSimulationLeft(home.path()));

    auto usage = runTessel({"sim", "--fps", "500"});
    EXPECT_EQ(usage.status, 2);
}

// An X server of our own, for as long as the test runs.
class XServer {
public:
    XServer() : server("/usr/bin/Xvfb", {"-displayfd", "1", "-screen", "0", "1600x1000x24", "-nolisten", "tcp"}) {
        if (server.waitForOutput("\n", std::chrono::seconds(20))) name = ":" + server.standardOutput().substr(0, server.standardOutput().find('\n'));
    }
    ChildProcess server;
    std::string name;
};

struct Screen {
    Display* display = nullptr;
    explicit Screen(const std::string& name) : display(XOpenDisplay(name.c_str())) {
        // An X error (a window gone between two calls) fails a check, not the test program.
        XSetErrorHandler([](::Display*, XErrorEvent*) { return 0; });
    }
    ~Screen() {
        if (display) XCloseDisplay(display);
    }
    // The top-level window with this title, searched one level down as well
    // (no window manager here, but some toolkits add a frame).
    std::optional<Window> find(const std::string& title) {
        Window root = DefaultRootWindow(display), parent, *children = nullptr;
        unsigned count = 0;
        if (!XQueryTree(display, root, &root, &parent, &children, &count)) return std::nullopt;
        std::optional<Window> found;
        for (unsigned i = 0; i < count && !found; ++i) {
            char* name = nullptr;
            if (XFetchName(display, children[i], &name) && name) {
                if (title == name) found = children[i];
                XFree(name);
            }
        }
        if (children) XFree(children);
        return found;
    }
    // The pixel at x, y of the whole screen as 0xRRGGBB: a screenshot of one point.
    uint32_t pixel(int x, int y) {
        XImage* image = XGetImage(display, DefaultRootWindow(display), x, y, 1, 1, AllPlanes, ZPixmap);
        if (!image) return 0xDEADBEEF;
        uint32_t value = uint32_t(XGetPixel(image, 0, 0)) & 0xFFFFFF;
        XDestroyImage(image);
        return value;
    }
    bool waitForPixel(int x, int y, const std::function<bool(uint32_t)>& wanted) {
        auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(20);
        while (!wanted(pixel(x, y))) {
            if (std::chrono::steady_clock::now() > deadline) return false;
            std::this_thread::sleep_for(std::chrono::milliseconds(20));
        }
        return true;
    }
};

TEST(SimCommand, ShowsThePatternInARealWindowAndTakesKeys) {
    XServer x;
    ASSERT_FALSE(x.name.empty()) << "Xvfb did not start: " << x.server.standardError();
    TempDir home(TempDir::simulationBase());
    ChildProcess sim("/usr/bin/env", {"DISPLAY=" + x.name, "SDL_RENDER_DRIVER=software", "SDL_FRAMEBUFFER_ACCELERATION=0",
                                      "HOME=" + home.path().string(),
                                      tesselExecutable(), "sim",
                                      "--measure", "0", "--duration", "0", "--out", (home / "out").string(),
                                      "--agent", agentExecutable()});
    Screen screen(x.name);
    ASSERT_TRUE(screen.display);
    // The view's window and where it lies; asked again once it shows a frame.
    std::optional<Window> view;
    int left = 0, top = 0;
    XWindowAttributes attributes{};
    auto locate = [&] {
        auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(30);
        while (!(view = screen.find(std::string(TestPatternSpec::windowTitle))) &&
               std::chrono::steady_clock::now() < deadline)
            std::this_thread::sleep_for(std::chrono::milliseconds(20));
        if (!view) return false;
        Window child;
        return XGetWindowAttributes(screen.display, *view, &attributes) &&
               XTranslateCoordinates(screen.display, *view, DefaultRootWindow(screen.display), 0, 0, &left, &top, &child);
    };
    ASSERT_TRUE(locate()) << sim.standardError();
    screen.waitForPixel(left + 10, top + 10, [](uint32_t p) { return p == 0x303030; });
    ASSERT_TRUE(locate());
    // The guest window's size in points, one screen pixel each here.
    EXPECT_EQ(attributes.width, int(TestPatternSpec::contentWidth));
    EXPECT_EQ(attributes.height, int(TestPatternSpec::contentHeight));

    // The pattern from the window's top-left corner: background, then the black square.
    ASSERT_TRUE(screen.waitForPixel(left + 10, top + 10, [](uint32_t p) { return p == 0x303030; }))
        << std::hex << screen.pixel(left + 10, top + 10);
    EXPECT_EQ(screen.pixel(left + 72, top + 72), 0u);

    // F1 in the view reaches the guest as key 122: the square turns white, then black again.
    XWarpPointer(screen.display, 0, DefaultRootWindow(screen.display), 0, 0, 0, 0, left + 300, top + 300);
    XSetInputFocus(screen.display, *view, RevertToParent, CurrentTime);
    KeyCode f1 = XKeysymToKeycode(screen.display, XK_F1);
    XTestFakeKeyEvent(screen.display, f1, True, CurrentTime);
    XFlush(screen.display);
    EXPECT_TRUE(screen.waitForPixel(left + 72, top + 72, [](uint32_t p) { return p == 0xFFFFFF; }));
    XTestFakeKeyEvent(screen.display, f1, False, CurrentTime);
    XFlush(screen.display);
    EXPECT_TRUE(screen.waitForPixel(left + 72, top + 72, [](uint32_t p) { return p == 0; }));

    sim.signal(SIGINT);
    EXPECT_EQ(sim.wait(std::chrono::seconds(30)), 0) << sim.standardError();
    EXPECT_NE(sim.standardOutput().find("frames"), std::string::npos);
    EXPECT_TRUE(noSimulationLeft(home.path()));
}

}  // namespace
}  // namespace tsl::test
