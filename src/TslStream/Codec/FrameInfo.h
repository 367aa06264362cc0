#pragma once
#include <cstdint>
#include <utility>

#include "TslCore/Support/Bytes.h"
#include "TslCore/Wire/VideoFrameHeader.h"
#include "TslCore/Wire/WireMessage.h"

namespace tsl {

// What the sender knows of a frame when it hands it to an encoder.
struct FrameInfo {
    uint32_t streamID = 0;
    uint64_t frameID = 0;
    uint64_t timestampNs = 0;   // monotonic clock at capture
    uint16_t contentScale = 0;  // pixels per point, in hundredths
    uint32_t inputEcho = 0;
    uint16_t nativeScale = 0;  // hundredths
    bool operator==(const FrameInfo&) const = default;
};

// One picture ready for the video connection.
struct EncodedFrame {
    VideoFrameHeader header;
    Bytes payload;

    WireMessage message() const& { return WireMessage::video(header, payload); }
    WireMessage message() && { return WireMessage::video(header, std::move(payload)); }
    bool operator==(const EncodedFrame&) const = default;
};

}  // namespace tsl
