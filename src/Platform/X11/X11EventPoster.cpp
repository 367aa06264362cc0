#include "Platform/X11/X11EventPoster.h"

#include <xcb/xtest.h>

#include <cmath>

namespace tsl::X11 {
namespace {

using E = PlatformEvent;

constexpr uint8_t buttonLeft = 1, buttonMiddle = 2, buttonRight = 3;
constexpr uint8_t wheelUp = 4, wheelDown = 5, wheelLeft = 6, wheelRight = 7;

PlatformEvent made(const std::optional<EventPoster::Source>& source, uint32_t type) {
    PlatformEvent event;
    event.type = type;
    if (source) event.sourceStateID = source->stateID;
    return event;
}

bool isModifierKey(uint16_t virtualKey) { return virtualKey >= 54 && virtualKey <= 62 && virtualKey != 57; }

// Whether a keyboard event needs the focus in the process's window before it goes.
bool needsFocus(const PlatformEvent& e) {
    return e.isKeyboard() || e.type == E::leftMouseDown || e.type == E::rightMouseDown || e.type == E::otherMouseDown;
}

}  // namespace

std::optional<PlatformEvent> X11EventPoster::createMouseEvent(const std::optional<Source>& source, uint32_t type,
                                                              Point location, uint32_t button) {
    PlatformEvent event = made(source, type);
    event.location = location;
    event.setIntegerField(E::fieldMouseButtonNumber, button);
    return event;
}

std::optional<PlatformEvent> X11EventPoster::createScrollWheelEvent(const std::optional<Source>& source,
                                                                    ScrollUnit units, uint32_t wheelCount,
                                                                    int32_t wheel1, int32_t wheel2, int32_t wheel3) {
    PlatformEvent event = made(source, E::scrollWheel);
    const int32_t wheels[3] = {wheel1, wheel2, wheel3};
    const uint32_t fields[3] = {E::fieldScrollDeltaAxis1, E::fieldScrollDeltaAxis2, E::fieldScrollDeltaAxis3};
    for (uint32_t i = 0; i < 3; ++i) event.setIntegerField(fields[i], i < wheelCount ? wheels[i] : 0);
    event.setIntegerField(E::fieldScrollIsContinuous, units == ScrollUnit::pixel ? 1 : 0);
    return event;
}

std::optional<PlatformEvent> X11EventPoster::createKeyboardEvent(const std::optional<Source>& source, uint16_t keyCode,
                                                                 bool keyDown) {
    PlatformEvent event = made(source, keyDown ? E::keyDown : E::keyUp);
    event.setIntegerField(E::fieldKeyboardKeycode, keyCode);
    return event;
}

std::optional<PlatformEvent> X11EventPoster::createEvent(const std::optional<Source>& source) {
    return made(source, 0);
}

void X11EventPoster::post(Tap, const PlatformEvent& event) { send(event); }

void X11EventPoster::postToPid(int32_t pid, const PlatformEvent& event) {
    if (!needsFocus(event)) return send(event);
    Connection& x = control->connection();
    const std::vector<ClientWindow> all = ClientWindow::list(x);
    std::optional<ClientWindow> focus = control->focused(all);
    if (!(focus && focus->pid == pid)) {
        const auto named = xcb_window_t(event.integerField(E::fieldWindowUnderMousePointer));
        const ClientWindow* target = nullptr;
        for (const ClientWindow& w : all) {
            if (w.pid != pid || w.overrideRedirect || !w.onScreen()) continue;
            if (!target || (event.isMouse() && w.id == named)) target = &w;
        }
        // A key that can't reach the process is dropped, never handed to the window that has the focus.
        if (!target || !control->activate(*target) || !control->hasFocus(target->id)) {
            if (event.isKeyboard()) return;
        }
    }
    send(event);
}

void X11EventPoster::fake(uint8_t type, uint8_t detail, int16_t px, int16_t py) {
    Connection& x = control->connection();
    xcb_test_fake_input(x.raw(), type, detail, XCB_CURRENT_TIME, x.root(), px, py, 0);
}

void X11EventPoster::holdModifiers(uint64_t flags) {
    std::set<uint8_t> wanted;
    if (flags & E::flagShift) wanted.insert(KeyTable::shiftKeycode);
    if (flags & E::flagControl) wanted.insert(KeyTable::controlKeycode);
    if (flags & E::flagOption) wanted.insert(KeyTable::altKeycode);
    if (flags & E::flagCommand) wanted.insert(KeyTable::commandKeycode(command));
    for (auto it = held.begin(); it != held.end();) {
        if (wanted.count(*it)) {
            ++it;
            continue;
        }
        fake(XCB_KEY_RELEASE, *it);
        it = held.erase(it);
    }
    for (uint8_t key : wanted)
        if (held.insert(key).second) fake(XCB_KEY_PRESS, key);
}

void X11EventPoster::scroll(const PlatformEvent& event) {
    const bool pixels = event.integerField(E::fieldScrollIsContinuous) != 0;
    auto notches = [&](double& pending, int64_t delta) {
        if (!pixels) return delta;
        pending += double(delta);
        const auto whole = int64_t(std::trunc(pending / pixelsPerNotch));
        pending -= double(whole) * pixelsPerNotch;
        return whole;
    };
    // Positive deltas scroll up and to the left.
    const int64_t vertical = notches(pendingY, event.integerField(E::fieldScrollDeltaAxis1));
    const int64_t horizontal = notches(pendingX, event.integerField(E::fieldScrollDeltaAxis2));
    auto click = [&](uint8_t button, int64_t times) {
        for (int64_t i = 0; i < std::min<int64_t>(times, 100); ++i) {
            fake(XCB_BUTTON_PRESS, button);
            fake(XCB_BUTTON_RELEASE, button);
        }
    };
    click(vertical > 0 ? wheelUp : wheelDown, std::llabs(vertical));
    click(horizontal > 0 ? wheelLeft : wheelRight, std::llabs(horizontal));
}

void X11EventPoster::send(const PlatformEvent& event) {
    Connection& x = control->connection();
    if (x.lost()) return;
    std::lock_guard guard(lock);
    if (event.isMouse() && event.location) {
        fake(XCB_MOTION_NOTIFY, 0, int16_t(std::lround(event.location->x)), int16_t(std::lround(event.location->y)));
    }
    const auto button = event.integerField(E::fieldMouseButtonNumber);
    switch (event.type) {
    case E::leftMouseDown: case E::rightMouseDown: case E::otherMouseDown:
        holdModifiers(event.flags);
        fake(XCB_BUTTON_PRESS, button == 0 ? buttonLeft : button == 1 ? buttonRight : buttonMiddle);
        break;
    case E::leftMouseUp: case E::rightMouseUp: case E::otherMouseUp:
        fake(XCB_BUTTON_RELEASE, button == 0 ? buttonLeft : button == 1 ? buttonRight : buttonMiddle);
        break;
    case E::scrollWheel:
        scroll(event);
        break;
    case E::keyDown: case E::keyUp: {
        const auto virtualKey = uint16_t(event.integerField(E::fieldKeyboardKeycode));
        std::optional<uint8_t> key = KeyTable::keycode(virtualKey, command);
        if (!key) break;
        const bool down = event.type == E::keyDown;
        if (isModifierKey(virtualKey)) {
            if (down) held.insert(*key);
            else held.erase(*key);
        } else {
            holdModifiers(event.flags);
        }
        fake(down ? XCB_KEY_PRESS : XCB_KEY_RELEASE, *key);
        break;
    }
    case E::flagsChanged:
        holdModifiers(event.flags);
        break;
    default:
        break;
    }
    // Once this returns, the server has taken the event: a frame captured
    // after it shows the event's effect, so the echo may be stored.
    x.roundTrip();
}

}  // namespace tsl::X11
