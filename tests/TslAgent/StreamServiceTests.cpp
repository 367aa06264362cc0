// A host asking a simulated agent for streams over real sockets: the frames'
// headers, their pictures (raw bytes and decoded H.264), the stream requests,
// and what ends a stream: its window, its host, a stalled reader.
#include <gtest/gtest.h>

#include <algorithm>

#include "Support/AgentTestSupport.h"
#include "Support/Errors.h"
#include "Support/H264TestDecoder.h"
#include "Support/PatternDesktop.h"
#include "Support/VideoReceiver.h"
#include "TslStream/Codec/PixelBuffers.h"

using namespace tsl;
using namespace tsl::test;

namespace {

using Flags = VideoFrameHeader::Flags;

// An agent service over the pattern desktop with timed capture, a control
// channel and a video channel; the host's video end starts reading only
// when asked to.
struct StreamWorld {
    MainActor main;
    PatternDesktop pattern{false};
    ExitRecorder exits;
    std::shared_ptr<AgentService> service = desktopService(pattern.services, exits);
    std::unique_ptr<HostEnd> control;
    int hostVideoFd = -1;
    std::unique_ptr<VideoReceiver> video;

    StreamWorld() {
        auto [a, b] = socketPair();
        auto agentControl = std::make_shared<ControlChannel>(std::make_shared<WireConnection>(a, "agent"));
        service->attach(agentControl, {Channel::control});
        agentControl->start();
        control = std::make_unique<HostEnd>(std::make_shared<WireConnection>(b, "host"));
        control->channel->start();

        auto [c, d] = socketPair();
        auto agentVideo = std::make_shared<ControlChannel>(std::make_shared<WireConnection>(c, "agent-video"));
        service->attach(agentVideo, {Channel::video});
        agentVideo->start();
        hostVideoFd = d;
    }
    ~StreamWorld() {
        video.reset();
        if (hostVideoFd >= 0) ::close(hostVideoFd);
        control.reset();
        main.runUntil([&] { return service->attached().empty(); }, limit);
        main.runUntil([&] { return service->streamManager()->activeStreams().empty(); }, limit);
    }

    VideoReceiver& read() {
        if (!video) {
            video = std::make_unique<VideoReceiver>(hostVideoFd);
            hostVideoFd = -1;
        }
        return *video;
    }
    ControlMessage request(ControlMessage message) {
        return main.runTask(control->channel->request(std::move(message), 10), limit);
    }
    StreamRequest stream(uint32_t id, VideoCodec codec) { return {id, pattern.window, 60, 1.0, codec}; }
    std::vector<uint32_t> activeStreams() {
        return request(ControlMessage::Status{}).get<ControlMessage::Status>()->value->activeStreams;
    }
    // Keeps the main actor turning (the service's tasks) until n frames are in.
    bool frames(int n) {
        return main.runUntil([&] { return read().count() >= size_t(n); }, limit);
    }
};

uint32_t rawCounter(const WireMessage::Video& frame) {
    auto buffer = PixelBuffers::fromRaw(frame.header.width, frame.header.height, frame.header.bytesPerRow, frame.data);
    return readPatternCounter(1.0, [&](int x, int y) { return *PixelBuffers::meanLuma(*buffer, x, y, 1) > 128; });
}

TEST(StreamService, H264FramesDecodeToTheWindowAtSixtyFramesASecond) {
    StreamWorld w;
    auto reply = w.request(ControlMessage::StartStream{w.stream(7, VideoCodec::h264)});
    EXPECT_EQ(reply, ControlMessage(ControlMessage::StreamStarted{w.stream(7, VideoCodec::h264)}));
    EXPECT_EQ(w.activeStreams(), (std::vector<uint32_t>{7}));
    ASSERT_TRUE(w.frames(30));

    H264TestDecoder decoder;
    std::optional<uint32_t> previous;
    for (size_t i = 0; i < 30; ++i) {
        auto frame = w.read().at(i);
        const VideoFrameHeader& h = frame.header;
        EXPECT_EQ(h.frameID, i + 1);
        EXPECT_EQ((std::tuple{h.streamID, h.codec, h.width, h.height, h.contentScale, h.nativeScale, h.bytesPerRow}),
                  (std::tuple{7u, VideoCodec::h264, 640u, 400u, uint16_t(100), uint16_t(100), 0u}));
        EXPECT_EQ(h.flags.rawValue, i == 0 ? Flags::keyframe | Flags::parameterSets : 0);
        auto picture = decoder.decode(h, frame.data);
        ASSERT_TRUE(picture) << "frame " << h.frameID;
        const uint32_t counter = readPatternCounter(*picture, 1.0);
        if (previous) {
            EXPECT_EQ(counter, *previous + 1) << "frame " << h.frameID;
        }
        previous = counter;
    }

    w.request(ControlMessage::RequestKeyframe{7});
    const size_t before = w.read().count();
    ASSERT_TRUE(w.main.runUntil([&] {
        auto headers = w.read().headers();
        return std::any_of(headers.begin() + long(before), headers.end(),
                           [](const VideoFrameHeader& h) { return h.flags.contains(Flags::keyframe); });
    }, limit));
}

TEST(StreamService, RawFramesCarryTheWindowsExactPixelsAndFollowUpdates) {
    StreamWorld w;
    w.request(ControlMessage::StartStream{w.stream(3, VideoCodec::rawBGRA)});
    ASSERT_TRUE(w.frames(3));
    for (size_t i = 0; i < 3; ++i) {
        auto frame = w.read().at(i);
        EXPECT_EQ(frame.header.flags.rawValue, Flags::keyframe);
        EXPECT_EQ(frame.header.pixelFormat, PixelBuffers::bgra);
        // The same picture drawn here, byte for byte.
        auto expected = PixelBuffers::make(640, 400);
        {
            PixelBufferLock locked(*expected, 0);
            drawTestPattern(locked.base(), 640, 400, expected->bytesPerRow(), 1.0, rawCounter(frame), false);
        }
        auto got = PixelBuffers::fromRaw(640, 400, frame.header.bytesPerRow, frame.data);
        EXPECT_EQ(PixelBuffers::rawPayload(*got).data, PixelBuffers::rawPayload(*expected).data) << "frame " << i;
    }

    w.request(ControlMessage::UpdateStream{{3, w.pattern.window, 30, 2.0, VideoCodec::rawBGRA}});
    ASSERT_TRUE(w.main.runUntil([&] { return w.read().header(w.read().count() - 1).width == 1280; }, limit));
    auto last = w.read().header(w.read().count() - 1);
    EXPECT_EQ((std::tuple{last.height, last.contentScale}), (std::tuple{800u, uint16_t(200)}));

    EXPECT_EQ(thrownBy<ControlError>([&] { w.request(ControlMessage::UpdateStream{{9, 1, 30, 1.0}}); }).info().message,
              "notFound: stream 9");
    EXPECT_EQ(thrownBy<ControlError>([&] { w.request(ControlMessage::StartStream{{9, 1, 0, 1.0}}); }).info().message,
              "badRequest: fps must be 1…120 and scale 0.1…2.0");
    EXPECT_EQ(w.request(ControlMessage::StopStream{3}), ControlMessage(ControlMessage::Ok{}));
    EXPECT_EQ(w.request(ControlMessage::StopStream{3}), ControlMessage(ControlMessage::Ok{}));
    EXPECT_TRUE(w.activeStreams().empty());
}

TEST(StreamService, AClosedWindowOrAHostThatLeavesEndsItsStreams) {
    StreamWorld w;
    w.request(ControlMessage::StartStream{w.stream(1, VideoCodec::rawBGRA)});
    w.pattern.desktop->closeWindow(w.pattern.window);
    ASSERT_TRUE(w.main.runUntil([&] { return w.service->streamManager()->activeStreams().empty(); }, limit));
    EXPECT_TRUE(w.activeStreams().empty());

    auto window = w.pattern.desktop->addWindow(w.pattern.pid, {.title = "Second", .frame = {0, 0, 320, 200}});
    w.request(ControlMessage::StartStream{{2, window, 30, 1.0, VideoCodec::h264}});
    EXPECT_EQ(w.activeStreams(), (std::vector<uint32_t>{2}));
    w.control->channel->close();  // the host goes: its streams stop
    ASSERT_TRUE(w.main.runUntil([&] { return w.service->streamManager()->activeStreams().empty(); }, limit));
    auto counts = w.pattern.desktop->captureCounts();
    EXPECT_EQ(counts.starts, 2);
    EXPECT_EQ(counts.stops, 2);
}

TEST(StreamService, AHostThatStopsReadingStallsOnlyItsStreamWithoutABacklog) {
    StreamWorld w;
    w.request(ControlMessage::StartStream{w.stream(5, VideoCodec::rawBGRA)});
    // Nothing is read. A frame is a megabyte, far more than the socket holds:
    // the first write blocks the capture thread, and the capture goes no further.
    auto delivered = [&] { return w.pattern.desktop->captureCounts().framesDelivered; };
    ASSERT_TRUE(w.main.runUntil([&] { return delivered() >= 1; }, limit));
    std::this_thread::sleep_for(std::chrono::milliseconds(500));  // the host looks away for a while
    const uint64_t stalledAt = delivered();
    std::this_thread::sleep_for(std::chrono::milliseconds(300));
    EXPECT_EQ(delivered(), stalledAt);  // nothing piles up while it waits
    EXPECT_LE(stalledAt, 16u);  // what the socket buffers hold, and the one being written
    EXPECT_EQ(w.activeStreams(), (std::vector<uint32_t>{5}));  // control still answers

    ASSERT_TRUE(w.frames(int(stalledAt) + 10));
    // Taken once: frames keep arriving while these are checked.
    const auto headers = w.read().headers();
    uint64_t longestGap = 0;
    for (size_t i = 1; i < headers.size(); ++i) {
        EXPECT_EQ(headers[i].frameID, headers[i - 1].frameID + 1);
        longestGap = std::max(longestGap, headers[i].guestTimestampNs - headers[i - 1].guestTimestampNs);
    }
    // The stall shows as one long gap in capture time, then the stream runs
    // on at its own pace rather than catching up on stale frames.
    EXPECT_GE(longestGap, 300000000ull);
}

}  // namespace
