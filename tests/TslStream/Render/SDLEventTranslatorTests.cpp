// SDL's events as the guest receives them, without a window: the translator,
// the shortcut filter and the mapper, as a view chains them.
#include <SDL.h>
#include <gtest/gtest.h>

#include "Support/SDLEvents.h"
#include "TslCore/Measure/TestPattern.h"
#include "TslStream/Input/HostKeyboard.h"
#include "TslStream/Input/ShortcutKeyFilter.h"
#include "TslStream/Render/SDLEventTranslator.h"

namespace tsl {
namespace {

using Kind = InputEvent::Kind;
using test::button;
using test::key;

struct Chain {
    SDLEventTranslator translator;
    ShortcutKeyFilter shortcuts;
    InputMapper mapper{42};
    std::vector<InputEvent> sent;

    void handle(const SDL_Event& e, uint16_t heldModifiers = 0) {
        if (const auto input = translator.translate(e, heldModifiers))
            for (const auto& event : shortcuts.pass(input->event, input->usage))
                if (auto mapped = mapper.map(event)) sent.push_back(*mapped);
    }
};

TEST(SDLEventTranslator, MouseAndWheelEventsBecomeNumberedInputEvents) {
    Chain chain;
    chain.handle(button(SDL_MOUSEBUTTONDOWN, SDL_BUTTON_LEFT, 10, 20, 2));
    SDL_Event drag{};
    drag.type = SDL_MOUSEMOTION;
    drag.motion.state = SDL_BUTTON_LMASK;
    drag.motion.x = -5;  // a drag goes on outside the view
    drag.motion.y = 30;
    chain.handle(drag);
    chain.handle(button(SDL_MOUSEBUTTONUP, SDL_BUTTON_LEFT, -5, 30, 2));
    chain.handle(button(SDL_MOUSEBUTTONDOWN, SDL_BUTTON_RIGHT, 1, 1, 1));
    chain.handle(button(SDL_MOUSEBUTTONDOWN, SDL_BUTTON_MIDDLE, 1, 1, 1));
    SDL_Event wheel{};
    wheel.type = SDL_MOUSEWHEEL;
    wheel.wheel.preciseY = 1;
    wheel.wheel.mouseX = 7;
    wheel.wheel.mouseY = 8;
    chain.handle(wheel);
    // A flipped wheel (the user's direction is not the device's) goes as SDL
    // reports it; rightward is SDL's positive and the guest's negative.
    wheel.wheel.direction = SDL_MOUSEWHEEL_FLIPPED;
    wheel.wheel.preciseX = 0.5f;
    chain.handle(wheel);
    SDL_Event window{};
    window.type = SDL_WINDOWEVENT;
    chain.handle(window);  // no input

    const auto& sent = chain.sent;
    ASSERT_EQ(sent.size(), 7u);
    EXPECT_EQ(sent[0].kind, Kind::mouseDown);
    EXPECT_EQ(sent[0].clickCount, 2);
    EXPECT_EQ(sent[0].x, 10);
    EXPECT_EQ(sent[0].y, 20);
    EXPECT_EQ(sent[0].windowID, 42u);
    EXPECT_EQ(sent[1].kind, Kind::mouseDrag);
    EXPECT_EQ(sent[1].x, -5);
    EXPECT_EQ(sent[1].clickCount, 2) << "a drag carries its press's count";
    EXPECT_EQ(sent[2].kind, Kind::mouseUp);
    EXPECT_EQ(sent[3].button, InputEvent::Button::right);
    EXPECT_EQ(sent[4].button, InputEvent::Button::other);
    EXPECT_EQ(sent[5].kind, Kind::scroll);
    EXPECT_EQ(sent[5].deltaY, 10);  // one wheel line is ten pixels
    EXPECT_EQ(sent[5].x, 7);
    EXPECT_EQ(sent[6].deltaY, 10);
    EXPECT_EQ(sent[6].deltaX, -5);
    for (size_t i = 0; i < sent.size(); ++i) EXPECT_EQ(sent[i].sequence, i + 1);
}

TEST(SDLEventTranslator, KeysModifiersAndShortcuts) {
    Chain chain;
    auto& sent = chain.sent;
    chain.handle(key(SDL_KEYDOWN, SDL_SCANCODE_F1, 0));
    chain.handle(key(SDL_KEYUP, SDL_SCANCODE_F1, 0));
    ASSERT_EQ(sent.size(), 2u);
    EXPECT_EQ(sent[0].kind, Kind::keyDown);
    EXPECT_EQ(sent[0].keyCode, TestPatternSpec::f1KeyCode);
    EXPECT_EQ(sent[0].x, 0);
    EXPECT_EQ(sent[1].kind, Kind::keyUp);

    // Super is the guest's Command: the shortcut goes down and up at once,
    // and its real key up is swallowed.
    sent.clear();
    chain.handle(key(SDL_KEYDOWN, SDL_SCANCODE_LGUI, KMOD_LGUI));
    chain.handle(key(SDL_KEYDOWN, SDL_SCANCODE_Q, KMOD_LGUI));
    chain.handle(key(SDL_KEYUP, SDL_SCANCODE_Q, KMOD_LGUI));
    chain.handle(key(SDL_KEYUP, SDL_SCANCODE_LGUI, 0));
    ASSERT_EQ(sent.size(), 4u);
    EXPECT_EQ(sent[0].kind, Kind::flagsChanged);
    EXPECT_EQ(sent[0].modifierFlags, HostKeyboard::commandFlag);
    EXPECT_EQ(sent[1].kind, Kind::keyDown);
    EXPECT_EQ(sent[2].kind, Kind::keyUp);
    EXPECT_EQ(sent[1].keyCode, 0x0C);
    EXPECT_EQ(sent[2].sequence, sent[1].sequence + 1);
    EXPECT_EQ(sent[3].kind, Kind::flagsChanged);
    EXPECT_EQ(sent[3].modifierFlags, 0u);

    // Q held on after Super is let go repeats plainly, and its key up follows.
    sent.clear();
    chain.handle(key(SDL_KEYDOWN, SDL_SCANCODE_LGUI, KMOD_LGUI));
    chain.handle(key(SDL_KEYDOWN, SDL_SCANCODE_Q, KMOD_LGUI));
    chain.handle(key(SDL_KEYUP, SDL_SCANCODE_LGUI, 0));
    chain.handle(key(SDL_KEYDOWN, SDL_SCANCODE_Q, 0));
    chain.handle(key(SDL_KEYUP, SDL_SCANCODE_Q, 0));
    ASSERT_EQ(sent.size(), 6u);
    EXPECT_EQ(sent[4].kind, Kind::keyDown);
    EXPECT_EQ(sent[5].kind, Kind::keyUp);
    EXPECT_EQ(sent[5].keyCode, 0x0C);

    chain.handle(key(SDL_KEYDOWN, SDL_SCANCODE_UP, 0));
    EXPECT_EQ(sent.back().modifierFlags, HostKeyboard::functionFlag | HostKeyboard::numericPadFlag);
    // The mouse takes the modifiers held now; keys bring their own.
    chain.handle(button(SDL_MOUSEBUTTONDOWN, SDL_BUTTON_LEFT, 1, 1, 1), KMOD_LSHIFT);
    EXPECT_EQ(sent.back().modifierFlags, HostKeyboard::shiftFlag);
}

}  // namespace
}  // namespace tsl
