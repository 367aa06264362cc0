#pragma once
// Stand-in for the shared-folder model until it is part of this build: the
// record and the one lookup the backends use, with the same names and
// meaning. Replace the include of this file by TslCore/Model/SharedFolders.h.
#include <filesystem>
#include <optional>
#include <string>
#include <vector>

#include "TslCore/Migration/SafePaths.h"
#include "TslCore/Model/SharedFolderConstants.h"

namespace tsl {

struct SharedFolder {
    std::string name;
    std::string hostPath;  // resolved
    bool operator==(const SharedFolder&) const = default;
};

namespace SharedFolders {

// The first folder of the list that is or contains `containing`'s resolved path.
inline std::optional<SharedFolder> folder(const std::filesystem::path& containing, const std::vector<SharedFolder>& in) {
    const std::string resolved = SafePaths::resolvedPath(containing.native());
    for (const auto& f : in) {
        bool inside = f.hostPath == "/" ? true : resolved == f.hostPath || resolved.starts_with(f.hostPath + "/");
        if (inside) return f;
    }
    return std::nullopt;
}

}  // namespace SharedFolders
}  // namespace tsl
