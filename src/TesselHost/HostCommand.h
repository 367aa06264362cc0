#pragma once
#include <functional>
#include <nlohmann/json.hpp>
#include <string>

#include "TslCore/Support/Error.h"

namespace CLI {
class App;
}

// What every command of the host tool shares: its exit statuses, its
// standard output, and the one way a failure is said.
namespace tsl::host {

enum class ExitStatus : int { success = 0, failure = 1, usage = 2 };

// What a command could not do. Said on standard error as
// "tessel <command>: <description>", with or without --json.
class CommandFailure : public Error {
public:
    explicit CommandFailure(std::string description, ExitStatus status = ExitStatus::failure)
        : Error(std::move(description)), _status(status) {}
    ExitStatus status() const { return _status; }

private:
    ExitStatus _status;
};

// Pretty JSON on standard output; text that is not UTF-8 is replaced rather
// than refused, since paths and names come from outside.
void printJSON(const nlohmann::json& value);

// "tessel diag validate" for that command.
std::string commandName(const CLI::App& command);
void sayFailure(const std::string& command, const std::string& text);

// Makes `body` the command's action. Whatever it throws, but a usage error
// of the command line, is said through sayFailure with status 1 (or the
// failure's own), and the status is 1 when standard output could not be
// written. The outcome lands in `status`.
void setAction(CLI::App* command, ExitStatus& status, std::function<ExitStatus()> body);

// The command line's help, exit statuses and errors, for main.
void addExitStatusFooters(CLI::App& app);
int parseCommandLine(CLI::App& app, int argc, char** argv, const ExitStatus& status);

}  // namespace tsl::host
