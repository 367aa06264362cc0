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
    CLI11_PARSE(app, argc, argv);
    return exitCode;
}
