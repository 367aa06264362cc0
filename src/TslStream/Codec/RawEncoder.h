#pragma once
#include <mutex>

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

    // Hands a written frame's payload back, so that the next frame is copied
    // into memory already mapped rather than a fresh allocation of its size.
    void recycle(Bytes payload);

private:
    std::mutex lock;  // guards spare
    Bytes spare;
};

}  // namespace tsl
