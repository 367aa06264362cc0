#pragma once
#include <cstdint>
#include <filesystem>
#include <map>
#include <nlohmann/json_fwd.hpp>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "TslCore/Model/SharedFolderConstants.h"

namespace tsl {

// One host folder as the guest sees it: an entry `name` under the mount point.
struct SharedFolder {
    std::string name;
    std::string hostPath;  // resolved

    bool operator==(const SharedFolder&) const = default;
    auto operator<=>(const SharedFolder&) const = default;
};

void to_json(nlohmann::json& j, const SharedFolder& folder);
void from_json(const nlohmann::json& j, SharedFolder& folder);

// Which host folders may be shared with the guest, under which names, and
// how paths map between the two sides. Everything in the guest can read a
// shared folder, hence the refusals. Pure path work plus a look at the file
// system; nothing here throws.
namespace SharedFolders {

enum class Rejection : uint8_t { notAFolder, homeFolder, library, hidden, system, tesselData };

std::string_view toString(Rejection rejection);

// Documents, Desktop and Downloads in `home`, in this order.
std::vector<std::string> defaultPaths(const std::filesystem::path& home);

// Why `path` may not be shared, or nothing when it may. `protectedPaths` are
// the product's own data: a folder overlapping any of them is refused.
std::optional<Rejection> rejection(std::string_view path, const std::filesystem::path& home,
                                   const std::vector<std::string>& protectedPaths);

// The entries the virtual Mac mounts: the product's own first, then each
// acceptable user folder that no wider one covers. `names` pins names by
// resolved or listed path; other names come from the folder's own name,
// numbered " 2", " 3", ... on a clash (without regard to case), so the
// order of `userFolders` decides the numbering.
std::vector<SharedFolder> entries(const std::vector<std::string>& userFolders,
                                  const std::filesystem::path& tesselShare,
                                  const std::map<std::string, std::string>& names,
                                  const std::vector<std::string>& protectedPaths, const std::filesystem::path& home);

// The first folder of the list that is or contains `url`'s resolved path.
std::optional<SharedFolder> folder(const std::filesystem::path& containing, const std::vector<SharedFolder>& in);

// Where a host file appears in the guest.
std::optional<std::string> guestPath(const std::filesystem::path& forHost, const std::vector<SharedFolder>& in,
                                     std::string_view mountPoint = guestMountPoint);

// The host file behind a guest path; nothing for a path outside the mount
// point, with a ".." piece, or in an entry that isn't listed.
std::optional<std::filesystem::path> hostURL(std::string_view forGuest, const std::vector<SharedFolder>& in,
                                             std::string_view mountPoint = guestMountPoint);

}  // namespace SharedFolders
}  // namespace tsl
