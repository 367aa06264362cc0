#pragma once
#include <nlohmann/json.hpp>

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

// `option` ("--file", "--state") names the file; --simulation picks the
// simulation's default store.
void addStateFileOptions(CLI::App& command, StateFileChoice& choice, const std::string& option);

// One line on what the load found: "loaded", "missing (defaults apply)", ...
std::string describe(const StateStore::Loaded& loaded);

// Loads for a report. A damaged file was moved aside and the defaults stand,
// which is said on standard error; a file that can't be read is a failure,
// said there too, and gives nothing.
std::optional<PersistedState> loadForReport(const StateStore& store);

// Dates as they stand in the file, or the given word for none.
std::string dateText(const std::optional<Date>& date, const std::string& none);

// Pretty JSON on standard output; the exit status: 0, or 1 when it couldn't
// be written.
int printJSON(const nlohmann::json& j);
int finishOutput();

}  // namespace tsl::host
