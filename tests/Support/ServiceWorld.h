#pragma once
#include <filesystem>

#include "Platform/Sim/Desktop.h"
#include "Support/AgentTestSupport.h"
#include "Support/Errors.h"
#include "Support/TempDir.h"
#include "TslStream/Agent/SampleApps.h"

namespace tsl::test {

// A service on this thread's main actor over a simulated desktop with the
// sample applications, and one host on a control channel over a socket
// pair. A guest run (clipboard sync on, Accessibility settling) or a
// simulation run; background work starts only when a test says so.
struct ServiceWorld {
    MainActor main;
    TempDir root;
    AgentConfig config = AgentConfig::simulation(AgentConfig::Mode::listen(SocketEndpoint::unix("/unused")),
                                                 root.path(), false);
    std::shared_ptr<Sim::Desktop> desktop = Sim::Desktop::make({.manualCapture = true, .applicationDirs = {config.appsDir}});
    PlatformServices platform = desktop->services();
    ExitRecorder exits;
    std::shared_ptr<AgentService> service;
    std::shared_ptr<ControlChannel> agentEnd;
    std::unique_ptr<HostEnd> host;

    explicit ServiceWorld(bool guestRun) {
        config.isSimulation = !guestRun;
        config.clipboardSync = guestRun;
        std::filesystem::create_directories(config.sharedDir);
        placeSampleApps(config.appsDir);
        service = std::make_shared<AgentService>(config, platform, exits.function());
        auto [a, b] = socketPair();
        agentEnd = std::make_shared<ControlChannel>(std::make_shared<WireConnection>(a, "agent"));
        service->attach(agentEnd, {Channel::control});
        agentEnd->start();
        host = std::make_unique<HostEnd>(std::make_shared<WireConnection>(b, "host"));
        host->channel->start();
    }
    ~ServiceWorld() {
        host.reset();
        main.runUntil([&] { return service->attached().empty(); }, limit);
    }

    int32_t launch(const std::string& appName) {
        return *desktop->launch(config.appsDir / (appName + ".app"));
    }
    ControlMessage request(ControlMessage message) {
        return main.runTask(host->channel->request(std::move(message), 10), limit);
    }
    // The whole message of the "failed" error the host gets.
    std::string refusal(ControlMessage message) {
        auto error = thrownBy<ControlError>([&] { request(std::move(message)); });
        EXPECT_EQ(error.info().code, "failed");
        return error.info().message;
    }
    // Unsolicited messages of one kind the host has received so far.
    template <class M> std::vector<M> received() {
        std::lock_guard g(host->m);
        std::vector<M> out;
        for (const ControlEnvelope& e : host->received)
            if (auto m = e.message.template get<M>()) out.push_back(*m);
        return out;
    }
};

}  // namespace tsl::test
