#pragma once
#include <atomic>
#include <functional>
#include <memory>
#include <optional>
#include <string>

#include "TesselHost/HostCommand.h"
#include "TslStream/Agent/AgentLink.h"

namespace CLI {
class App;
}

namespace tsl::host {

class HostSession;

// Where a command finds a running agent: it dials one that listens, or
// listens for one that dials.
struct AgentAddress {
    std::string connect;
    std::string listen;
    double timeout = 30;  // seconds

    // What is wrong with the options as given, if anything.
    std::optional<std::string> usage() const;
};

// --connect, --listen and --timeout on `command`.
void addAgentAddressOptions(CLI::App& command, AgentAddress& address);

// The link to the agent, all three channels up. Throws Error with the reason.
std::shared_ptr<AgentLink> reachAgent(const AgentAddress& address, const std::atomic<bool>& cancelled);

// Runs `use` over a fresh link to the agent; a bad address is a usage error.
ExitStatus withAgent(const AgentAddress& address, const std::function<void(HostSession&)>& use);

}  // namespace tsl::host
