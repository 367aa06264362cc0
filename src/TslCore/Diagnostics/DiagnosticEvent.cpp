#include "TslCore/Diagnostics/DiagnosticEvent.h"

#include <sodium.h>

#include <stdexcept>

#include "TslCore/Support/JSONInteger.h"

namespace tsl {

using nlohmann::json;

namespace {

[[noreturn]] void mismatch(const std::string& key) { throw std::invalid_argument("bad value at " + key); }

const json& required(const json& j, const std::string& key) {
    if (!j.is_object()) mismatch(key);
    auto it = j.find(key);
    if (it == j.end()) mismatch(key);
    return *it;
}

// An absent key and a null read as nothing.
const json* optional(const json& j, const std::string& key) {
    if (!j.is_object()) mismatch(key);
    auto it = j.find(key);
    return it == j.end() || it->is_null() ? nullptr : &*it;
}

std::string text(const json& v, const std::string& key) {
    if (!v.is_string()) mismatch(key);
    return v.get<std::string>();
}

int64_t integer(const json& v, const std::string& key) {
    if (const auto i = jsonInteger<int64_t>(v)) return *i;
    mismatch(key);
}

double number(const json& v, const std::string& key) {
    if (!v.is_number()) mismatch(key);
    return v.get<double>();
}

template <typename E, size_t N>
E raw(const json& v, const std::array<std::string_view, N>& texts, const std::string& key) {
    const std::string t = text(v, key);
    for (size_t i = 0; i < N; ++i)
        if (texts[i] == t) return E(i);
    mismatch(key);
}

std::optional<std::string> optionalText(const json& j, const std::string& key) {
    const json* v = optional(j, key);
    return v ? std::optional(text(*v, key)) : std::nullopt;
}
std::optional<int64_t> optionalInteger(const json& j, const std::string& key) {
    const json* v = optional(j, key);
    return v ? std::optional(integer(*v, key)) : std::nullopt;
}
std::optional<double> optionalNumber(const json& j, const std::string& key) {
    const json* v = optional(j, key);
    return v ? std::optional(number(*v, key)) : std::nullopt;
}

template <typename T>
void put(json& j, const char* key, const std::optional<T>& value) {
    if (value) j[key] = *value;
}

}  // namespace

CrashSignature CrashSignature::make(std::string type, std::optional<std::string> signal,
                                    const std::vector<std::string>& frames) {
    std::string joined;
    for (size_t i = 0; i < frames.size(); ++i) joined += (i ? "\n" : "") + frames[i];
    unsigned char digest[crypto_hash_sha256_BYTES];
    crypto_hash_sha256(digest, reinterpret_cast<const unsigned char*>(joined.data()), joined.size());
    static constexpr char hex[] = "0123456789abcdef";
    std::string hash;
    for (unsigned char b : digest) hash += {hex[b >> 4], hex[b & 15]};
    return {std::move(type), std::move(signal), std::move(hash)};
}

void to_json(json& j, const CrashSignature& v) {
    j = {{"type", v.type}, {"hash", v.hash}};
    put(j, "signal", v.signal);
}
void from_json(const json& j, CrashSignature& v) {
    v.type = text(required(j, "type"), "type");
    v.signal = optionalText(j, "signal");
    v.hash = text(required(j, "hash"), "hash");
}

void to_json(json& j, const AppOutcome& v) {
    j = {{"bundleId", v.bundleID}, {"outcome", AppOutcome::outcomeTexts[size_t(v.outcome)]}};
    put(j, "version", v.version);
    put(j, "arch", v.arch);
    put(j, "ttfwMs", v.ttfwMs);
    put(j, "crash", v.crash);
}
void from_json(const json& j, AppOutcome& v) {
    v.bundleID = text(required(j, "bundleId"), "bundleId");
    v.version = optionalText(j, "version");
    v.arch = optionalText(j, "arch");
    v.outcome = raw<AppOutcome::Outcome>(required(j, "outcome"), AppOutcome::outcomeTexts, "outcome");
    v.ttfwMs = optionalInteger(j, "ttfwMs");
    if (const json* crash = optional(j, "crash")) v.crash = crash->get<CrashSignature>();
    else v.crash.reset();
}

void to_json(json& j, const MacInfo& v) { j = {{"model", v.model}, {"chip", v.chip}, {"ramGB", v.ramGB}}; }
void from_json(const json& j, MacInfo& v) {
    v.model = text(required(j, "model"), "model");
    v.chip = text(required(j, "chip"), "chip");
    v.ramGB = integer(required(j, "ramGB"), "ramGB");
}

void to_json(json& j, const OSInfo& v) {
    j = {{"os", v.os}};
    put(j, "build", v.build);
}
void from_json(const json& j, OSInfo& v) {
    v.os = text(required(j, "os"), "os");
    v.build = optionalText(j, "build");
}

void to_json(json& j, const SessionMetrics& v) {
    j = {{"mac", v.mac}, {"host", v.host}};
    put(j, "guest", v.guest);
    put(j, "agentProto", v.agentProto);
    if (v.stream) {
        json s = json::object();
        put(s, "fpsMedian", v.stream->fpsMedian);
        put(s, "fpsMin", v.stream->fpsMin);
        put(s, "latencyP50Ms", v.stream->latencyP50Ms);
        put(s, "latencyP95Ms", v.stream->latencyP95Ms);
        j["stream"] = s;
    }
    put(j, "guestMemoryMB", v.guestMemoryMB);
    if (v.sleepWake) j["sleepWake"] = {{"attempts", v.sleepWake->attempts}, {"ok", v.sleepWake->ok}};
    put(j, "errors", v.errors);
    put(j, "durationS", v.durationS);
}
void from_json(const json& j, SessionMetrics& v) {
    v.mac = required(j, "mac").get<MacInfo>();
    v.host = required(j, "host").get<OSInfo>();
    v.guest = optional(j, "guest") ? std::optional(optional(j, "guest")->get<OSInfo>()) : std::nullopt;
    v.agentProto = optionalInteger(j, "agentProto");
    if (const json* s = optional(j, "stream")) {
        v.stream = SessionMetrics::Stream{optionalNumber(*s, "fpsMedian"), optionalNumber(*s, "fpsMin"),
                                          optionalInteger(*s, "latencyP50Ms"), optionalInteger(*s, "latencyP95Ms")};
    } else {
        v.stream.reset();
    }
    v.guestMemoryMB = optionalInteger(j, "guestMemoryMB");
    if (const json* s = optional(j, "sleepWake")) {
        v.sleepWake = SessionMetrics::SleepWake{integer(required(*s, "attempts"), "attempts"),
                                                integer(required(*s, "ok"), "ok")};
    } else {
        v.sleepWake.reset();
    }
    if (const json* errors = optional(j, "errors")) {
        if (!errors->is_array()) mismatch("errors");
        std::vector<std::string> list;
        for (const auto& e : *errors) list.push_back(text(e, "errors"));
        v.errors = std::move(list);
    } else {
        v.errors.reset();
    }
    v.durationS = optionalInteger(j, "durationS");
}

void to_json(json& j, const SetupStep& v) {
    j = {{"step", SetupStep::stepTexts[size_t(v.step)]}, {"status", SetupStep::statusTexts[size_t(v.status)]}};
    put(j, "durationS", v.durationS);
    put(j, "failure", v.failure);
}
void from_json(const json& j, SetupStep& v) {
    v.step = raw<SetupStep::Step>(required(j, "step"), SetupStep::stepTexts, "step");
    v.status = raw<SetupStep::Status>(required(j, "status"), SetupStep::statusTexts, "status");
    v.durationS = optionalInteger(j, "durationS");
    v.failure = optionalText(j, "failure");
}

void to_json(json& j, const DiagnosticEvent& v) {
    std::visit([&j](const auto& payload) { j = payload; }, v.payload);
    j["type"] = DiagnosticEvent::kindTexts[size_t(v.kind())];
    j["at"] = v.at;
}
void from_json(const json& j, DiagnosticEvent& v) {
    const auto kind = raw<DiagnosticEvent::Kind>(required(j, "type"), DiagnosticEvent::kindTexts, "type");
    v.at = integer(required(j, "at"), "at");
    switch (kind) {
        case DiagnosticEvent::Kind::app: v.payload = j.get<AppOutcome>(); break;
        case DiagnosticEvent::Kind::session: v.payload = j.get<SessionMetrics>(); break;
        case DiagnosticEvent::Kind::setup: v.payload = j.get<SetupStep>(); break;
    }
}

}  // namespace tsl
