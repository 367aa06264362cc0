// tessel apps and tessel launch: the guest's applications, through a running agent.
#include <CLI/CLI.hpp>

#include <iostream>
#include <memory>
#include <nlohmann/json.hpp>

#include "TesselHost/AgentAddress.h"
#include "TesselHost/Commands.h"
#include "TesselHost/HostSession.h"
#include "TslCore/Support/Error.h"

namespace tsl::host {

void addAppsCommands(CLI::App& app, ExitStatus& status) {
    struct Arguments {
        AgentAddress address;
        bool json = false;
        std::string id;
    };
    auto apps = std::make_shared<Arguments>();
    CLI::App* list = app.add_subcommand("apps", "List the guest's applications");
    addAgentAddressOptions(*list, apps->address);
    list->add_flag("--json", apps->json, "Print the list as JSON");
    setAction(list, status, [apps] {
        return withAgent(apps->address, [&](HostSession& session) {
            auto reply = session.request(ControlMessage::ListApps{});
            auto* found = reply.get<ControlMessage::AppList>();
            if (!found) throw Error("the agent answered with something else");
            if (apps->json) {
                nlohmann::json out = nlohmann::json::array();
                for (const GuestApp& a : found->value) {
                    nlohmann::json entry{
                        {"id", a.bundleID}, {"name", a.name}, {"path", a.path}, {"running", a.running}};
                    if (a.pid) entry["pid"] = *a.pid;
                    out.push_back(entry);
                }
                printJSON(out);
            } else {
                for (const GuestApp& a : found->value)
                    std::cout << a.bundleID << "\t" << a.name << (a.running ? "\t(running)" : "") << "\n";
            }
        });
    });

    auto launch = std::make_shared<Arguments>();
    CLI::App* start = app.add_subcommand("launch", "Start one of the guest's applications");
    addAgentAddressOptions(*start, launch->address);
    start->add_option("ID", launch->id, "The application's identifier, as tessel apps lists it")->required();
    start->add_flag("--json", launch->json, "Print the result as JSON");
    setAction(start, status, [launch] {
        return withAgent(launch->address, [&](HostSession& session) {
            auto reply = session.request(ControlMessage::LaunchApp{{.bundleID = launch->id}});
            auto* done = reply.get<ControlMessage::Launched>();
            if (!done) throw Error("the agent launched nothing");
            if (launch->json) printJSON(nlohmann::json{{"id", done->value.bundleID}, {"pid", done->value.pid}});
            else std::cout << "Launched " << done->value.bundleID << " (pid " << done->value.pid << ")\n";
        });
    });
}

}  // namespace tsl::host
