#pragma once
#include <optional>
#include <string>
#include <string_view>

namespace tsl::GuestShare {

// Relative to the product's entry in the share: a file by which the host asks
// the agent to dial over TCP instead of vsock.
inline constexpr std::string_view transportChoiceRelativePath = ".tessel/transport";

// The host named by a transport file of the form "tcp <private IPv4 address>",
// exactly as written; nothing for any other content.
std::optional<std::string> tcpHostFromTransportChoice(std::string_view text);

}  // namespace tsl::GuestShare
