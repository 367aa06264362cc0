#pragma once
#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <set>
#include <span>

#include "TslStream/Codec/VideoDecoder.h"

namespace tsl {

// The host's end of the streams: sorts frames by stream, keeps a decoder for
// each, and decides which streams may pass at all. Synchronous: when handle
// returns, the frame has been decoded, passed on or dropped.
//
// Threading: any thread. Frames of different streams may be handled at once
// from different threads; frames of one stream one at a time. `lock` guards
// the table, the allowed set, the counter and the callback, never a decode.
class StreamReceiver {
public:
    using DecodeErrorHandler = std::function<void(uint32_t streamID)>;

    // Restricted: only streams passed to allow() get through.
    explicit StreamReceiver(bool restricted);

    // Lets a stream through a restricted receiver; nothing on an unrestricted one.
    void allow(uint32_t streamID);
    // Decodes the frame and passes the picture to output. A frame that fails
    // is counted and reported, the stream's decoder drops its session, and
    // the error goes no further.
    void handle(const VideoFrameHeader& header, std::span<const uint8_t> payload, const VideoDecoder::Output& output);
    // Forgets the stream: its decoder, and its place in the allowed set.
    void remove(uint32_t streamID);

    uint64_t decodeErrors() const;
    DecodeErrorHandler onDecodeError() const;
    void setOnDecodeError(DecodeErrorHandler handler);

private:
    mutable std::mutex lock;
    std::map<uint32_t, std::shared_ptr<VideoDecoder>> decoders;
    std::optional<std::set<uint32_t>> allowed;
    uint64_t _decodeErrors = 0;
    DecodeErrorHandler _onDecodeError;
};

}  // namespace tsl
