#pragma once
#include <functional>
#include <memory>

#include "Platform/PixelBuffer.h"
#include "TslCore/Wire/VideoCodec.h"
#include "TslStream/Codec/FrameInfo.h"

namespace tsl {

// Turns pixel buffers of one fixed size into frames for the video connection.
// A new size needs a new encoder.
class VideoEncoder {
public:
    // May run on any thread, during encode or after it.
    using Output = std::function<void(EncodedFrame)>;

    virtual ~VideoEncoder() = default;

    virtual VideoCodec codec() const = 0;
    // Throws EncoderError or PixelBufferError; a frame that fails later
    // inside the codec never reaches `output`.
    virtual void encode(PixelBuffer& buffer, const FrameInfo& info, const Output& output) = 0;
    // The next frame shall be a key frame.
    virtual void requestKeyframe() = 0;
    // Ends the encoder; frames already taken still reach their output.
    virtual void invalidate() = 0;
};

// An H264Encoder at 0.12 bits per pixel, or a RawEncoder. Throws as the
// encoder's constructor does.
std::shared_ptr<VideoEncoder> makeEncoder(VideoCodec codec, int64_t width, int64_t height, int64_t fps);

}  // namespace tsl
