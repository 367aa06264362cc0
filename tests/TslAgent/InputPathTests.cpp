// Host input reaching guest windows on both routes, on the simulated desktop:
// which window, which process is activated or uncovered first, where a click
// over a sheet goes, and when the echo moves.
#include <gtest/gtest.h>

#include "Platform/Sim/Desktop.h"
#include "TslAgent/InputPath.h"
#include "TslAgent/WindowList.h"

namespace tsl {
namespace {

using Kind = InputEvent::Kind;
using Button = InputEvent::Button;

class InputPathTest : public testing::Test {
protected:
    std::shared_ptr<Sim::Desktop> desktop = Sim::Desktop::make();
    PlatformServices platform = desktop->services();
    std::shared_ptr<WindowCache> cache = std::make_shared<WindowCache>();
    std::shared_ptr<EchoCounter> echo = std::make_shared<EchoCounter>();
    int32_t editor = desktop->addProcess({.name = "Editor"});
    int32_t other = desktop->addProcess({.name = "Other"});
    uint32_t doc = desktop->addWindow(editor, {.title = "doc", .frame = {100, 100, 400, 300}});
    uint32_t cover = desktop->addWindow(other, {.title = "cover", .frame = {300, 300, 300, 200}});

    InputPath path(InjectionMode mode) {
        return InputPath(platform, cache, InputInjector(mode, platform.eventPoster), echo);
    }
    void refreshCache() { cache->replace(WindowList::current(platform, {}, false)); }
    InputEvent event(Kind kind, uint32_t window, float x, float y, uint32_t sequence, Button button = Button::left) {
        InputEvent e;
        e.kind = kind;
        e.button = button;
        e.windowID = window;
        e.x = x;
        e.y = y;
        e.sequence = sequence;
        return e;
    }
    Sim::PostedEvent lastPosted() {
        auto posted = desktop->postedEvents();
        EXPECT_FALSE(posted.empty());
        return posted.empty() ? Sim::PostedEvent{} : posted.back();
    }
};

TEST_F(InputPathTest, FindsTheWindowInTheCacheOrTheWindowServerAndEchoes) {
    refreshCache();
    auto pid = path(InjectionMode::pid);
    pid.inject(event(Kind::mouseDown, doc, 10, 20, 5));
    EXPECT_EQ(lastPosted().event.location, (Point{110, 120}));
    EXPECT_EQ(lastPosted().deliveredTo, editor);
    EXPECT_EQ(echo->value(), 5u);

    // A window newer than the cache is placed where the window server has it.
    uint32_t fresh = desktop->addWindow(editor, {.title = "new", .frame = {700, 50, 200, 200}});
    pid.inject(event(Kind::mouseUp, fresh, 1, 2, 3));
    EXPECT_EQ(lastPosted().event.location, (Point{701, 52}));
    EXPECT_EQ(echo->value(), 3u);  // replaced, not raised

    // Gone from both: dropped, and the echo stays.
    size_t before = desktop->postedEvents().size();
    pid.inject(event(Kind::mouseDown, 9999, 1, 1, 77));
    EXPECT_EQ(desktop->postedEvents().size(), before);
    EXPECT_EQ(echo->value(), 3u);

    // No event made: nothing posted, the echo stays.
    desktop->setEventCreationFails(true);
    pid.inject(event(Kind::keyDown, doc, 0, 0, 78));
    EXPECT_EQ(echo->value(), 3u);
}

TEST_F(InputPathTest, ActivationByRouteKindAndFlags) {
    refreshCache();
    auto pid = path(InjectionMode::pid);
    desktop->activate(other);
    pid.inject(event(Kind::keyDown, doc, 0, 0, 1));
    auto shifted = event(Kind::keyDown, doc, 0, 0, 2);
    shifted.modifierFlags = 0x20000 | 0x80000;  // shift and option
    pid.inject(shifted);
    pid.inject(event(Kind::mouseDown, doc, 5, 5, 3));  // a left click doesn't activate
    EXPECT_EQ(desktop->frontmostPid(), other);
    auto command = event(Kind::keyDown, doc, 0, 0, 4);
    command.modifierFlags = 0x100000;
    pid.inject(command);
    EXPECT_EQ(desktop->frontmostPid(), editor);

    desktop->activate(other);
    pid.inject(event(Kind::mouseDown, doc, 5, 5, 5, Button::right));
    EXPECT_EQ(desktop->frontmostPid(), editor);

    auto hid = path(InjectionMode::hid);
    desktop->activate(other);
    hid.inject(event(Kind::keyUp, doc, 0, 0, 6));
    for (Kind k : {Kind::mouseMove, Kind::mouseUp, Kind::mouseDrag, Kind::scroll, Kind::flagsChanged})
        hid.inject(event(k, doc, 5, 5, 7));
    EXPECT_EQ(desktop->frontmostPid(), other);
    hid.inject(event(Kind::keyDown, doc, 0, 0, 8));
    EXPECT_EQ(desktop->frontmostPid(), editor);
    EXPECT_EQ(lastPosted().deliveredTo, editor);  // keys go to the front application
}

TEST_F(InputPathTest, HidClicksUncoverTheirWindowFirst) {
    desktop->activate(other);  // `cover` lies over the corner of `doc`
    refreshCache();
    auto hid = path(InjectionMode::hid);
    ASSERT_EQ(desktop->windows().front().id, cover);
    hid.inject(event(Kind::mouseDown, doc, 350, 250, 2));  // under `cover`: without uncovering, `cover` would get it
    EXPECT_EQ(lastPosted().window, doc);
    EXPECT_EQ(lastPosted().event.integerField(PlatformEvent::fieldWindowUnderMousePointer), doc);
    EXPECT_EQ(echo->value(), 2u);
}

TEST_F(InputPathTest, PidMouseEventsMoveToASheetOverTheirWindow) {
    uint32_t sheet = desktop->addWindow(editor, {.title = "sheet", .frame = {150, 122, 300, 120}, .sheetOf = doc});
    refreshCache();
    auto pid = path(InjectionMode::pid);
    pid.inject(event(Kind::mouseDown, doc, 100, 50, 1));  // global 200, 150: on the sheet
    auto moved = lastPosted();
    EXPECT_EQ(moved.window, sheet);
    EXPECT_EQ(moved.event.location, (Point{200, 150}));
    EXPECT_EQ(moved.event.integerField(PlatformEvent::fieldWindowUnderMousePointer), sheet);

    pid.inject(event(Kind::mouseDown, doc, 10, 280, 2));  // beside the sheet: stays
    EXPECT_EQ(lastPosted().window, doc);
    pid.inject(event(Kind::mouseDown, doc, 900, 900, 3));  // outside every window: stays
    EXPECT_EQ(lastPosted().event.integerField(PlatformEvent::fieldWindowUnderMousePointer), doc);
    pid.inject(event(Kind::keyDown, doc, 100, 50, 4));  // keys are never moved
    EXPECT_EQ(lastPosted().deliveredTo, editor);

    // The HID route never moves an event: the window stays in its fields.
    path(InjectionMode::hid).inject(event(Kind::mouseUp, doc, 100, 50, 5));
    EXPECT_EQ(lastPosted().event.integerField(PlatformEvent::fieldWindowUnderMousePointer), doc);
}

}  // namespace
}  // namespace tsl
