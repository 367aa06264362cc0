#pragma once
#include <stdlib.h>

#include <atomic>
#include <chrono>
#include <filesystem>
#include <functional>
#include <string>
#include <thread>

#include "Platform/Sim/Desktop.h"
#include "TslAgent/AgentRunner.h"
#include "TslAgent/AgentService.h"
#include "TslStream/Runtime/MainActor.h"

namespace tsl::bench {

// A simulated agent listening on a unix socket in a folder of its own, served
// by this thread's main actor while `client` works on another thread with
// the socket's path. False when the folder can't be made or the client ran
// past `limit`.
inline bool withListeningAgent(std::chrono::minutes limit, const std::function<void(const std::string&)>& client) {
    char dir[] = "/tmp/tsl-bench-XXXXXX";
    if (!::mkdtemp(dir)) return false;
    const std::string socket = std::string(dir) + "/agent.sock";
    MainActor main;
    auto config = AgentConfig::simulation(AgentConfig::Mode::listen(SocketEndpoint::unix(socket)), dir, false);
    auto service = std::make_shared<AgentService>(config, Sim::Desktop::make()->services(), [](int) {});
    auto runner = std::make_unique<AgentRunner>(config, service, [](int) {});
    runner->run();
    std::atomic<bool> done = false;
    std::thread thread([&] {
        while (!std::filesystem::exists(socket)) std::this_thread::yield();
        client(socket);
        done = true;
    });
    const bool finished = main.runUntil([&] { return done.load(); }, limit);
    thread.join();
    runner.reset();
    std::filesystem::remove_all(dir);
    return finished;
}

}  // namespace tsl::bench
