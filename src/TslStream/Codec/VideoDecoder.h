#pragma once
#include <cstdint>
#include <functional>
#include <memory>
#include <span>
#include <vector>

#include "Platform/PixelBuffer.h"
#include "TslCore/Support/Bytes.h"
#include "TslCore/Wire/VideoFrameHeader.h"
#include "TslStream/Codec/DecoderError.h"

namespace tsl {

// One picture ready to show, with the header it came with.
struct DecodedFrame {
    VideoFrameHeader header;
    std::shared_ptr<PixelBuffer> pixelBuffer;  // BGRA
};

// Turns the frames of one stream, raw or H.264, into BGRA pictures: one frame
// in, at most one picture out, before decode returns. H.264 runs on
// libavcodec with one thread and no frame delay; a session is made from the
// parameter sets of a key frame, kept while they stay the same and replaced
// when new ones come.
// Not thread-safe: one frame at a time.
class VideoDecoder {
public:
    using Output = std::function<void(const DecodedFrame&)>;

    // The largest picture decoded: as many pixels as the largest raw frame carries.
    static constexpr uint64_t maxPixels = 0x6000000 / 4;

    VideoDecoder();
    ~VideoDecoder();
    VideoDecoder(const VideoDecoder&) = delete;
    VideoDecoder& operator=(const VideoDecoder&) = delete;

    // Calls output at most once, before returning. Throws WireError for a
    // malformed payload, PixelBufferError, or DecoderError.
    void decode(const VideoFrameHeader& header, std::span<const uint8_t> payload, const Output& output);
    // Drops the session and the parameter sets behind it: until the next key
    // frame with parameter sets every H.264 frame fails with noParameterSets.
    void invalidate();

    bool hasSession() const { return session != nullptr; }
    // Sessions made so far; a reused session doesn't count.
    uint64_t sessionsMade() const { return _sessionsMade; }

private:
    struct Session;

    void decodeRaw(const VideoFrameHeader& header, std::span<const uint8_t> payload, const Output& output);
    void decodeH264(const VideoFrameHeader& header, std::span<const uint8_t> payload, const Output& output);
    void configure(const std::vector<Bytes>& sets);
    // A BGRA buffer of that size that nobody else holds any more, or a new one.
    std::shared_ptr<PixelBuffer> freeBuffer(int64_t width, int64_t height);

    std::unique_ptr<Session> session;
    std::vector<Bytes> lastSets;
    std::vector<std::shared_ptr<PixelBuffer>> buffers;
    Bytes packet;
    uint64_t _sessionsMade = 0;
};

}  // namespace tsl
