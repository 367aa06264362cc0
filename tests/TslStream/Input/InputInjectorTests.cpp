// Host input made into platform events and posted by route, on the
// simulated desktop, which records where each event went.
#include <gtest/gtest.h>

#include <cmath>

#include "Platform/Sim/Desktop.h"
#include "TslStream/Input/InputInjector.h"

namespace tsl {
namespace {

using Kind = InputEvent::Kind;
using Button = InputEvent::Button;

InputEvent event(Kind kind, Button button = Button::left, float x = 10, float y = 20) {
    InputEvent e;
    e.kind = kind;
    e.button = button;
    e.x = x;
    e.y = y;
    e.windowID = 9;
    return e;
}

class InputInjectorTest : public testing::Test {
protected:
    std::shared_ptr<Sim::Desktop> desktop = Sim::Desktop::make();
    InputInjector hid{InjectionMode::hid, desktop->services().eventPoster};
    InputInjector pid{InjectionMode::pid, desktop->services().eventPoster};
};

TEST_F(InputInjectorTest, MouseEventsTypesButtonsAndFields) {
    struct Case { Kind kind; Button button; uint32_t type; };
    const Case cases[] = {
        {Kind::mouseMove, Button::right, PlatformEvent::mouseMoved},
        {Kind::mouseDown, Button::left, PlatformEvent::leftMouseDown},
        {Kind::mouseDown, Button::right, PlatformEvent::rightMouseDown},
        {Kind::mouseDown, Button::other, PlatformEvent::otherMouseDown},
        {Kind::mouseUp, Button::left, PlatformEvent::leftMouseUp},
        {Kind::mouseUp, Button::right, PlatformEvent::rightMouseUp},
        {Kind::mouseUp, Button::other, PlatformEvent::otherMouseUp},
        {Kind::mouseDrag, Button::left, PlatformEvent::leftMouseDragged},
        {Kind::mouseDrag, Button::right, PlatformEvent::rightMouseDragged},
        {Kind::mouseDrag, Button::other, PlatformEvent::otherMouseDragged},
    };
    for (const auto& c : cases) {
        auto made = hid.makeEvent(event(c.kind, c.button, 10.5f, 20), Point{100, 200});
        ASSERT_TRUE(made);
        EXPECT_EQ(made->type, c.type);
        EXPECT_EQ(made->location, (Point{110.5, 220}));
        EXPECT_EQ(made->integerField(PlatformEvent::fieldWindowUnderMousePointer), 9);
        EXPECT_EQ(made->integerField(PlatformEvent::fieldWindowUnderMousePointerThatCanHandleThisEvent), 9);
        EXPECT_EQ(made->fields.count(PlatformEvent::fieldClickState), 0u);  // left at the platform's default
        EXPECT_EQ(made->sourceStateID, EventPoster::stateHIDSystem);
    }
    auto twice = event(Kind::mouseDown);
    twice.clickCount = 2;
    twice.modifierFlags = 0x100000;
    auto made = hid.makeEvent(twice, {});
    EXPECT_EQ(made->integerField(PlatformEvent::fieldClickState), 2);
    EXPECT_EQ(made->flags, 0x100000u);
}

TEST_F(InputInjectorTest, ScrollKeysAndFlags) {
    auto scroll = event(Kind::scroll);
    scroll.deltaX = 2.5f;
    scroll.deltaY = -20000;
    auto wheel = hid.makeEvent(scroll, Point{1, 1});
    ASSERT_TRUE(wheel);
    EXPECT_EQ(wheel->type, PlatformEvent::scrollWheel);
    EXPECT_EQ(wheel->integerField(PlatformEvent::fieldScrollDeltaAxis1), -10000);
    EXPECT_EQ(wheel->integerField(PlatformEvent::fieldScrollDeltaAxis2), 3);
    EXPECT_EQ(wheel->location, (Point{11, 21}));
    EXPECT_EQ(InputInjector::wheel(20000), 10000);
    EXPECT_EQ(InputInjector::wheel(std::nanf("")), 0);
    EXPECT_EQ(InputInjector::wheel(INFINITY), 0);
    EXPECT_EQ(InputInjector::wheel(-0.4f), 0);

    auto key = event(Kind::keyDown);
    key.keyCode = 122;
    key.modifierFlags = 0x20000;
    auto down = pid.makeEvent(key, Point{5, 5});
    EXPECT_EQ(down->type, PlatformEvent::keyDown);
    EXPECT_EQ(down->location, std::nullopt);
    EXPECT_EQ(down->integerField(PlatformEvent::fieldKeyboardKeycode), 122);
    EXPECT_EQ(down->flags, 0x20000u);
    EXPECT_EQ(down->fields.count(PlatformEvent::fieldWindowUnderMousePointer), 0u);
    key.kind = Kind::keyUp;
    EXPECT_EQ(pid.makeEvent(key, {})->type, PlatformEvent::keyUp);

    auto flags = event(Kind::flagsChanged);
    flags.keyCode = 56;
    flags.modifierFlags = 0x80000;
    auto changed = pid.makeEvent(flags, Point{5, 5});
    EXPECT_EQ(changed->type, PlatformEvent::flagsChanged);
    EXPECT_EQ(changed->flags, 0x80000u);
    EXPECT_EQ(changed->location, std::nullopt);
    EXPECT_EQ(changed->fields.count(PlatformEvent::fieldKeyboardKeycode), 0u);
}

TEST_F(InputInjectorTest, PostsByRoute) {
    int32_t app = desktop->addProcess({.name = "App"});
    uint32_t window = desktop->addWindow(app, {.title = "w", .frame = {100, 100, 400, 300}});
    auto click = event(Kind::mouseDown);
    click.windowID = window;
    EXPECT_EQ(InputInjector::route(click, InjectionMode::pid), InjectionMode::pid);
    EXPECT_EQ(InputInjector::route(click, InjectionMode::hid), InjectionMode::hid);

    ASSERT_TRUE(pid.inject(click, Point{100, 100}, app));
    ASSERT_TRUE(hid.inject(click, Point{100, 100}, app));
    // A process that has gone still counts as posted.
    ASSERT_TRUE(pid.inject(click, Point{100, 100}, 99999));
    auto posted = desktop->postedEvents();
    ASSERT_EQ(posted.size(), 3u);
    EXPECT_EQ(posted[0].route, Sim::Route::pid);
    EXPECT_EQ(posted[0].deliveredTo, app);
    EXPECT_EQ(posted[0].window, window);
    EXPECT_EQ(posted[1].route, Sim::Route::hid);
    EXPECT_EQ(posted[1].window, window);  // the cursor went to 110, 120, over the window
    EXPECT_EQ(posted[2].deliveredTo, std::nullopt);
}

}  // namespace
}  // namespace tsl
