// A control payload from a peer. A value that decodes must encode, and decode
// back to the same value; encoding it again gives the same bytes.
#include <optional>

#include "FuzzSupport.h"
#include "TslCore/Wire/WireJSON.h"

using namespace tsl;

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    std::optional<ControlEnvelope> first;
    try {
        first = WireJSON::decodeEnvelope(data, size);
    } catch (const WireJSON::DecodeError&) {
        return 0;
    }
    Bytes encoded;
    try {
        encoded = WireJSON::encode(*first);
    } catch (const WireJSON::EncodeError& e) {
        std::fprintf(stderr, "%s\n", e.what());
        fuzz::finding("a decoded envelope does not encode");
    }
    std::optional<ControlEnvelope> second;
    try {
        second = WireJSON::decodeEnvelope(encoded.data(), encoded.size());
    } catch (const WireJSON::DecodeError& e) {
        std::fprintf(stderr, "%s\n", e.what());
        fuzz::finding("an encoded envelope does not decode");
    }
    fuzz::require(*second == *first, "an envelope changed in a round trip");
    fuzz::require(WireJSON::encode(*second) == encoded, "an envelope's encoding is not stable");
    return 0;
}
