#pragma once
#include <cstdint>
#include <optional>
#include <string>

#include "Platform/X11/X11KeyTable.h"

namespace tsl::X11 {

// A menu item's keyboard shortcut as the host's user presses it: the
// command character and the menu-item modifier bits (1 shift, 2 option,
// 4 control, 8 no command).
struct MenuShortcut {
    std::string character;
    int64_t modifiers = 0;
    bool operator==(const MenuShortcut&) const = default;
};

// From an AT-SPI key binding, "mnemonic;path;accelerator" with the
// accelerator as GTK names it ("<Primary><Shift>b"). Only the accelerator
// counts; none, or one that doesn't parse, gives nothing. The modifier
// that the agent turns the host's Command into is Command; the other of
// Control and Super is Control.
std::optional<MenuShortcut> menuShortcut(const std::string& keyBinding, CommandKey command);

}  // namespace tsl::X11
