#pragma once
#include <nlohmann/json.hpp>
#include <optional>
#include <string>
#include <string_view>

#include "TslCore/Model/BetaRecord.h"
#include "TslCore/Model/GuestSetupRecord.h"
#include "TslCore/Model/PersistedState.h"
#include "TslCore/Support/JSONFields.h"

// The JSON form of the host's state file: keys are the field names, dates
// ISO 8601 text, optional fields left out when absent; absent and null keys
// read as absent. Each record forgives damage as far as it promises and throws
// StateJSON::DecodeError beyond that.
namespace tsl {

namespace StateJSON {
using DecodeError = JSONFields::DecodeError;

// The state in a file's bytes; nothing when they aren't JSON or the root
// isn't an object, which is all that can fail: below the root every part
// falls back on its own.
std::optional<PersistedState> decodeState(std::string_view bytes);

// Pretty-printed, keys sorted at every level, ending in a line feed.
std::string encodeState(const PersistedState& state);

}  // namespace StateJSON

// A wrong value in any date fails the whole record.
void to_json(nlohmann::json& j, const GuestSetupRecord& record);
void from_json(const nlohmann::json& j, GuestSetupRecord& record);

// Both fields required.
void to_json(nlohmann::json& j, const BetaAnswer& answer);
void from_json(const nlohmann::json& j, BetaAnswer& answer);

// Every key on its own: a damaged key takes its empty value, so one bad
// answer loses the map that holds it. An object is all that is required.
void to_json(nlohmann::json& j, const BetaChecklistRecord& record);
void from_json(const nlohmann::json& j, BetaChecklistRecord& record);
void to_json(nlohmann::json& j, const BetaRecord& record);
void from_json(const nlohmann::json& j, BetaRecord& record);

// Every key on its own; a `codec` that is no codec reads as H.264.
void to_json(nlohmann::json& j, const TesselSettings& settings);
void from_json(const nlohmann::json& j, TesselSettings& settings);

// All six fields required.
void to_json(nlohmann::json& j, const MigratedApp& app);
void from_json(const nlohmann::json& j, MigratedApp& app);

// The root must be an object; each key then falls back on its own, and an
// element of `migrated` that doesn't decode drops out alone.
void to_json(nlohmann::json& j, const PersistedState& state);
void from_json(const nlohmann::json& j, PersistedState& state);

}  // namespace tsl
