#pragma once
#include <cstdint>
#include <map>
#include <optional>

#include "Platform/Geometry.h"

namespace tsl {

// A synthetic input event before it is posted: its type, where it happens,
// its modifier flags and its integer fields, with the platform's numbering.
struct PlatformEvent {
    // Event types.
    static constexpr uint32_t leftMouseDown = 1, leftMouseUp = 2, rightMouseDown = 3, rightMouseUp = 4,
                              mouseMoved = 5, leftMouseDragged = 6, rightMouseDragged = 7, keyDown = 10,
                              keyUp = 11, flagsChanged = 12, scrollWheel = 22, otherMouseDown = 25,
                              otherMouseUp = 26, otherMouseDragged = 27;
    // Integer fields.
    static constexpr uint32_t fieldClickState = 1, fieldMouseButtonNumber = 3, fieldKeyboardKeycode = 9,
                              fieldScrollDeltaAxis1 = 11, fieldScrollDeltaAxis2 = 12, fieldScrollDeltaAxis3 = 13,
                              fieldScrollIsContinuous = 88, fieldWindowUnderMousePointer = 91,
                              fieldWindowUnderMousePointerThatCanHandleThisEvent = 92;
    // Modifier flags.
    static constexpr uint64_t flagShift = 0x20000, flagControl = 0x40000, flagOption = 0x80000,
                              flagCommand = 0x100000;

    uint32_t type = 0;
    std::optional<Point> location;  // absent for keyboard and flags events
    uint64_t flags = 0;
    std::map<uint32_t, int64_t> fields;
    std::optional<int32_t> sourceStateID;  // the event source it was made with, if any

    int64_t integerField(uint32_t field) const {
        auto it = fields.find(field);
        return it == fields.end() ? 0 : it->second;
    }
    void setIntegerField(uint32_t field, int64_t value) { fields[field] = value; }
    bool isMouse() const;
    bool isKeyboard() const { return type == keyDown || type == keyUp || type == flagsChanged; }

    bool operator==(const PlatformEvent&) const = default;
};

// Making synthetic events and posting them, either at the HID level (as if
// they came from the real devices: the cursor moves and the event goes to
// whatever is under it, or to the frontmost application for keys) or to one
// process alone. The creation calls may give nothing.
class EventPoster {
public:
    struct Source {
        int32_t stateID = 0;
    };
    static constexpr int32_t stateHIDSystem = 1;
    enum class Tap : uint32_t { hid = 0 };
    enum class ScrollUnit : uint32_t { pixel = 0, line = 1 };

    virtual ~EventPoster() = default;

    virtual std::optional<Source> createSource(int32_t stateID) = 0;
    // `button`: 0 left, 1 right, 2 other.
    virtual std::optional<PlatformEvent> createMouseEvent(const std::optional<Source>& source, uint32_t type,
                                                          Point location, uint32_t button) = 0;
    virtual std::optional<PlatformEvent> createScrollWheelEvent(const std::optional<Source>& source, ScrollUnit units,
                                                                uint32_t wheelCount, int32_t wheel1, int32_t wheel2,
                                                                int32_t wheel3) = 0;
    virtual std::optional<PlatformEvent> createKeyboardEvent(const std::optional<Source>& source, uint16_t keyCode,
                                                             bool keyDown) = 0;
    // An empty event, for the caller to fill in.
    virtual std::optional<PlatformEvent> createEvent(const std::optional<Source>& source) = 0;

    // Neither call reports what became of the event.
    virtual void post(Tap tap, const PlatformEvent& event) = 0;
    virtual void postToPid(int32_t pid, const PlatformEvent& event) = 0;
};

}  // namespace tsl
