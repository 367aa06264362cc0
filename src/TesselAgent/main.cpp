// The agent executable: parse the command line, then serve the host.

#include <csignal>
#include <cstdio>
#include <cstdlib>

#include "Platform/Linux/LinuxSystem.h"
#include "Platform/Sim/Desktop.h"
#include "Platform/X11/X11Desktop.h"
#include "TslAgent/AgentConfig.h"
#include "TslAgent/AgentRunner.h"
#include "TslAgent/AgentService.h"
#include "TslCore/Support/HomeDirectory.h"
#include "TslStream/Runtime/MainActor.h"
#include "TslStream/Transport/Socket.h"

using namespace tsl;

int main(int argc, char** argv) {
    std::signal(SIGPIPE, SIG_IGN);
    raiseDescriptorLimit();
    std::vector<std::string> arguments(argv + 1, argv + argc);
    std::optional<AgentConfig> parsed;
    try {
        parsed = AgentConfig::parse(arguments, homeDirectory(), AgentConfig::runningInVirtualMachine());
    } catch (const AgentConfig::ParseError& e) {
        std::fprintf(stderr, "TesselAgent: %s\n", e.description().c_str());
        return 2;
    }
    const AgentConfig config = *parsed;

    // A real desktop is checked before anything starts, so a missing one is a plain error.
    std::shared_ptr<X11::X11Desktop> x11;
    if (config.desktop == AgentConfig::Desktop::x11) {
        try {
            x11 =
                X11::X11Desktop::open({}, config.commandAs == AgentConfig::CommandAs::super ? X11::CommandKey::super
                                                                                            : X11::CommandKey::control);
        } catch (const X11::OpenError& e) {
            std::fprintf(stderr, "TesselAgent: %s\n", e.description().c_str());
            return 1;
        }
    }

    // Process-wide for the life of the process, which ends only by an exit.
    static MainActor main;
    // Linux has no desktop of its own: a simulation run gets a simulated one
    // over its folders, a guest run an empty one with real child processes.
    auto desktop = Sim::Desktop::make({.home = homeDirectory(), .applicationDirs = {config.appsDir}});
    PlatformServices platform = desktop->services();
    if (!config.isSimulation) platform.system = std::make_shared<LinuxSystem>();
    // On X11 the display's windows, input and capture; the rest stays simulated.
    if (x11) platform = x11->services(platform);
    auto service = std::make_shared<AgentService>(config, platform);
    service->startBackgroundWork();
    auto* runner = new AgentRunner(config, service);
    runner->run();
    main.run();
}
