#include "TslStream/Input/InputInjector.h"

#include <algorithm>
#include <cmath>

namespace tsl {
namespace {

using Kind = InputEvent::Kind;
using Button = InputEvent::Button;

uint32_t mouseType(Kind kind, Button button) {
    auto pick = [&](uint32_t left, uint32_t right, uint32_t other) {
        return button == Button::left ? left : button == Button::right ? right : other;
    };
    switch (kind) {
        case Kind::mouseDown: return pick(PlatformEvent::leftMouseDown, PlatformEvent::rightMouseDown, PlatformEvent::otherMouseDown);
        case Kind::mouseUp: return pick(PlatformEvent::leftMouseUp, PlatformEvent::rightMouseUp, PlatformEvent::otherMouseUp);
        case Kind::mouseDrag:
            return pick(PlatformEvent::leftMouseDragged, PlatformEvent::rightMouseDragged, PlatformEvent::otherMouseDragged);
        default: return PlatformEvent::mouseMoved;
    }
}

}  // namespace

InputInjector::InputInjector(Mode mode, std::shared_ptr<EventPoster> poster)
    : mode(mode), poster(std::move(poster)), source(this->poster->createSource(EventPoster::stateHIDSystem)) {}

InputInjector::Route InputInjector::route(const InputEvent&, Mode mode) { return mode; }

int32_t InputInjector::wheel(float delta) {
    if (!std::isfinite(delta)) return 0;
    return int32_t(std::lround(std::clamp(double(delta), -10000.0, 10000.0)));
}

std::optional<PlatformEvent> InputInjector::makeEvent(const InputEvent& event, Point windowOrigin) const {
    Point location{windowOrigin.x + double(event.x), windowOrigin.y + double(event.y)};
    std::optional<PlatformEvent> made;
    switch (event.kind) {
        case Kind::mouseMove:
            made = poster->createMouseEvent(source, PlatformEvent::mouseMoved, location, 0);
            break;
        case Kind::mouseDown:
        case Kind::mouseUp:
        case Kind::mouseDrag:
            made = poster->createMouseEvent(source, mouseType(event.kind, event.button), location,
                                            uint32_t(event.button));
            break;
        case Kind::scroll:
            made = poster->createScrollWheelEvent(source, EventPoster::ScrollUnit::pixel, 2, wheel(event.deltaY),
                                                  wheel(event.deltaX), 0);
            if (made) made->location = location;
            break;
        case Kind::keyDown:
        case Kind::keyUp:
            made = poster->createKeyboardEvent(source, event.keyCode, event.kind == Kind::keyDown);
            break;
        case Kind::flagsChanged:
            made = poster->createEvent(source);
            if (made) made->type = PlatformEvent::flagsChanged;
            break;
    }
    if (!made) return std::nullopt;
    made->flags = uint64_t(event.modifierFlags);
    if (event.isMouse()) {
        if (event.clickCount != 0) made->setIntegerField(PlatformEvent::fieldClickState, event.clickCount);
        made->setIntegerField(PlatformEvent::fieldWindowUnderMousePointer, event.windowID);
        made->setIntegerField(PlatformEvent::fieldWindowUnderMousePointerThatCanHandleThisEvent, event.windowID);
    }
    return made;
}

bool InputInjector::inject(const InputEvent& event, Point windowOrigin, int32_t pid) const {
    auto made = makeEvent(event, windowOrigin);
    if (!made) return false;
    if (mode == Mode::hid) poster->post(EventPoster::Tap::hid, *made);
    else poster->postToPid(pid, *made);
    return true;
}

}  // namespace tsl
