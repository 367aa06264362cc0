#pragma once
#include <chrono>
#include <optional>

namespace tsl {

// The moments of the guest setup that the host keeps; each stays absent until
// it has come. Saved as `guestSetup` in the state file.
struct GuestSetupRecord {
    using Date = std::chrono::system_clock::time_point;

    std::optional<Date> firstBootAt;
    std::optional<Date> guestToolsOfferedAt;
    std::optional<Date> agentFirstHelloAt;
    std::optional<Date> completedAt;

    bool operator==(const GuestSetupRecord&) const = default;
};

}  // namespace tsl
