// Key bindings as other applications report them over AT-SPI: whatever the
// text, a shortcut that comes out has a character and only the four
// modifier bits, and the two Command mappings differ only in those bits.
#include <string>

#include "FuzzSupport.h"
#include "Platform/X11/AtspiShortcut.h"

using namespace tsl;

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    const std::string binding(reinterpret_cast<const char*>(data), size);
    const auto control = X11::menuShortcut(binding, X11::CommandKey::control);
    const auto super = X11::menuShortcut(binding, X11::CommandKey::super);
    fuzz::require(control.has_value() == super.has_value(), "the Command mapping decided whether it parses");
    if (!control) return 0;
    fuzz::require(!control->character.empty(), "a shortcut without a character");
    fuzz::require(control->character == super->character, "the Command mapping changed the character");
    fuzz::require((control->modifiers & ~int64_t(15)) == 0 && (super->modifiers & ~int64_t(15)) == 0,
                  "modifier bits beyond the four");
    return 0;
}
