// Input through XTEST: keys found by position, the pattern's square read
// back from the screen, the pointer and the wheel as the server sees them.
#include <gtest/gtest.h>
#include <xcb/xcb_keysyms.h>

#include "Platform/X11/X11Desktop.h"
#include "Platform/X11/X11DesktopTest.h"
#include "Platform/X11/X11EventPoster.h"
#include "Platform/X11/X11KeyTable.h"
#include "Support/XDisplay.h"
#include "TslCore/Measure/TestPattern.h"

namespace tsl::test {
namespace {

using X11::CommandKey;
namespace KeyTable = X11::KeyTable;

class X11EventPosterTest : public X11DesktopTest {
protected:
    PlatformEvent key(uint16_t code, bool down, uint64_t flags = 0) {
        PlatformEvent e = *platform.eventPoster->createKeyboardEvent(std::nullopt, code, down);
        e.flags = flags;
        return e;
    }
    bool squareIsWhite(const Rect& window) {
        using namespace TestPatternSpec;
        auto luma =
            display->meanLuma(int(window.x + squareX), int(window.y + squareY), int(squareSize), int(squareSize));
        return luma && *luma > whiteThreshold;
    }
};

TEST(X11KeyTable, KeysKeepTheirPositionsOnTheServersLayout) {
    XDisplay display(false);
    ASSERT_TRUE(display.ready());
    xcb_key_symbols_t* symbols = xcb_key_symbols_alloc(display.connection().raw());
    auto keysym = [&](uint16_t virtualKey) -> xcb_keysym_t {
        auto code = KeyTable::keycode(virtualKey, CommandKey::control);
        return code ? xcb_key_symbols_get_keysym(symbols, *code, 0) : 0;
    };
    // a, s, z, q, 1, 0, Return, Tab, space, Escape, Backspace.
    EXPECT_EQ(keysym(0), 'a');
    EXPECT_EQ(keysym(1), 's');
    EXPECT_EQ(keysym(6), 'z');
    EXPECT_EQ(keysym(12), 'q');
    EXPECT_EQ(keysym(18), '1');
    EXPECT_EQ(keysym(29), '0');
    EXPECT_EQ(keysym(36), 0xff0du);
    EXPECT_EQ(keysym(48), 0xff09u);
    EXPECT_EQ(keysym(49), ' ');
    EXPECT_EQ(keysym(53), 0xff1bu);
    EXPECT_EQ(keysym(51), 0xff08u);
    // F1 to F12 and the arrows.
    const uint16_t functionKeys[] = {122, 120, 99, 118, 96, 97, 98, 100, 101, 109, 103, 111};
    for (int i = 0; i < 12; ++i) EXPECT_EQ(keysym(functionKeys[i]), 0xffbeu + unsigned(i)) << "F" << i + 1;
    EXPECT_EQ(keysym(123), 0xff51u);
    EXPECT_EQ(keysym(126), 0xff52u);
    EXPECT_EQ(keysym(124), 0xff53u);
    EXPECT_EQ(keysym(125), 0xff54u);
    // Modifiers: Shift, Option as Alt, Control; Command as Control unless told otherwise.
    EXPECT_EQ(keysym(56), 0xffe1u);
    EXPECT_EQ(keysym(58), 0xffe9u);
    EXPECT_EQ(keysym(59), 0xffe3u);
    EXPECT_EQ(keysym(55), 0xffe3u);
    EXPECT_EQ(xcb_key_symbols_get_keysym(symbols, *KeyTable::keycode(55, CommandKey::super), 0), 0xffebu);
    EXPECT_FALSE(KeyTable::keycode(52, CommandKey::control));  // no key there
    EXPECT_FALSE(KeyTable::keycode(500, CommandKey::control));
    xcb_key_symbols_free(symbols);
}

TEST_P(X11EventPosterTest, F1TurnsThePatternsSquareWhiteOnScreen) {
    ChildProcess& pattern = display->launchPattern(200, 150);
    ChildProcess& xterm = display->launch("/usr/bin/xterm", {"-T", "Tsl XTerm", "-geometry", "40x10+900+600"});
    auto window = display->waitForWindow("Tsl TestPattern");
    ASSERT_TRUE(window && display->waitForWindow("Tsl XTerm"));
    // The focus starts elsewhere: the pid route must bring it over before the key goes.
    ASSERT_TRUE(platform.workspace->activate(xterm.pid(), 0));
    ASSERT_FALSE(squareIsWhite(window->bounds));

    platform.eventPoster->postToPid(pattern.pid(), key(TestPatternSpec::f1KeyCode, true));
    EXPECT_TRUE(display->waitUntil([&] { return squareIsWhite(window->bounds); }));
    EXPECT_EQ(platform.workspace->frontmostApplication()->processIdentifier, pattern.pid());
    platform.eventPoster->postToPid(pattern.pid(), key(TestPatternSpec::f1KeyCode, false));
    EXPECT_TRUE(display->waitUntil([&] { return !squareIsWhite(window->bounds); }));

    // The HID route gives the key to whatever has the focus.
    platform.eventPoster->post(EventPoster::Tap::hid, key(TestPatternSpec::f1KeyCode, true));
    EXPECT_TRUE(display->waitUntil([&] { return squareIsWhite(window->bounds); }));
    platform.eventPoster->post(EventPoster::Tap::hid, key(TestPatternSpec::f1KeyCode, false));
}

TEST_P(X11EventPosterTest, PointerGoesWhereAskedAndPixelsAddUpToNotches) {
    // A window of our own, on a connection of our own, to see what arrives.
    xcb_connection_t* c = xcb_connect(display->name().c_str(), nullptr);
    ASSERT_FALSE(xcb_connection_has_error(c));
    const xcb_screen_t* screen = xcb_setup_roots_iterator(xcb_get_setup(c)).data;
    xcb_window_t w = xcb_generate_id(c);
    const uint32_t values[] = {1, XCB_EVENT_MASK_BUTTON_PRESS | XCB_EVENT_MASK_BUTTON_RELEASE};
    xcb_create_window(c, XCB_COPY_FROM_PARENT, w, screen->root, 0, 0, 400, 400, 0, XCB_WINDOW_CLASS_INPUT_OUTPUT,
                      XCB_COPY_FROM_PARENT, XCB_CW_OVERRIDE_REDIRECT | XCB_CW_EVENT_MASK, values);
    xcb_map_window(c, w);
    free(xcb_get_input_focus_reply(c, xcb_get_input_focus(c), nullptr));

    auto mouse = [&](uint32_t type, Point at, uint32_t button) {
        platform.eventPoster->post(EventPoster::Tap::hid,
                                   *platform.eventPoster->createMouseEvent(std::nullopt, type, at, button));
    };
    auto wheel = [&](int32_t dy, int32_t dx) {
        auto e =
            platform.eventPoster->createScrollWheelEvent(std::nullopt, EventPoster::ScrollUnit::pixel, 2, dy, dx, 0);
        e->location = Point{50, 50};
        platform.eventPoster->post(EventPoster::Tap::hid, *e);
    };
    mouse(PlatformEvent::mouseMoved, {123, 77}, 0);
    auto pointer = xcb_query_pointer_reply(c, xcb_query_pointer(c, screen->root), nullptr);
    ASSERT_TRUE(pointer);
    EXPECT_EQ(pointer->root_x, 123);
    EXPECT_EQ(pointer->root_y, 77);
    free(pointer);

    mouse(PlatformEvent::leftMouseDown, {10, 10}, 0);
    mouse(PlatformEvent::leftMouseUp, {10, 10}, 0);
    mouse(PlatformEvent::rightMouseDown, {10, 10}, 1);
    mouse(PlatformEvent::rightMouseUp, {10, 10}, 1);
    mouse(PlatformEvent::otherMouseDown, {10, 10}, 2);
    mouse(PlatformEvent::otherMouseUp, {10, 10}, 2);
    const double notch = X11::X11EventPoster::pixelsPerNotch;
    wheel(int32_t(notch) - 1, 0);                                         // not yet a notch
    wheel(1, 0);                                                          // now one: up
    wheel(-2 * int32_t(notch), 0);                                        // two down
    wheel(0, int32_t(notch));                                             // one left
    free(xcb_get_input_focus_reply(c, xcb_get_input_focus(c), nullptr));  // everything sent so far has arrived
    std::vector<uint8_t> presses;
    while (xcb_generic_event_t* event = xcb_poll_for_event(c)) {
        if ((event->response_type & 0x7f) == XCB_BUTTON_PRESS)
            presses.push_back(reinterpret_cast<xcb_button_press_event_t*>(event)->detail);
        free(event);
    }
    EXPECT_EQ(presses, (std::vector<uint8_t>{1, 3, 2, 4, 5, 5, 6}));
    xcb_disconnect(c);
}

INSTANTIATE_TEST_SUITE_P(X11, X11EventPosterTest, ::testing::Bool(),
                         [](const auto& info) { return info.param ? "WithWindowManager" : "WithoutWindowManager"; });

}  // namespace
}  // namespace tsl::test
