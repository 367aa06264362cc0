// tessel setup: the step of the guest setup that the user stands at, and what
// is still to do in the virtual Mac.
#include <CLI/CLI.hpp>
#include <unistd.h>

#include <cstdio>
#include <memory>
#include <optional>
#include <string>

#include "TesselHost/Commands.h"
#include "TesselHost/HostState.h"
#include "TslCore/Model/GuestSetupFlow.h"
#include "TslCore/Support/BoundedFile.h"
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

constexpr double setupRequestTimeout = 10.0;
// An agent's status is a few hundred bytes; a file far larger is none.
constexpr size_t statusFileLimit = 1 << 20;

struct SetupArguments {
    StateFileChoice choice;
    std::string statusFile;
    std::string agent;
    bool vmInstalled = false;
    bool restoreImage = false;
    bool json = false;
};

AgentStatus readStatusFile(const std::string& path) {
    const std::string bytes = BoundedFile::read(path, statusFileLimit).bytes;
    try {
        return WireJSON::decodeAgentStatus(reinterpret_cast<const uint8_t*>(bytes.data()), bytes.size());
    } catch (const WireJSON::DecodeError& e) {
        throw CommandFailure(path + " holds no agent status: " + e.description());
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
        const auto limit = fromSeconds(setupRequestTimeout + 5);
        const ControlMessage greeting = runBlocking(
            GlobalQueue::executor(), channel->request(ControlMessage::Hello{hello}, setupRequestTimeout), limit);
        const auto* agentHello = greeting.get<ControlMessage::Hello>();
        if (!agentHello || agentHello->value.role != Hello::Role::agent)
            throw CommandFailure("the peer at " + endpoint.description() + " is not an agent");
        const ControlMessage reply = runBlocking(
            GlobalQueue::executor(), channel->request(ControlMessage::Status{}, setupRequestTimeout), limit);
        const auto* status = reply.get<ControlMessage::Status>();
        if (!status || !status->value) throw CommandFailure("the agent answered `status` without one");
        channel->close();
        if (progress) std::fprintf(stderr, "\r\033[K");
        return *status->value;
    } catch (const CommandFailure&) {
        if (channel) channel->close();
        if (progress) std::fprintf(stderr, "\r\033[K");
        throw;
    } catch (const std::exception& e) {
        if (channel) channel->close();
        if (progress) std::fprintf(stderr, "\r\033[K");
        throw CommandFailure("no status from the agent at " + endpoint.description() + ": " + e.what());
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

ExitStatus runSetup(const SetupArguments& args) {
    const auto state = loadForReport(args.choice.store());
    GuestSetupFlow::Input input;
    input.record = state.guestSetup;
    if (!args.statusFile.empty()) input.status = readStatusFile(args.statusFile);
    if (!args.agent.empty()) input.status = askAgent(*SocketEndpoint::parse(args.agent));
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
        printJSON(j);
        return ExitStatus::success;
    }

    std::printf("%s %s (%s)\n", L("Step:").c_str(), stepTitle(step).c_str(), std::string(toString(step)).c_str());
    for (size_t i = 0; i < guide.size(); ++i) std::printf("\n%zu. %s\n", i + 1, guide[i].c_str());
    if (!input.status) {
        if (step == GuestSetupStep::permissions)
            std::printf("\n%s\n", L("No agent has answered yet: start the virtual Mac, or pass --agent or --status.").c_str());
        return ExitStatus::success;
    }
    size_t open = 0;
    for (const auto& item : items) open += !item.done;
    std::printf("\n%s\n", open ? L("Still to do in the virtual Mac: %@", {std::to_string(open)}).c_str()
                               : L("Everything is in place in the virtual Mac.").c_str());
    for (const auto& item : items) {
        std::printf("  [%s] %s\n", item.done ? "x" : " ", item.title.c_str());
        if (item.instruction) std::printf("      %s\n", item.instruction->c_str());
    }
    return ExitStatus::success;
}

}  // namespace

void addSetupCommand(CLI::App& app, ExitStatus& status) {
    auto args = std::make_shared<SetupArguments>();
    CLI::App* setup = app.add_subcommand(
        "setup", "Say which step of the guest setup the user stands at, and what is still to do in the virtual Mac");
    addStateFileOptions(*setup, args->choice);
    auto* statusFile =
        setup->add_option("--status", args->statusFile, "A file holding an agent's status (its JSON form)");
    const CLI::Validator endpoint(
        [](const std::string& text) {
            return SocketEndpoint::parse(text)
                       ? std::string()
                       : "not an endpoint: " + text + " (unix:<path>, tcp:<host>:<port>, vsock:<cid>:<port>)";
        },
        "ENDPOINT");
    setup
        ->add_option("--agent", args->agent, "Ask a running agent for its status (unix:<path>, tcp:<host>:<port>, ...)")
        ->check(endpoint)
        ->excludes(statusFile);
    setup->add_flag("--vm-installed", args->vmInstalled,
                    "The virtual Mac is installed (implied by a first boot in the state or an agent's status)");
    setup->add_flag("--restore-image", args->restoreImage, "The macOS restore image is downloaded");
    setup->add_flag("--json", args->json, "Print the step and the checklist as JSON");
    setAction(setup, status, [args] { return runSetup(*args); });
}

}  // namespace tsl::host
