// Window capture on the simulated desktop: frames of the configured size with
// their attachments, the test pattern's pictures, reconfiguration, the
// queue depth, the platform's own stop, and timed delivery.
#include <gtest/gtest.h>
#include <pthread.h>

#include <mutex>

#include "Platform/Sim/Desktop.h"
#include "Support/SimSupport.h"
#include "Support/TempDir.h"
#include "Support/Waiter.h"
#include "TslCore/Measure/TestPattern.h"

using namespace tsl;
using namespace tsl::Sim;

namespace {

// What a stream's output handler saw.
struct Recorder {
    std::mutex lock;
    std::vector<CaptureSample> samples;
    std::vector<std::string> threads;
    test::Waiter frames;

    CaptureStream::OutputHandler handler(bool keep = true) {
        return [this, keep](const CaptureSample& sample, CaptureOutputType) {
            char name[16] = {};
            pthread_getname_np(pthread_self(), name, sizeof name);
            {
                std::lock_guard g(lock);
                samples.push_back(keep ? sample : CaptureSample{sample.isValid, nullptr, sample.attachments});
                threads.push_back(name);
            }
            frames.signal();
        };
    }
    CaptureSample at(size_t i) {
        std::lock_guard g(lock);
        return samples.at(i);
    }
    void clear() {
        std::lock_guard g(lock);
        samples.clear();
    }
    size_t count() {
        std::lock_guard g(lock);
        return samples.size();
    }
};

CaptureConfiguration config(int64_t width, int64_t height, int32_t fps = 60) {
    return {.width = width, .height = height, .minimumFrameIntervalValue = 1, .minimumFrameIntervalTimescale = fps};
}

std::exception_ptr wait(const std::function<void(CaptureStream::Completion)>& call) {
    std::exception_ptr result;
    test::Waiter done;
    call([&](std::exception_ptr e) {
        result = e;
        done.signal();
    });
    EXPECT_TRUE(done.waitFor(1));
    return result;
}

const PlatformValue* info(const CaptureSample& s, const char* key) { return (*s.attachments)[0].find(key); }

// The counter the pattern's cells show, read at each cell's middle.
uint64_t cells(PixelBuffer& buffer, double scale) {
    uint64_t value = 0;
    for (int i = 0; i < TestPatternSpec::barcodeBits; ++i) {
        const auto x = int64_t(scale * (TestPatternSpec::barcodeX + TestPatternSpec::barcodeCell * (i + 0.5)));
        const auto y = int64_t(scale * (TestPatternSpec::barcodeY + TestPatternSpec::barcodeHeight / 2));
        if (test::pixelAt(buffer, x, y) == 0xFFFFFFFF) value |= uint64_t(1) << i;
    }
    return value;
}

struct CapturePatternDesktop {
    test::TempDir dir;
    std::shared_ptr<Desktop> desktop = Desktop::make({.manualCapture = true});
    PlatformServices services = desktop->services();
    int32_t pid = *desktop->launch(test::makeBundle(dir.path(), "Pattern", std::string(TestPatternSpec::bundleID)));
    uint32_t window = desktop->windows().front().id;

    std::shared_ptr<CaptureStream> stream(const CaptureConfiguration& c, Recorder& r,
                                          ScreenCapture::StopHandler stop = nullptr) {
        auto filter = services.screenCapture->filter({.windowID = window});
        auto s = services.screenCapture->makeStream(filter, c, std::move(stop));
        s->addStreamOutput(CaptureOutputType::screen, r.handler());
        EXPECT_FALSE(wait([&](auto done) { s->startCapture(done); }));
        return s;
    }
};

}  // namespace

TEST(SimCapture, FramesCarryTheWindowAtTheConfiguredSize) {
    CapturePatternDesktop world;
    auto& capture = *world.services.screenCapture;
    EXPECT_TRUE(capture.preflightAccess());

    std::optional<ShareableContent> content;
    capture.shareableContent(false, false, [&](std::optional<ShareableContent> c, std::exception_ptr) { content = c; });
    ASSERT_EQ(content->windows.size(), 1u);
    EXPECT_EQ(content->windows[0].title, "Tsl TestPattern");
    EXPECT_EQ(capture.filter(content->windows[0]).pointPixelScale, 1.0);

    Recorder recorder;
    auto stream = world.stream(config(1280, 800), recorder);
    ASSERT_EQ(world.desktop->stepCapture(), 1u);
    ASSERT_EQ(recorder.count(), 1u);
    CaptureSample first = recorder.at(0);
    EXPECT_EQ(recorder.threads[0], "tsl.capture");
    ASSERT_TRUE(first.imageBuffer);
    EXPECT_EQ(first.imageBuffer->width(), 1280);
    EXPECT_EQ(first.imageBuffer->height(), 800);
    EXPECT_EQ(first.imageBuffer->pixelFormat(), PixelBuffer::bgra);
    EXPECT_EQ(info(first, CaptureFrameInfo::keyStatus)->asInteger(), 0);
    EXPECT_EQ(info(first, CaptureFrameInfo::keyScaleFactor)->asNumber(), 1.0);
    EXPECT_EQ(info(first, CaptureFrameInfo::keyContentScale)->asNumber(), 2.0);
    // The pattern at two pixels a point: counter 1, square black.
    EXPECT_EQ(cells(*first.imageBuffer, 2.0), 1u);
    EXPECT_EQ(test::pixelAt(*first.imageBuffer, 2 * 72, 2 * 72), 0xFF000000u);

    // Key 122 held: the next picture has a white square and the next count.
    auto& poster = *world.services.eventPoster;
    poster.postToPid(world.pid, *poster.createKeyboardEvent(std::nullopt, 122, true));
    ASSERT_EQ(world.desktop->stepCapture(), 1u);
    CaptureSample second = recorder.at(1);
    EXPECT_EQ(cells(*second.imageBuffer, 2.0), 2u);
    EXPECT_EQ(test::pixelAt(*second.imageBuffer, 2 * 72, 2 * 72), 0xFFFFFFFFu);
    first = second = {};  // pictures held count against the queue depth

    // A new size takes effect on the same stream; a window of another aspect
    // is fitted in, and the content scale says by how much.
    EXPECT_FALSE(wait([&](auto done) { stream->updateConfiguration(config(320, 400), done); }));
    recorder.clear();
    ASSERT_EQ(world.desktop->stepCapture(), 1u);
    CaptureSample third = recorder.at(0);
    EXPECT_EQ(third.imageBuffer->width(), 320);
    EXPECT_EQ(info(third, CaptureFrameInfo::keyContentScale)->asNumber(), 0.5);
    EXPECT_EQ(cells(*third.imageBuffer, 0.5), 3u);

    // Tests can reshape the attachments.
    world.desktop->setAttachmentFilter(world.window, [](std::optional<ValueList> a) {
        (*a)[0] = ValueDict{{CaptureFrameInfo::keyStatus, int64_t(CaptureFrameInfo::Status::idle)}};
        return a;
    });
    ASSERT_EQ(world.desktop->stepCapture(), 1u);
    EXPECT_EQ(info(recorder.at(1), CaptureFrameInfo::keyStatus)->asInteger(), 1);
    EXPECT_EQ(info(recorder.at(1), CaptureFrameInfo::keyScaleFactor), nullptr);

    EXPECT_FALSE(wait([&](auto done) { stream->stopCapture(done); }));
    EXPECT_EQ(world.desktop->stepCapture(), 0u);
    const CaptureCounts counts = world.desktop->captureCounts();
    EXPECT_EQ(counts.streamsMade, 1);
    EXPECT_EQ(counts.starts, 1);
    EXPECT_EQ(counts.updates, 1);
    EXPECT_EQ(counts.stops, 1);
    EXPECT_EQ(counts.framesDelivered, 4u);
}

TEST(SimCapture, QueueDepthHiddenWindowsAndTheEndOfTheWindow) {
    CapturePatternDesktop world;
    Recorder recorder;
    test::Waiter stopped;
    std::string stopText;
    auto c = config(640, 400);
    c.queueDepth = 2;
    auto stream = world.stream(c, recorder, [&](std::exception_ptr e) {
        try {
            std::rethrow_exception(e);
        } catch (const ScreenCaptureError& error) {
            stopText = error.description();
        }
        stopped.signal();
    });

    // The client holds both pictures: the third tick has none to fill.
    world.desktop->stepCapture();
    world.desktop->stepCapture();
    world.desktop->stepCapture();
    EXPECT_EQ(recorder.count(), 2u);
    EXPECT_EQ(world.desktop->captureCounts().framesSkipped, 1u);
    recorder.clear();  // both come back
    world.desktop->stepCapture();
    EXPECT_EQ(recorder.count(), 1u);
    EXPECT_EQ(cells(*recorder.at(0).imageBuffer, 1.0), 3u);  // a skipped tick draws nothing

    // A minimised window gives idle frames without a picture.
    world.desktop->setMinimized(world.window, true);
    world.desktop->stepCapture();
    ASSERT_EQ(recorder.count(), 2u);
    EXPECT_FALSE(recorder.at(1).imageBuffer);
    EXPECT_EQ(info(recorder.at(1), CaptureFrameInfo::keyStatus)->asInteger(), 1);

    // The window goes: the platform ends the stream once, by itself.
    world.desktop->quit(world.pid);
    ASSERT_TRUE(stopped.waitFor(1));
    EXPECT_NE(stopText.find("no longer available"), std::string::npos);
    EXPECT_EQ(world.desktop->stepCapture(), 0u);
    EXPECT_EQ(stopped.value(), 1);
}

TEST(SimCapture, RefusalsAndPermission) {
    CapturePatternDesktop world;
    auto& capture = *world.services.screenCapture;
    Recorder recorder;
    auto filter = capture.filter({.windowID = world.window});

    world.desktop->setCaptureFaults({.addOutput = true});
    auto s1 = capture.makeStream(filter, config(64, 40), nullptr);
    EXPECT_THROW(s1->addStreamOutput(CaptureOutputType::screen, recorder.handler()), ScreenCaptureError);

    world.desktop->setCaptureFaults({.start = true});
    auto s2 = capture.makeStream(filter, config(64, 40), nullptr);
    EXPECT_TRUE(wait([&](auto done) { s2->startCapture(done); }));
    EXPECT_EQ(world.desktop->stepCapture(), 0u);

    world.desktop->setCaptureFaults({.update = true});
    auto s3 = world.stream(config(64, 40), recorder);
    EXPECT_TRUE(wait([&](auto done) { s3->updateConfiguration(config(128, 80), done); }));
    world.desktop->stepCapture();
    EXPECT_EQ(recorder.at(0).imageBuffer->width(), 64);  // runs on at the old size

    world.desktop->setCaptureFaults({.content = true});
    std::exception_ptr error;
    capture.shareableContent(false, false, [&](auto, std::exception_ptr e) { error = e; });
    EXPECT_TRUE(error);

    world.desktop->setCaptureFaults({});
    world.desktop->setScreenRecordingGranted(false);
    EXPECT_FALSE(capture.preflightAccess());
    EXPECT_FALSE(capture.requestAccess());
    EXPECT_EQ(world.desktop->permissionPrompts(), 1);
}

TEST(SimCapture, TimedStreamsDeliverOnTheirOwnAndStopWhenDropped) {
    test::TempDir dir;
    auto desktop = Desktop::make();
    auto services = desktop->services();
    const int32_t pid = desktop->addProcess({.name = "App"});
    const uint32_t window = desktop->addWindow(pid, {.title = "w", .frame = {0, 0, 200, 100}});
    Recorder recorder;
    auto stream = services.screenCapture->makeStream({.windowID = window}, config(200, 100, 200), nullptr);
    stream->addStreamOutput(CaptureOutputType::screen, recorder.handler(false));
    EXPECT_FALSE(wait([&](auto done) { stream->startCapture(done); }));
    ASSERT_TRUE(recorder.frames.waitFor(5));

    // Reconfigured while running, frames of the new size follow.
    EXPECT_FALSE(wait([&](auto done) { stream->updateConfiguration(config(100, 50, 200), done); }));
    const size_t before = recorder.count();
    ASSERT_TRUE(recorder.frames.waitFor(int(before) + 2));
    EXPECT_EQ(info(recorder.at(recorder.count() - 1), CaptureFrameInfo::keyContentScale)->asNumber(), 0.5);

    // Dropping the stream ends its thread; nothing more arrives.
    stream.reset();
    const size_t after = recorder.count();
    EXPECT_EQ(desktop->stepCapture(), 0u);
    EXPECT_EQ(recorder.count(), after);
}
