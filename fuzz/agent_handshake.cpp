// Arbitrary bytes as the first frames on a connection to the host's agent
// acceptor: framed under the handshake's payload limit, decoded, and judged
// as a first message for a shared listener and for each channel's port.
// Nothing may crash; a refusal is a reason, never an exception.
#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>

#include "TslCore/Wire/FrameDecoder.h"
#include "TslStream/Agent/AgentHandshake.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    tsl::FrameDecoder decoder;
    decoder.maxPayload = tsl::AgentHandshake::payloadLimit;
    std::vector<tsl::WireMessage> messages;
    try {
        messages = decoder.feed(std::span<const uint8_t>(data, size));
    } catch (const std::exception&) {
        return 0;
    }
    for (const auto& message : messages) {
        auto envelope = message.get<tsl::ControlEnvelope>();
        if (!envelope) continue;
        for (std::optional<tsl::Channel> port :
             {std::optional<tsl::Channel>(), std::optional(tsl::Channel::control), std::optional(tsl::Channel::video),
              std::optional(tsl::Channel::input)}) {
            auto reason = tsl::AgentHandshake::refusal(envelope->message, port);
            if (reason && reason->empty()) __builtin_trap();
        }
    }
    return 0;
}
