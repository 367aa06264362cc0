#pragma once
#include <cstdint>
#include <memory>
#include <mutex>
#include <span>
#include <vector>

#include "TslStream/Codec/VideoEncoder.h"
#include "TslStream/Support/Logger.h"

namespace tsl {

// H.264 through libx264, tuned so that one frame in gives one frame out at
// once: no B-frames, no look-ahead, slice threads rather than frame threads.
// Main profile; the first frame and every requested one is an IDR frame that
// carries the parameter sets. Frames reach `output` on the caller's thread
// before encode returns.
//
// Threading: encode from one thread at a time (the capture queue);
// requestKeyframe and invalidate from any thread. The lock guards the
// session handle and the key frame flag and is never held inside x264.
class H264Encoder final : public VideoEncoder {
public:
    static constexpr double defaultBitsPerPixel = 0.12;
    static constexpr int64_t minimumBitRate = 1000000;

    // Throws EncoderError.sessionCreate when x264 takes neither setting.
    H264Encoder(int64_t width, int64_t height, int64_t fps, double bitsPerPixel);
    ~H264Encoder() override;

    // Bits per second for a size and rate, never below minimumBitRate.
    static int64_t bitRate(int64_t width, int64_t height, int64_t fps, double bitsPerPixel);
    // Builds the frame for one access unit (NAL units behind 4-byte
    // big-endian lengths); parameter sets ride along on key frames only.
    static EncodedFrame package(std::span<const uint8_t> accessUnit, bool keyframe,
                                const std::vector<Bytes>& parameterSets, const FrameInfo& info, int64_t width,
                                int64_t height);

    VideoCodec codec() const override { return VideoCodec::h264; }
    void encode(PixelBuffer& buffer, const FrameInfo& info, const Output& output) override;
    void requestKeyframe() override;
    void invalidate() override;

    // True when the session keeps each frame within one frame's share of the
    // bit rate (a buffer of one frame), as asked first.
    bool lowLatencyRateControl() const { return _lowLatencyRateControl; }
    // The sequence and picture parameter sets, without start codes.
    const std::vector<Bytes>& parameterSets() const { return _parameterSets; }

    const int64_t width;
    const int64_t height;

private:
    struct Session;

    Logger log{"com.tessel.stream", "h264"};
    std::mutex lock;
    std::shared_ptr<Session> session;
    bool forceKey = true;
    bool _lowLatencyRateControl = false;
    std::vector<Bytes> _parameterSets;
};

}  // namespace tsl
