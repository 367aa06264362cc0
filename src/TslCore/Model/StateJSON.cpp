#include "TslCore/Model/StateJSON.h"

#include <map>
#include <set>
#include <string>
#include <utility>

#include "TslCore/Support/ISO8601.h"
#include "TslCore/Support/JSONInteger.h"

namespace tsl {
namespace {

using json = nlohmann::json;
using StateJSON::DecodeError;

// ---- Values, strictly: a Boolean is never a number, and an integer may be
// written with a fraction of zero but never truncated.

[[noreturn]] void mismatch(const char* expected, const json& value) {
    throw DecodeError(std::string("expected ") + expected + ", found " + value.type_name());
}

const json::object_t& object(const json& j) {
    const auto* o = j.get_ptr<const json::object_t*>();
    if (!o) mismatch("an object", j);
    return *o;
}

bool boolean(const json& j) {
    const auto* b = j.get_ptr<const json::boolean_t*>();
    if (!b) mismatch("a Boolean", j);
    return *b;
}

int64_t integer(const json& j) {
    if (const auto v = jsonInteger<int64_t>(j)) return *v;
    if (!j.is_number() || j.is_boolean()) mismatch("an integer", j);
    throw DecodeError("number " + j.dump() + " is not a 64-bit integer");
}

std::string string(const json& j) {
    const auto* s = j.get_ptr<const json::string_t*>();
    if (!s) mismatch("a string", j);
    return *s;
}

Date date(const json& j) {
    auto parsed = ISO8601::parse(string(j));
    if (!parsed) throw DecodeError("not an ISO 8601 date: " + j.dump());
    return *parsed;
}

json dateJSON(Date d) { return ISO8601::format(d); }

// ---- Keys.

const json* find(const json::object_t& o, const char* key) {
    auto it = o.find(key);
    return it == o.end() || it->second.is_null() ? nullptr : &it->second;
}

// Absent or null is absent; a wrong value throws.
template <class Read>
auto optional(const json::object_t& o, const char* key, Read read) -> std::optional<decltype(read(json()))> {
    if (const json* v = find(o, key)) return read(*v);
    return std::nullopt;
}

// Absent, null or wrong is absent: the error of one key is dropped.
template <class Read>
auto lenient(const json::object_t& o, const char* key, Read read) -> std::optional<decltype(read(json()))> {
    try {
        return optional(o, key, read);
    } catch (const DecodeError&) {
    } catch (const json::exception&) {
    }
    return std::nullopt;
}

template <class Read>
auto required(const json::object_t& o, const char* key, Read read) -> decltype(read(json())) {
    if (const json* v = find(o, key)) return read(*v);
    throw DecodeError(std::string("missing key \"") + key + "\"");
}

template <class Read>
auto mapOf(Read read) {
    return [read](const json& j) {
        std::map<std::string, decltype(read(json()))> out;
        for (const auto& [key, value] : object(j)) out.emplace(key, read(value));
        return out;
    };
}

const json::array_t& array(const json& j) {
    const auto* a = j.get_ptr<const json::array_t*>();
    if (!a) mismatch("an array", j);
    return *a;
}

std::set<std::string> stringSet(const json& j) {
    std::set<std::string> out;
    for (const json& e : array(j)) out.insert(string(e));
    return out;
}

json stringSetJSON(const std::set<std::string>& s) { return json::array_t(s.begin(), s.end()); }

template <class T>
void put(json& j, const char* key, const std::optional<T>& value) {
    if (value) j[key] = *value;
}

void putDate(json& j, const char* key, const std::optional<Date>& value) {
    if (value) j[key] = dateJSON(*value);
}

BetaAnswer betaAnswer(const json& j) {
    const auto& o = object(j);
    const std::string text = required(o, "value", string);
    const auto value = betaAnswerValueFromString(text);
    if (!value) throw DecodeError("not an answer: \"" + text + "\"");
    return BetaAnswer{*value, required(o, "at", date)};
}

json betaAnswerJSON(const BetaAnswer& a) {
    return json::object({{"value", toString(a.value)}, {"at", dateJSON(a.at)}});
}

}  // namespace

void to_json(json& j, const GuestSetupRecord& r) {
    j = json::object();
    putDate(j, "firstBootAt", r.firstBootAt);
    putDate(j, "guestToolsOfferedAt", r.guestToolsOfferedAt);
    putDate(j, "agentFirstHelloAt", r.agentFirstHelloAt);
    putDate(j, "completedAt", r.completedAt);
}

void from_json(const json& j, GuestSetupRecord& r) {
    const auto& o = object(j);
    r.firstBootAt = optional(o, "firstBootAt", date);
    r.guestToolsOfferedAt = optional(o, "guestToolsOfferedAt", date);
    r.agentFirstHelloAt = optional(o, "agentFirstHelloAt", date);
    r.completedAt = optional(o, "completedAt", date);
}

void to_json(json& j, const BetaAnswer& a) { j = betaAnswerJSON(a); }

void from_json(const json& j, BetaAnswer& a) { a = betaAnswer(j); }

void to_json(json& j, const BetaChecklistRecord& r) {
    const auto answers = [](const BetaChecklistRecord::Answers& byStep) {
        json out = json::object();
        for (const auto& [id, a] : byStep) out[id] = betaAnswerJSON(a);
        return out;
    };
    j = json::object();
    j["global"] = answers(r.global);
    j["apps"] = json::object();
    for (const auto& [app, byStep] : r.apps) j["apps"][app] = answers(byStep);
    j["opened"] = stringSetJSON(r.opened);
    j["resumed"] = stringSetJSON(r.resumed);
    j["useSeconds"] = r.useSeconds;
    j["reportedVerdicts"] = r.reportedVerdicts;
}

void from_json(const json& j, BetaChecklistRecord& r) {
    const auto& o = object(j);
    r = {};
    r.global = lenient(o, "global", mapOf(betaAnswer)).value_or(BetaChecklistRecord::Answers{});
    r.apps = lenient(o, "apps", mapOf(mapOf(betaAnswer))).value_or(decltype(r.apps){});
    r.opened = lenient(o, "opened", stringSet).value_or(std::set<std::string>{});
    r.resumed = lenient(o, "resumed", stringSet).value_or(std::set<std::string>{});
    r.useSeconds = lenient(o, "useSeconds", mapOf(integer)).value_or(decltype(r.useSeconds){});
    r.reportedVerdicts = lenient(o, "reportedVerdicts", mapOf(string)).value_or(decltype(r.reportedVerdicts){});
}

void to_json(json& j, const BetaRecord& r) {
    j = json::object();
    putDate(j, "noticeAcknowledgedAt", r.noticeAcknowledgedAt);
    put(j, "noticeVersion", r.noticeVersion);
    putDate(j, "leftBetaAt", r.leftBetaAt);
    put(j, "diagnosticsUnavailableFor", r.diagnosticsUnavailableFor);
    putDate(j, "onboardingDoneAt", r.onboardingDoneAt);
    j["checklist"] = r.checklist;
    put(j, "serverDeletePending", r.serverDeletePending);
}

void from_json(const json& j, BetaRecord& r) {
    const auto& o = object(j);
    r.noticeAcknowledgedAt = lenient(o, "noticeAcknowledgedAt", date);
    r.noticeVersion = lenient(o, "noticeVersion", string);
    r.leftBetaAt = lenient(o, "leftBetaAt", date);
    r.diagnosticsUnavailableFor = lenient(o, "diagnosticsUnavailableFor", string);
    r.onboardingDoneAt = lenient(o, "onboardingDoneAt", date);
    r.checklist = lenient(o, "checklist", [](const json& v) { return v.get<BetaChecklistRecord>(); })
                      .value_or(BetaChecklistRecord{});
    r.serverDeletePending = lenient(o, "serverDeletePending", boolean);
}

void to_json(json& j, const TesselSettings& s) {
    j = json::object();
    j["cpuCount"] = s.cpuCount;
    j["memoryGB"] = s.memoryGB;
    j["idleSuspendMinutes"] = s.idleSuspendMinutes;
    j["showDebugVMWindow"] = s.showDebugVMWindow;
    j["simulationMode"] = s.simulationMode;
    j["codec"] = uint8_t(s.codec);
    put(j, "addToDock", s.addToDock);
    put(j, "sharedFolders", s.sharedFolders);
    put(j, "sharedFolderNames", s.sharedFolderNames);
}

void from_json(const json& j, TesselSettings& s) {
    const auto& o = object(j);
    const TesselSettings defaults;
    s.cpuCount = lenient(o, "cpuCount", integer).value_or(defaults.cpuCount);
    s.memoryGB = lenient(o, "memoryGB", integer).value_or(defaults.memoryGB);
    s.idleSuspendMinutes = lenient(o, "idleSuspendMinutes", integer).value_or(defaults.idleSuspendMinutes);
    s.showDebugVMWindow = lenient(o, "showDebugVMWindow", boolean).value_or(defaults.showDebugVMWindow);
    s.simulationMode = lenient(o, "simulationMode", boolean).value_or(defaults.simulationMode);
    const auto raw = lenient(o, "codec", integer);
    const auto codec = raw && *raw >= 0 && *raw <= 255 ? videoCodecFromRaw(uint8_t(*raw)) : std::nullopt;
    s.codec = codec.value_or(defaults.codec);
    s.addToDock = lenient(o, "addToDock", boolean);
    s.sharedFolders = lenient(o, "sharedFolders", [](const json& v) {
        std::vector<std::string> out;
        for (const json& e : array(v)) out.push_back(string(e));
        return out;
    });
    s.sharedFolderNames = lenient(o, "sharedFolderNames", mapOf(string));
}

void to_json(json& j, const MigratedApp& a) {
    j = json::object({{"bundleID", a.bundleID},
                      {"name", a.name},
                      {"originalPath", a.originalPath},
                      {"guestPath", a.guestPath},
                      {"shimPath", a.shimPath},
                      {"migratedAt", dateJSON(a.migratedAt)}});
}

void from_json(const json& j, MigratedApp& a) {
    const auto& o = object(j);
    a.bundleID = required(o, "bundleID", string);
    a.name = required(o, "name", string);
    a.originalPath = required(o, "originalPath", string);
    a.guestPath = required(o, "guestPath", string);
    a.shimPath = required(o, "shimPath", string);
    a.migratedAt = required(o, "migratedAt", date);
}

void to_json(json& j, const PersistedState& s) {
    j = json::object();
    j["onboardingDone"] = s.onboardingDone;
    j["acceptedPersonalUseTerms"] = s.acceptedPersonalUseTerms;
    j["settings"] = s.settings;
    j["migrated"] = s.migrated;
    j["guestSetup"] = s.guestSetup;
    j["beta"] = s.beta;
}

void from_json(const json& j, PersistedState& s) {
    const auto& o = object(j);
    const auto record = [](auto kind) {
        return [](const json& v) { return v.get<decltype(kind)>(); };
    };
    s.onboardingDone = lenient(o, "onboardingDone", boolean).value_or(false);
    s.acceptedPersonalUseTerms = lenient(o, "acceptedPersonalUseTerms", boolean).value_or(false);
    s.settings = lenient(o, "settings", record(TesselSettings{})).value_or(TesselSettings{});
    s.migrated = lenient(o, "migrated", [](const json& v) {
                     std::vector<MigratedApp> kept;
                     for (const json& e : array(v))
                         if (auto app = e.get<Lossy<MigratedApp>>().value) kept.push_back(std::move(*app));
                     return kept;
                 }).value_or(std::vector<MigratedApp>{});
    s.guestSetup = lenient(o, "guestSetup", record(GuestSetupRecord{})).value_or(GuestSetupRecord{});
    s.beta = lenient(o, "beta", record(BetaRecord{})).value_or(BetaRecord{});
}

namespace StateJSON {

std::optional<PersistedState> decodeState(std::string_view bytes) {
    json j = json::parse(bytes, nullptr, false);
    if (!j.is_object()) return std::nullopt;  // a parse failure is "discarded", no object either
    return j.get<PersistedState>();
}

std::string encodeState(const PersistedState& state) {
    // Text that isn't UTF-8 is repaired rather than refused: a state must
    // always be writable.
    return json(state).dump(2, ' ', false, json::error_handler_t::replace) + "\n";
}

}  // namespace StateJSON
}  // namespace tsl
