#pragma once
#include <cstdint>
#include <nlohmann/json.hpp>
#include <optional>
#include <string>
#include <string_view>
#include <utility>

#include "TslCore/Diagnostics/DiagnosticsProblem.h"

namespace tsl::DiagnosticsValidator {

// Checks of finished JSON against the generated schema and the rules a schema
// cannot state. `now` is the caller's clock in seconds since 1970, so the
// checks repeat. Each throws the first Problem.
void validateBatch(std::string_view data, int64_t now);
void validateReport(std::string_view data, int64_t now);
void validateReportDiagnostics(const nlohmann::json* value, int64_t now);
void event(const nlohmann::json& value, int64_t now, const std::string& field);
void appPart(const nlohmann::json* value);

// Control and bidirectional characters out, blanks trimmed.
std::string cleanReportText(std::string_view text);

// Bounds read out of the generated schema once; absent if the schema lacks them.
struct Ranges {
    std::optional<std::pair<int64_t, int64_t>> ttfwRange, latencyRange, ramRange, agentProtoRange, memoryRange,
        durationRange, sleepWakeRange;
    std::optional<std::pair<double, double>> fpsRange;
};
const Ranges& ranges();

}  // namespace tsl::DiagnosticsValidator
