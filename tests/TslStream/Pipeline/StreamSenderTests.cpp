// The frame path of one stream over a real socket: numbering, encoders
// replaced on a new size, losses that leave gaps, stop, and the counters.
#include <gtest/gtest.h>

#include "Support/VideoReceiver.h"
#include "TslCore/Measure/TestPattern.h"
#include "TslStream/Codec/PixelBuffers.h"
#include "TslStream/Pipeline/StreamSender.h"
#include "TslStream/Transport/Socket.h"

namespace tsl {
namespace {

using Flags = VideoFrameHeader::Flags;

std::shared_ptr<PixelBuffer> picture(int64_t width, int64_t height) {
    auto buffer = PixelBuffers::make(width, height);
    PixelBufferLock locked(*buffer, 0);
    drawTestPattern(locked.base(), width, height, buffer->bytesPerRow(), 0.5, 7, false);
    return buffer;
}

struct SenderWorld {
    std::pair<int, int> fds = socketPair();
    std::shared_ptr<WireConnection> agentEnd = std::make_shared<WireConnection>(fds.first, "agent-video");
    test::VideoReceiver host{fds.second};

    std::shared_ptr<StreamSender> sender(VideoCodec codec) {
        return std::make_shared<StreamSender>(9, codec, 30, agentEnd);
    }
};

TEST(StreamSender, NumbersFramesFromOneAndCarriesTheirScales) {
    SenderWorld world;
    auto sender = world.sender(VideoCodec::rawBGRA);
    auto buffer = picture(64, 40);
    sender->submit(*buffer, 1.01888, 2.0, 5, 1000);
    sender->submit(*buffer, 1.6, 2.0, 6, 2000);
    ASSERT_TRUE(world.host.waitFor(2));
    for (size_t i = 0; i < 2; ++i) {
        const VideoFrameHeader& h = world.host.at(i).header;
        EXPECT_EQ(h.streamID, 9u);
        EXPECT_EQ(h.frameID, i + 1);
        EXPECT_EQ(h.nativeScale, 200);
        EXPECT_EQ(h.inputEcho, 5 + i);
        EXPECT_EQ(h.guestTimestampNs, 1000 * (i + 1));
        EXPECT_EQ(world.host.at(i).data, PixelBuffers::rawPayload(*buffer).data);
    }
    EXPECT_EQ(world.host.at(0).header.contentScale, 102);
    EXPECT_EQ(world.host.at(1).header.contentScale, 160);
    EXPECT_EQ(sender->framesSent(), 2u);
    EXPECT_EQ(sender->sendErrors(), 0u);
    EXPECT_GE(sender->meanEncodeAndSendMs(), 0.0);
    EXPECT_FALSE(sender->lowLatencyRateControl());
}

TEST(StreamSender, NewSizeNewEncoderAndLostFramesLeaveGaps) {
    SenderWorld world;
    auto sender = world.sender(VideoCodec::h264);
    auto small = picture(320, 200), large = picture(640, 400), odd = picture(321, 200);
    // 321 pixels wide can't be coded: that frame's number is spent.
    for (auto* b : {small.get(), small.get(), large.get(), odd.get(), small.get()})
        sender->submit(*b, 1.0, 1.0, 0, 1);
    ASSERT_TRUE(world.host.waitFor(4));
    std::vector<std::tuple<uint64_t, uint32_t, uint8_t>> seen;  // frameID, width, flags
    for (size_t i = 0; i < 4; ++i) {
        auto h = world.host.at(i).header;
        seen.emplace_back(h.frameID, h.width, h.flags.rawValue);
    }
    const uint8_t key = Flags::keyframe | Flags::parameterSets;
    EXPECT_EQ(seen, (std::vector<std::tuple<uint64_t, uint32_t, uint8_t>>{
                        {1, 320, key}, {2, 320, 0}, {3, 640, key}, {5, 320, key}}));
    EXPECT_EQ(sender->sendErrors(), 1u);
    EXPECT_TRUE(sender->lowLatencyRateControl());

    sender->requestKeyframe();
    sender->submit(*small, 1.0, 1.0, 0, 1);
    ASSERT_TRUE(world.host.waitFor(5));
    EXPECT_EQ(world.host.at(4).header.flags.rawValue, key);
    EXPECT_EQ(world.host.at(4).header.frameID, 6u);
}

TEST(StreamSender, NothingAfterStopAndWriteFailuresAreCounted) {
    SenderWorld world;
    auto sender = world.sender(VideoCodec::rawBGRA);
    auto buffer = picture(64, 40);
    sender->submit(*buffer, 1, 1, 0, 1);
    ASSERT_TRUE(world.host.waitFor(1));

    auto other = world.sender(VideoCodec::rawBGRA);
    sender->stop();
    sender->submit(*buffer, 1, 1, 0, 1);
    sender->requestKeyframe();  // harmless
    other->submit(*buffer, 1, 1, 0, 1);  // the connection still serves others
    ASSERT_TRUE(world.host.waitFor(2));
    EXPECT_EQ(world.host.count(), 2u);
    EXPECT_EQ(sender->framesSent(), 1u);

    world.agentEnd->close();
    other->submit(*buffer, 1, 1, 0, 1);
    EXPECT_EQ(other->sendErrors(), 1u);
    EXPECT_EQ(other->framesSent(), 1u);
}

TEST(StreamSender, WireScale) {
    EXPECT_EQ(StreamSender::wireScale(2.0), 200);
    EXPECT_EQ(StreamSender::wireScale(1.01888), 102);
    EXPECT_EQ(StreamSender::wireScale(0.005), 1);  // halves away from zero
    EXPECT_EQ(StreamSender::wireScale(655.35), 65535);
    EXPECT_EQ(StreamSender::wireScale(1e9), 65535);
    EXPECT_EQ(StreamSender::wireScale(-1), 0);
    EXPECT_EQ(StreamSender::wireScale(std::numeric_limits<double>::quiet_NaN()), 0);
    EXPECT_EQ(StreamSender::wireScale(std::numeric_limits<double>::infinity()), 0);
}

}  // namespace
}  // namespace tsl
