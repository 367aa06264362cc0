#pragma once
#include <cstdint>
#include <functional>
#include <memory>
#include <mutex>

#include "Platform/PixelBuffer.h"
#include "TslStream/Codec/VideoEncoder.h"
#include "TslStream/Support/Logger.h"
#include "TslStream/Transport/WireConnection.h"

namespace tsl {

// The frame path of one stream: numbers each submitted picture, encodes it
// with the encoder of its size (a new size gets a new encoder), and writes
// the result to the connection. No queue: the blocking write is the only
// back-pressure, and a lost frame only leaves a gap in the numbers.
//
// Threading: submit from the capture thread; the write runs on the thread
// the encoder calls back on (the capture thread for both codecs here).
// requestKeyframe, stop and the readers from any thread. The lock guards the
// fields below it and is released before the encoder is called or a frame is
// written. Held by shared_ptr; encoder callbacks hold it weakly.
class StreamSender : public std::enable_shared_from_this<StreamSender> {
public:
    using EncoderFactory = std::function<std::shared_ptr<VideoEncoder>(VideoCodec, int64_t width, int64_t height, int64_t fps)>;

    StreamSender(uint32_t streamID, VideoCodec codec, int64_t fps, std::shared_ptr<WireConnection> connection,
                 EncoderFactory makeEncoder = tsl::makeEncoder);

    // Never throws: failures are counted, and encode failures logged.
    void submit(PixelBuffer& buffer, double contentScale, double nativeScale, uint32_t inputEcho, uint64_t timestampNs);
    void requestKeyframe();
    // Frames already in the encoder are still written.
    void stop();

    uint64_t framesSent() const;
    uint64_t sendErrors() const;
    double meanEncodeAndSendMs() const;
    bool lowLatencyRateControl() const;

    // Hundredths in 16 bits: 2.0 travels as 200; not finite, 0.
    static uint16_t wireScale(double scale);

    const uint32_t streamID;
    const VideoCodec codec;
    const int64_t fps;
    const std::shared_ptr<WireConnection> connection;

private:
    void send(EncodedFrame frame);
    void sendRaw(PixelBuffer& buffer, const FrameInfo& info);
    void count(bool sent, uint64_t capturedNs);

    const EncoderFactory makeEncoder;
    Logger log{"com.tessel.stream", "sender"};
    mutable std::mutex lock;
    std::shared_ptr<VideoEncoder> encoder;
    std::pair<int64_t, int64_t> size{0, 0};
    uint64_t frameID = 0;
    uint64_t _framesSent = 0;
    uint64_t _sendErrors = 0;
    uint64_t _encodeDelayNsTotal = 0;
    bool stopped = false;
};

}  // namespace tsl
