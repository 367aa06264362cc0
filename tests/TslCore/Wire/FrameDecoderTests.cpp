#include <gtest/gtest.h>

#include "Support/DataFiles.h"
#include "TslCore/Wire/ByteIO.h"
#include "TslCore/Wire/FrameDecoder.h"
#include "TslCore/Wire/WireMessage.h"
#include "WireTestSupport.h"

using namespace tsl;
using tsl::test::headerBytes;
using tsl::test::wireErrorOf;

namespace {

Bytes concat(std::initializer_list<Bytes> parts) {
    Bytes out;
    for (auto& p : parts) out.insert(out.end(), p.begin(), p.end());
    return out;
}

WireMessage rawVideo(uint32_t width, uint32_t height, uint8_t fill) {
    VideoFrameHeader h;
    h.streamID = 3;
    h.codec = VideoCodec::rawBGRA;
    h.flags.rawValue = VideoFrameHeader::Flags::keyframe;
    h.width = width;
    h.height = height;
    h.bytesPerRow = width * 4;
    Bytes picture(size_t(width) * 4 * height);
    for (size_t i = 0; i < picture.size(); ++i) picture[i] = uint8_t(fill + i * 31);
    return WireMessage::video(h, std::move(picture));
}

WireMessage keyEvent(uint32_t sequence) {
    InputEvent e;
    e.kind = InputEvent::Kind::keyDown;
    e.keyCode = 12;
    e.sequence = sequence;
    return WireMessage::input(e);
}

// Feeds a stream in pieces of `chunk` bytes and collects what comes out.
std::vector<WireMessage> feedInChunks(FrameDecoder& d, const Bytes& stream, size_t chunk) {
    std::vector<WireMessage> out;
    for (size_t at = 0; at < stream.size(); at += chunk) {
        size_t n = std::min(chunk, stream.size() - at);
        for (auto& m : d.feed(std::span<const uint8_t>(stream.data() + at, n))) out.push_back(std::move(m));
    }
    return out;
}

}  // namespace

TEST(FrameDecoder, EncodedPingHasTheExactLayout) {
    Bytes frame = WireMessage::ping(7).encoded(1);
    Bytes expected = concat({headerBytes(4, 8), Bytes{7, 0, 0, 0, 0, 0, 0, 0}});
    expected[12] = 1;  // sequence
    EXPECT_EQ(frame, expected);
}

TEST(FrameDecoder, SameStreamDecodesAlikeWhateverTheReadSizes) {
    std::vector<WireMessage> sent{
        WireMessage::ping(1),   keyEvent(5),          rawVideo(3, 2, 9),        WireMessage::pong(~0ull),
        rawVideo(600, 500, 1),  /* beyond 1 MiB */ keyEvent(6), rawVideo(1, 1, 4),
    };
    Bytes stream;
    uint32_t seq = 0;
    for (auto& m : sent) {
        Bytes f = m.encoded(++seq);
        stream.insert(stream.end(), f.begin(), f.end());
    }
    for (size_t chunk : {size_t(1), size_t(3), size_t(15), size_t(16), size_t(17), size_t(4099), size_t(262144), stream.size()}) {
        if (chunk == 1 && stream.size() > 200000) {
            // Byte-by-byte over the large frame is slow under sanitizers; cover it on the small frames only.
            FrameDecoder d;
            Bytes head(stream.begin(), stream.begin() + 200);
            auto got = feedInChunks(d, head, 1);
            EXPECT_GE(got.size(), 2u);
            continue;
        }
        FrameDecoder d;
        auto got = feedInChunks(d, stream, chunk);
        EXPECT_EQ(got, sent) << "chunk " << chunk;
        EXPECT_EQ(d.bufferedCount(), 0u);
    }
}

TEST(FrameDecoder, YieldsOnlyOnTheLastByteAndKeepsTheRest) {
    Bytes frame = keyEvent(1).encoded(1);
    FrameDecoder d;
    for (size_t i = 0; i + 1 < frame.size(); ++i) EXPECT_TRUE(d.feed(std::span(&frame[i], 1)).empty()) << i;
    EXPECT_EQ(d.feed(std::span(&frame.back(), 1)).size(), 1u);

    Bytes two = concat({WireMessage::ping(1).encoded(1), WireMessage::ping(2).encoded(2)});
    Bytes oneAndHalf(two.begin(), two.begin() + 24 + 12);
    FrameDecoder d2;
    auto got = d2.feed(oneAndHalf);
    ASSERT_EQ(got.size(), 1u);
    EXPECT_EQ(*got[0].get<WireMessage::Ping>(), WireMessage::Ping{1});
    EXPECT_EQ(d2.bufferedCount(), 12u);
    got = d2.feed(std::span(two).subspan(36));
    ASSERT_EQ(got.size(), 1u);
    EXPECT_EQ(*got[0].get<WireMessage::Ping>(), WireMessage::Ping{2});
}

TEST(FrameDecoder, HeaderRefusals) {
    struct Case {
        const char* name;
        Bytes bytes;
        WireError expected;
    };
    std::vector<Case> cases{
        {"garbage refused at four bytes", Bytes{'X', 'X', 'X', 'X'}, WireError::badMagic(0x58585858)},
        {"version 2", headerBytes(4, 8, 0x506C7354, 2), WireError::unsupportedVersion(2)},
        {"type 0", headerBytes(0, 8), WireError::unknownType(0)},
        {"type 6", headerBytes(6, 8), WireError::unknownType(6)},
        {"input 41 at the header", headerBytes(3, 41), WireError::payloadTooLarge(3, 41)},
        {"input 39 after the payload", concat({headerBytes(3, 39), Bytes(39)}), WireError::malformedPayload("input size 39")},
        {"ping of 4", concat({headerBytes(4, 4), Bytes(4)}), WireError::malformedPayload("ping size 4")},
        {"pong of 0", headerBytes(5, 0), WireError::malformedPayload("ping size 0")},
        {"control too large", headerBytes(1, 4194305), WireError::payloadTooLarge(1, 4194305)},
        {"video too large", headerBytes(2, 100663297), WireError::payloadTooLarge(2, 100663297)},
    };
    for (auto& c : cases) {
        FrameDecoder d;
        EXPECT_EQ(wireErrorOf([&] { d.feed(c.bytes); }), c.expected) << c.name;
        EXPECT_EQ(d.bufferedCount(), 0u) << c.name;
        EXPECT_EQ(wireErrorOf([&] { d.feed(WireMessage::ping(1).encoded(1)); }).kind(),
                  WireError::Kind::decoderPoisoned)
            << c.name;
    }

    FrameDecoder three;
    EXPECT_TRUE(three.feed(Bytes{'X', 'X', 'X'}).empty());  // not yet four bytes

    FrameDecoder atLimit;
    EXPECT_TRUE(atLimit.feed(headerBytes(1, 4194304)).empty());
    EXPECT_EQ(atLimit.bufferedCount(), 0u);
}

TEST(FrameDecoder, AGoodFrameBeforeABadOneIsNotDelivered) {
    FrameDecoder d;
    Bytes stream = concat({WireMessage::ping(1).encoded(1), headerBytes(9, 0)});
    EXPECT_EQ(wireErrorOf([&] { d.feed(stream); }), WireError::unknownType(9));
    EXPECT_TRUE(d.isPoisoned());
}

TEST(FrameDecoder, ConnectionLimitAppliesAtTheNextHeader) {
    FrameDecoder d;
    d.maxPayload = 65536;
    EXPECT_EQ(wireErrorOf([&] { d.feed(headerBytes(2, 65537)); }), WireError::payloadTooLarge(2, 65537));

    // Raising or clearing the limit between feeds takes effect at the next header.
    FrameDecoder e;
    e.maxPayload = 100;
    WireMessage big = rawVideo(10, 10, 0);  // 448-byte payload
    Bytes frame = big.encoded(1);
    EXPECT_TRUE(e.feed(WireMessage::ping(1).encoded(1)).size() == 1);
    e.maxPayload.reset();
    EXPECT_EQ(e.feed(frame).size(), 1u);
    e.maxPayload = 447;
    EXPECT_EQ(wireErrorOf([&] { e.feed(frame); }), WireError::payloadTooLarge(2, 448));
}

TEST(FrameDecoder, EncodeRefusesWhatTheTypeCannotCarry) {
    VideoFrameHeader h;
    h.width = h.height = 1;
    WireMessage tooBig = WireMessage::video(h, Bytes(100663296 - 48 + 1));
    EXPECT_EQ(wireErrorOf([&] { tooBig.encoded(1); }), WireError::payloadTooLarge(2, 100663297));
    WireMessage atLimit = WireMessage::video(h, Bytes(100663296 - 48));
    EXPECT_EQ(atLimit.encoded(1).size(), 16u + 100663296u);
}

TEST(FrameDecoder, BadPictureInALargeFramePoisons) {
    WireMessage m = rawVideo(600, 500, 1);
    Bytes frame = m.encoded(1);
    frame[16 + 32] = 0;  // bytesPerRow 0 < width×4
    frame[16 + 33] = 0;
    FrameDecoder d;
    auto err = wireErrorOf([&] { feedInChunks(d, frame, 65536); });
    EXPECT_EQ(err, WireError::malformedPayload("bytesPerRow 0 < width\u00D74"));
    EXPECT_EQ(d.bufferedCount(), 0u);
}

TEST(FrameDecoder, ControlPayloadLimitOnEncodeAndDecode) {
    auto envelopeOfSize = [](size_t size) {
        Hello hello;
        ControlEnvelope e{1, std::nullopt, ControlMessage::Hello{hello}};
        size_t base = WireMessage::control(e).encoded(1).size() - 16;
        hello.osVersion.assign(size - base, 'v');
        return ControlEnvelope{1, std::nullopt, ControlMessage::Hello{hello}};
    };
    WireMessage atLimit = WireMessage::control(envelopeOfSize(4194304));
    Bytes frame = atLimit.encoded(1);
    ASSERT_EQ(frame.size(), 16u + 4194304u);
    FrameDecoder d;
    auto got = feedInChunks(d, frame, 262144);
    ASSERT_EQ(got.size(), 1u);
    EXPECT_EQ(got[0], atLimit);

    EXPECT_EQ(wireErrorOf([&] { WireMessage::control(envelopeOfSize(4194305)).encoded(1); }),
              WireError::payloadTooLarge(1, 4194305));
}

TEST(FrameDecoder, BadControlJSONNamesTheUnderlyingError) {
    Bytes frame = concat({headerBytes(1, 2), Bytes{'{', '}'}});
    FrameDecoder d;
    auto err = wireErrorOf([&] { d.feed(frame); });
    EXPECT_EQ(err.kind(), WireError::Kind::malformedPayload);
    EXPECT_EQ(err.text().rfind("control JSON: ", 0), 0u) << err.text();
}

TEST(FrameDecoder, ALargeVideoHeaderCostsOnlyWhatArrives) {
    // A bare header claiming a 96 MiB picture, then nothing.
    std::string header = tsl::test::dataFile("TslCore", "video-header-96MiB.bin");
    ASSERT_EQ(header.size(), 16u);
    FrameDecoder d;
    EXPECT_TRUE(d.feed(std::span(reinterpret_cast<const uint8_t*>(header.data()), header.size())).empty());
    EXPECT_LT(d.reservedCount(), size_t(64) << 10);

    // Storage follows the bytes: a few times what came, never the claim.
    VideoFrameHeader vh;
    vh.codec = VideoCodec::h264;
    vh.width = vh.height = 16;
    ByteWriter w;
    vh.encode(w);
    d.feed(w.data);
    Bytes piece(1 << 20, 0x5A);
    for (int i = 0; i < 3; ++i) d.feed(piece);
    EXPECT_EQ(d.bufferedCount(), 48u + 3 * piece.size());
    EXPECT_LE(d.reservedCount(), 4 * d.bufferedCount() + (size_t(64) << 10));
    EXPECT_FALSE(d.isPoisoned());
}

TEST(FrameDecoder, AfterAWholePictureALargeClaimCostsNoMoreThanThatPicture) {
    WireMessage first = rawVideo(1024, 768, 1);  // a 3 MiB picture
    FrameDecoder d;
    auto got = feedInChunks(d, first.encoded(1), 262144);
    ASSERT_EQ(got.size(), 1u);
    EXPECT_EQ(got[0], first);

    // Then a header claiming 96 MiB with a few bytes behind it: the storage
    // made ready is the size of the picture already sent, not the claim.
    std::string header = tsl::test::dataFile("TslCore", "video-header-96MiB.bin");
    d.feed(std::span(reinterpret_cast<const uint8_t*>(header.data()), header.size()));
    VideoFrameHeader vh;
    vh.codec = VideoCodec::h264;
    vh.width = vh.height = 16;
    ByteWriter w;
    vh.encode(w);
    d.feed(w.data);
    d.feed(Bytes(4096, 0x5A));
    EXPECT_GE(d.reservedCount(), size_t(1024) * 768 * 4);
    EXPECT_LE(d.reservedCount(), size_t(1024) * 768 * 4 + (size_t(1) << 20));  // plus a read's buffer
    EXPECT_FALSE(d.isPoisoned());

    // And a second picture of the first one's size still decodes whole.
    d = FrameDecoder();
    WireMessage second = rawVideo(1024, 768, 2);
    Bytes stream = concat({first.encoded(1), second.encoded(2)});
    got = feedInChunks(d, stream, 100000);
    ASSERT_EQ(got.size(), 2u);
    EXPECT_EQ(got[1], second);
}

TEST(FrameDecoder, ALargeVideoFrameArrivingSlowlyDecodesWhole) {
    VideoFrameHeader vh;
    vh.codec = VideoCodec::h264;
    vh.width = vh.height = 16;
    Bytes picture(3 << 20);
    for (size_t i = 0; i < picture.size(); ++i) picture[i] = uint8_t(i * 7 + i / 4096);
    WireMessage sent = WireMessage::video(vh, picture);
    Bytes frame = sent.encoded(9);
    FrameDecoder d;
    std::vector<WireMessage> got;
    // Growing reads: the picture's storage is enlarged several times over.
    for (size_t at = 0, n = 100; at < frame.size(); at += n, n = n * 3 / 2 + 1) {
        size_t take = std::min(n, frame.size() - at);
        for (auto& m : d.feed(std::span(frame.data() + at, take))) got.push_back(std::move(m));
    }
    ASSERT_EQ(got.size(), 1u);
    EXPECT_EQ(got[0], sent);
    EXPECT_EQ(d.bufferedCount(), 0u);
}
