#include "TesselHost/AgentAddress.h"

#include <CLI/CLI.hpp>

#include <iostream>

#include "TesselHost/HostSession.h"
#include "TslCore/Support/Error.h"

namespace tsl::host {

std::optional<std::string> AgentAddress::usage() const {
    if (connect.empty() == listen.empty()) return "give either --connect or --listen";
    const std::string& text = connect.empty() ? listen : connect;
    if (!SocketEndpoint::parse(text)) return "not an endpoint: " + text + " (unix:PATH, tcp:HOST:PORT, vsock:CID:PORT)";
    return std::nullopt;
}

void addAgentAddressOptions(CLI::App& command, AgentAddress& address) {
    command.add_option("--connect", address.connect,
                       "Dial a listening agent: unix:PATH, tcp:HOST:PORT or vsock:CID:PORT");
    command.add_option("--listen", address.listen, "Wait for the agent to dial in here: unix:PATH or tcp:HOST:PORT");
    command.add_option("--timeout", address.timeout, "Seconds to wait for the agent")
        ->check(CLI::Range(0.1, 86400.0))
        ->capture_default_str();
}

std::shared_ptr<AgentLink> reachAgent(const AgentAddress& address, const std::atomic<bool>& cancelled) {
    if (!address.connect.empty()) return dialAgent(*SocketEndpoint::parse(address.connect), address.timeout);
    return awaitAgent(*SocketEndpoint::parse(address.listen), address.timeout, cancelled,
                      [](const std::string& where) { std::cerr << "Waiting for the agent on " << where << "\n"; });
}

ExitStatus withAgent(const AgentAddress& address, const std::function<void(HostSession&)>& use) {
    if (auto usage = address.usage()) throw CommandFailure(*usage, ExitStatus::usage);
    std::atomic<bool> never{false};
    HostSession session(reachAgent(address, never), {});
    use(session);
    return ExitStatus::success;
}

}  // namespace tsl::host
