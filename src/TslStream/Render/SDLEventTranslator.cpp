#include "TslStream/Render/SDLEventTranslator.h"

#include <SDL.h>

#include "TslStream/Input/HostKeyboard.h"

namespace tsl {
namespace {

using HostEvent = InputMapper::HostEvent;

HostEvent motion(const SDL_MouseMotionEvent& m, int64_t clicks) {
    HostEvent event;
    event.x = m.x;
    event.y = m.y;
    event.clickCount = clicks;  // a drag carries its press's count
    if (m.state & SDL_BUTTON_LMASK) {
        event.type = InputMapper::leftMouseDragged;
    } else if (m.state & SDL_BUTTON_RMASK) {
        event.type = InputMapper::rightMouseDragged;
        event.buttonNumber = 1;
    } else if (m.state) {
        event.type = InputMapper::otherMouseDragged;
        event.buttonNumber = 2;
    } else {
        event.type = InputMapper::mouseMoved;
    }
    return event;
}

HostEvent button(const SDL_MouseButtonEvent& b, bool down) {
    HostEvent event;
    switch (b.button) {
        case SDL_BUTTON_LEFT: event.type = down ? InputMapper::leftMouseDown : InputMapper::leftMouseUp; break;
        case SDL_BUTTON_RIGHT:
            event.type = down ? InputMapper::rightMouseDown : InputMapper::rightMouseUp;
            event.buttonNumber = 1;
            break;
        default:
            event.type = down ? InputMapper::otherMouseDown : InputMapper::otherMouseUp;
            event.buttonNumber = b.button == SDL_BUTTON_MIDDLE ? 2 : b.button - 1;
    }
    event.x = b.x;
    event.y = b.y;
    event.clickCount = b.clicks;
    return event;
}

// SDL's values are already in the direction the user asked for (FLIPPED
// only says that it differs from the device's), which is the one the guest
// takes. SDL counts lines, rightward positive; the guest's scroll events
// count leftward positive.
HostEvent wheel(const SDL_MouseWheelEvent& w) {
    HostEvent event;
    event.type = InputMapper::scrollWheel;
    event.x = w.mouseX;
    event.y = w.mouseY;
    event.scrollDeltaX = -double(w.preciseX);
    event.scrollDeltaY = w.preciseY;
    return event;
}

std::optional<HostEvent> key(const SDL_KeyboardEvent& k) {
    const uint32_t usage = uint32_t(k.keysym.scancode);
    const auto code = HostKeyboard::guestKeyCode(usage);
    if (!code) return std::nullopt;
    HostEvent event;
    event.keyCode = *code;
    event.modifierFlags = SDLEventTranslator::modifierFlags(k.keysym.mod);
    if (HostKeyboard::isModifier(usage)) {
        event.type = InputMapper::flagsChanged;
        return event;
    }
    event.modifierFlags |= HostKeyboard::keyFlags(usage);
    event.type = k.type == SDL_KEYDOWN ? InputMapper::keyDown : InputMapper::keyUp;
    return event;
}

}  // namespace

uint64_t SDLEventTranslator::modifierFlags(uint16_t mod) {
    uint64_t flags = 0;
    if (mod & KMOD_SHIFT) flags |= HostKeyboard::shiftFlag;
    if (mod & KMOD_CTRL) flags |= HostKeyboard::controlFlag;
    if (mod & KMOD_ALT) flags |= HostKeyboard::optionFlag;
    if (mod & KMOD_GUI) flags |= HostKeyboard::commandFlag;
    if (mod & KMOD_CAPS) flags |= HostKeyboard::capsLockFlag;
    return flags;
}

std::optional<SDLEventTranslator::Translated> SDLEventTranslator::translate(const SDL_Event& e, uint16_t modifiers) {
    std::optional<HostEvent> event;
    uint32_t usage = 0;
    switch (e.type) {
        case SDL_MOUSEMOTION: event = motion(e.motion, lastClicks); break;
        case SDL_MOUSEBUTTONDOWN:
        case SDL_MOUSEBUTTONUP:
            if (e.type == SDL_MOUSEBUTTONDOWN) lastClicks = e.button.clicks;
            event = button(e.button, e.type == SDL_MOUSEBUTTONDOWN);
            break;
        case SDL_MOUSEWHEEL: event = wheel(e.wheel); break;
        case SDL_KEYDOWN:
        case SDL_KEYUP:
            usage = uint32_t(e.key.keysym.scancode);
            if (auto k = key(e.key)) return Translated{*k, usage};
            return std::nullopt;
        default: return std::nullopt;
    }
    event->modifierFlags = modifierFlags(modifiers);
    return Translated{*event, usage};
}

}  // namespace tsl
