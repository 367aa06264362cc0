#pragma once
#include <chrono>
#include <optional>

#include "TslCore/Support/ISO8601.h"

namespace tsl {

// The moments of the guest setup that the host keeps; each stays absent until
// it has come. Saved as `guestSetup` in the state file.
struct GuestSetupRecord {
    using Date = tsl::Date;

    std::optional<Date> firstBootAt;
    std::optional<Date> guestToolsOfferedAt;
    std::optional<Date> agentFirstHelloAt;
    std::optional<Date> completedAt;

    bool operator==(const GuestSetupRecord&) const = default;
};

}  // namespace tsl
