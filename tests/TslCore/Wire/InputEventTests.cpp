#include <gtest/gtest.h>

#include <cmath>
#include <limits>

#include "TslCore/Wire/ByteIO.h"
#include "TslCore/Wire/InputEvent.h"
#include "WireTestSupport.h"

using namespace tsl;
using tsl::test::wireErrorOf;

namespace {

Bytes encoded(const InputEvent& e) {
    ByteWriter w;
    e.encode(w);
    return w.data;
}

std::string eventRefusal(Bytes b) {
    return wireErrorOf([&] {
        ByteReader r(b);
        InputEvent::decode(r);
    }).text();
}

}  // namespace

TEST(InputEvent, EveryKindAndButtonRoundTrips) {
    for (uint8_t k = 1; k <= 8; ++k) {
        for (uint8_t b = 0; b <= 2; ++b) {
            InputEvent e;
            e.kind = InputEvent::Kind(k);
            e.button = InputEvent::Button(b);
            e.clickCount = 2;
            e.windowID = 0xDEADBEEF;
            e.x = -12.5f;
            e.y = 3.25f;
            e.deltaX = -0.0f;
            e.deltaY = 1e-30f;
            e.keyCode = 122;
            e.modifierFlags = 0x100000;
            e.sequence = 4294967295u;
            Bytes bytes = encoded(e);
            ASSERT_EQ(bytes.size(), 40u);
            ByteReader r(bytes);
            EXPECT_EQ(InputEvent::decode(r), e);
            EXPECT_EQ(e.isMouse(), k <= 5);
        }
    }
}

TEST(InputEvent, ReservedBytesAreIgnored) {
    InputEvent e;
    e.kind = InputEvent::Kind::keyDown;
    e.keyCode = 0x1234;
    Bytes b = encoded(e);
    b[3] = 0xFF;
    b[26] = 0xFF;
    b[27] = 0xFF;
    b[36] = b[37] = b[38] = b[39] = 0xAB;
    ByteReader r(b);
    EXPECT_EQ(InputEvent::decode(r), e);
}

TEST(InputEvent, RefusesBadKindButtonAndCoordinates) {
    Bytes base = encoded(InputEvent{});
    auto with = [&](size_t at, uint8_t v) {
        Bytes b = base;
        b[at] = v;
        return b;
    };
    EXPECT_EQ(eventRefusal(with(0, 0)), "input kind 0");
    EXPECT_EQ(eventRefusal(with(0, 9)), "input kind 9");
    Bytes keyWithButton = with(0, uint8_t(InputEvent::Kind::keyUp));
    keyWithButton[1] = 3;
    EXPECT_EQ(eventRefusal(keyWithButton), "button 3");

    auto withFloat = [&](size_t at, float f) {
        InputEvent e;
        (at == 8 ? e.x : at == 12 ? e.y : at == 16 ? e.deltaX : e.deltaY) = f;
        return encoded(e);
    };
    EXPECT_EQ(eventRefusal(withFloat(8, std::numeric_limits<float>::infinity())), "non-finite coordinate");
    EXPECT_EQ(eventRefusal(withFloat(20, std::nanf(""))), "non-finite coordinate");
    EXPECT_EQ(eventRefusal(withFloat(16, -std::numeric_limits<float>::infinity())), "non-finite coordinate");
    Bytes negative = withFloat(12, -500.0f);
    ByteReader r(negative);
    EXPECT_EQ(InputEvent::decode(r).y, -500.0f);
}
