#include "TesselHost/HostCommand.h"

#include <CLI/CLI.hpp>

#include <cstdio>
#include <iostream>

namespace tsl::host {
namespace {

constexpr const char* exitStatuses = "Exit status: 0 done, 1 failed, 2 the command line is wrong.";

// Flushes standard output; whether everything printed reached it.
bool outputWritten() {
    std::cout.flush();
    std::fflush(stdout);
    return std::cout.good() && !std::ferror(stdout);
}

// The innermost command the command line chose.
const CLI::App& chosen(const CLI::App& app) {
    const auto sub = app.get_subcommands();
    return sub.empty() ? app : chosen(*sub.back());
}

}  // namespace

void printJSON(const nlohmann::json& value) {
    std::cout << value.dump(2, ' ', false, nlohmann::json::error_handler_t::replace) << '\n';
}

std::string commandName(const CLI::App& command) {
    std::string name = command.get_name();
    for (const CLI::App* up = command.get_parent(); up; up = up->get_parent())
        name = (up->get_parent() ? up->get_name() : std::string("tessel")) + " " + name;
    return command.get_parent() ? name : "tessel";
}

void sayFailure(const std::string& command, const std::string& text) {
    std::fflush(stdout);
    std::fprintf(stderr, "%s: %s\n", command.c_str(), text.c_str());
}

void setAction(CLI::App* command, ExitStatus& status, std::function<ExitStatus()> body) {
    command->callback([command, &status, body = std::move(body)] {
        try {
            status = body();
        } catch (const CLI::Error&) {
            throw;
        } catch (const CommandFailure& failure) {
            sayFailure(commandName(*command), failure.description());
            status = failure.status();
        } catch (const std::exception& e) {
            sayFailure(commandName(*command), e.what());
            status = ExitStatus::failure;
        }
        if (!outputWritten()) {
            if (status == ExitStatus::success) sayFailure(commandName(*command), "cannot write to standard output");
            status = ExitStatus::failure;
        }
    });
}

void addExitStatusFooters(CLI::App& app) {
    const std::string own = app.get_footer();
    app.footer(own.empty() ? exitStatuses : own + "\n" + exitStatuses);
    for (CLI::App* sub : app.get_subcommands({})) addExitStatusFooters(*sub);
}

int parseCommandLine(CLI::App& app, int argc, char** argv, const ExitStatus& status) {
    try {
        app.parse(argc, argv);
    } catch (const CLI::ParseError& e) {
        // Help and version are successes; every other parse error is a usage error.
        if (e.get_exit_code() == 0) return app.exit(e);
        sayFailure(commandName(chosen(app)), e.what());
        std::fprintf(stderr, "Run with --help for more information.\n");
        return int(ExitStatus::usage);
    } catch (const std::exception& e) {
        sayFailure("tessel", e.what());
        return int(ExitStatus::failure);
    } catch (...) {
        sayFailure("tessel", "an unexpected failure");
        return int(ExitStatus::failure);
    }
    return int(status);
}

}  // namespace tsl::host
