#include "TslCore/Model/StateJSON.h"

#include <map>
#include <set>
#include <string>
#include <utility>

#include "TslCore/Wire/WireJSONValues.h"

namespace tsl {

using JSONFields::Is;
using JSONFields::lenient;
using JSONFields::lenientElements;
using JSONFields::Path;
using nlohmann::json;

json toJSON(BetaAnswer::Value value) { return toString(value); }
void fromJSON(const json& j, const Path& at, BetaAnswer::Value& out) {
    JSONFields::parsedFromJSON(j, at, out, betaAnswerValueFromString);
}

// ---- The records, each with the damage it forgives.

template <class V, Is<GuestSetupRecord> R>
void fields(V& v, R& r) {
    v("firstBootAt", r.firstBootAt);
    v("guestToolsOfferedAt", r.guestToolsOfferedAt);
    v("agentFirstHelloAt", r.agentFirstHelloAt);
    v("completedAt", r.completedAt);
}

template <class V, Is<BetaAnswer> R>
void fields(V& v, R& r) {
    v("value", r.value);
    v("at", r.at);
}

template <class V, Is<BetaChecklistRecord> R>
void fields(V& v, R& r) {
    v("global", r.global, lenient);
    v("apps", r.apps, lenient);
    v("opened", r.opened, lenient);
    v("resumed", r.resumed, lenient);
    v("useSeconds", r.useSeconds, lenient);
    v("reportedVerdicts", r.reportedVerdicts, lenient);
}

template <class V, Is<BetaRecord> R>
void fields(V& v, R& r) {
    v("noticeAcknowledgedAt", r.noticeAcknowledgedAt, lenient);
    v("noticeVersion", r.noticeVersion, lenient);
    v("leftBetaAt", r.leftBetaAt, lenient);
    v("diagnosticsUnavailableFor", r.diagnosticsUnavailableFor, lenient);
    v("onboardingDoneAt", r.onboardingDoneAt, lenient);
    v("checklist", r.checklist, lenient);
    v("serverDeletePending", r.serverDeletePending, lenient);
}

template <class V, Is<TesselSettings> R>
void fields(V& v, R& r) {
    v("cpuCount", r.cpuCount, lenient);
    v("memoryGB", r.memoryGB, lenient);
    v("idleSuspendMinutes", r.idleSuspendMinutes, lenient);
    v("showDebugVMWindow", r.showDebugVMWindow, lenient);
    v("simulationMode", r.simulationMode, lenient);
    v("codec", r.codec, lenient);
    v("addToDock", r.addToDock, lenient);
    v("sharedFolders", r.sharedFolders, lenient);
    v("sharedFolderNames", r.sharedFolderNames, lenient);
}

template <class V, Is<MigratedApp> R>
void fields(V& v, R& r) {
    v("bundleID", r.bundleID);
    v("name", r.name);
    v("originalPath", r.originalPath);
    v("guestPath", r.guestPath);
    v("shimPath", r.shimPath);
    v("migratedAt", r.migratedAt);
}

template <class V, Is<PersistedState> R>
void fields(V& v, R& r) {
    v("onboardingDone", r.onboardingDone, lenient);
    v("acceptedPersonalUseTerms", r.acceptedPersonalUseTerms, lenient);
    v("settings", r.settings, lenient);
    v("migrated", r.migrated, lenientElements);
    v("guestSetup", r.guestSetup, lenient);
    v("beta", r.beta, lenient);
}

#define TSL_STATE_JSON(Record)                                            \
    void to_json(json& j, const Record& r) { j = JSONFields::toJSON(r); } \
    void from_json(const json& j, Record& r) { JSONFields::fromJSON(j, Path{}, r); }
TSL_STATE_JSON(GuestSetupRecord)
TSL_STATE_JSON(BetaAnswer)
TSL_STATE_JSON(BetaChecklistRecord)
TSL_STATE_JSON(BetaRecord)
TSL_STATE_JSON(TesselSettings)
TSL_STATE_JSON(MigratedApp)
TSL_STATE_JSON(PersistedState)
#undef TSL_STATE_JSON

namespace StateJSON {

std::optional<PersistedState> decodeState(std::string_view bytes) {
    json j = json::parse(bytes, nullptr, false);
    if (!j.is_object()) return std::nullopt;  // a parse failure is "discarded", no object either
    return JSONFields::decode<PersistedState>(j);
}

std::string encodeState(const PersistedState& state) {
    // Text that isn't UTF-8 is repaired rather than refused: a state must
    // always be writable.
    return JSONFields::toJSON(state).dump(2, ' ', false, json::error_handler_t::replace) + "\n";
}

}  // namespace StateJSON
}  // namespace tsl
