#pragma once
#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include "TslCore/Wire/VideoCodec.h"

namespace tsl {

// The host's settings, as `settings` in the state file. Values are kept as
// found, never clamped.
struct TesselSettings {
    int64_t cpuCount = 4;             // processors of the virtual Mac
    int64_t memoryGB = 6;             // its memory
    int64_t idleSuspendMinutes = 10;  // idleness before it is suspended
    bool showDebugVMWindow = false;   // show the virtual Mac's own window
    bool simulationMode = false;      // run against the simulated guest
    VideoCodec codec = VideoCodec::h264;
    std::optional<bool> addToDock;  // add kept applications to the Dock
    std::optional<std::vector<std::string>> sharedFolders;              // host paths
    std::optional<std::map<std::string, std::string>> sharedFolderNames;  // host path to its name in the guest

    bool operator==(const TesselSettings&) const = default;
};

}  // namespace tsl
