// Acting on real client windows through the Accessibility port, with and
// without a window manager; results read back from the server.
#include <gtest/gtest.h>

#include <vector>

#include "Platform/X11/X11Desktop.h"
#include "Platform/X11/X11DesktopTest.h"
#include "Support/XDisplay.h"
#include "TslAgent/AXSupport.h"
#include "TslAgent/WindowList.h"

namespace tsl::test {
namespace {

class X11WindowControlTest : public X11DesktopTest {
protected:
    bool act(WindowAction::Kind kind, uint32_t window, int32_t pid, std::optional<WireRect> frame = std::nullopt) {
        return AX::perform(platform, WindowAction{.windowID = window, .kind = kind, .frame = frame}, pid);
    }
    bool viewable(xcb_window_t w) {
        X11::Connection& x = display->connection();
        auto a = X11::wait(x.raw(), xcb_get_window_attributes_reply, xcb_get_window_attributes(x.raw(), w));
        return a && a->map_state == XCB_MAP_STATE_VIEWABLE;
    }
};

TEST_P(X11WindowControlTest, MovesAndResizesLandExactly) {
    ChildProcess& pattern = display->launchPattern(100, 100);
    ChildProcess& xterm = display->launch("/usr/bin/xterm", {"-T", "Tsl XTerm", "-geometry", "60x10+800+500"});
    auto p = display->waitForWindow("Tsl TestPattern");
    auto t = display->waitForWindow("Tsl XTerm");
    ASSERT_TRUE(p && t);

    ASSERT_TRUE(act(WindowAction::Kind::setFrame, p->id, pattern.pid(), WireRect{217, 143, 500, 300}));
    EXPECT_EQ(display->ask(p->id)->bounds, (Rect{217, 143, 500, 300}));
    ASSERT_TRUE(act(WindowAction::Kind::move, p->id, pattern.pid(), WireRect{31, 29, 0, 0}));
    EXPECT_EQ(display->ask(p->id)->bounds, (Rect{31, 29, 500, 300}));
    ASSERT_TRUE(act(WindowAction::Kind::resize, p->id, pattern.pid(), WireRect{0, 0, 640, 400}));
    EXPECT_EQ(display->ask(p->id)->bounds, (Rect{31, 29, 640, 400}));

    // xterm sizes itself in whole characters, but goes exactly where it is put.
    ASSERT_TRUE(act(WindowAction::Kind::move, t->id, xterm.pid(), WireRect{701, 555, 0, 0}));
    EXPECT_EQ(display->ask(t->id)->bounds.origin(), (Point{701, 555}));
    // The list agrees with the server.
    EXPECT_EQ(WindowList::frame(platform, t->id)->origin(), (Point{701, 555}));
}

TEST_P(X11WindowControlTest, MinimisesAndRestores) {
    ChildProcess& pattern = display->launchPattern(100, 100);
    auto p = display->waitForWindow("Tsl TestPattern");
    ASSERT_TRUE(p);
    const Rect before = display->ask(p->id)->bounds;
    ASSERT_TRUE(act(WindowAction::Kind::minimize, p->id, pattern.pid()));
    EXPECT_FALSE(viewable(p->id));
    auto listed = WindowList::current(platform, {}, true);
    ASSERT_EQ(listed.size(), 1u);
    EXPECT_TRUE(listed[0].isMinimized);
    EXPECT_TRUE(WindowList::current(platform, {}, false).empty());

    ASSERT_TRUE(act(WindowAction::Kind::restore, p->id, pattern.pid()));
    EXPECT_TRUE(viewable(p->id));
    // A window manager may map the window first and put it back in place after.
    display->connection().watch(p->id);
    EXPECT_TRUE(display->waitUntil([&] {
        listed = WindowList::current(platform, {}, false);
        return listed.size() == 1 && listed[0].frame == wireRectOf(before);
    })) << "restored elsewhere: x "
        << (listed.empty() ? -1 : listed[0].frame.x) << ", y " << (listed.empty() ? -1 : listed[0].frame.y);
    ASSERT_EQ(listed.size(), 1u);
    EXPECT_FALSE(listed[0].isMinimized);
}

TEST_P(X11WindowControlTest, CloseAsksTheApplicationToDeleteItsWindow) {
    ChildProcess& pattern = display->launchPattern(100, 100);
    ChildProcess& xeyes = display->launch("/usr/bin/xeyes", {"-geometry", "200x150+800+100"});
    auto p = display->waitForWindow("Tsl TestPattern");
    auto e = display->waitForWindow("xeyes");
    ASSERT_TRUE(p && e);
    // A client may show its window a moment before it says it takes
    // WM_DELETE_WINDOW; until then there is nothing to press.
    ASSERT_TRUE(display->waitUntil([&] { return act(WindowAction::Kind::close, p->id, pattern.pid()); }));
    EXPECT_EQ(pattern.wait(), 0);  // it exits on WM_DELETE_WINDOW only
    ASSERT_TRUE(display->waitUntil([&] { return act(WindowAction::Kind::close, e->id, xeyes.pid()); }));
    EXPECT_TRUE(xeyes.wait().has_value());
    EXPECT_TRUE(display->waitUntil([&] { return WindowList::current(platform, {}, true).empty(); }));
}

TEST_P(X11WindowControlTest, TransientDialogsAreSheetsOfTheirParentAndModalOnesStandAbove) {
    X11::Connection& x = display->connection();
    auto make = [&](int16_t px, int16_t py, uint16_t w, uint16_t h, xcb_window_t transientFor, const char* title,
                    std::vector<const char*> states = {}) {
        xcb_window_t id = xcb_generate_id(x.raw());
        xcb_create_window(x.raw(), XCB_COPY_FROM_PARENT, id, x.root(), px, py, w, h, 0, XCB_WINDOW_CLASS_INPUT_OUTPUT,
                          XCB_COPY_FROM_PARENT, 0, nullptr);
        xcb_change_property(x.raw(), XCB_PROP_MODE_REPLACE, id, XCB_ATOM_WM_NAME, XCB_ATOM_STRING, 8,
                            uint32_t(std::strlen(title)), title);
        if (transientFor)
            xcb_change_property(x.raw(), XCB_PROP_MODE_REPLACE, id, XCB_ATOM_WM_TRANSIENT_FOR, XCB_ATOM_WINDOW, 32, 1,
                                &transientFor);
        std::vector<xcb_atom_t> atoms;
        for (const char* state : states) atoms.push_back(x.atom(state));
        if (!atoms.empty())
            xcb_change_property(x.raw(), XCB_PROP_MODE_REPLACE, id, x.atom("_NET_WM_STATE"), XCB_ATOM_ATOM, 32,
                                uint32_t(atoms.size()), atoms.data());
        uint32_t hints[18] = {1 | 2, uint32_t(px), uint32_t(py), w, h};
        xcb_change_property(x.raw(), XCB_PROP_MODE_REPLACE, id, XCB_ATOM_WM_NORMAL_HINTS, XCB_ATOM_WM_SIZE_HINTS, 32,
                            18, hints);
        xcb_map_window(x.raw(), id);
        x.flush();
        return id;
    };
    const xcb_window_t parent = make(100, 100, 600, 400, 0, "Parent");
    ASSERT_TRUE(display->waitForWindow("Parent"));
    const xcb_window_t sheet = make(200, 150, 300, 200, parent, "Sheet");
    ASSERT_TRUE(display->waitForWindow("Sheet"));

    auto windows = WindowList::current(platform, {}, false);
    auto find = [&](xcb_window_t id) {
        return std::find_if(windows.begin(), windows.end(), [&](const GuestWindow& w) { return w.windowID == id; });
    };
    ASSERT_NE(find(sheet), windows.end());
    ASSERT_NE(find(parent), windows.end());
    EXPECT_EQ(find(sheet)->attachedTo, parent);
    EXPECT_FALSE(find(parent)->attachedTo);
    EXPECT_EQ(find(sheet)->layer, 0);

    // A modal dialog must be answered first: it stands above the documents, attached to none.
    const xcb_window_t modal = make(220, 170, 260, 160, parent, "Modal", {"_NET_WM_STATE_MODAL"});
    ASSERT_TRUE(display->waitForWindow("Modal"));
    windows = WindowList::current(platform, {}, false);
    ASSERT_NE(find(modal), windows.end());
    EXPECT_EQ(find(modal)->layer, 8);
    EXPECT_FALSE(find(modal)->attachedTo);
    EXPECT_EQ(find(parent)->layer, 0);
}

INSTANTIATE_TEST_SUITE_P(X11, X11WindowControlTest, ::testing::Bool(),
                         [](const auto& info) { return info.param ? "WithWindowManager" : "WithoutWindowManager"; });

}  // namespace
}  // namespace tsl::test
