#include <array>
#include <cctype>

#include "Platform/Sim/World.h"

namespace tsl::Sim {

std::optional<char> characterForKey(uint16_t keyCode, bool shift) {
    // Virtual key codes of the ANSI layout, 0 to 50; '\0' where no character.
    static constexpr std::array<char, 51> plain = {
        'a', 's', 'd', 'f', 'h', 'g', 'z', 'x', 'c', 'v', '\0', 'b', 'q', 'w', 'e', 'r', 'y',
        't', '1', '2', '3', '4', '6', '5', '=', '9', '7', '-', '8', '0', ']', 'o', 'u', '[',
        'i', 'p', '\0', 'l', 'j', '\'', 'k', ';', '\\', ',', '/', 'n', 'm', '.', '\t', ' ', '`'};
    static constexpr std::array<char, 51> shifted = {
        'A', 'S', 'D', 'F', 'H', 'G', 'Z', 'X', 'C', 'V', '\0', 'B', 'Q', 'W', 'E', 'R', 'Y',
        'T', '!', '@', '#', '$', '^', '%', '+', '(', '&', '_', '*', ')', '}', 'O', 'U', '{',
        'I', 'P', '\0', 'L', 'J', '"', 'K', ':', '|', '<', '?', 'N', 'M', '>', '\t', ' ', '~'};
    if (keyCode >= plain.size()) return std::nullopt;
    const char c = shift ? shifted[keyCode] : plain[keyCode];
    return c ? std::optional<char>(c) : std::nullopt;
}

}  // namespace tsl::Sim
