#pragma once
#include <filesystem>
#include <optional>
#include <string>
#include <vector>

#include "TslCore/Scanner/BundleTraits.h"
#include "TslCore/Scanner/MachOArch.h"

namespace tsl {

// The system's record of one application bundle on disk: what its
// Info.plist says, which processors its main executable is built for, and
// the traits that matter for running it in a virtual Mac.
struct AppBundleInfo {
    std::string path;                                 // the bundle's path
    std::string name;                                 // the name to show
    std::optional<std::string> bundleID;              // CFBundleIdentifier
    std::optional<std::string> version;               // the version to show
    std::optional<std::string> executable;            // the main executable's file name
    std::optional<std::string> minimumSystemVersion;  // LSMinimumSystemVersion
    std::vector<MachOArch> archs;                     // the main executable's slices
    ArchClass archClass = ArchClass::unknown;
    std::optional<BundleTraits> traits;  // absent only when decoded from data without it

    bool operator==(const AppBundleInfo&) const = default;

    // Never fails, whatever the bundle holds: a damaged bundle reads as its
    // folder name with no slices, class unknown. Info.plist may be XML or
    // binary. No file outside the bundle is opened on the word of its
    // Info.plist.
    static AppBundleInfo read(const std::filesystem::path& bundleAt);
};

}  // namespace tsl
