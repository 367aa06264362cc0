#pragma once
#include <cstdint>
#include <filesystem>
#include <string>
#include <vector>

#include "TslCore/Support/Error.h"
#include "TslCore/Support/UniqueFd.h"

// Moves into and removals from a shared folder that the other side can write
// to. Below the root every component is opened relative to its parent's
// descriptor without following links, so a link put there at any time makes
// the operation fail instead of redirecting it. Nothing is ever overwritten,
// and no descriptor is left open.
namespace tsl::ShareIO {

// `name` is always one path component, never a whole path.
struct Failure : Error {
    enum class Kind : uint8_t { open, rename };

    Failure(Kind kind, std::string name, int32_t errnum);
    static Failure open(std::string name, int32_t errnum) { return {Kind::open, std::move(name), errnum}; }
    static Failure rename(std::string name, int32_t errnum) { return {Kind::rename, std::move(name), errnum}; }

    Kind kind;
    std::string name;
    int32_t errnum;  // the system's error number
    bool operator==(const Failure& other) const {
        return kind == other.kind && name == other.name && errnum == other.errnum;
    }
};

// ".tessel-host" beside the shared root: on the same volume, outside what the
// guest sees.
std::filesystem::path hostFolder(const std::filesystem::path& root);

// An owner-only folder of this process's in hostFolder(root), locked
// (flock) from before it bears its name until it is removed with its
// contents when this goes. A run killed on the way leaves it unlocked, which
// is how sweepAbandoned tells it from a live one.
class HeldFolder {
public:
    HeldFolder(std::filesystem::path path, UniqueFd lock) : path(std::move(path)), lock(std::move(lock)) {}
    HeldFolder(HeldFolder&&) = default;
    ~HeldFolder();

    std::filesystem::path path;

private:
    UniqueFd lock;
};

// A fresh "work-<UUID>" folder. Throws std::filesystem::filesystem_error.
HeldFolder makeWorkFolder(const std::filesystem::path& root);

// Removes the work and trash folders in hostFolder(root) that no live run
// holds: what killed runs left. Best effort; never throws.
void sweepAbandoned(const std::filesystem::path& root);

// The folder at root/components..., each component opened with O_NOFOLLOW and,
// with `create`, made first if missing. The root itself is trusted and may be
// reached through links. Returns a descriptor the caller closes.
int openDirectory(const std::vector<std::string>& components, const std::filesystem::path& root, bool create);

// Renames `item` into root/components... under its own name in one step,
// failing when an entry of that name is already there. The item must be on the
// root's volume (a work folder from makeWorkFolder is).
void moveIn(const std::filesystem::path& item, const std::vector<std::string>& components,
            const std::filesystem::path& root);

// Takes `name` out of root/components... by renaming it into a fresh trash
// folder in hostFolder(root), then deletes it there. Nothing reachable is
// success; so is an entry that is already gone.
void remove(const std::string& name, const std::vector<std::string>& components, const std::filesystem::path& root);

}  // namespace tsl::ShareIO
