#pragma once
#include <cstdint>
#include <optional>

#include "TslStream/Input/InputMapper.h"

union SDL_Event;

namespace tsl {

// SDL's input events as the host's event values, without a window: what the
// view's own events become before the shortcut filter and the mapper. The
// one state is the last press's click count, which a drag carries.
class SDLEventTranslator {
public:
    struct Translated {
        InputMapper::HostEvent event;
        uint32_t usage = 0;  // the key's USB HID usage (SDL's scancode); 0 for the mouse
    };

    // `modifiers` is SDL's modifier state now (SDL_GetModState), for events
    // that carry none of their own. Nothing for events that are no input,
    // and for keys the guest has no code for.
    std::optional<Translated> translate(const SDL_Event& event, uint16_t modifiers);

    static uint64_t modifierFlags(uint16_t sdlModifiers);

private:
    int64_t lastClicks = 0;
};

}  // namespace tsl
