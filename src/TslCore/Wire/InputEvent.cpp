#include "TslCore/Wire/InputEvent.h"

#include <bit>

#include "TslCore/Wire/ByteIO.h"
#include "TslCore/Wire/WireError.h"

namespace tsl {
namespace {

// All eight exponent bits set: an infinity or a NaN of either sign.
bool finite(float f) { return (std::bit_cast<uint32_t>(f) & 0x7F800000u) != 0x7F800000u; }

}  // namespace

void InputEvent::encode(ByteWriter& w) const {
    w.u8(uint8_t(kind));
    w.u8(uint8_t(button));
    w.u8(clickCount);
    w.zeros(1);
    w.u32(windowID);
    w.f32(x);
    w.f32(y);
    w.f32(deltaX);
    w.f32(deltaY);
    w.u16(keyCode);
    w.zeros(2);
    w.u32(modifierFlags);
    w.u32(sequence);
    w.zeros(4);
}

InputEvent InputEvent::decode(ByteReader& r) {
    InputEvent e;
    uint8_t rawKind = r.u8();
    if (rawKind < 1 || rawKind > 8) throw WireError::malformedPayload("input kind " + std::to_string(rawKind));
    e.kind = Kind(rawKind);
    uint8_t rawButton = r.u8();
    if (rawButton >= 3) throw WireError::malformedPayload("button " + std::to_string(rawButton));
    e.button = Button(rawButton);
    e.clickCount = r.u8();
    r.skip(1);
    e.windowID = r.u32();
    e.x = r.f32();
    e.y = r.f32();
    e.deltaX = r.f32();
    e.deltaY = r.f32();
    if (!finite(e.x) || !finite(e.y) || !finite(e.deltaX) || !finite(e.deltaY))
        throw WireError::malformedPayload("non-finite coordinate");
    e.keyCode = r.u16();
    r.skip(2);
    e.modifierFlags = r.u32();
    e.sequence = r.u32();
    r.skip(4);
    return e;
}

}  // namespace tsl
