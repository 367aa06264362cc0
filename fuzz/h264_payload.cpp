// Arbitrary bytes as the picture of an H.264 video frame. The first byte
// chooses whether the frame claims parameter sets; the rest is the payload.
// Decoding must refuse with a WireError or succeed, and never read outside.
#include <cstddef>
#include <cstdint>
#include <span>

#include "FuzzSupport.h"
#include "TslCore/Wire/WireError.h"
#include "TslStream/Codec/H264Payload.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    if (size == 0) return 0;
    const bool hasParameterSets = data[0] & 1;
    std::span<const uint8_t> payload(data + 1, size - 1);
    try {
        tsl::H264Payload decoded = tsl::H264Payload::decode(payload, hasParameterSets);
        // What decodes must survive a round trip unchanged.
        tsl::fuzz::require(tsl::H264Payload::decode(decoded.encoded(), !decoded.parameterSets.empty()) == decoded,
                           "round trip changed the payload");
    } catch (const tsl::WireError&) {
    }
    try {
        tsl::H264Payload::validateAVCC(payload);
    } catch (const tsl::WireError&) {
    }
    return 0;
}
