#include "TesselHost/HostState.h"

#include <CLI/CLI.hpp>

#include <cstdio>
#include <iostream>

#include "TslCore/Support/ISO8601.h"
#include "TslCore/Support/Localized.h"

namespace tsl::host {

StateStore StateFileChoice::store() const {
    return file.empty() ? StateStore::defaultStore(simulation) : StateStore(file);
}

void addStateFileOptions(CLI::App& command, StateFileChoice& choice, const std::string& option) {
    command.add_option(option, choice.file,
                       "The state file (default: ~/Library/Application Support/Tessel/state.json)");
    command.add_flag("--simulation", choice.simulation, "Use the simulation's state file (Tessel-dev)");
}

std::string describe(const StateStore::Loaded& loaded) {
    using Outcome = StateStore::LoadOutcome;
    switch (loaded.outcome) {
        case Outcome::loaded: return L("loaded");
        case Outcome::missing: return L("missing; the defaults apply");
        case Outcome::damaged:
            return loaded.movedTo ? L("damaged; moved aside to %@, the defaults apply", {loaded.movedTo->string()})
                                  : L("damaged, and it could not be moved aside; the defaults apply");
        case Outcome::readError:
            return L("unreadable (%@); left where it is, the defaults apply", {loaded.failure.message()});
    }
    return "";
}

std::optional<PersistedState> loadForReport(const StateStore& store) {
    auto loaded = store.loadReporting();
    using Outcome = StateStore::LoadOutcome;
    if (loaded.outcome == Outcome::damaged || loaded.outcome == Outcome::readError)
        std::fprintf(stderr, "tessel: %s: %s\n", store.url.c_str(), describe(loaded).c_str());
    if (loaded.outcome == Outcome::readError) return std::nullopt;
    return std::move(loaded.state);
}

std::string dateText(const std::optional<Date>& date, const std::string& none) {
    return date ? ISO8601::format(*date) : none;
}

int finishOutput() {
    std::cout.flush();
    return std::ferror(stdout) || !std::cout ? 1 : 0;
}

int printJSON(const nlohmann::json& j) {
    std::cout << j.dump(2, ' ', false, nlohmann::json::error_handler_t::replace) << '\n';
    return finishOutput();
}

}  // namespace tsl::host
