#pragma once
#include <optional>
#include <string>

#include "TslCore/Model/StateStore.h"

namespace CLI {
class App;
}

// What the commands that read the host's state file share.
namespace tsl::host {

struct StateFileChoice {
    std::string file;  // empty: the default store
    bool simulation = false;

    StateStore store() const;
};

// --state names the file (--file, its older spelling, still works, unlisted);
// --simulation picks the simulation's default store.
void addStateFileOptions(CLI::App& command, StateFileChoice& choice);

// One line on what reading the file found: "loaded", "missing (defaults apply)", ...
std::string describe(const StateStore::Loaded& loaded);

// The state for a report, read without changing the file. A damaged or
// unreadable file throws CommandFailure saying so.
PersistedState loadForReport(const StateStore& store);

// Dates as they stand in the file, or the given word for none.
std::string dateText(const std::optional<Date>& date, const std::string& none);

}  // namespace tsl::host
