#pragma once
#include <cstdint>
#include <optional>

namespace tsl {

// The host's keyboard in the guest's terms. Host keys arrive as USB HID
// usage codes (what a physical key is, whatever the layout), and leave as
// the guest's virtual key codes; the guest applies its own layout.
namespace HostKeyboard {

// The guest's device-independent modifier bits.
inline constexpr uint64_t capsLockFlag = 1u << 16;
inline constexpr uint64_t shiftFlag = 1u << 17;
inline constexpr uint64_t controlFlag = 1u << 18;
inline constexpr uint64_t optionFlag = 1u << 19;
inline constexpr uint64_t commandFlag = 1u << 20;
inline constexpr uint64_t numericPadFlag = 1u << 21;
inline constexpr uint64_t functionFlag = 1u << 23;

// Nothing for a key the guest has no code for.
std::optional<uint16_t> guestKeyCode(uint32_t usbUsage);

// True for the usage codes of shift, control, option (Alt) and command
// (Super/GUI) keys, left or right, and caps lock: they travel as flagsChanged.
bool isModifier(uint32_t usbUsage);

// Bits the guest's own keyboard sets by the key alone: function keys carry
// the function flag, arrows and the keypad the numeric-pad flag (arrows both).
uint64_t keyFlags(uint32_t usbUsage);

}  // namespace HostKeyboard
}  // namespace tsl
