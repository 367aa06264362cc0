// The window list of a real X server, with and without a window manager,
// checked against what the server itself says about each client window.
#include <gtest/gtest.h>

#include "Platform/X11/X11Desktop.h"
#include "Platform/X11/X11DesktopTest.h"
#include "Support/XDisplay.h"
#include "TslAgent/AXSupport.h"

namespace tsl::test {
namespace {

using X11::ClientWindow;

class X11WindowServerTest : public X11DesktopTest {
protected:
    std::vector<ValueDict> list(uint32_t options = WindowServer::optionOnScreenOnly |
                                                   WindowServer::optionExcludeDesktopElements) {
        std::vector<ValueDict> out;
        auto answer = platform.windowServer->copyWindowInfo(options, WindowServer::nullWindowID);
        if (answer && answer->asList())
            for (const PlatformValue& v : *answer->asList()) out.push_back(*v.asDict());
        return out;
    }
    static std::optional<ValueDict> entryOf(const std::vector<ValueDict>& entries, xcb_window_t id) {
        for (const ValueDict& e : entries)
            if (e.at(WindowServer::keyNumber).asInteger() == int64_t(id)) return e;
        return std::nullopt;
    }
};

TEST_P(X11WindowServerTest, ListsClientWindowsAsTheServerDescribesThem) {
    ChildProcess& pattern = display->launchPattern(120, 80);
    ChildProcess& xterm = display->launch("/usr/bin/xterm", {"-T", "Tsl XTerm", "-geometry", "60x10+700+120"});
    ChildProcess& xeyes = display->launch("/usr/bin/xeyes", {"-geometry", "200x150+300+600"});
    auto patternWindow = display->waitForWindow("Tsl TestPattern");
    auto xtermWindow = display->waitForWindow("Tsl XTerm");
    auto xeyesWindow = display->waitForWindow("xeyes");
    ASSERT_TRUE(patternWindow && xtermWindow && xeyesWindow);

    const std::vector<ValueDict> entries = list();
    struct Expected {
        xcb_window_t id;
        pid_t pid;
        std::string owner;
    };
    for (const Expected& e :
         {Expected{patternWindow->id, pattern.pid(), "x11-testpattern"},
          Expected{xtermWindow->id, xterm.pid(), "xterm"}, Expected{xeyesWindow->id, xeyes.pid(), "xeyes"}}) {
        SCOPED_TRACE(e.owner);
        auto entry = entryOf(entries, e.id);
        auto answer = display->ask(e.id);
        ASSERT_TRUE(entry && answer);
        EXPECT_EQ(entry->at(WindowServer::keyOwnerPID).asInteger(), e.pid);
        EXPECT_EQ(*entry->at(WindowServer::keyOwnerName).asString(), e.owner);
        EXPECT_EQ(*entry->at(WindowServer::keyName).asString(), answer->name);
        EXPECT_EQ(rectFromDictionary(entry->at(WindowServer::keyBounds)), answer->bounds);
        EXPECT_EQ(entry->at(WindowServer::keyLayer).asInteger(), 0);
        EXPECT_EQ(entry->count(WindowServer::keyIsOnscreen), 1u);
    }
    // The pid of a client that doesn't name it comes from the server.
    EXPECT_FALSE(display->ask(xeyesWindow->id)->netWmPid);
    // Under a window manager the client sits inside a frame, and the frame is not what is listed.
    if (GetParam()) {
        EXPECT_NE(patternWindow->topLevel, patternWindow->id);
        EXPECT_FALSE(entryOf(list(WindowServer::optionAll), patternWindow->topLevel));
    }
    // Without one it stands exactly where it asked to.
    else
        EXPECT_EQ(rectFromDictionary(entryOf(entries, patternWindow->id)->at(WindowServer::keyBounds)),
                  (Rect{120, 80, 640, 400}));
    // Asking for one window gives that window only.
    auto single = platform.windowServer->copyWindowInfo(WindowServer::optionIncludingWindow, xtermWindow->id);
    ASSERT_TRUE(single && single->asList());
    ASSERT_EQ(single->asList()->size(), 1u);
    EXPECT_EQ(*single->asList()->front().asDict(), *entryOf(entries, xtermWindow->id));
}

TEST_P(X11WindowServerTest, RaisingAWindowBringsItToTheFrontOfTheList) {
    ChildProcess& pattern = display->launchPattern(50, 50);
    auto first = display->waitForWindow("Tsl TestPattern");
    ChildProcess& xterm = display->launch("/usr/bin/xterm", {"-T", "Tsl XTerm", "-geometry", "60x10+100+100"});
    auto second = display->waitForWindow("Tsl XTerm");
    ASSERT_TRUE(first && second);
    ASSERT_TRUE(AX::perform(platform, {.windowID = second->id, .kind = WindowAction::Kind::focus}, xterm.pid()));
    // The two windows' order in the list, front first.
    auto order = [&] {
        std::vector<int64_t> ids;
        for (const ValueDict& e : list()) {
            const int64_t id = *e.at(WindowServer::keyNumber).asInteger();
            if (id == first->id || id == second->id) ids.push_back(id);
        }
        return ids;
    };
    ASSERT_TRUE(display->waitUntil([&] { return order() == std::vector<int64_t>{second->id, first->id}; }));

    ASSERT_TRUE(AX::perform(platform, {.windowID = first->id, .kind = WindowAction::Kind::focus}, pattern.pid()));
    EXPECT_TRUE(display->waitUntil([&] { return order() == std::vector<int64_t>{first->id, second->id}; }));
    EXPECT_EQ(platform.workspace->frontmostApplication()->processIdentifier, pattern.pid());
}

TEST_P(X11WindowServerTest, PopupsAreListedAsThemselvesAtTheirLayer) {
    X11::Connection& x = display->connection();
    auto popup = [&](int16_t px, std::string_view type) {
        xcb_window_t w = xcb_generate_id(x.raw());
        const uint32_t overrideRedirect = 1;
        xcb_create_window(x.raw(), XCB_COPY_FROM_PARENT, w, x.root(), px, 300, 120, 90, 0,
                          XCB_WINDOW_CLASS_INPUT_OUTPUT, XCB_COPY_FROM_PARENT, XCB_CW_OVERRIDE_REDIRECT,
                          &overrideRedirect);
        if (!type.empty()) {
            const xcb_atom_t t = x.atom(type);
            xcb_change_property(x.raw(), XCB_PROP_MODE_REPLACE, w, x.atom("_NET_WM_WINDOW_TYPE"), XCB_ATOM_ATOM, 32, 1,
                                &t);
        }
        xcb_map_window(x.raw(), w);
        x.roundTrip();
        return w;
    };
    const xcb_window_t menu = popup(100, "_NET_WM_WINDOW_TYPE_POPUP_MENU");
    const xcb_window_t tooltip = popup(300, "_NET_WM_WINDOW_TYPE_TOOLTIP");
    const xcb_window_t untyped = popup(500, "");
    const auto entries = list();
    auto layerOf = [&](xcb_window_t w) {
        auto e = entryOf(entries, w);
        return e ? e->at(WindowServer::keyLayer).asInteger() : std::nullopt;
    };
    EXPECT_EQ(layerOf(menu), 101);
    EXPECT_EQ(layerOf(tooltip), 1000);
    EXPECT_EQ(layerOf(untyped), 101);
    EXPECT_EQ(entryOf(entries, menu)->at(WindowServer::keyOwnerPID).asInteger(), ::getpid());
    // Front to back: the last one mapped is in front.
    EXPECT_EQ(entries.front().at(WindowServer::keyNumber).asInteger(), untyped);
}

TEST_P(X11WindowServerTest, ALostServerGivesNoListAndNoExit) {
    display.reset();
    EXPECT_FALSE(platform.windowServer->copyWindowInfo(WindowServer::optionAll, 0));
    EXPECT_FALSE(platform.workspace->frontmostApplication());
}

INSTANTIATE_TEST_SUITE_P(X11, X11WindowServerTest, ::testing::Bool(),
                         [](const auto& info) { return info.param ? "WithWindowManager" : "WithoutWindowManager"; });

}  // namespace
}  // namespace tsl::test
