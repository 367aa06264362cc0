#pragma once
#include <optional>
#include <string>
#include <vector>

#include "TslAgent/AgentConfig.h"

// The endpoints of the agent's command line: which the agent dials, and which
// it may listen on.
namespace tsl::AgentEndpoints {

// One per channel: the host (vsock cid 2, or a TCP host) on each channel's port.
std::vector<SocketEndpoint> channels(const std::optional<std::string>& tcpHost);

// An endpoint's text; `unixOnly`, when not empty, names the option that
// accepts unix endpoints only. Throws AgentConfig::ParseError.
SocketEndpoint parse(const std::string& text, const std::string& unixOnly = {});

// Refuses a listening endpoint the desktop may not use.
void checkListening(const AgentConfig::Mode& mode, AgentConfig::Desktop desktop);

}  // namespace tsl::AgentEndpoints
