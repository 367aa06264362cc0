#include "TesselHost/HostState.h"

#include <CLI/CLI.hpp>

#include "TesselHost/HostCommand.h"
#include "TslCore/Support/BoundedFile.h"
#include "TslCore/Support/ISO8601.h"
#include "TslCore/Support/Localized.h"

namespace tsl::host {

StateStore StateFileChoice::store() const {
    return file.empty() ? StateStore::defaultStore(simulation) : StateStore(file);
}

void addStateFileOptions(CLI::App& command, StateFileChoice& choice) {
    command.add_option("--state", choice.file,
                       "The state file (default: ~/Library/Application Support/Tessel/state.json)");
    command.add_option("--file", choice.file)->group("");
    command.add_flag("--simulation", choice.simulation, "Use the simulation's state file (Tessel-dev)");
}

std::string describe(const StateStore::Loaded& loaded) {
    using Outcome = StateStore::LoadOutcome;
    switch (loaded.outcome) {
        case Outcome::loaded: return L("loaded");
        case Outcome::missing: return L("missing; the defaults apply");
        case Outcome::damaged:
            if (loaded.movedTo) return L("damaged; moved aside to %@, the defaults apply", {loaded.movedTo->string()});
            return L("damaged; left as it is");
        case Outcome::readError: return L("unreadable (%@); left as it is", {fileErrorText(loaded.failure)});
    }
    return "";
}

PersistedState loadForReport(const StateStore& store) {
    auto loaded = store.inspect();
    using Outcome = StateStore::LoadOutcome;
    if (loaded.outcome == Outcome::damaged || loaded.outcome == Outcome::readError)
        throw CommandFailure(store.url.string() + ": " + describe(loaded));
    return std::move(loaded.state);
}

std::string dateText(const std::optional<Date>& date, const std::string& none) {
    return date ? ISO8601::format(*date) : none;
}

}  // namespace tsl::host
