#pragma once
#include <chrono>
#include <cstdint>
#include <filesystem>
#include <optional>
#include <vector>

#include "Platform/Platform.h"
#include "TslAgent/AppCatalog.h"
#include "TslCore/Model/ProvisionReport.h"
#include "TslCore/Wire/ControlRecords.h"

namespace tsl {

// The guest's state for the host's `status` request: permissions from the
// platform, Rosetta by the catalog's rule, and the guest tools' report with
// the facts that may have changed since read afresh. Never throws.
namespace StatusReport {

inline constexpr size_t largestReport = 16383;  // bytes; a report of 16384 or more is ignored

// The guest tools' report, or nothing when the file can't be read, is too
// large or doesn't decode. With `live`, the auto-login user is replaced by
// the preference's (also when that is nothing), and FileVault by the tool's
// answer when it has one (`now` dates that answer for its cache).
std::optional<ProvisionReport> provisionReport(
    const std::filesystem::path& path, bool live, const PlatformServices& platform,
    std::chrono::system_clock::time_point now = std::chrono::system_clock::now());

struct Inputs {
    double uptimeSeconds = 0;
    std::vector<uint32_t> activeStreams;  // any order
    bool isSimulation = false;            // a simulation run reports no provision
    std::filesystem::path provisionPath = std::string(ProvisionReport::path);
    std::filesystem::path rosettaMarker = AppCatalog::rosettaMarkerPath;
    std::chrono::system_clock::time_point now = std::chrono::system_clock::now();  // of the request
};

AgentStatus make(const Inputs& inputs, const PlatformServices& platform);

}  // namespace StatusReport

}  // namespace tsl
