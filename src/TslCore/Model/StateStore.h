#pragma once
#include <chrono>
#include <cstdint>
#include <filesystem>
#include <optional>
#include <string_view>
#include <system_error>

#include "TslCore/Model/PersistedState.h"

namespace tsl {

struct BoundedFile;

// The state file. Holds nothing but its location: every load and save works
// on what is on disk at that moment.
struct StateStore {
    enum class LoadOutcome : uint8_t { loaded, missing, damaged, readError };

    struct Loaded {
        PersistedState state;
        LoadOutcome outcome = LoadOutcome::missing;
        std::optional<std::filesystem::path> movedTo;  // where a damaged file was put
        std::error_code failure;                       // the read's error, for readError
    };

    std::filesystem::path url;

    explicit StateStore(std::filesystem::path url) : url(std::move(url)) {}

    // <home>/Library/Application Support/Tessel/state.json, or Tessel-dev in
    // simulation.
    static StateStore defaultStore(bool simulation);

    PersistedState load() const { return loadReporting().state; }

    // Never fails. A file that is there but can't be read stays where it is; one
    // that isn't a JSON object is moved aside in its folder as
    // state.unreadable-<seconds since 1970>.json, never over an existing file,
    // and the default state is returned.
    Loaded loadReporting(std::chrono::system_clock::time_point now = std::chrono::system_clock::now()) const;

    // What a load would find, with the file left exactly as it is: for
    // commands that show or check a file the user names.
    Loaded inspect() const;

    // Writes the whole state atomically and durably (writeFileAtomically), so
    // that a reader, or a crash, sees the old file or the new one; the file is
    // owner-only, and so are the folders made for it (0700). Throws Error with
    // the system's reason; the old file is then intact.
    void save(const PersistedState& state) const;

private:
    Loaded read(BoundedFile& file) const;
};

std::string_view toString(StateStore::LoadOutcome outcome);

}  // namespace tsl
