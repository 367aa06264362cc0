#pragma once
#include <optional>
#include <string>

#include "TslCore/Diagnostics/DiagnosticEvent.h"

namespace tsl::DiagnosticsSanitizer {

// Brings an event into the shape the schema allows: clamps, rounds, removes
// what does not fit. Nothing when an identifying field is unusable.
std::optional<DiagnosticEvent> sanitize(const DiagnosticEvent& event);
std::optional<AppOutcome> sanitize(const AppOutcome& outcome);
std::optional<SessionMetrics> sanitize(const SessionMetrics& metrics);
std::optional<SetupStep> sanitize(const SetupStep& step);

std::optional<std::string> bundleID(const std::optional<std::string>& value);
std::optional<std::string> version(const std::optional<std::string>& value);
std::optional<std::string> arch(const std::optional<std::string>& value);
std::optional<std::string> code(const std::optional<std::string>& value);
std::optional<CrashSignature> crash(const std::optional<CrashSignature>& value);
std::optional<std::string> model(const std::optional<std::string>& value);
std::optional<std::string> chip(const std::optional<std::string>& value);
// "15.1 (24B83)", also in the long form "Version 15.1 (Build 24B83)".
std::optional<OSInfo> osInfo(const std::optional<std::string>& value);

}  // namespace tsl::DiagnosticsSanitizer
