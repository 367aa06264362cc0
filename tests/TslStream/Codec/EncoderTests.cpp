#include <gtest/gtest.h>

#include "Support/H264TestDecoder.h"
#include "Support/LogLines.h"
#include "TslCore/Measure/TestPattern.h"
#include "TslStream/Codec/EncoderError.h"
#include "TslStream/Codec/H264Encoder.h"
#include "TslStream/Codec/PixelBuffers.h"
#include "TslStream/Codec/RawEncoder.h"

namespace tsl {
namespace {

using test::LogLines;

using Flags = VideoFrameHeader::Flags;

std::shared_ptr<PixelBuffer> pattern(int64_t width, int64_t height, uint64_t counter) {
    auto buffer = PixelBuffers::make(width, height);
    PixelBufferLock locked(*buffer, 0);
    drawTestPattern(locked.base(), width, height, buffer->bytesPerRow(), double(width) / TestPatternSpec::contentWidth,
                    counter, false);
    return buffer;
}

FrameInfo info(uint64_t frameID) { return {.streamID = 7, .frameID = frameID, .timestampNs = 1000 + frameID,
                                           .contentScale = 150, .inputEcho = 42, .nativeScale = 200}; }

// Encodes and insists that the frame came out before encode returned.
EncodedFrame encodeNow(VideoEncoder& encoder, PixelBuffer& buffer, uint64_t frameID) {
    std::optional<EncodedFrame> out;
    encoder.encode(buffer, info(frameID), [&](EncodedFrame f) { out = std::move(f); });
    if (!out) throw std::runtime_error("no frame out of encode");
    return std::move(*out);
}

TEST(RawEncoder, ShipsThePixelsWithTheirStrideAsKeyFrames) {
    RawEncoder encoder;
    auto buffer = pattern(320, 200, 5);
    for (uint64_t id = 1; id <= 2; ++id) {
        EncodedFrame f = encodeNow(encoder, *buffer, id);
        const VideoFrameHeader& h = f.header;
        EXPECT_EQ(h.codec, VideoCodec::rawBGRA);
        EXPECT_EQ(h.flags.rawValue, Flags::keyframe);
        EXPECT_EQ(h.frameID, id);
        EXPECT_EQ(h.guestTimestampNs, 1000 + id);
        EXPECT_EQ((std::tuple{h.streamID, h.contentScale, h.inputEcho, h.nativeScale}), (std::tuple{7u, 150, 42u, 200}));
        EXPECT_EQ((std::tuple{h.width, h.height, h.bytesPerRow, h.pixelFormat}),
                  (std::tuple{320u, 200u, uint32_t(buffer->bytesPerRow()), PixelBuffers::bgra}));
        EXPECT_EQ(f.payload, PixelBuffers::rawPayload(*buffer).data);
        EXPECT_NO_THROW(h.validateRaw(f.payload.size()));
    }
}

TEST(H264Encoder, FirstAndRequestedFramesAreKeyFramesWithParameterSets) {
    H264Encoder encoder(320, 200, 30, H264Encoder::defaultBitsPerPixel);
    ASSERT_EQ(encoder.parameterSets().size(), 2u);
    EXPECT_EQ(encoder.parameterSets()[0][0] & 0x1F, 7);  // SPS
    EXPECT_EQ(encoder.parameterSets()[0][1], 77);       // Main profile
    EXPECT_EQ(encoder.parameterSets()[1][0] & 0x1F, 8);  // PPS

    std::vector<uint8_t> flags;
    for (uint64_t id = 1; id <= 6; ++id) {
        if (id == 4) {
            encoder.requestKeyframe();
            encoder.requestKeyframe();  // two requests, one key frame
        }
        auto buffer = pattern(320, 200, id);
        EncodedFrame f = encodeNow(encoder, *buffer, id);
        flags.push_back(f.header.flags.rawValue);
        EXPECT_EQ((std::tuple{f.header.codec, f.header.width, f.header.height, f.header.bytesPerRow, f.header.pixelFormat}),
                  (std::tuple{VideoCodec::h264, 320u, 200u, 0u, 0u}));
        H264Payload p = H264Payload::decode(f.payload, f.header.flags.contains(Flags::parameterSets));
        EXPECT_EQ(p.parameterSets, f.header.flags.contains(Flags::keyframe) ? encoder.parameterSets() : std::vector<Bytes>{});
    }
    const uint8_t key = Flags::keyframe | Flags::parameterSets;
    EXPECT_EQ(flags, (std::vector<uint8_t>{key, 0, 0, key, 0, 0}));
}

// The picture moves every frame, so only the interval (fps × 10) makes keys.
TEST(H264Encoder, KeyFramesComeEveryTenSecondsOfFrames) {
    H264Encoder encoder(320, 200, 1, H264Encoder::defaultBitsPerPixel);
    std::vector<uint64_t> keys;
    for (uint64_t id = 1; id <= 25; ++id) {
        auto buffer = pattern(320, 200, id);
        if (encodeNow(encoder, *buffer, id).header.flags.contains(Flags::keyframe)) keys.push_back(id);
    }
    EXPECT_EQ(keys, (std::vector<uint64_t>{1, 11, 21}));
}

// A setting x264 refuses is told once in the log; the encoder runs without it.
TEST(H264Encoder, ARefusedSettingIsLoggedAndEncodingGoesOn) {
    LogLines lines;
    H264Encoder encoder(320, 200, 0, H264Encoder::defaultBitsPerPixel);
    EXPECT_EQ(LogLines::count("property fps not accepted: -2"), 1);
    auto buffer = pattern(320, 200, 1);
    EXPECT_TRUE(encodeNow(encoder, *buffer, 1).header.flags.contains(Flags::keyframe));
}

TEST(H264Encoder, FramesDecodeToThePicture) {
    H264Encoder encoder(640, 400, 60, H264Encoder::defaultBitsPerPixel);
    test::H264TestDecoder decoder;
    for (uint64_t id = 1; id <= 20; ++id) {
        auto buffer = pattern(640, 400, id * 3);
        EncodedFrame f = encodeNow(encoder, *buffer, id);
        auto picture = decoder.decode(f.header, f.payload);
        ASSERT_TRUE(picture) << "frame " << id;  // one frame in, one picture out
        EXPECT_EQ((std::pair{picture->width, picture->height}), (std::pair{640, 400}));
        EXPECT_EQ(test::readPatternCounter(*picture, 1.0), id * 3);
    }
}

TEST(H264Encoder, RefusesOtherSizesAndWorkAfterInvalidate) {
    H264Encoder encoder(320, 200, 30, H264Encoder::defaultBitsPerPixel);
    auto wider = pattern(322, 200, 1);
    try {
        encoder.encode(*wider, info(1), [](EncodedFrame) {});
        FAIL() << "a wider buffer was taken";
    } catch (const EncoderError& e) {
        EXPECT_EQ(e, EncoderError::sizeChanged());
    }
    // The refused frame did not use up the first frame's key.
    auto buffer = pattern(320, 200, 1);
    EXPECT_TRUE(encodeNow(encoder, *buffer, 1).header.flags.contains(Flags::keyframe));

    encoder.invalidate();
    encoder.requestKeyframe();  // harmless now
    try {
        encoder.encode(*buffer, info(2), [](EncodedFrame) { FAIL(); });
        FAIL() << "an invalidated encoder took a frame";
    } catch (const EncoderError& e) {
        EXPECT_EQ(e, EncoderError::encode(-1));
    }
}

TEST(H264Encoder, BitRateAndFactory) {
    EXPECT_EQ(H264Encoder::bitRate(1920, 1080, 60, 0.12), 14929920);
    EXPECT_EQ(H264Encoder::bitRate(640, 480, 30, 0.12), 1105920);
    EXPECT_EQ(H264Encoder::bitRate(100, 100, 30, 0.12), 1000000);
    EXPECT_EQ(makeEncoder(VideoCodec::rawBGRA, 3, 3, 30)->codec(), VideoCodec::rawBGRA);
    auto h264 = makeEncoder(VideoCodec::h264, 64, 64, 30);
    EXPECT_EQ(h264->codec(), VideoCodec::h264);
    EXPECT_TRUE(std::dynamic_pointer_cast<H264Encoder>(h264)->lowLatencyRateControl());
    // x264's 4:2:0 input needs even sides.
    EXPECT_THROW(makeEncoder(VideoCodec::h264, 63, 64, 30), EncoderError);
}

}  // namespace
}  // namespace tsl
