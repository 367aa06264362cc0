#pragma once
#include <cstdint>
#include <optional>
#include <string>

#include "TslCore/Wire/ControlMessage.h"
#include "TslStream/Transport/Channel.h"
#include "TslStream/Transport/HandshakeGate.h"

namespace tsl::AgentHandshake {

inline constexpr uint32_t payloadLimit = HandshakeGate::payloadLimit;

// Why the host refuses a connection's first message, or nothing when it may
// register. `expected` is the port's channel, absent on a shared listener.
std::optional<std::string> refusal(const ControlMessage& first, std::optional<Channel> expected);

}  // namespace tsl::AgentHandshake
