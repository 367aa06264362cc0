#pragma once
#include "TesselHost/HostCommand.h"

// Each command of the host tool lives in its own file and adds itself to the
// tool's command line here; its action leaves the process's exit status in
// `status`.
namespace tsl::host {

void addScanCommand(CLI::App& app, ExitStatus& status);
void addDiagCommand(CLI::App& app, ExitStatus& status);
void addCompatCommand(CLI::App& app, ExitStatus& status);
void addFeedCommand(CLI::App& app, ExitStatus& status);
void addShareCommand(CLI::App& app, ExitStatus& status);
void addMigrateCommand(CLI::App& app, ExitStatus& status);
void addStateCommand(CLI::App& app, ExitStatus& status);
void addSetupCommand(CLI::App& app, ExitStatus& status);
void addBetaCommand(CLI::App& app, ExitStatus& status);
void addSimCommand(CLI::App& app, ExitStatus& status);
void addViewCommand(CLI::App& app, ExitStatus& status);
void addAppsCommands(CLI::App& app, ExitStatus& status);
void addMenusCommands(CLI::App& app, ExitStatus& status);

}  // namespace tsl::host
