#pragma once
#include <string_view>

namespace tsl::SharedFolders {

// Where the virtual Mac mounts the host's shares, and the product's own entry
// there. Both sides must agree on these.
inline constexpr std::string_view guestMountPoint = "/Volumes/My Shared Files";
inline constexpr std::string_view tesselEntryName = "Tessel";

}  // namespace tsl::SharedFolders
