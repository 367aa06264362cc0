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
};

}  // namespace tsl
