#pragma once
#include <span>
#include <vector>

#include "TslCore/Support/Bytes.h"

namespace tsl {

// The picture of an H.264 video frame: when the frame's flags say so, a count
// byte and the parameter sets (each behind a little-endian 16-bit length, no
// start code), then one access unit whose NAL units each stand behind a
// 4-byte big-endian length, up to the end of the payload.
struct H264Payload {
    static constexpr size_t maxParameterSets = 8;
    static constexpr size_t maxParameterSetSize = 65535;

    std::vector<Bytes> parameterSets;
    Bytes avcc;

    // Writes at most the first 8 sets, and of those only the ones that fit a
    // 16-bit length; no count at all when none is left.
    Bytes encoded() const;
    static Bytes encode(const std::vector<Bytes>& parameterSets, std::span<const uint8_t> avcc);
    // Whether encode writes a count (and so the frame carries the parameterSets flag).
    static bool writesParameterSets(const std::vector<Bytes>& parameterSets);

    // Throws WireError: malformedPayload with the reason, or truncated.
    static H264Payload decode(std::span<const uint8_t> payload, bool hasParameterSets);
    static void validateAVCC(std::span<const uint8_t> avcc);

    bool operator==(const H264Payload&) const = default;
};

}  // namespace tsl
