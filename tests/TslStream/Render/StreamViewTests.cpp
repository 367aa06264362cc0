// The host's view of one guest window on a real window system (SDL's
// offscreen driver, so no display is needed): frames at their point size from
// the top-left, never stretched, and user events turned into InputEvents.
#include <SDL.h>
#include <gtest/gtest.h>

#include <cstdlib>

#include "Support/SDLEvents.h"
#include "TslCore/Measure/TestPattern.h"
#include "TslStream/Codec/PixelBuffers.h"
#include "TslStream/Input/HostKeyboard.h"
#include "TslStream/Measure/TestPatternProbe.h"
#include "TslStream/Render/StreamView.h"

namespace tsl {
namespace {

using Kind = InputEvent::Kind;
using test::key;

class StreamViewTest : public testing::Test {
protected:
    // The software renderer: a GL one would load the system's rasteriser,
    // which the sanitizers can neither see into nor follow when it unloads.
    static void SetUpTestSuite() {
        ::setenv("SDL_VIDEODRIVER", "offscreen", 1);
        ::setenv("SDL_RENDER_DRIVER", "software", 1);
        ::setenv("SDL_FRAMEBUFFER_ACCELERATION", "0", 1);  // else the window's surface is drawn through GL
    }
    void SetUp() override {
        if (!StreamView::displayAvailable()) GTEST_SKIP() << "no window system: " << SDL_GetError();
    }

    static std::shared_ptr<PixelBuffer> pattern(double scale, uint64_t counter) {
        auto b = PixelBuffers::make(int64_t(640 * scale), int64_t(400 * scale));
        PixelBufferLock locked(*b, 0);
        drawTestPattern(locked.base(), b->width(), b->height(), b->bytesPerRow(), scale, counter, false);
        return b;
    }
    static uint32_t at(PixelBuffer& b, int64_t x, int64_t y) {
        auto p = PixelBuffers::pixel(b, x, y);
        return p ? uint32_t(p->b) | uint32_t(p->g) << 8 | uint32_t(p->r) << 16 : 0xDEAD;
    }
};

TEST_F(StreamViewTest, FramesShowAtTheirPointSizeFromTheTopLeft) {
    EXPECT_EQ(StreamView::sanitizedScale(0), 0.25);
    EXPECT_EQ(StreamView::sanitizedScale(100), 8.0);
    EXPECT_EQ(StreamView::sanitizedScale(std::nan("")), 1.0);
    EXPECT_EQ(StreamView::sanitizedScale(1.5), 1.5);

    StreamView view(1, 0, 0, 700, 450, "pattern");
    auto big = PixelBuffers::make(2880, 1800);
    view.show(big, 2.0);
    EXPECT_EQ(view.contentPointSize(), (StreamView::Size{1440, 900}));
    EXPECT_EQ(view.framesShown(), 1u);

    // A buffer on no shared surface changes nothing.
    PixelBuffer::Attributes plain;
    plain.sharedSurface = false;
    view.show(PixelBuffer::make(64, 64, plain), 1.0);
    EXPECT_EQ(view.framesShown(), 1u);
    EXPECT_EQ(view.contentPixelsPerPoint(), 2.0);

    // A 2x frame in a 1x window: 640 by 400 points, black beyond, readable.
    view.show(pattern(2.0, 0xA5C3), 2.0);
    auto shown = view.readBack();
    ASSERT_EQ(shown->width(), 700);
    EXPECT_EQ(at(*shown, 5, 5), 0x303030u);
    EXPECT_EQ(at(*shown, 660, 5), 0u);
    EXPECT_EQ(at(*shown, 5, 420), 0u);
    EXPECT_EQ(TestPatternProbe::counter(*shown, 1.0, 0), 0xA5C3u);

    // A window smaller than the frame cuts it at right and bottom, never shrinks it.
    view.show(pattern(1.0, 7), 1.0);
    view.resizeWindow(200, 300);
    auto cut = view.readBack();
    ASSERT_EQ(cut->width(), 200);
    EXPECT_EQ(at(*cut, 60, 60), 0u);          // inside the square, at its place
    EXPECT_EQ(at(*cut, 20, 20), 0x303030u);
    EXPECT_EQ(TestPatternProbe::squareIsWhite(*cut, 1.0, 0), false);
}

// The translation and the shortcut filter are tested without a window; the
// view only has to use them, and number events with or without a listener.
TEST_F(StreamViewTest, KeysGoThroughTheShortcutFilterAndAreNumberedWithoutAListener) {
    StreamView view(3, 0, 0, 100, 100, "keys");
    std::vector<InputEvent> sent;
    view.onInput = [&](const InputEvent& e) { sent.push_back(e); };
    view.handle(key(SDL_KEYDOWN, SDL_SCANCODE_Q, KMOD_LGUI));
    view.handle(key(SDL_KEYUP, SDL_SCANCODE_Q, KMOD_LGUI));
    ASSERT_EQ(sent.size(), 2u);
    EXPECT_EQ(sent[0].kind, Kind::keyDown);
    EXPECT_EQ(sent[1].kind, Kind::keyUp);
    EXPECT_EQ(sent[1].windowID, 3u);

    view.onInput = nullptr;
    view.handle(key(SDL_KEYDOWN, SDL_SCANCODE_A, KMOD_LSHIFT));
    view.onInput = [&](const InputEvent& e) { sent.push_back(e); };
    view.handle(key(SDL_KEYDOWN, SDL_SCANCODE_UP, 0));
    EXPECT_EQ(sent.back().sequence, sent[1].sequence + 2);
}

// The measuring run's keys and the view's events number one count, so the
// echo in a frame names one event.
TEST_F(StreamViewTest, AViewSharesItsWindowsSequenceWithOtherSenders) {
    auto input = std::make_shared<SharedInputMapper>(11);
    StreamView view(input, 0, 0, 100, 100, "shared");
    EXPECT_EQ(view.windowID(), 11u);
    std::vector<uint32_t> sequences;
    view.onInput = [&](const InputEvent& e) { sequences.push_back(e.sequence); };
    view.handle(key(SDL_KEYDOWN, SDL_SCANCODE_F1, 0));
    sequences.push_back(input->map({.type = InputMapper::keyUp, .keyCode = TestPatternSpec::f1KeyCode})->sequence);
    view.handle(key(SDL_KEYUP, SDL_SCANCODE_F1, 0));
    EXPECT_EQ(sequences, (std::vector<uint32_t>{1, 2, 3}));
}

TEST_F(StreamViewTest, DroppedFilesOnlyWhenTaken) {
    StreamView view(4, 0, 0, 100, 100, "drop");
    std::vector<std::vector<std::string>> drops;
    auto drop = [&](std::vector<const char*> files, bool text) {
        SDL_Event e{};
        e.type = SDL_DROPBEGIN;
        view.handle(e);
        for (const char* f : files) {
            e.type = text ? SDL_DROPTEXT : SDL_DROPFILE;
            e.drop.file = const_cast<char*>(f);
            view.handle(e);
        }
        e.type = SDL_DROPCOMPLETE;
        e.drop.file = nullptr;
        view.handle(e);
    };
    drop({"/tmp/a.txt"}, false);
    EXPECT_TRUE(drops.empty());
    view.onDropFiles = [&](std::vector<std::string> files) { drops.push_back(std::move(files)); };
    drop({"/tmp/a.txt", "/tmp/b c.pdf"}, false);
    drop({"just text"}, true);
    ASSERT_EQ(drops.size(), 1u);
    EXPECT_EQ(drops[0], (std::vector<std::string>{"/tmp/a.txt", "/tmp/b c.pdf"}));
    view.onDropFiles = nullptr;
    drop({"/tmp/c"}, false);
    EXPECT_EQ(drops.size(), 1u);
}

}  // namespace
}  // namespace tsl
