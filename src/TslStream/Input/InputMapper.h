#pragma once
#include <cstdint>
#include <optional>

#include "TslCore/Wire/InputEvent.h"

namespace tsl {

// Turns the host's user events into numbered InputEvents for one guest
// window. The event types and modifier bits are the guest platform's raw
// values, which the host view produces (HostKeyboard holds the key side).
struct InputMapper {
    // Raw event types understood; any other gives no event.
    enum EventType : uint32_t {
        leftMouseDown = 1, leftMouseUp = 2, rightMouseDown = 3, rightMouseUp = 4, mouseMoved = 5,
        leftMouseDragged = 6, rightMouseDragged = 7, keyDown = 10, keyUp = 11, flagsChanged = 12,
        scrollWheel = 22, otherMouseDown = 25, otherMouseUp = 26, otherMouseDragged = 27,
    };
    // Only the device-independent modifier bits travel.
    static constexpr uint32_t deviceIndependentFlagsMask = 0xFFFF0000;

    uint32_t windowID = 0;
    uint32_t sequence = 0;  // the last number given

    explicit InputMapper(uint32_t windowID) : windowID(windowID) {}

    // `x`, `y`: view points from its top-left corner, y down, not limited to
    // the view (a drag that leaves it goes on). Deltas are already in pixels.
    std::optional<InputEvent> map(uint32_t type, double x, double y, int64_t buttonNumber, int64_t clickCount,
                                  uint16_t keyCode, uint64_t modifierFlags, double scrollDeltaX, double scrollDeltaY);

    // A wheel gives lines, a touchpad pixels; a line counts as 10 pixels.
    static double scrollPixels(double delta, bool hasPreciseDeltas) { return hasPreciseDeltas ? delta : delta * 10.0; }
};

}  // namespace tsl
