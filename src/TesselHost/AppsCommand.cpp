// tessel apps and tessel launch: the guest's applications, through a running agent.
#include <CLI/CLI.hpp>

#include <atomic>
#include <iostream>
#include <memory>

#include <nlohmann/json.hpp>

#include "TesselHost/AgentAddress.h"
#include "TesselHost/Commands.h"
#include "TesselHost/HostSession.h"
#include "TslCore/Support/Error.h"

namespace tsl::host {
namespace {

// One request over a fresh link; the answer, or the reason on stderr and status 1.
template <class Use>
int withAgent(const char* name, const AgentAddress& address, Use use) {
    if (auto usage = address.usage()) {
        std::cerr << "tessel " << name << ": " << *usage << "\n";
        return 2;
    }
    std::atomic<bool> never{false};
    try {
        HostSession session(reachAgent(address, never), {});
        return use(session);
    } catch (const std::exception& e) {
        std::cerr << "tessel " << name << ": " << e.what() << "\n";
        return 1;
    }
}

}  // namespace

void addAppsCommands(CLI::App& app, int& exitCode) {
    struct Arguments {
        AgentAddress address;
        bool json = false;
        std::string id;
    };
    auto apps = std::make_shared<Arguments>();
    CLI::App* list = app.add_subcommand("apps", "List the guest's applications");
    addAgentAddressOptions(*list, apps->address);
    list->add_flag("--json", apps->json, "Print the list as JSON");
    list->callback([apps, &exitCode] {
        exitCode = withAgent("apps", apps->address, [&](HostSession& session) {
            auto reply = session.request(ControlMessage::ListApps{});
            auto* found = reply.get<ControlMessage::AppList>();
            if (!found) throw Error("the agent answered with something else");
            if (apps->json) {
                nlohmann::json out = nlohmann::json::array();
                for (const GuestApp& a : found->value) {
                    nlohmann::json entry{{"id", a.bundleID}, {"name", a.name}, {"path", a.path}, {"running", a.running}};
                    if (a.pid) entry["pid"] = *a.pid;
                    out.push_back(entry);
                }
                std::cout << out.dump() << "\n";
            } else {
                for (const GuestApp& a : found->value)
                    std::cout << a.bundleID << "\t" << a.name << (a.running ? "\t(running)" : "") << "\n";
            }
            return 0;
        });
    });

    auto launch = std::make_shared<Arguments>();
    CLI::App* start = app.add_subcommand("launch", "Start one of the guest's applications");
    addAgentAddressOptions(*start, launch->address);
    start->add_option("ID", launch->id, "The application's identifier, as tessel apps lists it")->required();
    start->add_flag("--json", launch->json, "Print the result as JSON");
    start->callback([launch, &exitCode] {
        exitCode = withAgent("launch", launch->address, [&](HostSession& session) {
            auto reply = session.request(ControlMessage::LaunchApp{{.bundleID = launch->id}});
            auto* done = reply.get<ControlMessage::Launched>();
            if (!done) throw Error("the agent launched nothing");
            if (launch->json)
                std::cout << nlohmann::json{{"id", done->value.bundleID}, {"pid", done->value.pid}}.dump() << "\n";
            else
                std::cout << "Launched " << done->value.bundleID << " (pid " << done->value.pid << ")\n";
            return 0;
        });
    });
}

}  // namespace tsl::host
