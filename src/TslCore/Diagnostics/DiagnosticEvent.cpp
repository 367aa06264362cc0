#include "TslCore/Diagnostics/DiagnosticEvent.h"

#include <sodium.h>

namespace tsl {

using JSONFields::Is;
using JSONFields::Path;
using nlohmann::json;

json toJSON(AppOutcome::Outcome v) { return JSONFields::textToJSON(v, AppOutcome::outcomeTexts); }
json toJSON(SetupStep::Step v) { return JSONFields::textToJSON(v, SetupStep::stepTexts); }
json toJSON(SetupStep::Status v) { return JSONFields::textToJSON(v, SetupStep::statusTexts); }
json toJSON(DiagnosticEvent::Kind v) { return JSONFields::textToJSON(v, DiagnosticEvent::kindTexts); }

void fromJSON(const json& j, const Path& at, AppOutcome::Outcome& out) {
    JSONFields::textFromJSON(j, at, out, AppOutcome::outcomeTexts);
}
void fromJSON(const json& j, const Path& at, SetupStep::Step& out) {
    JSONFields::textFromJSON(j, at, out, SetupStep::stepTexts);
}
void fromJSON(const json& j, const Path& at, SetupStep::Status& out) {
    JSONFields::textFromJSON(j, at, out, SetupStep::statusTexts);
}
void fromJSON(const json& j, const Path& at, DiagnosticEvent::Kind& out) {
    JSONFields::textFromJSON(j, at, out, DiagnosticEvent::kindTexts);
}

template <class V, Is<CrashSignature> R>
void fields(V& v, R& r) {
    v("type", r.type);
    v("signal", r.signal);
    v("hash", r.hash);
}

template <class V, Is<AppOutcome> R>
void fields(V& v, R& r) {
    v("bundleId", r.bundleID);
    v("version", r.version);
    v("arch", r.arch);
    v("outcome", r.outcome);
    v("ttfwMs", r.ttfwMs);
    v("crash", r.crash);
}

template <class V, Is<MacInfo> R>
void fields(V& v, R& r) {
    v("model", r.model);
    v("chip", r.chip);
    v("ramGB", r.ramGB);
}

template <class V, Is<OSInfo> R>
void fields(V& v, R& r) {
    v("os", r.os);
    v("build", r.build);
}

template <class V, Is<SessionMetrics::Stream> R>
void fields(V& v, R& r) {
    v("fpsMedian", r.fpsMedian);
    v("fpsMin", r.fpsMin);
    v("latencyP50Ms", r.latencyP50Ms);
    v("latencyP95Ms", r.latencyP95Ms);
}

template <class V, Is<SessionMetrics::SleepWake> R>
void fields(V& v, R& r) {
    v("attempts", r.attempts);
    v("ok", r.ok);
}

template <class V, Is<SessionMetrics> R>
void fields(V& v, R& r) {
    v("mac", r.mac);
    v("host", r.host);
    v("guest", r.guest);
    v("agentProto", r.agentProto);
    v("stream", r.stream);
    v("guestMemoryMB", r.guestMemoryMB);
    v("sleepWake", r.sleepWake);
    v("errors", r.errors);
    v("durationS", r.durationS);
}

template <class V, Is<SetupStep> R>
void fields(V& v, R& r) {
    v("step", r.step);
    v("status", r.status);
    v("durationS", r.durationS);
    v("failure", r.failure);
}

namespace {

// The keys an event holds beside its payload's, in the same object.
struct EventHead {
    DiagnosticEvent::Kind type = DiagnosticEvent::Kind::app;
    int64_t at = 0;
};

template <class V, Is<EventHead> R>
void fields(V& v, R& r) {
    v("type", r.type);
    v("at", r.at);
}

template <size_t... I>
void readPayload(DiagnosticEvent::Kind kind, JSONFields::Reader<const json>& reader, DiagnosticEvent& event,
                 std::index_sequence<I...>) {
    ((size_t(kind) == I ? (fields(reader, event.payload.emplace<I>()), 0) : 0), ...);
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

json toJSON(const DiagnosticEvent& event) {
    json j = std::visit([](const auto& payload) { return JSONFields::toJSON(payload); }, event.payload);
    JSONFields::Writer writer{*j.get_ptr<json::object_t*>()};
    const EventHead head{event.kind(), event.at};
    fields(writer, head);
    return j;
}

// The head first: its type says which payload to read from the same object.
void fromJSON(const json& j, const Path& at, DiagnosticEvent& event) {
    const auto* object = j.get_ptr<const json::object_t*>();
    if (!object) JSONFields::mismatch("an object", j, at);
    JSONFields::Reader<const json> reader{*object, at};
    EventHead head;
    fields(reader, head);
    event.at = head.at;
    readPayload(head.type, reader, event,
                std::make_index_sequence<std::variant_size_v<decltype(DiagnosticEvent::payload)>>{});
}

void to_json(json& j, const DiagnosticEvent& v) { j = toJSON(v); }

void from_json(const json& j, DiagnosticEvent& v) { fromJSON(j, Path{}, v); }

}  // namespace tsl
