// The stream table on the simulated desktop, with frames read back over a
// real socket: starts, stops and their races with the capture's start,
// updates, key frames, and what the windows do.
#include <gtest/gtest.h>

#include "Support/AgentTestSupport.h"
#include "Support/Errors.h"
#include "Support/PatternDesktop.h"
#include "Support/VideoReceiver.h"
#include "TslAgent/StreamManager.h"

using namespace tsl;
using namespace tsl::test;

namespace {

using Flags = VideoFrameHeader::Flags;

struct ManagerWorld {
    MainActor main;
    PatternDesktop world;
    std::shared_ptr<EchoCounter> echo = std::make_shared<EchoCounter>();
    std::shared_ptr<StreamManager> manager = std::make_shared<StreamManager>(world.services.screenCapture, echo);
    std::pair<int, int> fds = socketPair();
    std::shared_ptr<WireConnection> connection = std::make_shared<WireConnection>(fds.first, "agent-video");
    VideoReceiver host{fds.second};

    ~ManagerWorld() { main.runTask(manager->stopAll(), limit); }

    StreamRequest request(uint32_t id, VideoCodec codec = VideoCodec::h264, uint32_t window = 0) {
        return {id, window ? window : world.window, 60, 1.0, codec};
    }
    void start(StreamRequest r) { main.runTask(manager->start(r, connection), limit); }
    // The error a start ends with when `meanwhile` runs while the capture starts.
    std::string startRacing(StreamRequest r, std::function<asio::awaitable<void>()> meanwhile) {
        std::string outcome = "pending";
        main.spawn([&]() -> asio::awaitable<void> {
            try {
                co_await manager->start(r, connection);
                outcome = "started";
            } catch (const std::exception& e) {
                outcome = e.what();
            }
        });
        main.spawn([&]() -> asio::awaitable<void> { co_await meanwhile(); });
        main.runUntil([&] { return outcome != "pending"; }, limit);
        return outcome;
    }
    // One frame from every stream, read back.
    void step(int expectedTotal) {
        world.desktop->stepCapture();
        ASSERT_TRUE(host.waitFor(expectedTotal));
    }
};

TEST(StreamManager, FramesOfAStartedStreamReachTheConnection) {
    ManagerWorld w;
    w.start(w.request(3, VideoCodec::rawBGRA));
    EXPECT_EQ(w.manager->activeStreams(), (std::vector<uint32_t>{3}));
    w.echo->store(17);
    w.step(1);
    w.step(2);
    for (size_t i = 0; i < 2; ++i) {
        auto frame = w.host.at(i);
        EXPECT_EQ(frame.header.frameID, i + 1);
        EXPECT_EQ(frame.header.inputEcho, 17u);
        EXPECT_EQ((std::tuple{frame.header.width, frame.header.height, frame.header.contentScale}),
                  (std::tuple{640u, 400u, uint16_t(100)}));
    }
    EXPECT_EQ(w.manager->sender(3)->framesSent(), 2u);
    w.main.runTask(w.manager->stop(3), limit);
    w.main.runTask(w.manager->stop(3), limit);  // unknown now: no error
    EXPECT_TRUE(w.manager->activeStreams().empty());
    EXPECT_EQ(w.world.desktop->captureCounts().stops, 1);
}

TEST(StreamManager, StopsWhileStartingCancelTheStart) {
    const std::string cancelled = "cancelled: stream 4 was stopped while starting";
    ManagerWorld w;
    EXPECT_EQ(w.startRacing(w.request(4), [&] { return w.manager->stop(4); }), cancelled);
    EXPECT_EQ(w.startRacing(w.request(4), [&] { return w.manager->windowClosed(w.world.window); }), cancelled);
    EXPECT_EQ(w.startRacing(w.request(4), [&]() -> asio::awaitable<void> {
        try {  // a starting stream is unknown to update
            co_await w.manager->update(w.request(4));
            ADD_FAILURE() << "update found a starting stream";
        } catch (const ControlError& e) {
            EXPECT_EQ(e.description(), "notFound: stream 4");
        }
        co_await w.manager->stopAll();
    }), cancelled);
    EXPECT_TRUE(w.manager->activeStreams().empty());
    // Every capture that started was stopped again.
    auto counts = w.world.desktop->captureCounts();
    EXPECT_EQ(counts.starts, counts.stops);
}

TEST(StreamManager, ALostConnectionCancelsAStartAndStopAllOnStopsItsStreams) {
    ManagerWorld w;
    auto [a, b] = socketPair();
    auto other = std::make_shared<WireConnection>(a, "other-video");
    w.start(w.request(1));
    w.main.runTask(w.manager->start({2, w.world.window, 30, 1.0, VideoCodec::rawBGRA}, other), limit);
    w.main.runTask(w.manager->stopAll(other), limit);
    EXPECT_EQ(w.manager->activeStreams(), (std::vector<uint32_t>{1}));

    other->close();
    std::string outcome;
    try {
        w.main.runTask(w.manager->start({2, w.world.window, 30, 1.0, VideoCodec::rawBGRA}, other), limit);
    } catch (const ControlError& e) {
        outcome = e.description();
    }
    EXPECT_EQ(outcome, "cancelled: stream 2 was stopped while starting");
    ::close(b);
}

TEST(StreamManager, UpdatesResizesAndRestoresAskForKeyFrames) {
    ManagerWorld w;
    w.start(w.request(1));
    w.start(w.request(2));
    w.step(2);
    w.step(4);
    EXPECT_EQ(w.host.at(2).header.flags.rawValue, 0);

    w.manager->requestKeyframe(99);  // unknown: nothing
    w.manager->windowRestored(w.world.window);
    w.step(6);
    for (size_t i : {4, 5}) EXPECT_TRUE(w.host.at(i).header.flags.contains(Flags::keyframe));

    // Both streams of the window follow its new size with a new encoder.
    w.world.desktop->setFrame(w.world.window, {100, 100, 320, 200});
    GuestWindow window{.windowID = w.world.window, .frame = {100, 100, 320, 200}};
    w.main.runTask(w.manager->windowResized(window), limit);
    w.step(8);
    for (size_t i : {6, 7}) {
        auto h = w.host.at(i).header;
        EXPECT_EQ((std::tuple{h.width, h.height, h.flags.rawValue}),
                  (std::tuple{320u, 200u, uint8_t(Flags::keyframe | Flags::parameterSets)}));
    }

    w.main.runTask(w.manager->update({1, 0, 5, 2.0, VideoCodec::rawBGRA}), limit);
    w.step(10);
    std::map<uint32_t, VideoFrameHeader> last;
    for (size_t i : {8, 9}) last[w.host.at(i).header.streamID] = w.host.at(i).header;
    EXPECT_EQ((std::tuple{last[1].width, last[1].contentScale, last[1].codec}), (std::tuple{640u, uint16_t(200), VideoCodec::h264}));
    EXPECT_EQ(last[2].width, 320u);
    EXPECT_EQ(thrownBy<ControlError>([&] { w.main.runTask(w.manager->update(w.request(8)), limit); }).description(),
              "notFound: stream 8");

    // A window with no stream changes nothing.
    w.manager->windowRestored(12345);
    w.main.runTask(w.manager->windowResized(GuestWindow{.windowID = 12345}), limit);
    w.main.runTask(w.manager->windowClosed(12345), limit);
    EXPECT_EQ(w.manager->activeStreams(), (std::vector<uint32_t>{1, 2}));
}

TEST(StreamManager, AStartReplacesAndAClosedWindowEndsItsStreams) {
    ManagerWorld w;
    w.start(w.request(1, VideoCodec::rawBGRA));
    w.step(1);
    w.start(w.request(1, VideoCodec::h264));  // same number: the first goes
    w.step(2);
    EXPECT_EQ(w.host.at(1).header.codec, VideoCodec::h264);
    EXPECT_EQ(w.host.at(1).header.frameID, 1u);
    EXPECT_EQ(w.world.desktop->captureCounts().stops, 1);

    w.world.desktop->closeWindow(w.world.window);  // the platform ends the capture
    ASSERT_TRUE(w.main.runUntil([&] { return w.manager->activeStreams().empty(); }, limit));
}

TEST(StreamManager, CaptureFailuresLeaveNoTrace) {
    ManagerWorld w;
    EXPECT_EQ(thrownBy<CaptureError>([&] { w.start(w.request(5, VideoCodec::h264, 999)); }).description(),
              "window 999 not found in shareable content");
    w.world.desktop->setCaptureFaults({.start = true});
    EXPECT_THROW(w.start(w.request(5)), CaptureError);
    EXPECT_TRUE(w.manager->activeStreams().empty());
    w.main.runTask(w.manager->stopAll(), limit);  // nothing to stop
}

}  // namespace
