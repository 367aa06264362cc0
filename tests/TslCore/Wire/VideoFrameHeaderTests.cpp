#include <gtest/gtest.h>

#include "TslCore/Wire/ByteIO.h"
#include "TslCore/Wire/VideoFrameHeader.h"
#include "TslCore/Wire/WireMessage.h"
#include "WireTestSupport.h"

using namespace tsl;
using tsl::test::wireErrorOf;

namespace {

VideoFrameHeader sampleHeader(VideoCodec codec, uint32_t width, uint32_t height, uint32_t bytesPerRow) {
    VideoFrameHeader h;
    h.streamID = 7;
    h.codec = codec;
    h.flags.rawValue = VideoFrameHeader::Flags::keyframe | 0x80;  // unknown bits are carried
    h.contentScale = 200;
    h.frameID = 0x1122334455667788ull;
    h.guestTimestampNs = 99;
    h.width = width;
    h.height = height;
    h.bytesPerRow = bytesPerRow;
    h.pixelFormat = 0x42475241;
    h.inputEcho = 0xFFFFFFFF;
    h.nativeScale = 100;
    return h;
}

Bytes encodedHeader(const VideoFrameHeader& h) {
    ByteWriter w;
    h.encode(w);
    return w.data;
}

std::string decodeText(const Bytes& b) {
    return wireErrorOf([&] {
        ByteReader r(b);
        VideoFrameHeader::decode(r);
    }).text();
}

}  // namespace

TEST(VideoFrameHeader, LayoutIsFixedAndRoundTrips) {
    auto h = sampleHeader(VideoCodec::h264, 1280, 720, 0);
    Bytes b = encodedHeader(h);
    ASSERT_EQ(b.size(), 48u);
    EXPECT_EQ(b[4], 2);         // codec
    EXPECT_EQ(b[5], 0x81);      // flags
    EXPECT_EQ(b[6], 200);       // contentScale low byte
    EXPECT_EQ(b[24], 0x00);     // width 1280 = 0x500
    EXPECT_EQ(b[25], 0x05);
    EXPECT_EQ(b[46], 0);        // reserved
    b[46] = 0xEE;               // reserved bytes are not inspected
    b[47] = 0xFF;
    ByteReader r(b);
    EXPECT_EQ(VideoFrameHeader::decode(r), h);
    EXPECT_EQ(r.remaining(), 0);

    // A 48-byte payload with codec 2 is a frame with no picture bytes.
    auto m = WireMessage::decode(WireHeader(MessageType::video, 48, 0, 1), b);
    EXPECT_TRUE(m.get<WireMessage::Video>()->data.empty());
}

TEST(VideoFrameHeader, RefusesBadCodecSizesAndShortPayloads) {
    Bytes b = encodedHeader(sampleHeader(VideoCodec::h264, 16384, 16384, 0));
    EXPECT_NO_THROW({ ByteReader r(b); VideoFrameHeader::decode(r); });

    EXPECT_EQ(decodeText(encodedHeader(sampleHeader(VideoCodec::h264, 16385, 720, 0))), "dimensions 16385x720");
    EXPECT_EQ(decodeText(encodedHeader(sampleHeader(VideoCodec::h264, 0, 720, 0))), "dimensions 0x720");
    EXPECT_EQ(decodeText(encodedHeader(sampleHeader(VideoCodec::h264, 640, 0, 0))), "dimensions 640x0");

    Bytes badCodec = encodedHeader(sampleHeader(VideoCodec::h264, 10, 10, 0));
    badCodec[4] = 3;
    EXPECT_EQ(decodeText(badCodec), "codec 3");
    badCodec.resize(5);  // the codec is refused at once, before the rest is read
    EXPECT_EQ(decodeText(badCodec), "codec 3");

    Bytes short47 = encodedHeader(sampleHeader(VideoCodec::h264, 10, 10, 0));
    short47.pop_back();
    EXPECT_EQ(wireErrorOf([&] {
                  WireMessage::decode(WireHeader(MessageType::video, 47, 0, 1), short47);
              }).kind(),
              WireError::Kind::truncated);
}

TEST(VideoFrameHeader, RawPictureSizeMustMatchRows) {
    auto check = [](uint32_t bytesPerRow, uint64_t count) -> std::string {
        try {
            sampleHeader(VideoCodec::rawBGRA, 100, 2, bytesPerRow).validateRaw(count);
            return "ok";
        } catch (const WireError& e) {
            return e.text();
        }
    };
    EXPECT_EQ(check(400, 800), "ok");
    EXPECT_EQ(check(400, 799), "raw payload 799 != 400\u00D72");
    EXPECT_EQ(check(399, 798), "bytesPerRow 399 < width\u00D74");
    EXPECT_EQ(check(448, 896), "ok");  // slack at the end of rows
    EXPECT_EQ(check(448, 800), "raw payload 800 != 448\u00D72");
    // h264 pictures are not checked.
    EXPECT_NO_THROW(sampleHeader(VideoCodec::h264, 100, 2, 0).validateRaw(3));
}
