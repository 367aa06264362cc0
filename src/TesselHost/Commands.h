#pragma once

namespace CLI {
class App;
}

// Each command of the host tool lives in its own file and adds itself to the
// tool's command line here. A command's callback leaves the process's exit
// status in `exitCode`.
namespace tsl::host {

void addScanCommand(CLI::App& app, int& exitCode);
void addDiagCommand(CLI::App& app, int& exitCode);
void addCompatCommand(CLI::App& app, int& exitCode);
void addFeedCommand(CLI::App& app, int& exitCode);
void addShareCommand(CLI::App& app, int& exitCode);
void addMigrateCommand(CLI::App& app, int& exitCode);
void addStateCommand(CLI::App& app, int& exitCode);
void addSetupCommand(CLI::App& app, int& exitCode);
void addBetaCommand(CLI::App& app, int& exitCode);
void addSimCommand(CLI::App& app, int& exitCode);
void addViewCommand(CLI::App& app, int& exitCode);
void addAppsCommands(CLI::App& app, int& exitCode);

}  // namespace tsl::host
