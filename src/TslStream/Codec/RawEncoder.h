#pragma once
#include "TslStream/Codec/VideoEncoder.h"

namespace tsl {

// Ships the pixels as they lie, stride and all. Every frame is whole, so
// there is nothing to request and nothing to end; output runs before encode
// returns, on the caller's thread.
class RawEncoder final : public VideoEncoder {
public:
    VideoCodec codec() const override { return VideoCodec::rawBGRA; }
    void encode(PixelBuffer& buffer, const FrameInfo& info, const Output& output) override;
    void requestKeyframe() override {}
    void invalidate() override {}

    // The header of a raw frame of `buffer` with rows of bytesPerRow bytes.
    static VideoFrameHeader header(const PixelBuffer& buffer, const FrameInfo& info, uint32_t bytesPerRow);
};

}  // namespace tsl
