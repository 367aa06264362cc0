#pragma once
#include <cstdint>
#include <string>

#include "TslCore/Support/Error.h"

namespace tsl {

// Why the planner won't keep an application. The description is for the
// user and localised.
struct MigrationError : Error {
    enum class Kind : uint8_t { notIntelOnly, noBundleID, unsafe };

    MigrationError(Kind kind, std::string detail);
    static MigrationError notIntelOnly(std::string appName) { return {Kind::notIntelOnly, std::move(appName)}; }
    static MigrationError noBundleID(std::string appName) { return {Kind::noBundleID, std::move(appName)}; }
    static MigrationError unsafe(std::string detail) { return {Kind::unsafe, std::move(detail)}; }

    Kind kind;
    std::string detail;  // the application's name, or what was unsafe
    bool operator==(const MigrationError& other) const { return kind == other.kind && detail == other.detail; }
};

}  // namespace tsl
