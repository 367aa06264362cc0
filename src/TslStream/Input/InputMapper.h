#pragma once
#include <cstdint>
#include <mutex>
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

    // One user event as the host's window system reported it, whatever its
    // type; which of its values travel is the mapper's business.
    struct HostEvent {
        uint32_t type = 0;
        double x = 0, y = 0;  // as for the plain form
        int64_t buttonNumber = 0;
        int64_t clickCount = 0;
        uint16_t keyCode = 0;  // already the guest's
        uint64_t modifierFlags = 0;
        // In the event's own direction, with the guest's signs: up and left positive.
        double scrollDeltaX = 0, scrollDeltaY = 0;
        bool hasPreciseScrollDeltas = false;  // pixels (a touchpad), not lines (a wheel)
    };

    uint32_t windowID = 0;
    uint32_t sequence = 0;  // the last number given

    explicit InputMapper(uint32_t windowID) : windowID(windowID) {}

    // Keys carry no position, clicks or deltas; only a scroll has deltas, in
    // pixels; only buttons and drags have a click count.
    std::optional<InputEvent> map(const HostEvent& event);

    // `x`, `y`: view points from its top-left corner, y down, not limited to
    // the view (a drag that leaves it goes on). Deltas are already in pixels.
    std::optional<InputEvent> map(uint32_t type, double x, double y, int64_t buttonNumber, int64_t clickCount,
                                  uint16_t keyCode, uint64_t modifierFlags, double scrollDeltaX, double scrollDeltaY);
};

// The one mapper of a guest window, for everything that sends that window
// input (its view, a measuring run) from any thread: one running count, so
// an echoed sequence names one event.
class SharedInputMapper {
public:
    explicit SharedInputMapper(uint32_t windowID) : mapper(windowID), _windowID(windowID) {}

    uint32_t windowID() const { return _windowID; }

    std::optional<InputEvent> map(const InputMapper::HostEvent& event) {
        std::lock_guard guard(lock);
        return mapper.map(event);
    }
    std::optional<InputEvent> map(uint32_t type, double x, double y, int64_t buttonNumber, int64_t clickCount,
                                  uint16_t keyCode, uint64_t modifierFlags, double scrollDeltaX, double scrollDeltaY) {
        std::lock_guard guard(lock);
        return mapper.map(type, x, y, buttonNumber, clickCount, keyCode, modifierFlags, scrollDeltaX, scrollDeltaY);
    }

private:
    std::mutex lock;
    InputMapper mapper;
    const uint32_t _windowID;
};

}  // namespace tsl
