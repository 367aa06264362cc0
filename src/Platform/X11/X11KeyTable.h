#pragma once
#include <cstdint>
#include <optional>

namespace tsl::X11 {

// Which X modifier the wire's Command key becomes.
enum class CommandKey : uint8_t { control, super };

// The wire's virtual key codes (positions on the keyboard) to X keycodes of
// the same positions, in the evdev numbering every current X server uses
// (the Linux key number plus 8). The layout of the X session then gives
// the key its meaning, as the guest applies its own layout.
namespace KeyTable {

std::optional<uint8_t> keycode(uint16_t virtualKey, CommandKey command);

// The keycodes of the four modifiers a flag set names, in flag order:
// Shift, Control, Option, Command.
inline constexpr uint8_t shiftKeycode = 50, controlKeycode = 37, altKeycode = 64, superKeycode = 133;
uint8_t commandKeycode(CommandKey command);

}  // namespace KeyTable
}  // namespace tsl::X11
