#include "TslCore/Model/StateStore.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <string>

#include "TslCore/Model/StateJSON.h"
#include "TslCore/Support/AtomicFile.h"
#include "TslCore/Support/BoundedFile.h"
#include "TslCore/Support/Error.h"
#include "TslCore/Support/HomeDirectory.h"

namespace tsl {
namespace {

namespace fs = std::filesystem;

[[noreturn]] void cannotCreate(const fs::path& folder, int error) {
    throw Error("cannot create the folder " + folder.string() + ": " + std::strerror(error));
}

// Far above any state the product writes; a file past it is not ours.
constexpr size_t stateFileLimit = 8 << 20;

// Renames without replacing anything already at `to`.
bool renameExclusive(const fs::path& from, const fs::path& to) {
    if (::renameat2(AT_FDCWD, from.c_str(), AT_FDCWD, to.c_str(), RENAME_NOREPLACE) == 0) return true;
    if (errno != EINVAL && errno != ENOSYS) return false;
    // A file system without the flag: a hard link never replaces either.
    if (::link(from.c_str(), to.c_str()) != 0) return false;
    ::unlink(from.c_str());
    return true;
}

// Moves a damaged file aside, unless the file at `url` is no longer the one
// that was read (a save came in between). A name already taken, by an
// earlier damage in the same second, gets a count rather than being replaced.
std::optional<fs::path> moveAside(const fs::path& url, const BoundedFile& read,
                                  std::chrono::system_clock::time_point now) {
    struct stat current {};
    if (::stat(url.c_str(), &current) != 0 || current.st_dev != read.device || current.st_ino != read.inode)
        return std::nullopt;
    const auto seconds = std::chrono::floor<std::chrono::seconds>(now.time_since_epoch()).count();
    const std::string stem = "state.unreadable-" + std::to_string(seconds);
    for (int copy = 1; copy <= 100; ++copy) {
        const fs::path to = url.parent_path() / (stem + (copy == 1 ? "" : "-" + std::to_string(copy)) + ".json");
        if (renameExclusive(url, to)) return to;
        if (errno != EEXIST) return std::nullopt;
    }
    return std::nullopt;
}

// Makes the missing folders of `folder`, each owner-only.
void makeStateFolders(const fs::path& folder) {
    struct stat st {};
    if (::stat(folder.c_str(), &st) == 0) {
        if (!S_ISDIR(st.st_mode)) cannotCreate(folder, ENOTDIR);
        return;
    }
    if (errno != ENOENT) cannotCreate(folder, errno);
    if (folder.has_relative_path() && folder.parent_path() != folder) makeStateFolders(folder.parent_path());
    if (::mkdir(folder.c_str(), 0700) != 0) {
        if (errno == EEXIST) return;  // made meanwhile by someone else
        cannotCreate(folder, errno);
    }
    ::chmod(folder.c_str(), 0700);  // whatever the umask took away
}

}  // namespace

std::string_view toString(StateStore::LoadOutcome outcome) {
    switch (outcome) {
        case StateStore::LoadOutcome::loaded: return "loaded";
        case StateStore::LoadOutcome::missing: return "missing";
        case StateStore::LoadOutcome::damaged: return "damaged";
        case StateStore::LoadOutcome::readError: return "readError";
    }
    return "";
}

StateStore StateStore::defaultStore(bool simulation) {
    return StateStore(fs::path(homeDirectory()) / "Library/Application Support/" /
                      (simulation ? "Tessel-dev" : "Tessel") / "state.json");
}

StateStore::Loaded StateStore::loadReporting(std::chrono::system_clock::time_point now) const {
    BoundedFile file;
    Loaded result = read(file);
    if (result.outcome == LoadOutcome::damaged) result.movedTo = moveAside(url, file, now);
    return result;
}

StateStore::Loaded StateStore::inspect() const {
    BoundedFile file;
    return read(file);
}

StateStore::Loaded StateStore::read(BoundedFile& file) const {
    Loaded result;
    try {
        file = BoundedFile::read(url, stateFileLimit);
    } catch (const FileReadError& e) {
        result.failure = e.code();
        struct stat st {};
        const bool there = e.code() != std::errc::no_such_file_or_directory && ::stat(url.c_str(), &st) == 0;
        result.outcome = there ? LoadOutcome::readError : LoadOutcome::missing;
        return result;
    }
    if (auto state = StateJSON::decodeState(file.bytes)) {
        result.state = std::move(*state);
        result.outcome = LoadOutcome::loaded;
        return result;
    }
    result.outcome = LoadOutcome::damaged;
    return result;
}

void StateStore::save(const PersistedState& state) const {
    const fs::path folder = url.has_parent_path() ? url.parent_path() : fs::path(".");
    makeStateFolders(folder);
    sweepAtomicTemporaries(folder.string(), {url.filename().string()});  // what a killed save left
    writeFileAtomically(url.string(), StateJSON::encodeState(state), 0600);
}

}  // namespace tsl
