#pragma once
#include <array>
#include <cstdint>
#include <nlohmann/json.hpp>
#include <optional>
#include <string>
#include <string_view>
#include <variant>
#include <vector>

#include "TslCore/Support/JSONFields.h"

namespace tsl {

struct CrashSignature {
    std::string type;
    std::optional<std::string> signal;
    std::string hash;  // SHA-256 of the frames, lower-case hexadecimal

    // The frames themselves never leave the machine: only their digest does.
    static CrashSignature make(std::string type, std::optional<std::string> signal,
                               const std::vector<std::string>& frames);
    bool operator==(const CrashSignature&) const = default;
};

struct AppOutcome {
    enum class Outcome : uint8_t {
        launches,
        noLaunch,
        windowsDraw,
        inputWorks,
        inputFails,
        crash,
        openglFail,
        needsActivation,
        worksOverall,
        brokenOverall,
    };
    static constexpr std::array<std::string_view, 10> outcomeTexts{
        "launches",         "no_launch",        "windows_draw", "input_works",   "input_fails",
        "crash",            "opengl_fail",      "needs_activation", "works_overall", "broken_overall"};

    std::string bundleID;
    std::optional<std::string> version;
    std::optional<std::string> arch;
    Outcome outcome = Outcome::launches;
    std::optional<int64_t> ttfwMs;
    std::optional<CrashSignature> crash;
    bool operator==(const AppOutcome&) const = default;
};

struct MacInfo {
    std::string model;
    std::string chip;
    int64_t ramGB = 0;
    bool operator==(const MacInfo&) const = default;
};

struct OSInfo {
    std::string os;
    std::optional<std::string> build;
    bool operator==(const OSInfo&) const = default;
};

struct SessionMetrics {
    struct Stream {
        std::optional<double> fpsMedian, fpsMin;
        std::optional<int64_t> latencyP50Ms, latencyP95Ms;
        bool operator==(const Stream&) const = default;
    };
    struct SleepWake {
        int64_t attempts = 0;
        int64_t ok = 0;
        bool operator==(const SleepWake&) const = default;
    };

    MacInfo mac;
    OSInfo host;
    std::optional<OSInfo> guest;
    std::optional<int64_t> agentProto;
    std::optional<Stream> stream;
    std::optional<int64_t> guestMemoryMB;
    std::optional<SleepWake> sleepWake;
    std::optional<std::vector<std::string>> errors;
    std::optional<int64_t> durationS;
    bool operator==(const SessionMetrics&) const = default;
};

struct SetupStep {
    enum class Step : uint8_t { download, install, firstBoot, guestTools, rosetta, agent, permissions, ready };
    enum class Status : uint8_t { ok, fail, skipped };
    static constexpr std::array<std::string_view, 8> stepTexts{
        "download", "install", "first_boot", "guest_tools", "rosetta", "agent", "permissions", "ready"};
    static constexpr std::array<std::string_view, 3> statusTexts{"ok", "fail", "skipped"};

    Step step = Step::download;
    Status status = Status::ok;
    std::optional<int64_t> durationS;
    std::optional<std::string> failure;
    bool operator==(const SetupStep&) const = default;
};

// One diagnostic record: what it says and when (seconds since 1970, UTC). It
// travels as one flat object: "type" and "at" beside the payload's own keys.
struct DiagnosticEvent {
    enum class Kind : uint8_t { app, session, setup };
    static constexpr std::array<std::string_view, 3> kindTexts{"app", "session", "setup"};

    std::variant<AppOutcome, SessionMetrics, SetupStep> payload;
    int64_t at = 0;

    Kind kind() const { return Kind(payload.index()); }
    bool operator==(const DiagnosticEvent&) const = default;
};

// Exact JSON forms, keys as the records' fields. Decoding throws
// JSONFields::DecodeError, whose text says where the value sits.
void to_json(nlohmann::json& j, const DiagnosticEvent& v);
void from_json(const nlohmann::json& j, DiagnosticEvent& v);

// The same for records that hold events.
nlohmann::json toJSON(const DiagnosticEvent& event);
void fromJSON(const nlohmann::json& j, const JSONFields::Path& at, DiagnosticEvent& event);

}  // namespace tsl
