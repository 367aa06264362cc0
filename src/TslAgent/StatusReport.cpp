#include "TslAgent/StatusReport.h"

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>

#include "TslAgent/GuestLiveSettings.h"
#include "TslCore/Support/Bytes.h"
#include "TslCore/Support/UniqueFd.h"
#include "TslCore/Wire/WireJSON.h"

namespace tsl::StatusReport {
namespace {

// The whole file, or nothing when it can't be read or holds more than
// `limit` bytes; no more than one byte past the limit is ever read. Not
// opened for waiting: a pipe in its place is no report.
std::optional<Bytes> readAtMost(const std::filesystem::path& path, size_t limit) {
    UniqueFd fd(::open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK));
    if (!fd) return std::nullopt;
    Bytes data(limit + 1);
    size_t filled = 0;
    while (filled < data.size()) {
        const ssize_t n = ::read(fd.get(), data.data() + filled, data.size() - filled);
        if (n < 0 && errno == EINTR) continue;
        if (n < 0) return std::nullopt;
        if (n == 0) break;
        filled += size_t(n);
    }
    if (filled > limit) return std::nullopt;
    data.resize(filled);
    return data;
}

}  // namespace

std::optional<ProvisionReport> provisionReport(const std::filesystem::path& path, bool live,
                                               const PlatformServices& platform,
                                               std::chrono::system_clock::time_point now) {
    const std::optional<Bytes> data = readAtMost(path, largestReport);
    if (!data) return std::nullopt;
    ProvisionReport report;
    try {
        report = WireJSON::decodeProvisionReport(data->data(), data->size());
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
