#include "TslStream/Input/InputMapper.h"

#include <algorithm>

namespace tsl {
namespace {

using Kind = InputEvent::Kind;
using Button = InputEvent::Button;

Button byNumber(int64_t buttonNumber) {
    if (buttonNumber == 1) return Button::right;
    return buttonNumber > 1 ? Button::other : Button::left;
}

std::optional<std::pair<Kind, Button>> kindAndButton(uint32_t type, int64_t buttonNumber) {
    Button numbered = byNumber(buttonNumber);
    switch (type) {
        case InputMapper::leftMouseDown: return std::pair{Kind::mouseDown, numbered};
        case InputMapper::leftMouseUp: return std::pair{Kind::mouseUp, numbered};
        case InputMapper::rightMouseDown: return std::pair{Kind::mouseDown, Button::right};
        case InputMapper::rightMouseUp: return std::pair{Kind::mouseUp, Button::right};
        case InputMapper::mouseMoved: return std::pair{Kind::mouseMove, numbered};
        case InputMapper::leftMouseDragged: return std::pair{Kind::mouseDrag, numbered};
        case InputMapper::rightMouseDragged: return std::pair{Kind::mouseDrag, Button::right};
        case InputMapper::keyDown: return std::pair{Kind::keyDown, numbered};
        case InputMapper::keyUp: return std::pair{Kind::keyUp, numbered};
        case InputMapper::flagsChanged: return std::pair{Kind::flagsChanged, numbered};
        case InputMapper::scrollWheel: return std::pair{Kind::scroll, numbered};
        case InputMapper::otherMouseDown: return std::pair{Kind::mouseDown, Button::other};
        case InputMapper::otherMouseUp: return std::pair{Kind::mouseUp, Button::other};
        case InputMapper::otherMouseDragged: return std::pair{Kind::mouseDrag, Button::other};
        default: return std::nullopt;
    }
}

}  // namespace

std::optional<InputEvent> InputMapper::map(const HostEvent& e) {
    switch (e.type) {
        case keyDown:
        case keyUp:
        case flagsChanged: return map(e.type, 0, 0, 0, 0, e.keyCode, e.modifierFlags, 0, 0);
        case scrollWheel: {
            // The wire carries pixels; a line of a plain wheel counts as 10.
            double perUnit = e.hasPreciseScrollDeltas ? 1.0 : 10.0;
            return map(e.type, e.x, e.y, e.buttonNumber, 0, 0, e.modifierFlags, e.scrollDeltaX * perUnit,
                       e.scrollDeltaY * perUnit);
        }
        case mouseMoved: return map(e.type, e.x, e.y, e.buttonNumber, 0, 0, e.modifierFlags, 0, 0);
        default: return map(e.type, e.x, e.y, e.buttonNumber, e.clickCount, 0, e.modifierFlags, 0, 0);
    }
}

std::optional<InputEvent> InputMapper::map(uint32_t type, double x, double y, int64_t buttonNumber,
                                           int64_t clickCount, uint16_t keyCode, uint64_t modifierFlags,
                                           double scrollDeltaX, double scrollDeltaY) {
    auto kb = kindAndButton(type, buttonNumber);
    if (!kb) return std::nullopt;
    sequence += 1;  // wraps at 2^32
    InputEvent event;
    event.kind = kb->first;
    event.button = kb->second;
    event.sequence = sequence;
    event.windowID = windowID;
    event.clickCount = uint8_t(std::clamp<int64_t>(clickCount, 0, 255));
    event.x = float(x);
    event.y = float(y);
    event.deltaX = float(scrollDeltaX);
    event.deltaY = float(scrollDeltaY);
    event.keyCode = keyCode;
    event.modifierFlags = uint32_t(modifierFlags & deviceIndependentFlagsMask);
    return event;
}

}  // namespace tsl
