// tessel setup: the step of the guest setup that the user stands at, and what
// is still to do in the virtual Mac.
#include <CLI/CLI.hpp>
#include <unistd.h>

#include <cstdio>
#include <fstream>
#include <iterator>
#include <memory>
#include <optional>
#include <string>

#include "TesselHost/Commands.h"
#include "TesselHost/HostState.h"
#include "TslCore/Model/GuestSetupFlow.h"
#include "TslCore/Support/Localized.h"
#include "TslCore/Support/TesselVersion.h"
#include "TslCore/Wire/WireJSON.h"
#include "TslStream/Runtime/GlobalQueue.h"
#include "TslStream/Runtime/Task.h"
#include "TslStream/Transport/Channel.h"
#include "TslStream/Transport/ControlChannel.h"
#include "TslStream/Transport/SocketEndpoint.h"

namespace tsl::host {
namespace {

constexpr double requestTimeout = 10.0;

struct SetupArguments {
    StateFileChoice choice;
    std::string statusFile;
    std::string agent;
    bool vmInstalled = false;
    bool restoreImage = false;
    bool json = false;
};

struct Failure {
    int status;
    std::string message;
};

AgentStatus readStatusFile(const std::string& path) {
    std::ifstream in(path, std::ios::binary);
    if (!in) throw Failure{1, "cannot read " + path};
    const std::string bytes{std::istreambuf_iterator<char>(in), {}};
    try {
        return WireJSON::decodeAgentStatus(reinterpret_cast<const uint8_t*>(bytes.data()), bytes.size());
    } catch (const WireJSON::DecodeError& e) {
        throw Failure{1, path + " holds no agent status: " + e.description()};
    }
}

// Greets the agent as the host's control channel and asks for its status.
AgentStatus askAgent(const SocketEndpoint& endpoint) {
    const bool progress = ::isatty(STDERR_FILENO) == 1;
    if (progress) std::fprintf(stderr, "Asking the agent at %s…", endpoint.description().c_str());
    std::shared_ptr<ControlChannel> channel;
    try {
        channel = std::make_shared<ControlChannel>(std::make_shared<WireConnection>(endpoint, "setup"));
        channel->start();
        Hello hello;
        hello.role = Hello::Role::host;
        hello.softwareVersion = std::string(TesselVersion::string);
        hello.arch = std::string(TesselVersion::arch);
        hello.capabilities = {std::string(rawValue(Channel::control))};
        const auto limit = fromSeconds(requestTimeout + 5);
        const ControlMessage greeting = runBlocking(
            GlobalQueue::executor(), channel->request(ControlMessage::Hello{hello}, requestTimeout), limit);
        const auto* agentHello = greeting.get<ControlMessage::Hello>();
        if (!agentHello || agentHello->value.role != Hello::Role::agent)
            throw Failure{1, "the peer at " + endpoint.description() + " is not an agent"};
        const ControlMessage reply =
            runBlocking(GlobalQueue::executor(), channel->request(ControlMessage::Status{}, requestTimeout), limit);
        const auto* status = reply.get<ControlMessage::Status>();
        if (!status || !status->value) throw Failure{1, "the agent answered `status` without one"};
        channel->close();
        if (progress) std::fprintf(stderr, "\r\033[K");
        return *status->value;
    } catch (const Failure&) {
        if (channel) channel->close();
        if (progress) std::fprintf(stderr, "\r\033[K");
        throw;
    } catch (const std::exception& e) {
        if (channel) channel->close();
        if (progress) std::fprintf(stderr, "\r\033[K");
        throw Failure{1, "no status from the agent at " + endpoint.description() + ": " + e.what()};
    }
}

std::string stepTitle(GuestSetupStep step) {
    switch (step) {
        case GuestSetupStep::download: return L("Download macOS for the virtual Mac");
        case GuestSetupStep::install: return L("Install the virtual Mac");
        case GuestSetupStep::firstStart: return L("Start the virtual Mac and set it up");
        case GuestSetupStep::permissions: return L("Finish setting up the virtual Mac");
        case GuestSetupStep::done: return L("The virtual Mac is ready");
    }
    return "";
}

nlohmann::json itemJSON(const GuestSetupChecklistItem& item) {
    nlohmann::json j = {{"id", toString(item.id)}, {"title", item.title}, {"done", item.done}};
    if (item.instruction) j["instruction"] = *item.instruction;
    return j;
}

int runSetup(const SetupArguments& args) {
    if (!args.statusFile.empty() && !args.agent.empty()) {
        std::fprintf(stderr, "tessel: --status and --agent exclude each other\n");
        return 2;
    }
    std::optional<SocketEndpoint> endpoint;
    if (!args.agent.empty() && !(endpoint = SocketEndpoint::parse(args.agent))) {
        std::fprintf(stderr, "tessel: --agent: not an endpoint: %s (unix:<path>, tcp:<host>:<port>, vsock:<cid>:<port>)\n",
                     args.agent.c_str());
        return 2;
    }
    const auto state = loadForReport(args.choice.store());
    if (!state) return 1;

    GuestSetupFlow::Input input;
    input.record = state->guestSetup;
    try {
        if (!args.statusFile.empty()) input.status = readStatusFile(args.statusFile);
        if (endpoint) input.status = askAgent(*endpoint);
    } catch (const Failure& f) {
        std::fprintf(stderr, "tessel: %s\n", f.message.c_str());
        return f.status;
    }
    // An agent that has answered has said hello, and the host keeps the first
    // one; a virtual Mac that has booted, or has an agent, is installed.
    if (input.status && !input.record.agentFirstHelloAt)
        input.record.agentFirstHelloAt = dateOf(std::chrono::system_clock::now());
    input.vmInstalled = args.vmInstalled || input.status || input.record.firstBootAt;
    input.haveRestoreImage = args.restoreImage;

    const GuestSetupStep step = GuestSetupFlow::step(input);
    std::vector<GuestSetupChecklistItem> items;
    if (input.status) items = GuestSetupFlow::checklist(*input.status);
    const auto guide = step == GuestSetupStep::firstStart ? GuestSetupFlow::setupAssistantGuide()
                                                          : std::vector<std::string>{};

    if (args.json) {
        nlohmann::json j = {{"step", toString(step)}, {"title", stepTitle(step)}};
        if (input.status) {
            j["checklist"] = nlohmann::json::array();
            for (const auto& item : items) j["checklist"].push_back(itemJSON(item));
        }
        if (!guide.empty()) j["guide"] = guide;
        return printJSON(j);
    }

    std::printf("%s %s (%s)\n", L("Step:").c_str(), stepTitle(step).c_str(), std::string(toString(step)).c_str());
    for (size_t i = 0; i < guide.size(); ++i) std::printf("\n%zu. %s\n", i + 1, guide[i].c_str());
    if (!input.status) {
        if (step == GuestSetupStep::permissions)
            std::printf("\n%s\n", L("No agent has answered yet: start the virtual Mac, or pass --agent or --status.").c_str());
        return finishOutput();
    }
    size_t open = 0;
    for (const auto& item : items) open += !item.done;
    std::printf("\n%s\n", open ? L("Still to do in the virtual Mac: %@", {std::to_string(open)}).c_str()
                               : L("Everything is in place in the virtual Mac.").c_str());
    for (const auto& item : items) {
        std::printf("  [%s] %s\n", item.done ? "x" : " ", item.title.c_str());
        if (item.instruction) std::printf("      %s\n", item.instruction->c_str());
    }
    return finishOutput();
}

}  // namespace

void addSetupCommand(CLI::App& app, int& exitCode) {
    auto args = std::make_shared<SetupArguments>();
    CLI::App* setup = app.add_subcommand("setup", "Where the guest setup stands and what is still to do");
    addStateFileOptions(*setup, args->choice, "--state");
    setup->add_option("--status", args->statusFile, "A file holding an agent's status (its JSON form)");
    setup->add_option("--agent", args->agent, "Ask a running agent for its status (unix:<path>, tcp:<host>:<port>, ...)");
    setup->add_flag("--vm-installed", args->vmInstalled,
                    "The virtual Mac is installed (implied by a first boot in the state or an agent's status)");
    setup->add_flag("--restore-image", args->restoreImage, "The macOS restore image is downloaded");
    setup->add_flag("--json", args->json, "Print the step and the checklist as JSON");
    setup->callback([args, &exitCode] { exitCode = runSetup(*args); });
}

}  // namespace tsl::host
