// Window capture on a real server, drawn by Render into shared pixmaps,
// read through SHM GetImage and through plain GetImage: the pattern client's frames as the port delivers them, covered,
// resized, unmapped and closed windows, and DAMAGE keeping pictures to changes.
#include <gtest/gtest.h>

#include <algorithm>
#include <condition_variable>

#include "Platform/X11/X11ScreenCapture.h"
#include "Support/XDisplay.h"
#include "TslStream/Measure/TestPatternProbe.h"

namespace tsl::test {
namespace {

using Status = CaptureFrameInfo::Status;

struct Frame {
    Status status = Status::idle;
    int64_t width = 0, height = 0;
    std::optional<uint64_t> counter;
    bool opaque = true;
    uint32_t centre = 0;  // the pixel in the middle
};

// What one stream delivered, read inside the handler since pictures go back to the pool.
struct Recorder {
    std::mutex m;
    std::condition_variable cv;
    std::vector<Frame> frames;
    bool stopped = false;

    void take(const CaptureSample& sample) {
        Frame f;
        const ValueDict* info = sample.attachments->front().asDict();
        f.status = Status(*info->at(CaptureFrameInfo::keyStatus).asInteger());
        if (auto& b = sample.imageBuffer) {
            f.width = b->width(), f.height = b->height();
            f.counter = TestPatternProbe::counter(*b, 1.0, 0);
            PixelBufferLock locked(*b, lockReadOnly);
            for (int64_t y = 0; y < f.height; ++y) {
                const auto* row = reinterpret_cast<const uint32_t*>(locked.base() + y * b->bytesPerRow());
                for (int64_t x = 0; x < f.width; ++x) f.opaque = f.opaque && (row[x] >> 24) == 0xFF;
            }
            std::memcpy(&f.centre, locked.base() + (f.height / 2) * b->bytesPerRow() + (f.width / 2) * 4, 4);
        }
        std::lock_guard g(m);
        frames.push_back(f);
        cv.notify_all();
    }
    static constexpr uint32_t lockReadOnly = PixelBuffer::lockReadOnly;

    // Waits for a frame from index `from` on that satisfies `want`.
    template <class Want>
    std::optional<Frame> await(size_t from, Want want) {
        std::unique_lock g(m);
        std::optional<Frame> found;
        cv.wait_for(g, XDisplay::limit, [&] {
            for (size_t i = from; i < frames.size(); ++i)
                if (want(frames[i])) return (found = frames[i]), true;
            return stopped;
        });
        return found;
    }
    size_t count() {
        std::lock_guard g(m);
        return frames.size();
    }
    size_t pictures(size_t from = 0) {
        std::lock_guard g(m);
        size_t n = 0;
        for (size_t i = from; i < frames.size(); ++i) n += frames[i].status == Status::complete;
        return n;
    }
};

// How pictures come from the server.
enum class Way { render, shmGetImage, plainGetImage };

class X11CaptureTest : public ::testing::TestWithParam<Way> {
protected:
    void SetUp() override {
        display = std::make_unique<XDisplay>(false);
        ASSERT_TRUE(display->ready());
        const X11::CaptureOptions options{.sharedMemory = GetParam() != Way::plainGetImage,
                                          .sharedPixmaps = GetParam() == Way::render};
        capture = std::make_shared<X11::X11ScreenCapture>(display->shared(), options);
        ASSERT_EQ(capture->sharedMemory(), options.sharedMemory);
        ASSERT_EQ(capture->sharedPixmaps(), options.sharedPixmaps);
    }
    void TearDown() override {
        if (stream) stream->stopCapture([](std::exception_ptr) {});
        stream.reset();
        capture.reset();
        display.reset();
    }

    void start(uint32_t window, int64_t width, int64_t height, bool cursor = false) {
        CaptureConfiguration config{.width = width,
                                    .height = height,
                                    .minimumFrameIntervalValue = 1,
                                    .minimumFrameIntervalTimescale = 60,
                                    .showsCursor = cursor};
        stream = capture->makeStream({.windowID = window}, config, [this](std::exception_ptr) {
            std::lock_guard g(recorder.m);
            recorder.stopped = true;
            recorder.cv.notify_all();
        });
        stream->addStreamOutput(CaptureOutputType::screen,
                                [this](const CaptureSample& s, CaptureOutputType) { recorder.take(s); });
        std::exception_ptr error;
        stream->startCapture([&](std::exception_ptr e) { error = e; });
        ASSERT_FALSE(error);
    }

    // A plain window of our own in one colour, which changes only when told.
    xcb_window_t plainWindow(int x, int y, int width, int height, uint32_t colour, bool overrideRedirect = false) {
        xcb_connection_t* c = display->connection().raw();
        const xcb_window_t w = xcb_generate_id(c);
        const uint32_t values[] = {colour, overrideRedirect};
        xcb_create_window(c, XCB_COPY_FROM_PARENT, w, display->connection().root(), int16_t(x), int16_t(y),
                          uint16_t(width), uint16_t(height), 0, XCB_WINDOW_CLASS_INPUT_OUTPUT, XCB_COPY_FROM_PARENT,
                          XCB_CW_BACK_PIXEL | XCB_CW_OVERRIDE_REDIRECT, values);
        xcb_map_window(c, w);
        display->connection().roundTrip();
        return w;
    }
    void paint(xcb_window_t w, uint32_t colour) {
        xcb_connection_t* c = display->connection().raw();
        xcb_change_window_attributes(c, w, XCB_CW_BACK_PIXEL, &colour);
        xcb_clear_area(c, 0, w, 0, 0, 0, 0);
        display->connection().roundTrip();
    }

    std::unique_ptr<XDisplay> display;
    std::shared_ptr<X11::X11ScreenCapture> capture;
    std::shared_ptr<CaptureStream> stream;
    Recorder recorder;
};

TEST_P(X11CaptureTest, PatternFramesAdvanceAndStayWholeUnderACoveringWindow) {
    display->launchPattern(50, 40, 60);
    auto pattern = display->waitForWindow("Tsl TestPattern");
    ASSERT_TRUE(pattern);
    const auto w = int64_t(pattern->bounds.width), h = int64_t(pattern->bounds.height);
    start(pattern->id, w, h);
    auto first = recorder.await(0, [](const Frame& f) { return f.counter.has_value(); });
    ASSERT_TRUE(first);
    EXPECT_EQ(first->width, w);
    EXPECT_EQ(first->height, h);
    EXPECT_TRUE(first->opaque);
    EXPECT_TRUE(recorder.await(0, [&](const Frame& f) { return f.counter && *f.counter > *first->counter; }));

    // A window over the whole screen hides it; the capture doesn't notice.
    plainWindow(0, 0, 1280, 1024, 0x00FF00, true);
    ASSERT_TRUE(display->meanLuma(int(pattern->bounds.x) + 10, int(pattern->bounds.y) + 10, 8, 8) > 100.0);
    const size_t covered = recorder.count();
    auto before = recorder.await(covered, [](const Frame& f) { return f.counter.has_value(); });
    ASSERT_TRUE(before);
    EXPECT_TRUE(recorder.await(covered, [&](const Frame& f) { return f.counter && *f.counter > *before->counter; }));
}

TEST_P(X11CaptureTest, AResizedWindowIsReadAtItsNewSize) {
    const xcb_window_t w = plainWindow(10, 10, 200, 100, 0x3366CC);
    start(w, 200, 100);
    ASSERT_TRUE(recorder.await(0, [](const Frame& f) { return f.status == Status::complete; }));

    const uint32_t size[] = {320, 240};
    xcb_configure_window(display->connection().raw(), w, XCB_CONFIG_WINDOW_WIDTH | XCB_CONFIG_WINDOW_HEIGHT, size);
    display->connection().roundTrip();
    // Until the configuration follows, the new size is fitted into the old.
    size_t mark = recorder.count();
    auto fitted = recorder.await(mark, [](const Frame& f) { return f.status == Status::complete; });
    ASSERT_TRUE(fitted);
    EXPECT_EQ(fitted->width, 200);
    EXPECT_EQ(fitted->centre & 0xFFFFFF, 0x3366CCu);

    mark = recorder.count();
    stream->updateConfiguration(
        {.width = 320, .height = 240, .minimumFrameIntervalValue = 1, .minimumFrameIntervalTimescale = 60},
        [](std::exception_ptr e) { EXPECT_FALSE(e); });
    auto resized = recorder.await(mark, [](const Frame& f) { return f.width == 320; });
    ASSERT_TRUE(resized);
    EXPECT_EQ(resized->height, 240);
    EXPECT_EQ(resized->centre, 0xFF3366CCu);
}

TEST_P(X11CaptureTest, OnlyAChangeOrARemapBringsANewPicture) {
    const xcb_window_t w = plainWindow(10, 10, 160, 120, 0x102030);
    start(w, 160, 120);
    // Redirecting repaints the window once: settled after a few idle ticks.
    ASSERT_TRUE(recorder.await(0, [&](const Frame&) {
        std::vector<Frame>& f = recorder.frames;
        return f.size() >= 5 &&
               std::all_of(f.end() - 5, f.end(), [](const Frame& x) { return x.status == Status::idle; });
    }));
    // Twenty idle ticks more, and not a picture among them.
    const size_t still = recorder.count();
    ASSERT_TRUE(recorder.await(still + 20, [](const Frame&) { return true; }));
    EXPECT_EQ(recorder.pictures(still), 0u);

    paint(w, 0xA0B0C0);
    auto changed = recorder.await(still, [](const Frame& f) { return f.status == Status::complete; });
    ASSERT_TRUE(changed);
    EXPECT_EQ(changed->centre, 0xFFA0B0C0u);
    EXPECT_TRUE(changed->opaque);

    // Unmapped, a window only idles; mapped again, it is read from its new pixmap.
    xcb_unmap_window(display->connection().raw(), w);
    display->connection().roundTrip();
    size_t mark = recorder.count();
    ASSERT_TRUE(recorder.await(mark + 5, [](const Frame&) { return true; }));
    const size_t hidden = recorder.count();
    ASSERT_TRUE(recorder.await(hidden + 5, [](const Frame&) { return true; }));
    EXPECT_EQ(recorder.pictures(hidden), 0u);
    xcb_map_window(display->connection().raw(), w);
    paint(w, 0x405060);
    EXPECT_TRUE(recorder.await(hidden, [](const Frame& f) { return f.centre == 0xFF405060u; }));
}

TEST_P(X11CaptureTest, AClosedWindowEndsItsStream) {
    const xcb_window_t w = plainWindow(10, 10, 64, 64, 0x808080);
    start(w, 64, 64);
    ASSERT_TRUE(recorder.await(0, [](const Frame& f) { return f.status == Status::complete; }));
    xcb_destroy_window(display->connection().raw(), w);
    display->connection().flush();
    std::unique_lock g(recorder.m);
    EXPECT_TRUE(recorder.cv.wait_for(g, XDisplay::limit, [&] { return recorder.stopped; }));
}

TEST_P(X11CaptureTest, TheCursorIsBlendedInOnlyWhenAskedFor) {
    const xcb_window_t w = plainWindow(0, 0, 64, 64, 0xFF0000);
    xcb_warp_pointer(display->connection().raw(), XCB_NONE, w, 0, 0, 0, 0, 32, 32);
    display->connection().roundTrip();
    start(w, 64, 64, true);
    // The server's default cursor has its hot spot in the middle.
    EXPECT_TRUE(
        recorder.await(0, [](const Frame& f) { return f.status == Status::complete && f.centre != 0xFFFF0000u; }));
    stream->stopCapture([](std::exception_ptr) {});
    Recorder& r = recorder;
    const size_t mark = r.count();
    start(w, 64, 64, false);
    auto plain = r.await(mark, [](const Frame& f) { return f.status == Status::complete; });
    ASSERT_TRUE(plain);
    EXPECT_EQ(plain->centre, 0xFFFF0000u);
}

INSTANTIATE_TEST_SUITE_P(X11, X11CaptureTest, ::testing::Values(Way::render, Way::shmGetImage, Way::plainGetImage),
                         [](const auto& info) {
                             return info.param == Way::render        ? "Render"
                                    : info.param == Way::shmGetImage ? "ShmGetImage"
                                                                     : "PlainGetImage";
                         });

}  // namespace
}  // namespace tsl::test
