#include "TslCore/Diagnostics/DiagnosticsSanitizer.h"

#include <algorithm>
#include <cmath>

#include "TslCore/Diagnostics/DiagnosticsPattern.h"
#include "TslCore/Diagnostics/DiagnosticsSchemaFile.h"
#include "TslCore/Diagnostics/DiagnosticsValidator.h"

namespace tsl::DiagnosticsSanitizer {

namespace {

const DiagnosticsPattern& patterns() { return DiagnosticsPattern::shared(); }
const DiagnosticsValidator::Ranges& validatorRanges() { return DiagnosticsValidator::ranges(); }

template <typename T>
std::optional<T> clamped(const std::optional<T>& value, const std::optional<std::pair<T, T>>& range) {
    if (!value || !range) return value;
    return std::clamp(*value, range->first, std::max(range->first, range->second));
}

std::string trimmedSpaces(const std::string& text) {
    const auto begin = text.find_first_not_of(" \t");
    if (begin == std::string::npos) return {};
    return text.substr(begin, text.find_last_not_of(" \t") - begin + 1);
}

std::optional<std::string> matching(const std::optional<std::string>& value, const DiagnosticsPattern::Regex& regex) {
    if (!value || !DiagnosticsPattern::matches(regex, *value)) return std::nullopt;
    return value;
}

std::optional<double> frameRate(std::optional<double> value) {
    if (!value || !std::isfinite(*value)) return std::nullopt;
    value = clamped(value, validatorRanges().fpsRange);
    return std::round(*value * 10) / 10;  // halves away from zero
}

std::string replacedAll(std::string text, const std::string& what) {
    for (auto at = text.find(what); at != std::string::npos; at = text.find(what, at)) text.erase(at, what.size());
    return text;
}

std::string osText(const OSInfo& info) { return info.build ? info.os + " (" + *info.build + ")" : info.os; }

}  // namespace

std::optional<std::string> bundleID(const std::optional<std::string>& value) {
    const auto& node = patterns().bundleIDNode;
    if (!value || !node) return std::nullopt;
    const nlohmann::json text = *value;
    try {
        node->validate(&text, DiagnosticsSchemaFile::defs(), "bundleId");
    } catch (const DiagnosticsValidator::Problem&) {
        return std::nullopt;
    }
    return value;
}

std::optional<std::string> version(const std::optional<std::string>& value) {
    if (!value) return std::nullopt;
    return matching(trimmedSpaces(*value), patterns().version);
}

std::optional<std::string> arch(const std::optional<std::string>& value) {
    if (!value || !patterns().arch.contains(*value)) return std::nullopt;
    return value;
}

std::optional<std::string> code(const std::optional<std::string>& value) { return matching(value, patterns().code); }

std::optional<CrashSignature> crash(const std::optional<CrashSignature>& value) {
    if (!value || !DiagnosticsPattern::matches(patterns().crashType, value->type) ||
        !DiagnosticsPattern::matches(patterns().hash, value->hash))
        return std::nullopt;
    CrashSignature result = *value;
    result.signal = matching(value->signal, patterns().signal);
    return result;
}

std::optional<std::string> model(const std::optional<std::string>& value) { return matching(value, patterns().model); }

std::optional<std::string> chip(const std::optional<std::string>& value) {
    if (!value) return std::nullopt;
    return matching(trimmedSpaces(*value), patterns().chip);
}

std::optional<OSInfo> osInfo(const std::optional<std::string>& value) {
    if (!value) return std::nullopt;
    const std::string text = replacedAll(replacedAll(*value, "Version "), "Build ");
    std::vector<std::string> pieces;
    std::string piece;
    for (char c : text + " ") {
        if (c == ' ' || c == '(' || c == ')') {
            if (!piece.empty()) pieces.push_back(std::move(piece));
            piece.clear();
        } else {
            piece += c;
        }
    }
    if (pieces.empty() || !DiagnosticsPattern::matches(patterns().os, pieces[0])) return std::nullopt;
    OSInfo info{pieces[0], std::nullopt};
    if (pieces.size() > 1) info.build = matching(pieces[1], patterns().osBuild);
    return info;
}

std::optional<AppOutcome> sanitize(const AppOutcome& outcome) {
    AppOutcome result = outcome;
    const auto id = bundleID(outcome.bundleID);
    if (!id) return std::nullopt;
    result.bundleID = *id;
    result.version = version(outcome.version);
    result.arch = arch(outcome.arch);
    result.ttfwMs = clamped(outcome.ttfwMs, validatorRanges().ttfwRange);
    result.crash = crash(outcome.crash);
    return result;
}

std::optional<SessionMetrics> sanitize(const SessionMetrics& metrics) {
    SessionMetrics result = metrics;
    const auto macModel = model(metrics.mac.model);
    const auto macChip = chip(metrics.mac.chip);
    const auto host = osInfo(osText(metrics.host));
    if (!macModel || !macChip || !host) return std::nullopt;
    result.mac = MacInfo{*macModel, *macChip, *clamped(std::optional(metrics.mac.ramGB), validatorRanges().ramRange)};
    result.host = *host;
    result.guest = metrics.guest ? osInfo(osText(*metrics.guest)) : std::nullopt;
    if (metrics.stream) {
        SessionMetrics::Stream s{frameRate(metrics.stream->fpsMedian), frameRate(metrics.stream->fpsMin),
                                 clamped(metrics.stream->latencyP50Ms, validatorRanges().latencyRange),
                                 clamped(metrics.stream->latencyP95Ms, validatorRanges().latencyRange)};
        const bool empty = !s.fpsMedian && !s.fpsMin && !s.latencyP50Ms && !s.latencyP95Ms;
        result.stream = empty ? std::nullopt : std::optional(s);
    }
    if (metrics.sleepWake) {
        const int64_t maxAttempts =
            validatorRanges().sleepWakeRange ? validatorRanges().sleepWakeRange->second : metrics.sleepWake->attempts;
        const int64_t attempts = std::clamp<int64_t>(metrics.sleepWake->attempts, 0, std::max<int64_t>(0, maxAttempts));
        result.sleepWake = attempts == 0 ? std::nullopt
                                         : std::optional(SessionMetrics::SleepWake{
                                               attempts, std::clamp<int64_t>(metrics.sleepWake->ok, 0, attempts)});
    }
    std::vector<std::string> errors;
    for (const auto& e : metrics.errors.value_or(std::vector<std::string>{}))
        if (errors.size() < 20 && code(e)) errors.push_back(e);
    result.errors = errors.empty() ? std::nullopt : std::optional(errors);
    result.agentProto = clamped(metrics.agentProto, validatorRanges().agentProtoRange);
    result.guestMemoryMB = clamped(metrics.guestMemoryMB, validatorRanges().memoryRange);
    result.durationS = clamped(metrics.durationS, validatorRanges().durationRange);
    return result;
}

std::optional<SetupStep> sanitize(const SetupStep& step) {
    SetupStep result = step;
    result.durationS = clamped(step.durationS, validatorRanges().durationRange);
    result.failure = code(step.failure);
    return result;
}

std::optional<DiagnosticEvent> sanitize(const DiagnosticEvent& event) {
    return std::visit(
        [&](const auto& payload) -> std::optional<DiagnosticEvent> {
            auto cleaned = sanitize(payload);
            if (!cleaned) return std::nullopt;
            return DiagnosticEvent{std::move(*cleaned), event.at};
        },
        event.payload);
}

}  // namespace tsl::DiagnosticsSanitizer
