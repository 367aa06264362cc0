#include "TslStream/Input/ShortcutKeyFilter.h"

#include "TslStream/Input/HostKeyboard.h"

namespace tsl {

std::vector<InputMapper::HostEvent> ShortcutKeyFilter::pass(const InputMapper::HostEvent& event, uint32_t usage) {
    if (event.type == InputMapper::keyUp) {
        if (swallowedKeyUps.erase(usage) != 0) return {};
        return {event};
    }
    if (event.type != InputMapper::keyDown) return {event};
    if (!(event.modifierFlags & HostKeyboard::commandFlag)) {
        // Still held after Command was let go: its repeats went down plainly,
        // so its real key up must follow them.
        swallowedKeyUps.erase(usage);
        return {event};
    }
    InputMapper::HostEvent up = event;
    up.type = InputMapper::keyUp;
    swallowedKeyUps.insert(usage);
    return {event, up};
}

}  // namespace tsl
