// The agent executable: parse the command line, then serve the host.
#include <pwd.h>
#include <unistd.h>

#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <iostream>
#include <thread>

#include "TslAgent/AgentConfig.h"
#include "TslStream/Transport/Socket.h"
#include "TslStream/Transport/WireConnection.h"

using namespace tsl;

namespace {

std::filesystem::path homeDirectory() {
    if (const char* h = std::getenv("HOME"); h && *h) return h;
    if (const passwd* pw = ::getpwuid(::getuid())) return pw->pw_dir;
    return "/";
}

// Answers pings on one connection until it closes.
void serve(int fd, std::string label) {
    auto connection = std::make_shared<WireConnection>(fd, std::move(label));
    std::weak_ptr<WireConnection> weak = connection;
    connection->start(
        [weak](WireMessage m) {
            auto c = weak.lock();
            if (!c) return;
            if (auto p = m.get<WireMessage::Ping>()) {
                try {
                    c->send(WireMessage::pong(p->value));
                } catch (const std::exception&) {
                }
            }
        },
        nullptr);
}

}  // namespace

int main(int argc, char** argv) {
    std::signal(SIGPIPE, SIG_IGN);
    std::vector<std::string> arguments(argv + 1, argv + argc);
    std::optional<AgentConfig> parsed;
    try {
        parsed = AgentConfig::parse(arguments, homeDirectory(), AgentConfig::runningInVirtualMachine());
    } catch (const AgentConfig::ParseError& e) {
        std::fprintf(stderr, "TesselAgent: %s\n", e.description().c_str());
        return 2;
    }
    const AgentConfig config = *parsed;

    if (auto listen = config.mode.get<AgentConfig::Mode::Listen>()) {
        std::unique_ptr<SocketListener> listener;
        try {
            listener = std::make_unique<SocketListener>(listen->endpoint, 8);
        } catch (const std::exception&) {
            std::fprintf(stderr, "cannot listen on %s (unix sockets only)\n", listen->endpoint.description().c_str());
            return 1;
        }
        std::printf("TesselAgent listening on %s\n", listen->endpoint.description().c_str());
        std::fflush(stdout);
        for (int count = 1;; ++count) {
            int fd;
            try {
                fd = listener->accept();
            } catch (const std::exception&) {
                break;
            }
            serve(fd, "host-" + std::to_string(count));
        }
        for (;;) ::pause();
    }
    auto& endpoints = config.mode.get<AgentConfig::Mode::Connect>()->endpoints;
    for (;;) {
        try {
            serve(connectSocket(config.currentEndpoints(endpoints).front()), "agent-channel:control");
            for (;;) ::pause();
        } catch (const std::exception&) {
            std::this_thread::sleep_for(std::chrono::milliseconds(500));
        }
    }
}
