// The tick-by-tick comparison of window lists, and the menu windows withheld
// from the host while a menu item is pressed.
#include <gtest/gtest.h>

#include <algorithm>

#include "TslAgent/WindowTracking.h"

using namespace tsl;
using Kind = WindowEvent::Kind;

namespace {

GuestWindow win(uint32_t id, WireRect frame = {0, 0, 100, 100}, bool onScreen = true) {
    GuestWindow w;
    w.windowID = id;
    w.pid = 1;
    w.frame = frame;
    w.isOnScreen = onScreen;
    w.isMinimized = !onScreen;
    return w;
}

std::vector<std::pair<Kind, uint32_t>> kinds(const std::vector<WindowEvent>& events) {
    std::vector<std::pair<Kind, uint32_t>> out;
    for (const WindowEvent& e : events) out.emplace_back(e.kind, e.window.windowID);
    return out;
}

using Events = std::vector<std::pair<Kind, uint32_t>>;

}  // namespace

TEST(WindowDiffer, AnnouncesWindowsOnceTheyAreOnScreen) {
    WindowDiffer d;
    EXPECT_EQ(kinds(d.update({win(1), win(2, {}, false)})), (Events{{Kind::created, 1}}));
    // Seen only off screen so far: no event of any kind, not even for a change.
    EXPECT_EQ(kinds(d.update({win(1), win(2, {5, 5, 50, 50}, false)})), Events{});
    // It appears: created, and no restored.
    EXPECT_EQ(kinds(d.update({win(1), win(2, {5, 5, 50, 50})})), (Events{{Kind::created, 2}}));
    // Unannounced and gone: nothing.
    d.update({win(1), win(2), win(3, {}, false)});
    EXPECT_EQ(kinds(d.update({win(1), win(2)})), Events{});
    EXPECT_EQ(d.announced.size(), 2u);
}

TEST(WindowDiffer, OffScreenAndBackAndWhatGoesWithIt) {
    WindowDiffer d;
    d.update({win(1)});
    // A new size at the tick it goes off screen is never told.
    auto gone = d.update({win(1, {0, 0, 300, 300}, false)});
    EXPECT_EQ(kinds(gone), (Events{{Kind::minimized, 1}}));
    EXPECT_EQ(gone[0].window.frame, (WireRect{0, 0, 300, 300}));
    EXPECT_EQ(kinds(d.update({win(1, {0, 0, 300, 300}, false)})), Events{});
    // Back with a new size: restored, then resized.
    auto back = d.update({win(1, {0, 0, 400, 300})});
    EXPECT_EQ(kinds(back), (Events{{Kind::restored, 1}, {Kind::resized, 1}}));
    EXPECT_TRUE(back[0].window.isOnScreen);
}

TEST(WindowDiffer, ChangesComeInListOrderWithClosesLast) {
    WindowDiffer d;
    GuestWindow a = win(1), b = win(2), c = win(3), e = win(4);
    b.isFocused = true;
    d.update({a, b, c, e});

    GuestWindow a2 = a, b2 = b, c2 = c;
    a2.frame = {10, 0, 100, 100};
    a2.title = "renamed";  // moved, then titleChanged
    a2.isFocused = true;   // focus moves from b to a: one event
    b2.isFocused = false;
    b2.frame = {5, 5, 120, 100};  // moved and resized: resized only
    c2.frame.height = 100.0000001;  // no tolerance
    auto events = d.update({b2, a2, c2});
    EXPECT_EQ(kinds(events), (Events{{Kind::resized, 2}, {Kind::moved, 1}, {Kind::titleChanged, 1}, {Kind::focused, 1},
                                     {Kind::resized, 3}, {Kind::closed, 4}}));
    EXPECT_EQ(events[1].window.title, "renamed");
    EXPECT_EQ(events.back().window, e);  // a close carries the old record

    // Two closes in one tick, in either order.
    auto closes = kinds(d.update({}));
    std::sort(closes.begin(), closes.end());
    EXPECT_EQ(closes, (Events{{Kind::closed, 1}, {Kind::closed, 2}, {Kind::closed, 3}}));
    EXPECT_TRUE(d.announced.empty());
    EXPECT_TRUE(d.last.empty());
}

TEST(WindowTracker, MenuWindowsOfAPressedApplicationAreWithheldForTheirLife) {
    using namespace std::chrono_literals;
    WindowTracker t;
    const auto now = WindowTracker::Clock::now();
    auto menu = [](uint32_t id, int32_t pid, WireRect frame = {10, 24, 200, 300}) {
        GuestWindow w = win(id, frame);
        w.pid = pid;
        w.layer = WindowTracker::menuLayer;
        return w;
    };
    GuestWindow doc = win(1);
    GuestWindow early = menu(2, 1);  // open before the press began
    EXPECT_EQ(kinds(t.update({early, doc}, now)), (Events{{Kind::created, 2}, {Kind::created, 1}}));

    t.hideMenusOf[1] = now + 1500ms;
    GuestWindow pressed = menu(3, 1), foreign = menu(4, 9);
    GuestWindow palette = win(5);
    palette.layer = 3;
    EXPECT_EQ(kinds(t.update({pressed, foreign, palette, early, doc}, now + 100ms)),
              (Events{{Kind::created, 4}, {Kind::created, 5}}));
    EXPECT_EQ(t.hiddenMenus, (std::set<uint32_t>{3}));

    // Past the entry's end: the entry goes, the withheld window stays withheld,
    // and a new menu window is announced.
    pressed.frame.x = 50;
    early.frame.x = 50;
    GuestWindow later = menu(6, 1);
    auto expired = kinds(t.update({later, pressed, early, doc}, now + 1500ms));
    std::sort(expired.begin() + 2, expired.end());
    EXPECT_EQ(expired, (Events{{Kind::created, 6}, {Kind::moved, 2}, {Kind::closed, 4}, {Kind::closed, 5}}));
    EXPECT_TRUE(t.hideMenusOf.empty());
    auto last = kinds(t.update({doc}, now + 2s));
    std::sort(last.begin(), last.end());
    EXPECT_EQ(last, (Events{{Kind::closed, 2}, {Kind::closed, 6}}));
    EXPECT_TRUE(t.hiddenMenus.empty());
}
