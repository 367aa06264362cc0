#include "TslAgent/AgentEndpoints.h"

#include <array>

namespace tsl::AgentEndpoints {
namespace {

constexpr uint32_t hostCid = 2;
constexpr std::array<uint16_t, 3> channelPorts{5000, 5001, 5002};  // control, video, input

}  // namespace

// One endpoint per channel: the host (the vsock's cid 2, or a TCP host) on each channel's port.
std::vector<SocketEndpoint> channels(const std::optional<std::string>& tcpHost) {
    std::vector<SocketEndpoint> out;
    for (uint16_t port : channelPorts)
        out.push_back(tcpHost ? SocketEndpoint::tcp(*tcpHost, port) : SocketEndpoint::vsock(hostCid, port));
    return out;
}

// `unixOnly` empty: any kind, checked once the desktop is known.
SocketEndpoint parse(const std::string& text, const std::string& unixOnly) {
    auto endpoint = SocketEndpoint::parse(text);
    if (!endpoint) throw AgentConfig::ParseError::usage("bad endpoint " + text);
    if (!unixOnly.empty() && !endpoint->isUnix())
        throw AgentConfig::ParseError::usage(unixOnly + " accepts unix:<path> endpoints only");
    return *endpoint;
}

// A real desktop listens on a unix socket or on loopback TCP; a simulation on a unix socket only.
void checkListening(const AgentConfig::Mode& mode, AgentConfig::Desktop desktop) {
    auto listen = mode.get<AgentConfig::Mode::Listen>();
    auto tcp = listen ? listen->endpoint.get<SocketEndpoint::Tcp>() : nullptr;
    if (!listen || listen->endpoint.isUnix() ||
        (desktop == AgentConfig::Desktop::x11 && tcp && tcp->host == "127.0.0.1"))
        return;
    throw AgentConfig::ParseError::usage(desktop == AgentConfig::Desktop::x11
                                             ? "--listen accepts unix:<path> or tcp:127.0.0.1:<port> endpoints only"
                                             : "--listen accepts unix:<path> endpoints only");
}

}  // namespace tsl::AgentEndpoints
