#pragma once
#include <cstdint>

#include "TslCore/Wire/VideoCodec.h"

namespace tsl {

struct ByteWriter;
struct ByteReader;

// The 48-byte header in front of every picture on the video channel.
struct VideoFrameHeader {
    static constexpr int size = 48;

    struct Flags {
        uint8_t rawValue = 0;
        static constexpr uint8_t keyframe = 1;
        static constexpr uint8_t parameterSets = 2;
        bool contains(uint8_t bit) const { return (rawValue & bit) == bit; }
        bool operator==(const Flags&) const = default;
    };

    uint32_t streamID = 0;
    VideoCodec codec = VideoCodec::h264;
    Flags flags;
    uint16_t contentScale = 0;
    uint64_t frameID = 0;
    uint64_t guestTimestampNs = 0;
    uint32_t width = 0;
    uint32_t height = 0;
    uint32_t bytesPerRow = 0;
    uint32_t pixelFormat = 0;
    uint32_t inputEcho = 0;
    uint16_t nativeScale = 0;

    void encode(ByteWriter& w) const;
    static VideoFrameHeader decode(ByteReader& r);
    // Checks a raw picture's size against the header; nothing to check for h264.
    void validateRaw(uint64_t payloadCount) const;

    bool operator==(const VideoFrameHeader&) const = default;
};

}  // namespace tsl
