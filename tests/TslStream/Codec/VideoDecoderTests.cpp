#include <gtest/gtest.h>

#include "Support/Errors.h"
#include "Support/VideoFrames.h"
#include "TslCore/Wire/WireError.h"
#include "TslStream/Codec/VideoDecoder.h"

namespace tsl::test {
namespace {

using Flags = VideoFrameHeader::Flags;

// The picture a frame decodes to; fails the test when there is none.
std::shared_ptr<PixelBuffer> decoded(VideoDecoder& decoder, const EncodedFrame& frame) {
    std::shared_ptr<PixelBuffer> picture;
    int calls = 0;
    decoder.decode(frame.header, frame.payload, [&](const DecodedFrame& d) {
        ++calls;
        EXPECT_EQ(d.header, frame.header);
        picture = d.pixelBuffer;
    });
    EXPECT_EQ(calls, 1);
    return picture;
}

TEST(VideoDecoder, RawFramesKeepThePictureAndLeaveOutStridePaddingAndMissingRows) {
    VideoDecoder decoder;
    auto source = patternPicture(320, 200, 0x5a5a);
    auto raw = PixelBuffers::rawPayload(*source);
    // A wider stride than the new buffer's: padding bytes are skipped.
    const uint32_t wide = raw.bytesPerRow + 256;
    Bytes padded(size_t(wide) * 200, 0xee);
    for (size_t y = 0; y < 200; ++y)
        std::copy_n(raw.data.begin() + long(y * raw.bytesPerRow), raw.bytesPerRow, padded.begin() + long(y * wide));
    VideoFrameHeader h{.streamID = 1, .codec = VideoCodec::rawBGRA, .width = 320, .height = 200, .bytesPerRow = wide};
    auto picture = decoded(decoder, EncodedFrame{h, padded});
    ASSERT_TRUE(picture);
    EXPECT_EQ(counterShown(*picture), 0x5a5au);
    for (int y : {0, 100, 199})
        for (int x : {0, 160, 319}) EXPECT_EQ(PixelBuffers::pixel(*picture, x, y), PixelBuffers::pixel(*source, x, y));

    // Half the rows: the rest stay as a new buffer has them.
    padded.resize(size_t(wide) * 100 + 10);
    picture = decoded(decoder, EncodedFrame{h, padded});
    EXPECT_EQ(PixelBuffers::pixel(*picture, 5, 99), PixelBuffers::pixel(*source, 5, 99));
    EXPECT_EQ(PixelBuffers::pixel(*picture, 5, 100), (PixelBuffers::Pixel{0, 0, 0, 0}));

    // A picture larger than any frame can carry is refused before it costs memory.
    VideoFrameHeader huge = h;
    huge.width = huge.height = 16384;
    EXPECT_THROW(decoder.decode(huge, Bytes(16), [](const DecodedFrame&) {}), PixelBufferError);
}

TEST(VideoDecoder, H264NeedsParameterSetsKeepsItsSessionForTheSameAndReplacesItForNew) {
    PatternStream stream(VideoCodec::h264, 320, 200);
    EncodedFrame key = stream.next(), delta = stream.next();
    ASSERT_TRUE(key.header.flags.contains(Flags::parameterSets));
    ASSERT_FALSE(delta.header.flags.contains(Flags::keyframe));

    VideoDecoder decoder;
    EXPECT_EQ(thrownBy<DecoderError>([&] { decoded(decoder, delta); }), DecoderError::noParameterSets());
    EXPECT_EQ(counterShown(*decoded(decoder, key)), 1u);
    EXPECT_EQ(counterShown(*decoded(decoder, delta)), 2u);
    EXPECT_EQ(decoder.sessionsMade(), 1u);

    EncodedFrame again = stream.next(true);
    ASSERT_TRUE(again.header.flags.contains(Flags::parameterSets));
    EXPECT_EQ(counterShown(*decoded(decoder, again)), 3u);
    EXPECT_EQ(decoder.sessionsMade(), 1u);  // same sets, same session

    PatternStream larger(VideoCodec::h264, 640, 400);
    auto picture = decoded(decoder, larger.next());
    EXPECT_EQ(decoder.sessionsMade(), 2u);
    EXPECT_EQ((std::pair{picture->width(), picture->height()}), (std::pair{int64_t(640), int64_t(400)}));
    EXPECT_EQ(counterShown(*picture), 1u);

    // After invalidate even the old sets configure anew.
    decoder.invalidate();
    EXPECT_FALSE(decoder.hasSession());
    EXPECT_EQ(counterShown(*decoded(decoder, larger.next(true))), 2u);
    EXPECT_EQ(decoder.sessionsMade(), 3u);
}

TEST(VideoDecoder, BadH264IsRefusedWithoutAPicture) {
    PatternStream stream(VideoCodec::h264, 320, 200);
    EncodedFrame key = stream.next();
    VideoDecoder decoder;
    decoded(decoder, key);

    // A NAL length that runs past the end.
    EncodedFrame broken = stream.next();
    broken.payload[0] = 0x7f;
    EXPECT_THROW(decoder.decode(broken.header, broken.payload, [](const DecodedFrame&) { FAIL(); }), WireError);

    // An access unit holding only a delimiter gives no picture.
    VideoFrameHeader h = broken.header;
    Bytes delimiter{0, 0, 0, 2, 9, 0xf0};
    EXPECT_EQ(thrownBy<DecoderError>([&] { decoder.decode(h, delimiter, [](const DecodedFrame&) { FAIL(); }); }).kind(),
              DecoderError::Kind::decode);

    // Parameter sets that describe nothing.
    VideoFrameHeader withSets = key.header;
    Bytes junkSets{1, 3, 0, 0x65, 1, 2, 0, 0, 0, 2, 0x65, 0};
    EXPECT_EQ(thrownBy<DecoderError>([&] { decoder.decode(withSets, junkSets, [](const DecodedFrame&) {}); }).kind(),
              DecoderError::Kind::formatDescription);
    EXPECT_FALSE(decoder.hasSession());
}

}  // namespace
}  // namespace tsl::test
