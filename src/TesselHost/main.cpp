#include <CLI/CLI.hpp>

#include <csignal>
#include <string>

#include "TesselHost/Commands.h"
#include "TslCore/Support/TesselVersion.h"

int main(int argc, char** argv) {
    std::signal(SIGPIPE, SIG_IGN);
    CLI::App app{"tessel: the host's tool for Tessel"};
    app.set_version_flag("--version", std::string(tsl::TesselVersion::string));
    app.require_subcommand(1);
    int exitCode = 0;
    tsl::host::addScanCommand(app, exitCode);
    tsl::host::addDiagCommand(app, exitCode);
    tsl::host::addCompatCommand(app, exitCode);
    tsl::host::addFeedCommand(app, exitCode);
    tsl::host::addShareCommand(app, exitCode);
    tsl::host::addMigrateCommand(app, exitCode);
    tsl::host::addStateCommand(app, exitCode);
    tsl::host::addSetupCommand(app, exitCode);
    tsl::host::addBetaCommand(app, exitCode);
    tsl::host::addSimCommand(app, exitCode);
    tsl::host::addViewCommand(app, exitCode);
    tsl::host::addAppsCommands(app, exitCode);
    try {
        app.parse(argc, argv);
    } catch (const CLI::ParseError& e) {
        // Help and version are successes; every other parse error is a usage error.
        return app.exit(e) == 0 ? 0 : 2;
    }
    return exitCode;
}
