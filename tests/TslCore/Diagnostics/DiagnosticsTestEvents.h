#pragma once
#include <string>

#include "TslCore/Diagnostics/DiagnosticEvent.h"
#include "TslCore/Diagnostics/DiagnosticsBatch.h"

namespace tsl::test {

inline constexpr int64_t diagNow = 1790000000;

inline DiagnosticEvent appEvent(std::string bundleID = "com.example.editor", int64_t at = diagNow) {
    AppOutcome outcome;
    outcome.bundleID = std::move(bundleID);
    outcome.version = "4.2 (1187)";
    outcome.arch = "x86_64";
    outcome.outcome = AppOutcome::Outcome::worksOverall;
    outcome.ttfwMs = 840;
    outcome.crash = CrashSignature::make("EXC_BAD_ACCESS", "SIGSEGV", {"frame 0", "frame 1"});
    return {outcome, at};
}

inline DiagnosticEvent sessionEvent(int64_t at = diagNow) {
    SessionMetrics m;
    m.mac = {"MacBookPro18,3", "Apple M1 Pro", 32};
    m.host = {"15.1", "24B83"};
    m.guest = OSInfo{"14.7", std::nullopt};
    m.agentProto = 2;
    m.stream = SessionMetrics::Stream{59.9, 41.5, 18, 33};
    m.guestMemoryMB = 8192;
    m.sleepWake = SessionMetrics::SleepWake{3, 3};
    m.errors = std::vector<std::string>{"capture.timeout", "h264.reset"};
    m.durationS = 3600;
    return {m, at};
}

inline DiagnosticEvent setupEvent(int64_t at = diagNow) {
    return {SetupStep{SetupStep::Step::guestTools, SetupStep::Status::fail, 95, "tools.mount_failed"}, at};
}

inline DiagnosticsBatch::AppPart appPart() { return {"0.9.0-beta.6", "2026.10.7"}; }

}  // namespace tsl::test
