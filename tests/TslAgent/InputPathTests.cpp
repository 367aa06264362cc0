// Host input reaching guest windows on both routes, on the simulated desktop:
// which window, which process is activated or uncovered first, where a click
// over a sheet goes, and when the echo moves.
#include <gtest/gtest.h>

#include <utility>

#include "Platform/Sim/Desktop.h"
#include "TslAgent/InputPath.h"
#include "TslAgent/WindowList.h"

namespace tsl {
namespace {

using Kind = InputEvent::Kind;
using Button = InputEvent::Button;

// The desktop's own Accessibility, keeping the names of the attributes set
// and actions performed through it: "AXFrontmost" is an activation, "AXRaise"
// a focus. A click on the HID route brings its window forward by itself, so
// only this tells what the input path did first.
class RecordingAccessibility : public Accessibility {
public:
    explicit RecordingAccessibility(std::shared_ptr<Accessibility> inner) : inner(std::move(inner)) {}
    bool isProcessTrusted() override { return inner->isProcessTrusted(); }
    bool isProcessTrustedWithOptions(bool prompt) override { return inner->isProcessTrustedWithOptions(prompt); }
    AXElement createApplication(int32_t pid) override { return inner->createApplication(pid); }
    AXError setMessagingTimeout(const AXElement& e, float seconds) override {
        return inner->setMessagingTimeout(e, seconds);
    }
    AXError copyAttributeValue(const AXElement& e, const std::string& name,
                               std::optional<AXAttributeValue>& value) override {
        return inner->copyAttributeValue(e, name, value);
    }
    AXError setAttributeValue(const AXElement& e, const std::string& name, const AXAttributeValue& value) override {
        if (name == "AXFrontmost") changes.push_back(name);
        return inner->setAttributeValue(e, name, value);
    }
    AXError performAction(const AXElement& e, const std::string& action) override {
        changes.push_back(action);
        return inner->performAction(e, action);
    }
    // What was changed since the last call.
    std::vector<std::string> take() { return std::exchange(changes, {}); }

private:
    std::shared_ptr<Accessibility> inner;
    std::vector<std::string> changes;  // the input path runs on the test's thread here
};

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
    std::vector<uint32_t> stacking() {
        std::vector<uint32_t> ids;
        for (const Sim::WindowInfo& w : desktop->windows()) ids.push_back(w.id);
        return ids;
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

TEST_F(InputPathTest, OnHidOnlyAPressActivatesOrUncovers) {
    auto recording = std::make_shared<RecordingAccessibility>(platform.accessibility);
    platform.accessibility = recording;
    // `doc2` of the same process lies over the top-left corner of `doc`.
    const uint32_t doc2 = desktop->addWindow(editor, {.title = "doc2", .frame = {120, 120, 200, 150}});
    desktop->activate(other);
    refreshCache();
    auto hid = path(InjectionMode::hid);
    ASSERT_EQ(stacking(), (std::vector<uint32_t>{cover, doc2, doc}));
    using Changes = std::vector<std::string>;

    // A left press where `doc` is on top: neither activation nor focus.
    hid.inject(event(Kind::mouseDown, doc, 10, 10, 1));
    EXPECT_EQ(recording->take(), Changes{});
    EXPECT_EQ(lastPosted().window, doc);

    // Other mouse kinds over a covered point uncover nothing: they land on the cover.
    desktop->activate(other);
    for (Kind k : {Kind::mouseMove, Kind::mouseUp, Kind::mouseDrag, Kind::scroll}) {
        hid.inject(event(k, doc, 250, 250, 2));
        EXPECT_EQ(lastPosted().window, cover) << int(k);
    }
    EXPECT_EQ(recording->take(), Changes{});

    // A right press activates; where `doc` is then on top, nothing is focused.
    hid.inject(event(Kind::mouseDown, doc, 10, 10, 3, Button::right));
    EXPECT_EQ(recording->take(), Changes{"AXFrontmost"});

    // Where its own `doc2` still covers it after the activation, it is focused as well.
    desktop->raise(doc2);
    desktop->activate(other);
    ASSERT_EQ(stacking(), (std::vector<uint32_t>{cover, doc2, doc}));
    hid.inject(event(Kind::mouseDown, doc, 30, 30, 4, Button::right));
    EXPECT_EQ(recording->take(), (Changes{"AXFrontmost", "AXRaise"}));
    EXPECT_EQ(lastPosted().window, doc);
    EXPECT_EQ(echo->value(), 4u);
}

TEST_F(InputPathTest, OnPidNothingIsUncoveredAndControlKeysActivate) {
    desktop->activate(other);
    refreshCache();
    auto pid = path(InjectionMode::pid);
    const auto before = stacking();
    // A press under `cover` goes to its process as it is: no focus, no activation.
    pid.inject(event(Kind::mouseDown, doc, 250, 250, 1));
    EXPECT_EQ(lastPosted().deliveredTo, editor);
    EXPECT_EQ(lastPosted().event.integerField(PlatformEvent::fieldWindowUnderMousePointer), doc);
    EXPECT_EQ(stacking(), before);
    EXPECT_EQ(desktop->frontmostPid(), other);

    auto control = event(Kind::keyDown, doc, 0, 0, 2);
    control.modifierFlags = 0x40000;
    pid.inject(control);
    EXPECT_EQ(desktop->frontmostPid(), editor);
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

    pid.inject(event(Kind::scroll, doc, 100, 50, 1));  // scrolling counts as a mouse event
    EXPECT_EQ(lastPosted().window, sheet);
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
