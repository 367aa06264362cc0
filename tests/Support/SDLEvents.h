#pragma once
#include <SDL.h>

#include <cstdint>

// SDL's input events as a user's hand would make them, for the view and its
// translation.
namespace tsl::test {

inline SDL_Event button(uint32_t type, uint8_t which, int x, int y, uint8_t clicks) {
    SDL_Event e{};
    e.type = type;
    e.button.button = which;
    e.button.x = x;
    e.button.y = y;
    e.button.clicks = clicks;
    return e;
}

inline SDL_Event key(uint32_t type, SDL_Scancode code, uint16_t mod) {
    SDL_Event e{};
    e.type = type;
    e.key.keysym.scancode = code;
    e.key.keysym.mod = mod;
    return e;
}

}  // namespace tsl::test
