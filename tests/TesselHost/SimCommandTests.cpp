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
#include "TslStream/Codec/PixelBuffers.h"
#include "TslStream/Measure/TestPatternProbe.h"

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

// The results stay; the simulated guest's folders don't.
bool noSimulationLeft(const fs::path& home) {
    std::error_code ec;
    for (const auto& entry : fs::directory_iterator(home / ".cache" / "tessel", ec))
        if (entry.path().filename() != "sim-results") return false;
    return true;
}

TEST(SimCommand, HeadlessRunMeasuresIntoTheUsersCacheAndLeavesNothingElse) {
    TempDir home(TempDir::simulationBase());
    auto out = home / ".cache" / "tessel" / "sim-results";
    ChildProcess sim("/usr/bin/env",
                     {"HOME=" + home.path().string(), tesselExecutable(), "sim", "--headless", "--measure", "6",
                      "--duration", "1", "--fps", "30", "--json", "--agent", agentExecutable()});
    ASSERT_EQ(sim.wait(std::chrono::seconds(60)), 0) << sim.standardError();
    auto summary = nlohmann::json::parse(sim.standardOutput());
    EXPECT_EQ(summary["roundTrips"], 6);
    EXPECT_GT(summary["framesReceived"].get<int>(), 0);
    EXPECT_EQ(summary["decodeErrors"], 0);
    EXPECT_TRUE(summary["latencyMs"]["p50"].is_number());
    // The goal line's figures, for scripts: p50 over the floor of this run.
    const auto& goal = summary["goal"];
    EXPECT_EQ(goal["what"], "input-to-pixel p50 / floor");
    EXPECT_EQ(goal["target"], 1.2);
    ASSERT_TRUE(goal["ratio"].is_number()) << summary.dump();
    EXPECT_NEAR(goal["ratio"].get<double>(),
                summary["latencyMs"]["p50"].get<double>() / summary["floorMs"].get<double>(), 1e-9);
    EXPECT_EQ(goal["met"], goal["ratio"].get<double>() <= 1.2);
    EXPECT_GT(summary["floorMs"].get<double>(),
              summary["captureToArrivalMsP50"].get<double>() + summary["decodeMsP50"].get<double>());
    for (const char* name : {"sim-latency.csv", "sim-fps.csv", "sim-summary.txt", "sim-chart.svg"})
        EXPECT_TRUE(fs::exists(out / name)) << name;
    EXPECT_EQ(readFile(out / "sim-latency.csv").substr(0, 23), "round_trip,milliseconds");
    EXPECT_NE(readFile(out / "sim-summary.txt").find("input-to-pixel p50 / floor"), std::string::npos);
    const std::string chart = readFile(out / "sim-chart.svg");
    for (const char* unit : {">milliseconds<", ">round trips<", ">seconds<", ">frames<"})
        EXPECT_NE(chart.find(unit), std::string::npos) << unit;
    EXPECT_TRUE(noSimulationLeft(home.path()));

    auto usage = runTessel({"sim", "--fps", "500"});
    EXPECT_EQ(usage.status, 2);
}

TEST(SimCommand, ResultsInAFolderWhoseNameIsNotUtf8AreStillReportedAsJSON) {
    TempDir home(TempDir::simulationBase());
    const std::string out = (home / "results-\xff\xfe").string();
    ChildProcess sim("/usr/bin/env",
                     {"HOME=" + home.path().string(), tesselExecutable(), "sim", "--headless", "--measure", "1",
                      "--duration", "0.5", "--out", out, "--json", "--agent", agentExecutable()});
    ASSERT_EQ(sim.wait(std::chrono::seconds(60)), 0) << sim.standardError();
    const auto summary = nlohmann::json::parse(sim.standardOutput());
    EXPECT_EQ(summary["files"][0], (home / "results-\ufffd\ufffd" / "sim-latency.csv").string());
    EXPECT_TRUE(fs::exists(fs::path(out) / "sim-latency.csv"));
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
    // A screenshot of part of the screen as a BGRA picture, for the probe.
    std::shared_ptr<PixelBuffer> shot(int x, int y, int width, int height) {
        XImage* image = XGetImage(display, DefaultRootWindow(display), x, y, unsigned(width), unsigned(height),
                                  AllPlanes, ZPixmap);
        if (!image) return nullptr;
        auto picture = PixelBuffers::make(width, height);
        {
            PixelBufferLock locked(*picture, 0);
            for (int row = 0; row < height; ++row) {
                auto* out = reinterpret_cast<uint32_t*>(locked.base() + size_t(row) * picture->bytesPerRow());
                for (int col = 0; col < width; ++col)
                    out[col] = 0xFF000000u | (uint32_t(XGetPixel(image, col, row)) & 0xFFFFFF);
            }
        }
        XDestroyImage(image);
        return picture;
    }
    // Screenshots of the area until one satisfies `wanted` (the moving bar
    // may cover a point for a frame or two).
    std::shared_ptr<PixelBuffer> waitForShot(int x, int y, int width, int height,
                                             const std::function<bool(PixelBuffer&)>& wanted) {
        auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(20);
        for (;;) {
            auto picture = shot(x, y, width, height);
            if (picture && wanted(*picture)) return picture;
            if (std::chrono::steady_clock::now() > deadline) return nullptr;
            std::this_thread::sleep_for(std::chrono::milliseconds(20));
        }
    }
};

// The pattern's square and cells begin and end where the guest draws them,
// one screen pixel per point from the window's top-left corner: each edge
// inside, with the background just outside it.
bool patternInPlace(PixelBuffer& shot) {
    auto at = [&](int x, int y) {
        auto p = PixelBuffers::pixel(shot, x, y);
        return p ? uint32_t(p->r) << 16 | uint32_t(p->g) << 8 | uint32_t(p->b) : 0xDEADBEEFu;
    };
    auto background = [&](int x, int y) { return at(x, y) == 0x303030; };
    auto cell = [&](int x, int y) { return at(x, y) == 0 || at(x, y) == 0xFFFFFF; };
    return background(39, 72) && cell(40, 72) && cell(103, 72) && background(104, 72) &&  // square, across
           background(72, 39) && cell(72, 40) && cell(72, 103) && background(72, 104) &&  // and down
           background(39, 148) && cell(40, 148) && cell(295, 148) && background(296, 148) &&  // the cells
           background(48, 139) && cell(48, 140) && cell(48, 155) && background(48, 156) &&
           TestPatternProbe::counter(shot, 1.0, 0).has_value();
}

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
    const int width = int(TestPatternSpec::contentWidth), height = int(TestPatternSpec::contentHeight);
    auto first = screen.waitForShot(left, top, width, height, patternInPlace);
    ASSERT_TRUE(first) << "the pattern is not where the guest draws it";
    ASSERT_TRUE(locate());
    // The guest window's size in points, one screen pixel each here.
    EXPECT_EQ(attributes.width, width);
    EXPECT_EQ(attributes.height, height);
    EXPECT_EQ(TestPatternProbe::squareIsWhite(*first, 1.0, 0), false);

    // Frames go on arriving: the counter the probe reads moves forward.
    uint64_t counter = *TestPatternProbe::counter(*first, 1.0, 0);
    auto later = screen.waitForShot(left, top, width, height, [&](PixelBuffer& shot) {
        return patternInPlace(shot) && TestPatternProbe::counter(shot, 1.0, 0) != counter;
    });
    ASSERT_TRUE(later);
    uint64_t ahead = (*TestPatternProbe::counter(*later, 1.0, 0) - counter) & 0xFFFF;
    EXPECT_TRUE(ahead > 0 && ahead < 0x8000) << counter << " then " << *TestPatternProbe::counter(*later, 1.0, 0);

    // F1 in the view reaches the guest as key 122: the square turns white, then black again.
    XWarpPointer(screen.display, 0, DefaultRootWindow(screen.display), 0, 0, 0, 0, left + 300, top + 300);
    XSetInputFocus(screen.display, *view, RevertToParent, CurrentTime);
    KeyCode f1 = XKeysymToKeycode(screen.display, XK_F1);
    auto squareIs = [&](bool white) {
        return screen.waitForShot(left, top, width, height, [&](PixelBuffer& shot) {
            return TestPatternProbe::squareIsWhite(shot, 1.0, 0) == white;
        }) != nullptr;
    };
    XTestFakeKeyEvent(screen.display, f1, True, CurrentTime);
    XFlush(screen.display);
    EXPECT_TRUE(squareIs(true));
    XTestFakeKeyEvent(screen.display, f1, False, CurrentTime);
    XFlush(screen.display);
    EXPECT_TRUE(squareIs(false));

    sim.signal(SIGINT);
    EXPECT_EQ(sim.wait(std::chrono::seconds(30)), 0) << sim.standardError();
    EXPECT_NE(sim.standardOutput().find("frames"), std::string::npos);
    EXPECT_TRUE(noSimulationLeft(home.path()));
}

}  // namespace
}  // namespace tsl::test
