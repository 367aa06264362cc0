// The test pattern drawn into pixel buffers: its size at a scale, the square
// and the cells at their places, and what input changes.
#include <gtest/gtest.h>

#include <thread>

#include "TslCore/Measure/TestPattern.h"
#include "TslStream/Measure/SyntheticTestPattern.h"

using namespace tsl;

namespace {

uint32_t pixel(PixelBuffer& b, int64_t x, int64_t y) {
    PixelBufferLock locked(b, PixelBuffer::lockReadOnly);
    const uint8_t* p = locked.base() + size_t(y) * b.bytesPerRow() + size_t(x) * 4;
    return uint32_t(p[0]) | uint32_t(p[1]) << 8 | uint32_t(p[2]) << 16 | uint32_t(p[3]) << 24;
}

uint64_t cells(PixelBuffer& b, double s) {
    uint64_t value = 0;
    for (int i = 0; i < 16; ++i)
        if (pixel(b, int64_t(s * (40 + 16 * i + 8)), int64_t(s * 148)) == 0xFFFFFFFF) value |= uint64_t(1) << i;
    return value;
}

InputEvent keyEvent(InputEvent::Kind kind, uint16_t code, uint32_t sequence) {
    InputEvent e;
    e.kind = kind;
    e.keyCode = code;
    e.sequence = sequence;
    return e;
}

}  // namespace

TEST(SyntheticTestPattern, SizeAndLayoutAtAScale) {
    SyntheticTestPattern two(2.0);
    EXPECT_EQ(two.pixelWidth, 1280);
    EXPECT_EQ(two.pixelHeight, 800);
    auto frame = two.nextFrame();
    EXPECT_EQ(frame.counter, 1u);
    EXPECT_EQ(frame.buffer->width(), 1280);

    // At 1.5 the square runs from 60 for 96 pixels.
    SyntheticTestPattern mid(1.5);
    auto f = mid.nextFrame();
    auto& b = *f.buffer;
    EXPECT_EQ(pixel(b, 59, 100), 0xFF303030u);
    EXPECT_EQ(pixel(b, 60, 60), 0xFF000000u);
    EXPECT_EQ(pixel(b, 155, 155), 0xFF000000u);
    EXPECT_EQ(pixel(b, 156, 100), 0xFF303030u);
    // The moving bar: counter 1 at x = 1 × 960 / 60 = 16, 24 wide.
    EXPECT_EQ(pixel(b, 15, 300), 0xFF303030u);
    EXPECT_EQ(pixel(b, 16, 300), 0xFF808080u);
    EXPECT_EQ(pixel(b, 39, 599), 0xFF808080u);
    EXPECT_EQ(pixel(b, 40, 300), 0xFF303030u);
}

TEST(SyntheticTestPattern, CellsShowTheLow16BitsOfTheCounter) {
    for (double scale : {1.0, 2.0, 0.5}) {
        SyntheticTestPattern pattern(scale);
        std::vector<uint64_t> seen;
        for (int i = 0; i < 3; ++i) seen.push_back(cells(*pattern.nextFrame().buffer, scale));
        EXPECT_EQ(seen, (std::vector<uint64_t>{1, 2, 3})) << "scale " << scale;
    }
    // The drawing itself, at counters a pattern takes long to reach: 32768
    // lights only the rightmost cell, 65536 none.
    auto buffer = PixelBuffer::make(640, 400);
    for (uint64_t counter : {32768u, 65536u, 65537u}) {
        {
            PixelBufferLock locked(*buffer, 0);
            drawTestPattern(locked.base(), 640, 400, buffer->bytesPerRow(), 1.0, counter, false);
        }
        EXPECT_EQ(cells(*buffer, 1.0), counter & 0xFFFF) << counter;
    }
}

TEST(SyntheticTestPattern, OnlyKey122MovesTheSquareAndTheSequence) {
    SyntheticTestPattern pattern(1.0);
    auto square = [&] { return pixel(*pattern.nextFrame().buffer, 70, 70); };

    pattern.apply(keyEvent(InputEvent::Kind::keyDown, 121, 5));
    auto frame = pattern.nextFrame();
    EXPECT_EQ(frame.lastInputSeq, 0u);
    pattern.apply(keyEvent(InputEvent::Kind::keyDown, TestPatternSpec::f1KeyCode, 6));
    EXPECT_EQ(square(), 0xFFFFFFFFu);
    pattern.apply(keyEvent(InputEvent::Kind::flagsChanged, TestPatternSpec::f1KeyCode, 7));
    frame = pattern.nextFrame();
    EXPECT_EQ(frame.lastInputSeq, 7u);
    EXPECT_EQ(pixel(*frame.buffer, 70, 70), 0xFFFFFFFFu);
    pattern.apply(keyEvent(InputEvent::Kind::keyUp, TestPatternSpec::f1KeyCode, 8));
    EXPECT_EQ(square(), 0xFF000000u);

    // Input and frames from different threads.
    std::thread input([&] {
        for (uint32_t i = 0; i < 200; ++i)
            pattern.apply(keyEvent(i % 2 ? InputEvent::Kind::keyUp : InputEvent::Kind::keyDown, 122, 100 + i));
    });
    for (int i = 0; i < 20; ++i) pattern.nextFrame();
    input.join();
    EXPECT_EQ(pattern.nextFrame().lastInputSeq, 299u);
}
