#include "TslStream/Measure/SyntheticTestPattern.h"

#include "TslCore/Measure/TestPattern.h"
#include "TslStream/Codec/PixelBuffers.h"

namespace tsl {

SyntheticTestPattern::SyntheticTestPattern(double s)
    : pixelWidth(int64_t(s * TestPatternSpec::contentWidth)),
      pixelHeight(int64_t(s * TestPatternSpec::contentHeight)),
      scale(s) {}

void SyntheticTestPattern::apply(const InputEvent& event) {
    if (event.keyCode != TestPatternSpec::f1KeyCode) return;
    std::lock_guard g(lock);
    if (event.kind == InputEvent::Kind::keyDown) squareWhite = true;
    else if (event.kind == InputEvent::Kind::keyUp) squareWhite = false;
    lastInputSeq = event.sequence;
}

SyntheticTestPattern::Frame SyntheticTestPattern::nextFrame() {
    Frame frame;
    bool white;
    {
        std::lock_guard g(lock);
        frame.counter = ++counter;
        frame.lastInputSeq = lastInputSeq;
        white = squareWhite;
    }
    frame.buffer = PixelBuffers::make(pixelWidth, pixelHeight);
    // A buffer without memory goes out undrawn.
    PixelBufferLock locked(*frame.buffer, 0);
    if (uint8_t* base = locked.base())
        drawTestPattern(base, pixelWidth, pixelHeight, frame.buffer->bytesPerRow(), scale, frame.counter, white);
    return frame;
}

}  // namespace tsl
