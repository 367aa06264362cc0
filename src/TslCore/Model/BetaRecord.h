#pragma once
#include <chrono>
#include <cstdint>
#include <map>
#include <optional>
#include <set>
#include <string>
#include <string_view>

#include "TslCore/Support/ISO8601.h"

namespace tsl {

// A tester's answer to one step of the beta checklist.
struct BetaAnswer {
    enum class Value : uint8_t { works, problem, skipped, notNeeded };

    Value value = Value::works;
    Date at;

    bool operator==(const BetaAnswer&) const = default;
};

std::string_view toString(BetaAnswer::Value value);
std::optional<BetaAnswer::Value> betaAnswerValueFromString(std::string_view text);

// Answers and observations of the checklist. An application is named by the
// same text in every map and set.
struct BetaChecklistRecord {
    using Answers = std::map<std::string, BetaAnswer>;  // by step id

    Answers global;                                   // steps of the setup
    std::map<std::string, Answers> apps;              // steps of each application
    std::set<std::string> opened;                     // seen open
    std::set<std::string> resumed;                    // seen again after sleep
    std::map<std::string, int64_t> useSeconds;
    std::map<std::string, std::string> reportedVerdicts;  // the verdict last reported

    bool operator==(const BetaChecklistRecord&) const = default;
};

// What the beta keeps, as `beta` in the state file.
struct BetaRecord {
    using Date = tsl::Date;

    // The notice under which diagnostics may be sent.
    static constexpr std::string_view currentNoticeVersion = "2026-10-05";

    std::optional<Date> noticeAcknowledgedAt;
    std::optional<std::string> noticeVersion;
    std::optional<Date> leftBetaAt;
    std::optional<std::string> diagnosticsUnavailableFor;
    std::optional<Date> onboardingDoneAt;
    BetaChecklistRecord checklist;
    std::optional<bool> serverDeletePending;

    // The current notice acknowledged, and the beta not left.
    bool diagnosticsOn() const {
        return noticeAcknowledgedAt && noticeVersion == currentNoticeVersion && !leftBetaAt;
    }

    bool operator==(const BetaRecord&) const = default;
};

}  // namespace tsl
