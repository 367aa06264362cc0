#pragma once
#include <nlohmann/json.hpp>

#include "TslCore/Model/BetaRecord.h"
#include "TslCore/Model/GuestSetupRecord.h"
#include "TslCore/Support/Error.h"

// The JSON form of the host's state file: keys are the field names, dates
// ISO 8601 text, optional fields left out when absent; absent and null keys
// read as absent. Each record forgives damage as far as it promises and throws
// (StateJSON::DecodeError or nlohmann::json::exception) beyond that.
namespace tsl {

namespace StateJSON {
struct DecodeError : Error {
    using Error::Error;
};
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

}  // namespace tsl
