// tessel view, apps and launch against the agent on a real display, both
// ways round: the host dialling a listening agent, and an agent dialling a
// listening host. Headless, as on a machine without a display.
#include <gtest/gtest.h>
#include <xcb/xfixes.h>
#include <xcb/xtest.h>

#include <fstream>
#include <nlohmann/json.hpp>

#include "Support/ChildProcess.h"
#include "Support/TempDir.h"
#include "Support/TestPaths.h"
#include "Support/XDisplay.h"
#include "TslCore/Measure/TestPattern.h"

namespace tsl::test {
namespace {

// The host tool without a display of its own.
std::unique_ptr<ChildProcess> tessel(std::vector<std::string> arguments) {
    arguments.insert(arguments.begin(), {"-u", "DISPLAY", tesselExecutable()});
    return std::make_unique<ChildProcess>("/usr/bin/env", arguments);
}

struct Guest {
    XDisplay display{true};
    TempDir dir;
    std::string socket = "unix:" + (dir / "agent.sock").string();
    std::unique_ptr<ChildProcess> agent;

    bool patternShown() {
        if (!display.ready()) return false;
        display.launchPattern(40, 40, 60);
        return display.waitForWindow("Tsl TestPattern").has_value();
    }
    bool agentListens() {
        agent = std::make_unique<ChildProcess>(agentExecutable(),
                                               std::vector<std::string>{"--desktop", "x11", "--listen", socket});
        return agent->waitForOutput("\n");
    }
};

TEST(X11View, MeasuresThePatternThroughAListeningAgent) {
    Guest g;
    ASSERT_TRUE(g.patternShown());
    ASSERT_TRUE(g.agentListens());
    auto view = tessel({"view", "--connect", g.socket, "--measure", "6", "--json", "--out", (g.dir / "out").string()});
    ASSERT_EQ(view->wait(std::chrono::seconds(60)), 0) << view->standardError();
    auto summary = nlohmann::json::parse(view->standardOutput());
    EXPECT_EQ(summary["roundTrips"], 6);
    EXPECT_EQ(summary["decodeErrors"], 0);
    EXPECT_GT(summary["framesReceived"].get<int>(), 6);
    for (const auto& file : summary["files"]) EXPECT_TRUE(std::filesystem::exists(file.get<std::string>())) << file;

    // The same agent answers the application commands.
    auto apps = tessel({"apps", "--connect", g.socket, "--json"});
    ASSERT_EQ(apps->wait(), 0) << apps->standardError();
    EXPECT_TRUE(nlohmann::json::parse(apps->standardOutput()).is_array());
    auto launch = tessel({"launch", "--connect", g.socket, "no.such.application"});
    EXPECT_EQ(launch->wait(), 1);
    EXPECT_NE(launch->standardError().find("tessel launch: "), std::string::npos);
}

TEST(X11View, WaitsForAnAgentThatDialsIn) {
    Guest g;
    ASSERT_TRUE(g.patternShown());
    auto view = tessel({"view", "--listen", g.socket, "--window", "Tsl TestPattern", "--measure", "4", "--out",
                        (g.dir / "out").string()});
    ASSERT_TRUE(view->waitForError("Waiting for the agent on " + g.socket + "\n"));
    ChildProcess agent(agentExecutable(), {"--desktop", "x11", "--connect", g.socket});
    ASSERT_EQ(view->wait(std::chrono::seconds(60)), 0) << view->standardError();
    EXPECT_NE(view->standardOutput().find("input-to-pixel p50 / floor"), std::string::npos);
}

// Waits on `d` wake when its clipboard changes hands.
void watchClipboard(XDisplay& d) {
    xcb_connection_t* c = d.connection().raw();
    std::free(xcb_xfixes_query_version_reply(c, xcb_xfixes_query_version(c, 5, 0), nullptr));
    xcb_xfixes_select_selection_input(c, d.connection().root(), d.connection().atom("CLIPBOARD"),
                                      XCB_XFIXES_SELECTION_EVENT_MASK_SET_SELECTION_OWNER);
    d.connection().flush();
}

// The clipboard's text as xclip reads it on `d`.
std::string clipboardOf(XDisplay& d) {
    ChildProcess paste("/usr/bin/xclip", {"-selection", "clipboard", "-o"}, {"DISPLAY=" + d.name()});
    paste.wait();
    return paste.standardOutput();
}

// The agent on display A, tessel view on display B: the view shows the
// pattern at its size, F1 pressed on B turns the square white on both, host
// windows follow the guest's, a host window's new size goes to the guest,
// and the two clipboards keep in step.
TEST(X11View, ShowsTheGuestOnAnotherDisplayAndTakesItsKeys) {
    Guest g;  // display A; DISPLAY names it until B starts
    ASSERT_TRUE(g.patternShown());
    auto pattern = g.display.waitForWindow("Tsl TestPattern");
    ASSERT_TRUE(g.agentListens());
    XDisplay b(false);
    ASSERT_TRUE(b.ready());
    ChildProcess view("/usr/bin/env",
                      {"DISPLAY=" + b.name(), "SDL_RENDER_DRIVER=software", "SDL_FRAMEBUFFER_ACCELERATION=0",
                       tesselExecutable(), "view", "--connect", g.socket});
    auto shown = b.waitForWindow("Tsl TestPattern");
    ASSERT_TRUE(shown) << view.standardError();
    EXPECT_EQ(shown->bounds.size(), pattern->bounds.size());

    using namespace TestPatternSpec;
    auto square = [&](XDisplay& d, const Rect& at) {
        return d.meanLuma(int(at.x + squareX + 8), int(at.y + squareY + 8), int(squareSize - 16), int(squareSize - 16));
    };
    auto squareIs = [&](XDisplay& d, const Rect& at, bool white) {
        return d.waitUntil([&] {
            auto luma = square(d, at);
            return luma && (*luma > whiteThreshold) == white;
        });
    };
    ASSERT_TRUE(squareIs(b, shown->bounds, false));

    xcb_connection_t* c = b.connection().raw();
    xcb_warp_pointer(c, XCB_NONE, shown->id, 0, 0, 0, 0, 300, 300);
    xcb_set_input_focus(c, XCB_INPUT_FOCUS_PARENT, shown->id, XCB_CURRENT_TIME);
    constexpr uint8_t f1 = 67;  // evdev's F1
    xcb_test_fake_input(c, XCB_KEY_PRESS, f1, XCB_CURRENT_TIME, XCB_NONE, 0, 0, 0);
    b.connection().flush();
    EXPECT_TRUE(squareIs(g.display, pattern->bounds, true));
    EXPECT_TRUE(squareIs(b, shown->bounds, true));
    xcb_test_fake_input(c, XCB_KEY_RELEASE, f1, XCB_CURRENT_TIME, XCB_NONE, 0, 0, 0);
    b.connection().flush();
    EXPECT_TRUE(squareIs(g.display, pattern->bounds, false));

    // Host windows come and go with the guest's.
    ChildProcess& eyes = g.display.launch("/usr/bin/xeyes", {"-geometry", "150x100+600+100"});
    EXPECT_TRUE(b.waitForWindow("xeyes")) << view.standardError();
    eyes.signal(SIGTERM);
    EXPECT_TRUE(b.waitUntil([&] {
        for (const X11::ClientWindow& w : X11::ClientWindow::list(b.connection()))
            if (w.title == "xeyes") return false;
        return true;
    }));

    // Resizing the host's window resizes the guest's.
    g.display.connection().watch(pattern->id);
    const uint32_t size[] = {420, 300};
    xcb_configure_window(c, shown->id, XCB_CONFIG_WINDOW_WIDTH | XCB_CONFIG_WINDOW_HEIGHT, size);
    b.connection().flush();
    EXPECT_TRUE(g.display.waitUntil([&] {
        auto now = g.display.ask(pattern->id);
        return now && now->bounds.width == 420 && now->bounds.height == 300;
    }));

    // The clipboards keep in step, both ways.
    watchClipboard(g.display);
    watchClipboard(b);
    std::ofstream(g.dir / "guest.txt") << "copied on the guest";
    g.display.launch("/usr/bin/xclip", {"-quiet", "-selection", "clipboard", "-i", (g.dir / "guest.txt").string()});
    EXPECT_TRUE(b.waitUntil([&] { return clipboardOf(b) == "copied on the guest"; })) << view.standardError();
    std::ofstream(g.dir / "host.txt") << "copied on the host";
    b.launch("/usr/bin/xclip", {"-quiet", "-selection", "clipboard", "-i", (g.dir / "host.txt").string()});
    EXPECT_TRUE(g.display.waitUntil([&] { return clipboardOf(g.display) == "copied on the host"; }));

    // Ctrl-C closes everything and counts as a success.
    view.signal(SIGINT);
    EXPECT_EQ(view.wait(std::chrono::seconds(30)), 0) << view.standardError();
}

TEST(X11View, UsageErrorsAndAMissingWindow) {
    Guest g;
    ASSERT_TRUE(g.display.ready());
    ASSERT_TRUE(g.agentListens());
    auto neither = tessel({"view"});
    EXPECT_EQ(neither->wait(), 2);
    EXPECT_EQ(neither->standardError(), "tessel view: give either --connect or --listen\n");
    auto both = tessel({"apps", "--connect", g.socket, "--listen", g.socket});
    EXPECT_EQ(both->wait(), 2);
    auto unknown = tessel({"view", "--connect", g.socket, "--codec", "vp9"});
    EXPECT_EQ(unknown->wait(), 2);

    auto missing = tessel({"view", "--connect", g.socket, "--window", "Nothing Like It"});
    EXPECT_EQ(missing->wait(), 1);
    EXPECT_NE(missing->standardError().find("tessel view: no guest window is Nothing Like It\n"), std::string::npos);
}

}  // namespace
}  // namespace tsl::test
