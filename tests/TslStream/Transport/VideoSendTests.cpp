// Video frames leave from the picture's own buffer behind their headers.
#include <gtest/gtest.h>

#include "Support/VideoReceiver.h"
#include "TslCore/Wire/WireError.h"
#include "TslStream/Transport/Socket.h"

namespace tsl {
namespace {

TEST(VideoSend, LargePicturesArriveWholeAndOversizedOnesLeaveNothing) {
    auto [a, b] = socketPair();
    auto agent = std::make_shared<WireConnection>(a, "agent-video");
    test::VideoReceiver host(b);

    VideoFrameHeader header;
    header.codec = VideoCodec::h264;
    header.width = 1920, header.height = 1080;
    Bytes picture(8 << 20);  // far beyond one socket buffer: many partial writes
    for (size_t i = 0; i < picture.size(); ++i) picture[i] = uint8_t(i * 31 + (i >> 16));
    header.frameID = 1;
    agent->send(WireMessage::video(header, picture));
    header.frameID = 2;
    agent->send(WireMessage::video(header, {}));

    VideoFrameHeader tooLarge = header;
    tooLarge.frameID = 3;
    const size_t over = maxPayload(MessageType::video) - VideoFrameHeader::size + 1;
    try {
        agent->send(WireMessage::video(tooLarge, Bytes(over)));
        FAIL() << "an oversized picture went out";
    } catch (const WireError& e) {
        EXPECT_EQ(e.kind(), WireError::Kind::payloadTooLarge);
    }
    header.frameID = 4;
    agent->send(WireMessage::video(header, {1, 2, 3}));

    ASSERT_TRUE(host.waitFor(3));
    VideoFrameHeader first = header;
    first.frameID = 1;
    EXPECT_EQ(host.at(0).header, first);
    EXPECT_EQ(host.at(0).data, picture);
    EXPECT_EQ(host.at(1).header.frameID, 2u);
    EXPECT_TRUE(host.at(1).data.empty());
    EXPECT_EQ(host.at(2).header.frameID, 4u);
    EXPECT_EQ(host.at(2).data, (Bytes{1, 2, 3}));
    EXPECT_EQ(agent->bytesSent(), host.connection->bytesReceived());
}

}  // namespace
}  // namespace tsl
