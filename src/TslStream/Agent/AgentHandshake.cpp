#include "TslStream/Agent/AgentHandshake.h"

#include "TslCore/Wire/WireHeader.h"

namespace tsl::AgentHandshake {

std::optional<std::string> refusal(const ControlMessage& first, std::optional<Channel> expected) {
    auto hello = first.get<ControlMessage::Hello>();
    if (!hello || hello->value.role != Hello::Role::agent ||
        hello->value.protocolVersion != Hello::currentProtocolVersion)
        return "expected agent hello v" + std::to_string(WireHeader::currentVersion);
    if (expected && channelsOf(hello->value) != std::set<Channel>{*expected})
        return "channel does not match port (" + std::string(rawValue(*expected)) + ")";
    return std::nullopt;
}

}  // namespace tsl::AgentHandshake
