#include <CLI/CLI.hpp>

#include <csignal>
#include <string>

#include "TesselHost/Commands.h"
#include "TesselHost/HostCommand.h"
#include "TslCore/Support/TesselVersion.h"

int main(int argc, char** argv) {
    using namespace tsl::host;
    std::signal(SIGPIPE, SIG_IGN);
    CLI::App app{"tessel: the host's tool for Tessel"};
    app.set_version_flag("--version", std::string(tsl::TesselVersion::string));
    app.require_subcommand(1);
    ExitStatus status = ExitStatus::success;
    for (auto add : {addScanCommand, addDiagCommand, addCompatCommand, addFeedCommand, addShareCommand,
                     addMigrateCommand, addStateCommand, addSetupCommand, addBetaCommand, addSimCommand, addViewCommand,
                     addAppsCommands, addMenusCommands})
        add(app, status);
    addExitStatusFooters(app);
    return parseCommandLine(app, argc, argv, status);
}
