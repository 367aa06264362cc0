#include "TslStream/Input/HostKeyboard.h"

#include <array>

namespace tsl::HostKeyboard {
namespace {

constexpr uint16_t none = 0xFFFF;

// Indexed by USB HID usage (keyboard page); entries are guest virtual key codes.
constexpr std::array<uint16_t, 232> table = [] {
    std::array<uint16_t, 232> t{};
    t.fill(none);
    // Letters a..z.
    constexpr uint16_t letters[26] = {0x00, 0x0B, 0x08, 0x02, 0x0E, 0x03, 0x05, 0x04, 0x22, 0x26, 0x28, 0x25, 0x2E,
                                      0x2D, 0x1F, 0x23, 0x0C, 0x0F, 0x01, 0x11, 0x20, 0x09, 0x0D, 0x07, 0x10, 0x06};
    for (int i = 0; i < 26; ++i) t[4 + i] = letters[i];
    // Digits 1..9, 0.
    constexpr uint16_t digits[10] = {0x12, 0x13, 0x14, 0x15, 0x17, 0x16, 0x1A, 0x1C, 0x19, 0x1D};
    for (int i = 0; i < 10; ++i) t[30 + i] = digits[i];
    t[40] = 0x24;  // return
    t[41] = 0x35;  // escape
    t[42] = 0x33;  // backspace: the guest's delete
    t[43] = 0x30;  // tab
    t[44] = 0x31;  // space
    t[45] = 0x1B;  // minus
    t[46] = 0x18;  // equal
    t[47] = 0x21;  // [
    t[48] = 0x1E;  // ]
    t[49] = 0x2A;  // backslash
    t[50] = 0x2A;  // non-US #, where backslash sits on ISO boards
    t[51] = 0x29;  // ;
    t[52] = 0x27;  // '
    t[53] = 0x32;  // `
    t[54] = 0x2B;  // ,
    t[55] = 0x2F;  // .
    t[56] = 0x2C;  // /
    t[57] = 0x39;  // caps lock
    constexpr uint16_t f1to12[12] = {0x7A, 0x78, 0x63, 0x76, 0x60, 0x61, 0x62, 0x64, 0x65, 0x6D, 0x67, 0x6F};
    for (int i = 0; i < 12; ++i) t[58 + i] = f1to12[i];
    t[73] = 0x72;  // insert: the guest's help key stands in that place
    t[74] = 0x73;  // home
    t[75] = 0x74;  // page up
    t[76] = 0x75;  // delete forward
    t[77] = 0x77;  // end
    t[78] = 0x79;  // page down
    t[79] = 0x7C;  // right
    t[80] = 0x7B;  // left
    t[81] = 0x7D;  // down
    t[82] = 0x7E;  // up
    t[83] = 0x47;  // num lock: the keypad's clear
    t[84] = 0x4B;  // keypad /
    t[85] = 0x43;  // keypad *
    t[86] = 0x4E;  // keypad -
    t[87] = 0x45;  // keypad +
    t[88] = 0x4C;  // keypad enter
    constexpr uint16_t keypad1to9[9] = {0x53, 0x54, 0x55, 0x56, 0x57, 0x58, 0x59, 0x5B, 0x5C};
    for (int i = 0; i < 9; ++i) t[89 + i] = keypad1to9[i];
    t[98] = 0x52;   // keypad 0
    t[99] = 0x41;   // keypad .
    t[100] = 0x0A;  // the ISO key beside left shift
    t[103] = 0x51;  // keypad =
    constexpr uint16_t f13to20[8] = {0x69, 0x6B, 0x71, 0x6A, 0x40, 0x4F, 0x50, 0x5A};
    for (int i = 0; i < 8; ++i) t[104 + i] = f13to20[i];
    t[117] = 0x72;  // help
    t[127] = 0x4A;  // mute
    t[128] = 0x48;  // volume up
    t[129] = 0x49;  // volume down
    t[224] = 0x3B;  // left control
    t[225] = 0x38;  // left shift
    t[226] = 0x3A;  // left alt: option
    t[227] = 0x37;  // left super: command
    t[228] = 0x3E;  // right control
    t[229] = 0x3C;  // right shift
    t[230] = 0x3D;  // right alt
    t[231] = 0x36;  // right super
    return t;
}();

}  // namespace

std::optional<uint16_t> guestKeyCode(uint32_t usbUsage) {
    if (usbUsage >= table.size() || table[usbUsage] == none) return std::nullopt;
    return table[usbUsage];
}

bool isModifier(uint32_t usbUsage) { return usbUsage == 57 || (usbUsage >= 224 && usbUsage <= 231); }

uint64_t keyFlags(uint32_t usbUsage) {
    bool functionKey = (usbUsage >= 58 && usbUsage <= 69) || (usbUsage >= 104 && usbUsage <= 115) ||
                       (usbUsage >= 73 && usbUsage <= 78) || usbUsage == 117;
    bool arrow = usbUsage >= 79 && usbUsage <= 82;
    bool keypad = (usbUsage >= 84 && usbUsage <= 99) || usbUsage == 103;
    uint64_t flags = 0;
    if (functionKey || arrow) flags |= functionFlag;
    if (keypad || arrow) flags |= numericPadFlag;
    return flags;
}

}  // namespace tsl::HostKeyboard
