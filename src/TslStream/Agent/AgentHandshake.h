#pragma once
#include <cstdint>
#include <optional>
#include <string>

#include "TslCore/Wire/ControlMessage.h"
#include "TslStream/Transport/Channel.h"

namespace tsl::AgentHandshake {

// No frame above this passes before a hello has.
inline constexpr uint32_t payloadLimit = 0x10000;

// Why the host refuses a connection's first message, or nothing when it may
// register. `expected` is the port's channel, absent on a shared listener.
std::optional<std::string> refusal(const ControlMessage& first, std::optional<Channel> expected);

}  // namespace tsl::AgentHandshake
