#include "TslStream/Agent/BackendError.h"

#include "TslCore/Support/Localized.h"

namespace tsl {

BackendError::BackendError(Kind kind, std::string payload, std::string description)
    : Error(std::move(description)), _kind(kind), _payload(std::move(payload)) {}

BackendError BackendError::agentMissing(std::string path) {
    std::string text = L("Tessel’s agent is missing (%@). Download Tessel again from %@.");
    for (const std::string& value : {path, std::string(webDomain)})
        if (auto at = text.find("%@"); at != std::string::npos) text.replace(at, 2, value);
    return {Kind::agentMissing, std::move(path), std::move(text)};
}

BackendError BackendError::notInstalled() {
    return {Kind::notInstalled, "", L("The Tessel virtual Mac isn’t set up yet. Open Virtual Mac in the sidebar.")};
}

}  // namespace tsl
