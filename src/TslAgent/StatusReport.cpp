#include "TslAgent/StatusReport.h"

#include <algorithm>

#include "TslAgent/GuestLiveSettings.h"
#include "TslCore/Support/BoundedFile.h"
#include "TslCore/Wire/WireJSON.h"

namespace tsl::StatusReport {

std::optional<ProvisionReport> provisionReport(const std::filesystem::path& path, bool live,
                                               const PlatformServices& platform,
                                               std::chrono::system_clock::time_point now) {
    const auto data = BoundedFile::bytesOf(path, largestReport);
    if (!data) return std::nullopt;
    ProvisionReport report;
    try {
        report = WireJSON::decodeProvisionReport(reinterpret_cast<const uint8_t*>(data->data()), data->size());
    } catch (const std::exception&) {
        return std::nullopt;
    }
    if (live) {
        report.autoLoginUser = GuestLiveSettings::autoLoginUser(*platform.preferences);
        if (auto on = GuestLiveSettings::fileVaultOn(*platform.system, now)) report.fileVault = *on;
    }
    return report;
}

AgentStatus make(const Inputs& inputs, const PlatformServices& platform) {
    AgentStatus status;
    status.uptimeSeconds = inputs.uptimeSeconds;
    status.activeStreams = inputs.activeStreams;
    std::sort(status.activeStreams.begin(), status.activeStreams.end());
    status.screenRecordingGranted = platform.screenCapture->preflightAccess();
    status.accessibilityGranted = platform.accessibility->isProcessTrusted();
    status.rosettaInstalled = AppCatalog::rosettaInstalled(inputs.rosettaMarker);
    if (!inputs.isSimulation) status.provision = provisionReport(inputs.provisionPath, true, platform, inputs.now);
    return status;
}

}  // namespace tsl::StatusReport
