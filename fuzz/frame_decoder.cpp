// A byte stream from a peer, cut into reads of sizes drawn from the input,
// with the limit changed between messages as a handshake does. Every message
// that comes out must encode and decode back to itself.
#include <fuzzer/FuzzedDataProvider.h>

#include "FuzzSupport.h"
#include "TslCore/Wire/FrameDecoder.h"
#include "TslCore/Wire/WireError.h"
#include "TslCore/Wire/WireJSON.h"

using namespace tsl;

namespace {

void checkRoundTrip(const WireMessage& m) {
    Bytes frame;
    try {
        frame = m.encoded(1);
    } catch (const WireJSON::EncodeError&) {
        return;  // a decoded value JSON cannot carry is caught by control_json
    }
    FrameDecoder again;
    auto back = again.feed(frame);
    fuzz::require(back.size() == 1, "a re-encoded message does not decode as one message");
    if (m.type() != MessageType::control) fuzz::require(back[0] == m, "a message changed in a round trip");
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    FuzzedDataProvider in(data, size);
    FrameDecoder decoder;
    if (in.ConsumeBool()) decoder.maxPayload = in.ConsumeIntegral<uint32_t>();
    size_t fed = 0;
    try {
        while (in.remaining_bytes() > 0) {
            size_t chunk = in.ConsumeIntegralInRange<size_t>(1, 4096);
            auto bytes = in.ConsumeBytes<uint8_t>(chunk);
            fed += bytes.size();
            decoder.feed(bytes, [&](WireMessage m) {
                checkRoundTrip(m);
                if (in.ConsumeBool()) {
                    if (in.ConsumeBool()) decoder.maxPayload = in.ConsumeIntegral<uint32_t>();
                    else decoder.maxPayload.reset();
                }
            });
            // What is held never outgrows what arrived (plus the header in hand).
            fuzz::require(decoder.bufferedCount() <= fed, "the decoder holds more bytes than it was fed");
        }
    } catch (const WireError&) {
        fuzz::require(decoder.isPoisoned(), "a refused stream left the decoder usable");
    }
    return 0;
}
