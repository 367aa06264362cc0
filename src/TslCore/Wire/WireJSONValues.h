#pragma once
#include "TslCore/Support/JSONFields.h"
#include "TslCore/Wire/ControlRecords.h"
#include "TslCore/Wire/VideoCodec.h"

// The JSON forms of the wire's own values, for every record that holds one:
// the kinds and roles by their text, a codec by its raw number.
namespace tsl {

nlohmann::json toJSON(Hello::Role value);
nlohmann::json toJSON(WindowEvent::Kind value);
nlohmann::json toJSON(WindowAction::Kind value);
nlohmann::json toJSON(VideoCodec value);

void fromJSON(const nlohmann::json& j, const JSONFields::Path& at, Hello::Role& out);
void fromJSON(const nlohmann::json& j, const JSONFields::Path& at, WindowEvent::Kind& out);
void fromJSON(const nlohmann::json& j, const JSONFields::Path& at, WindowAction::Kind& out);
void fromJSON(const nlohmann::json& j, const JSONFields::Path& at, VideoCodec& out);

}  // namespace tsl
