#pragma once
#include <chrono>
#include <string>

#include "TslCore/Support/ISO8601.h"

namespace tsl {

// One kept application: the bundle lives in the virtual Mac at `guestPath`,
// and a shim bundle on the host at `shimPath` opens it. Its identity is
// `bundleID`.
struct MigratedApp {
    std::string bundleID;
    std::string name;          // display name
    std::string originalPath;  // where the bundle stood on the host
    std::string guestPath;
    std::string shimPath;  // named by ShimNaming
    Date migratedAt;

    const std::string& id() const { return bundleID; }
    bool operator==(const MigratedApp&) const = default;
};

}  // namespace tsl
