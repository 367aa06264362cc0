#pragma once
#include <optional>
#include <stdexcept>
#include <vector>

#include "Support/H264TestDecoder.h"
#include "TslCore/Measure/TestPattern.h"
#include "TslStream/Codec/H264Encoder.h"
#include "TslStream/Codec/PixelBuffers.h"
#include "TslStream/Codec/RawEncoder.h"
#include "TslStream/Codec/VideoDecoder.h"

namespace tsl::test {

// The test pattern with `counter` in its barcode, filling the picture.
inline std::shared_ptr<PixelBuffer> patternPicture(int64_t width, int64_t height, uint64_t counter,
                                                   bool squareWhite = false) {
    auto buffer = PixelBuffers::make(width, height);
    PixelBufferLock locked(*buffer, 0);
    drawTestPattern(locked.base(), width, height, buffer->bytesPerRow(), double(width) / TestPatternSpec::contentWidth,
                    counter, squareWhite);
    return buffer;
}

// Frames of the test pattern from a real encoder, counter = frame number.
class PatternStream {
public:
    PatternStream(VideoCodec codec, int64_t width, int64_t height, uint32_t streamID = 1)
        : width(width), height(height), streamID(streamID), encoder(makeEncoder(codec, width, height, 30)) {}

    EncodedFrame next(bool keyframe = false) {
        if (keyframe) encoder->requestKeyframe();
        ++frameID;
        auto picture = patternPicture(width, height, frameID, squareWhite);
        std::optional<EncodedFrame> out;
        FrameInfo info{.streamID = streamID, .frameID = frameID, .timestampNs = frameID * 1000, .contentScale = 100};
        encoder->encode(*picture, info, [&](EncodedFrame f) { out = std::move(f); });
        if (!out) throw std::runtime_error("the encoder gave no frame");
        return std::move(*out);
    }

    const int64_t width, height;
    const uint32_t streamID;
    uint64_t frameID = 0;
    bool squareWhite = false;  // for the frames to come

private:
    std::shared_ptr<VideoEncoder> encoder;
};

// The pattern counter a decoded picture shows.
inline uint32_t counterShown(PixelBuffer& picture) {
    double scale = double(picture.width()) / TestPatternSpec::contentWidth;
    return readPatternCounter(scale, [&](int x, int y) {
        auto p = PixelBuffers::pixel(picture, x, y);
        return p && p->g > 128;
    });
}

}  // namespace tsl::test
