#include "Platform/X11/X11KeyTable.h"

#include <array>

namespace tsl::X11::KeyTable {
namespace {

constexpr uint8_t none = 0;
constexpr uint16_t commandKey = 55, rightCommandKey = 54;

// Indexed by virtual key code; 0 where the position has no key on a PC keyboard.
constexpr std::array<uint8_t, 127> table = [] {
    std::array<uint8_t, 127> t{};
    auto set = [&](uint16_t vk, uint8_t linuxKey) { t[vk] = uint8_t(linuxKey + 8); };
    // Letters.
    set(0, 30), set(1, 31), set(2, 32), set(3, 33), set(4, 35), set(5, 34), set(6, 44), set(7, 45), set(8, 46);
    set(9, 47), set(11, 48), set(12, 16), set(13, 17), set(14, 18), set(15, 19), set(16, 21), set(17, 20);
    set(31, 24), set(32, 22), set(34, 23), set(35, 25), set(37, 38), set(38, 36), set(40, 37), set(45, 49);
    set(46, 50);
    // Digits and punctuation.
    set(18, 2), set(19, 3), set(20, 4), set(21, 5), set(22, 7), set(23, 6), set(24, 13), set(25, 10);
    set(26, 8), set(27, 12), set(28, 9), set(29, 11), set(30, 27), set(33, 26), set(39, 40), set(41, 39);
    set(42, 43), set(43, 51), set(44, 53), set(47, 52), set(50, 41), set(10, 86);
    // Editing keys.
    set(36, 28), set(48, 15), set(49, 57), set(51, 14), set(53, 1), set(114, 110), set(115, 102), set(116, 104);
    set(117, 111), set(119, 107), set(121, 109), set(76, 96);
    // Modifiers; Command is chosen at lookup.
    set(56, 42), set(57, 58), set(58, 56), set(59, 29), set(60, 54), set(61, 100), set(62, 97);
    // Function keys.
    set(122, 59), set(120, 60), set(99, 61), set(118, 62), set(96, 63), set(97, 64), set(98, 65), set(100, 66);
    set(101, 67), set(109, 68), set(103, 87), set(111, 88), set(105, 183), set(107, 184), set(113, 185);
    set(106, 186), set(64, 187), set(79, 188), set(80, 189), set(90, 190);
    // Arrows.
    set(123, 105), set(124, 106), set(125, 108), set(126, 103);
    // Keypad.
    set(65, 83), set(67, 55), set(69, 78), set(71, 69), set(75, 98), set(78, 74), set(81, 117), set(82, 82);
    set(83, 79), set(84, 80), set(85, 81), set(86, 75), set(87, 76), set(88, 77), set(89, 71), set(91, 72);
    set(92, 73);
    return t;
}();

}  // namespace

uint8_t commandKeycode(CommandKey command) { return command == CommandKey::super ? superKeycode : controlKeycode; }

std::optional<uint8_t> keycode(uint16_t virtualKey, CommandKey command) {
    if (virtualKey == commandKey) return commandKeycode(command);
    if (virtualKey == rightCommandKey) return uint8_t(command == CommandKey::super ? 134 : 105);
    if (virtualKey >= table.size() || table[virtualKey] == none) return std::nullopt;
    return table[virtualKey];
}

}  // namespace tsl::X11::KeyTable
