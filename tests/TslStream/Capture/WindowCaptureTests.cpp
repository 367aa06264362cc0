// A window's capture on the simulated desktop: frames and their geometry,
// frames passed over, resizes and scale changes that reach the platform only
// when the size changes, the failures of start, and the platform's own stop.
#include <gtest/gtest.h>

#include <mutex>

#include "Support/PatternDesktop.h"
#include "Support/Waiter.h"
#include "TslStream/Capture/WindowCapture.h"
#include "TslStream/Runtime/MainActor.h"

namespace tsl {
namespace {

constexpr auto captureLimit = std::chrono::seconds(20);

struct Frames {
    std::mutex lock;
    std::vector<std::pair<int64_t, FrameGeometry>> seen;  // width, geometry
    test::Waiter stopped;
    std::exception_ptr stopError;

    WindowCapture::FrameHandler handler() {
        return [this](const std::shared_ptr<PixelBuffer>& buffer, FrameGeometry g) {
            std::lock_guard l(lock);
            seen.emplace_back(buffer->width(), g);
        };
    }
    WindowCapture::StopHandler stopHandler() {
        return [this](std::exception_ptr e) {
            stopError = e;
            stopped.signal();
        };
    }
    std::vector<std::pair<int64_t, FrameGeometry>> all() {
        std::lock_guard l(lock);
        return seen;
    }
};

struct CaptureTest : ::testing::Test {
    MainActor main;
    test::PatternDesktop world;
    Frames frames;
    std::shared_ptr<WindowCapture> capture = make(world.window);

    std::shared_ptr<WindowCapture> make(uint32_t window, double scale = 1.0) {
        return std::make_shared<WindowCapture>(world.services.screenCapture, window, 60, scale, frames.handler(),
                                               frames.stopHandler());
    }
    void run(asio::awaitable<void> task) { main.runTask(std::move(task), captureLimit); }
    std::string startError(const std::shared_ptr<WindowCapture>& c) {
        try {
            run(c->start());
        } catch (const std::exception& e) {
            return e.what();
        }
        return "started";
    }
    int updates() { return world.desktop->captureCounts().updates; }
};

TEST_F(CaptureTest, FramesArriveWithTheirGeometry) {
    run(capture->start());
    EXPECT_EQ(capture->configured(), (CaptureSize{640, 400, 1.0}));
    EXPECT_EQ(capture->pointSize(), (Size{640, 400}));
    EXPECT_EQ(world.desktop->stepCapture(), 1u);
    run(capture->setScale(2.0));
    world.desktop->stepCapture();
    EXPECT_EQ(frames.all(), (std::vector<std::pair<int64_t, FrameGeometry>>{{640, {1.0, 1.0}}, {1280, {2.0, 1.0}}}));
    run(capture->stop());
    run(capture->stop());  // the second does nothing
    EXPECT_EQ(world.desktop->captureCounts().stops, 1);
}

TEST_F(CaptureTest, IncompleteFramesArePassedOverAndMissingKeysFallBack) {
    run(capture->start());
    auto setInfo = [&](std::optional<ValueList> attachments) {
        world.desktop->setAttachmentFilter(world.window, [attachments](std::optional<ValueList>) { return attachments; });
        world.desktop->stepCapture();
    };
    for (auto status : {CaptureFrameInfo::Status::idle, CaptureFrameInfo::Status::blank,
                        CaptureFrameInfo::Status::suspended, CaptureFrameInfo::Status::stopped})
        setInfo(ValueList{ValueDict{{CaptureFrameInfo::keyStatus, int64_t(status)}}});
    EXPECT_TRUE(frames.all().empty());

    run(capture->setScale(1.5));  // fallback is the configured 1.5
    setInfo(std::nullopt);
    setInfo(ValueList{ValueDict{{CaptureFrameInfo::keyStatus, "idle"}}});  // not an integer: passes
    setInfo(ValueList{ValueDict{{CaptureFrameInfo::keyScaleFactor, 2.0}, {CaptureFrameInfo::keyContentScale, 0.0}}});
    auto seen = frames.all();
    ASSERT_EQ(seen.size(), 3u);
    for (auto& [width, g] : seen) EXPECT_EQ(g, (FrameGeometry{1.5, 1.0}));
}

TEST_F(CaptureTest, ReconfiguresOnlyForANewSize) {
    run(capture->resize({640, 400}));  // before start: remembered, nothing else
    run(capture->start());
    run(capture->resize({640, 400}));
    run(capture->setScale(1.0));
    run(capture->setScale(std::numeric_limits<double>::quiet_NaN()));
    EXPECT_EQ(updates(), 0);
    run(capture->setScale(5));  // limited to 2.0
    EXPECT_EQ(capture->scale(), 2.0);
    EXPECT_EQ(capture->configured(), (CaptureSize{1280, 800, 2.0}));
    EXPECT_EQ(updates(), 1);

    // A failed update still counts as the configured size.
    world.desktop->setCaptureFaults({.update = true});
    EXPECT_ANY_THROW(run(capture->resize({320, 200})));
    run(capture->resize({320, 200}));
    world.desktop->setCaptureFaults({});
    EXPECT_EQ(updates(), 1);
    EXPECT_EQ(capture->configured(), (CaptureSize{640, 400, 2.0}));

    run(capture->stop());
    run(capture->resize({100, 100}));  // after stop: remembered only
    EXPECT_EQ(capture->pointSize(), (Size{100, 100}));
    EXPECT_EQ(updates(), 1);
}

TEST_F(CaptureTest, StartRefusals) {
    world.desktop->setScreenRecordingGranted(false);
    EXPECT_FALSE(WindowCapture::hasPermission(*world.services.screenCapture));
    EXPECT_EQ(startError(capture),
              "Screen Recording permission missing (System Settings → Privacy & Security → Screen Recording)");
    world.desktop->setScreenRecordingGranted(true);
    EXPECT_EQ(world.desktop->captureCounts().streamsMade, 0);

    EXPECT_EQ(startError(make(999)), "window 999 not found in shareable content");

    world.desktop->setCaptureFaults({.start = true});
    EXPECT_EQ(startError(make(world.window)), "capture start failed: The stream failed to start.");
    world.desktop->setCaptureFaults({.addOutput = true});
    EXPECT_EQ(startError(make(world.window)), "The stream output could not be added.");
    world.desktop->setCaptureFaults({.content = true});
    EXPECT_NE(startError(make(world.window)), "started");
    world.desktop->setCaptureFaults({});
    EXPECT_EQ(world.desktop->captureCounts().starts, 0);
}

TEST_F(CaptureTest, PlatformStopIsReported) {
    run(capture->start());
    world.desktop->closeWindow(world.window);
    ASSERT_TRUE(frames.stopped.waitFor(1));
    EXPECT_TRUE(frames.stopError);
    run(capture->stop());
}

}  // namespace
}  // namespace tsl
