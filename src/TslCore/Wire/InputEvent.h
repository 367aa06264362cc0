#pragma once
#include <cstdint>

namespace tsl {

struct ByteWriter;
struct ByteReader;

// One mouse or keyboard event: a fixed 40-byte record on the input channel.
struct InputEvent {
    static constexpr int size = 40;

    enum class Kind : uint8_t {
        mouseMove = 1, mouseDown, mouseUp, mouseDrag, scroll, keyDown, keyUp, flagsChanged,
    };
    enum class Button : uint8_t { left = 0, right = 1, other = 2 };

    Kind kind = Kind::mouseMove;
    Button button = Button::left;
    uint8_t clickCount = 0;
    uint32_t windowID = 0;
    float x = 0, y = 0;
    float deltaX = 0, deltaY = 0;
    uint16_t keyCode = 0;
    uint32_t modifierFlags = 0;
    uint32_t sequence = 0;

    bool isMouse() const { return uint8_t(kind) <= uint8_t(Kind::scroll); }

    void encode(ByteWriter& w) const;
    static InputEvent decode(ByteReader& r);

    bool operator==(const InputEvent&) const = default;
};

}  // namespace tsl
