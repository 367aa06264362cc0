#include <gtest/gtest.h>

#include <set>
#include <thread>
#include <vector>

#include "TslCore/Measure/TestPattern.h"
#include "TslStream/Input/HostKeyboard.h"
#include "TslStream/Input/InputMapper.h"

namespace tsl {
namespace {

using Kind = InputEvent::Kind;
using Button = InputEvent::Button;

std::optional<InputEvent> mapType(InputMapper& m, uint32_t type, int64_t button = 0, int64_t clicks = 0) {
    return m.map(type, 0, 0, button, clicks, 0, 0, 0, 0);
}

TEST(InputMapper, KindsAndButtonsByTypeAndNumber) {
    InputMapper m(7);
    struct Case { uint32_t type; int64_t number; Kind kind; Button button; };
    const Case cases[] = {
        {InputMapper::leftMouseDown, 0, Kind::mouseDown, Button::left},
        {InputMapper::leftMouseDown, 2, Kind::mouseDown, Button::other},
        {InputMapper::leftMouseUp, 1, Kind::mouseUp, Button::right},
        {InputMapper::rightMouseDown, 2, Kind::mouseDown, Button::right},  // the type wins
        {InputMapper::rightMouseUp, 0, Kind::mouseUp, Button::right},
        {InputMapper::mouseMoved, 0, Kind::mouseMove, Button::left},
        {InputMapper::leftMouseDragged, -3, Kind::mouseDrag, Button::left},
        {InputMapper::rightMouseDragged, 0, Kind::mouseDrag, Button::right},
        {InputMapper::keyDown, 0, Kind::keyDown, Button::left},
        {InputMapper::keyUp, 0, Kind::keyUp, Button::left},
        {InputMapper::flagsChanged, 0, Kind::flagsChanged, Button::left},
        {InputMapper::scrollWheel, 5, Kind::scroll, Button::other},
        {InputMapper::otherMouseDown, 0, Kind::mouseDown, Button::other},
        {InputMapper::otherMouseUp, 1, Kind::mouseUp, Button::other},
        {InputMapper::otherMouseDragged, 0, Kind::mouseDrag, Button::other},
    };
    uint32_t expectedSequence = 0;
    for (const auto& c : cases) {
        auto event = mapType(m, c.type, c.number);
        ASSERT_TRUE(event) << c.type;
        EXPECT_EQ(event->kind, c.kind) << c.type;
        EXPECT_EQ(event->button, c.button) << c.type;
        EXPECT_EQ(event->windowID, 7u);
        EXPECT_EQ(event->sequence, ++expectedSequence);
    }
    for (uint32_t unknown : {0u, 8u, 9u, 13u, 21u, 28u, 1000u}) EXPECT_EQ(mapType(m, unknown), std::nullopt);
    EXPECT_EQ(mapType(m, InputMapper::keyDown)->sequence, expectedSequence + 1);
}

TEST(InputMapper, FieldsClampNarrowAndWrap) {
    InputMapper m(1);
    EXPECT_EQ(mapType(m, InputMapper::keyUp)->sequence, 1u);  // the first is 1
    EXPECT_EQ(mapType(m, InputMapper::leftMouseDown, 0, 300)->clickCount, 255);
    EXPECT_EQ(mapType(m, InputMapper::leftMouseDown, 0, -1)->clickCount, 0);
    m.sequence = 0xFFFFFFFF;
    EXPECT_EQ(mapType(m, InputMapper::mouseMoved)->sequence, 0u);

    auto drag = m.map(InputMapper::leftMouseDragged, -12.25, 1e6, 0, 1, 0, 0, 0, 0);
    EXPECT_FLOAT_EQ(drag->x, -12.25f);  // outside the view is kept
    EXPECT_FLOAT_EQ(drag->y, 1e6f);
    // Device-dependent low bits (which side a modifier is on) never travel.
    auto key = m.map(InputMapper::keyDown, 0, 0, 0, 0, 122, HostKeyboard::commandFlag | 0x0000FFFF | (1ull << 40), 0, 0);
    EXPECT_EQ(key->modifierFlags, HostKeyboard::commandFlag);
    EXPECT_EQ(key->keyCode, 122);

    auto wheel = m.map(InputMapper::scrollWheel, 3, 4, 0, 0, 0, 0, 0.1, -2.5);
    EXPECT_FLOAT_EQ(wheel->deltaX, 0.1f);
    EXPECT_FLOAT_EQ(wheel->deltaY, -2.5f);
}

// What of a host event travels depends on its type: keys have no position,
// clicks or deltas; only a scroll has deltas, and a wheel's lines become pixels.
TEST(InputMapper, HostEventsCarryWhatTheirTypeHas) {
    InputMapper m(9);
    const uint64_t flags = HostKeyboard::shiftFlag | 0x0000'0102;  // a side bit that must not travel
    auto full = [&](uint32_t type) {
        return InputMapper::HostEvent{.type = type, .x = 12.5, .y = -3, .buttonNumber = 1, .clickCount = 2,
                                      .keyCode = 122, .modifierFlags = flags, .scrollDeltaX = 1,
                                      .scrollDeltaY = -0.5, .hasPreciseScrollDeltas = false};
    };
    for (uint32_t type : {InputMapper::keyDown, InputMapper::keyUp, InputMapper::flagsChanged}) {
        auto e = m.map(full(type));
        ASSERT_TRUE(e) << type;
        EXPECT_EQ(e->keyCode, 122);
        EXPECT_EQ(e->button, Button::left);
        EXPECT_EQ(e->clickCount, 0);
        EXPECT_EQ(e->x, 0);
        EXPECT_EQ(e->y, 0);
        EXPECT_EQ(e->deltaX, 0);
        EXPECT_EQ(e->deltaY, 0);
        EXPECT_EQ(e->modifierFlags, HostKeyboard::shiftFlag);
    }
    auto wheel = m.map(full(InputMapper::scrollWheel));
    EXPECT_EQ(wheel->kind, Kind::scroll);
    EXPECT_FLOAT_EQ(wheel->deltaX, 10);
    EXPECT_FLOAT_EQ(wheel->deltaY, -5);
    EXPECT_EQ(wheel->clickCount, 0);
    EXPECT_EQ(wheel->keyCode, 0);
    EXPECT_FLOAT_EQ(wheel->x, 12.5f);
    EXPECT_EQ(wheel->button, Button::right);
    auto touchpad = full(InputMapper::scrollWheel);
    touchpad.hasPreciseScrollDeltas = true;
    EXPECT_FLOAT_EQ(m.map(touchpad)->deltaX, 1);

    auto moved = m.map(full(InputMapper::mouseMoved));
    EXPECT_EQ(moved->clickCount, 0);
    EXPECT_EQ(moved->deltaX, 0);
    EXPECT_EQ(moved->keyCode, 0);
    EXPECT_FLOAT_EQ(moved->y, -3);
    for (uint32_t type : {InputMapper::leftMouseDown, InputMapper::otherMouseDragged}) {
        auto e = m.map(full(type));
        EXPECT_EQ(e->clickCount, 2);
        EXPECT_EQ(e->keyCode, 0);
        EXPECT_EQ(e->deltaY, 0);
        EXPECT_FLOAT_EQ(e->x, 12.5f);
        EXPECT_EQ(e->modifierFlags, HostKeyboard::shiftFlag);
    }
    uint32_t before = m.sequence;
    EXPECT_EQ(m.map(full(13)), std::nullopt);
    EXPECT_EQ(m.sequence, before);
}

// A window's view and a measuring run send from different threads through the
// window's one mapper: no sequence is given twice.
TEST(InputMapper, SharedMapperGivesEachSequenceOnce) {
    SharedInputMapper shared(5);
    std::vector<uint32_t> a, b;
    auto send = [&](std::vector<uint32_t>& into) {
        for (int i = 0; i < 2000; ++i) into.push_back(shared.map({.type = InputMapper::keyDown, .keyCode = 122})->sequence);
    };
    std::thread other([&] { send(b); });
    send(a);
    other.join();
    std::set<uint32_t> all(a.begin(), a.end());
    all.insert(b.begin(), b.end());
    EXPECT_EQ(all.size(), 4000u);
    EXPECT_EQ(*all.rbegin(), 4000u);
    EXPECT_EQ(shared.map(InputMapper::mouseMoved, 0, 0, 0, 0, 0, 0, 0, 0)->windowID, 5u);
}

TEST(HostKeyboard, KeysReachTheGuestsCodes) {
    EXPECT_EQ(HostKeyboard::guestKeyCode(58), TestPatternSpec::f1KeyCode);  // F1 turns the square white
    EXPECT_EQ(HostKeyboard::guestKeyCode(4), 0x00);                        // a
    EXPECT_EQ(HostKeyboard::guestKeyCode(29), 0x06);                       // z
    EXPECT_EQ(HostKeyboard::guestKeyCode(39), 0x1D);                       // 0
    EXPECT_EQ(HostKeyboard::guestKeyCode(40), 0x24);                       // return
    EXPECT_EQ(HostKeyboard::guestKeyCode(82), 0x7E);                       // up
    EXPECT_EQ(HostKeyboard::guestKeyCode(227), 0x37);                      // super is command
    EXPECT_EQ(HostKeyboard::guestKeyCode(0), std::nullopt);
    EXPECT_EQ(HostKeyboard::guestKeyCode(70), std::nullopt);  // print screen has no guest key
    EXPECT_EQ(HostKeyboard::guestKeyCode(100000), std::nullopt);
    // No two host keys of the main block share a guest code.
    std::set<uint16_t> seen;
    for (uint32_t usage = 4; usage <= 82; ++usage) {
        if (usage == 50 || usage == 70 || usage == 71 || usage == 72) continue;
        auto code = HostKeyboard::guestKeyCode(usage);
        ASSERT_TRUE(code) << usage;
        EXPECT_TRUE(seen.insert(*code).second) << usage;
    }
    EXPECT_TRUE(HostKeyboard::isModifier(225));
    EXPECT_TRUE(HostKeyboard::isModifier(57));
    EXPECT_FALSE(HostKeyboard::isModifier(4));
}

}  // namespace
}  // namespace tsl
