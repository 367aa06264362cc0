#include "TslStream/Codec/VideoEncoder.h"

#include "TslStream/Codec/H264Encoder.h"
#include "TslStream/Codec/RawEncoder.h"

namespace tsl {

std::shared_ptr<VideoEncoder> makeEncoder(VideoCodec codec, int64_t width, int64_t height, int64_t fps) {
    if (codec == VideoCodec::h264) return std::make_shared<H264Encoder>(width, height, fps, H264Encoder::defaultBitsPerPixel);
    return std::make_shared<RawEncoder>();
}

}  // namespace tsl
