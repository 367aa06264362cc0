// Reading the test pattern back out of frames, and the counting and timing
// built on it, against frames the synthetic pattern draws.
#include <gtest/gtest.h>

#include <atomic>
#include <thread>

#include "TslCore/Measure/TestPattern.h"
#include "TslStream/Codec/PixelBuffers.h"
#include "TslStream/Measure/ProbeMeasurement.h"
#include "TslStream/Measure/SyntheticTestPattern.h"
#include "TslStream/Measure/TestPatternProbe.h"
#include "Support/VideoFrames.h"

namespace tsl {
namespace {

// The pattern drawn below `originY` points of something else, as a window
// with a title bar above its content would show it.
std::shared_ptr<PixelBuffer> patternFrame(double scale, double originY, uint64_t counter, bool white) {
    int64_t top = int64_t(originY * scale);
    auto buffer = PixelBuffers::make(int64_t(640 * scale), int64_t(400 * scale) + top);
    PixelBufferLock locked(*buffer, 0);
    drawTestPattern(locked.base() + size_t(top) * buffer->bytesPerRow(), buffer->width(), buffer->height() - top,
                    buffer->bytesPerRow(), scale, counter, white);
    return buffer;
}

InputEvent probeKey(InputEvent::Kind kind, uint32_t sequence) {
    InputEvent e;
    e.kind = kind;
    e.keyCode = TestPatternSpec::f1KeyCode;
    e.sequence = sequence;
    return e;
}

TEST(TestPatternProbe, ReadsBackWhatThePatternDraws) {
    for (double scale : {1.0, 1.5, 2.0}) {
        for (double originY : {0.0, 28.0}) {
            SCOPED_TRACE(testing::Message() << "scale " << scale << " origin " << originY);
            for (uint64_t counter : {1ull, 2ull, 0x8000ull, 0xA5C3ull, 65535ull, 65536ull, 65537ull}) {
                auto frame = patternFrame(scale, originY, counter, counter % 2 == 1);
                EXPECT_EQ(TestPatternProbe::counter(*frame, scale, originY), counter & 0xFFFF);
                EXPECT_EQ(TestPatternProbe::squareIsWhite(*frame, scale, originY), counter % 2 == 1);
            }
        }
    }
    SyntheticTestPattern pattern(2.0);
    pattern.apply(probeKey(InputEvent::Kind::keyDown, 1));
    auto drawn = pattern.nextFrame();
    EXPECT_EQ(TestPatternProbe::counter(*drawn.buffer, 2.0, 0), 1u);
    EXPECT_EQ(TestPatternProbe::squareIsWhite(*drawn.buffer, 2.0, 0), true);
}

// The square flips in predicted frames, as a key press makes it, and each
// frame must already read in its new state.
TEST(TestPatternProbe, ReadsThePatternThroughARealH264RoundTrip) {
    for (double scale : {1.0, 1.5, 2.0}) {
        SCOPED_TRACE(scale);
        test::PatternStream stream(VideoCodec::h264, int64_t(640 * scale), int64_t(400 * scale));
        VideoDecoder decoder;
        ProbeMeasurement probe(0);
        const bool white[] = {false, false, true, true, false, true, false, false};
        for (bool state : white) {
            stream.squareWhite = state;
            auto frame = stream.next();
            std::shared_ptr<PixelBuffer> picture;
            decoder.decode(frame.header, frame.payload, [&](const DecodedFrame& f) { picture = f.pixelBuffer; });
            ASSERT_TRUE(picture);
            EXPECT_EQ(TestPatternProbe::counter(*picture, scale, 0), stream.frameID);
            EXPECT_EQ(TestPatternProbe::squareIsWhite(*picture, scale, 0), state) << "frame " << stream.frameID;
            probe.onFrame(*picture, scale);
        }
        EXPECT_EQ(probe.snapshot(), (ProbeMeasurement::Snapshot{std::size(white), 0}));
    }
}

TEST(TestPatternProbe, FramesThatDoNotHoldThePatternReadAsNothing) {
    auto tiny = PixelBuffers::make(100, 100);  // the cells lie outside
    EXPECT_EQ(TestPatternProbe::counter(*tiny, 1, 0), std::nullopt);
    EXPECT_EQ(TestPatternProbe::squareIsWhite(*tiny, 1, 0), false);
    EXPECT_EQ(TestPatternProbe::squareIsWhite(*tiny, 1, 200), std::nullopt);
}

TEST(ProbeMeasurement, CountsFramesAndLossesByTheCounter) {
    ProbeMeasurement probe(0);
    auto feed = [&](uint64_t counter) { probe.onFrame(*patternFrame(1, 0, counter, false), 1); };
    feed(1);
    feed(1);  // a repeat
    feed(2);  // the next
    EXPECT_EQ(probe.snapshot(), (ProbeMeasurement::Snapshot{3, 0}));
    feed(4);  // one lost
    feed(3);  // a step back
    EXPECT_EQ(probe.snapshot(), (ProbeMeasurement::Snapshot{5, 1}));
    feed(65535);  // so far ahead it reads as a step back
    feed(65537);  // shows 1: across the wrap, one lost
    EXPECT_EQ(probe.snapshot(), (ProbeMeasurement::Snapshot{7, 2}));
    auto unreadable = PixelBuffers::make(10, 10);
    probe.onFrame(*unreadable, 1);  // counted, but moves nothing else
    feed(65538);
    EXPECT_EQ(probe.snapshot(), (ProbeMeasurement::Snapshot{9, 2}));
}

TEST(ProbeMeasurement, TimesAKeyUntilTheFirstFrameThatShowsIt) {
    ProbeMeasurement probe(0);
    SyntheticTestPattern pattern(1.0);
    std::atomic<bool> running{true};
    std::thread decoder([&] {
        while (running) probe.onFrame(*pattern.nextFrame().buffer, 1.0);
    });
    auto white = probe.measure(true, 30, [&] { pattern.apply(probeKey(InputEvent::Kind::keyDown, 1)); });
    auto black = probe.measure(false, 30, [&] { pattern.apply(probeKey(InputEvent::Kind::keyUp, 2)); });
    running = false;
    decoder.join();
    ASSERT_TRUE(white);
    ASSERT_TRUE(black);
    EXPECT_GE(*white, 0);
    EXPECT_GE(*black, 0);
    EXPECT_GT(probe.snapshot().frames, 0u);
}

TEST(ProbeMeasurement, TimeOutsAndFailedSendsLeaveTheNextOneClean) {
    ProbeMeasurement probe(0);
    // No frame ever comes: nothing, after the time-out.
    EXPECT_EQ(probe.measure(true, 0.01, [] {}), std::nullopt);
    EXPECT_THROW(probe.measure(true, 5, [] { throw std::runtime_error("link down"); }), std::runtime_error);
    // The next one is clean: a frame in the wanted state, from the decoding
    // thread after the send, ends it.
    std::thread decoder;
    auto result = probe.measure(false, 30, [&] {
        decoder = std::thread([&] { probe.onFrame(*patternFrame(1, 0, 1, false), 1); });
    });
    decoder.join();
    ASSERT_TRUE(result);
    EXPECT_GE(*result, 0);
}

}  // namespace
}  // namespace tsl
