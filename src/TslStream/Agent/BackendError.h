#pragma once
#include <cstdint>
#include <string>

#include "TslCore/Support/Error.h"

namespace tsl {

// Why a guest backend could not bring the guest up.
class BackendError : public Error {
public:
    enum class Kind : uint8_t { unsupportedHost, agentMissing, failed, notInstalled };

    static constexpr std::string_view webDomain = "tessel.app";

    static BackendError unsupportedHost(std::string text) { return {Kind::unsupportedHost, std::move(text)}; }
    // `path` is where the agent was looked for.
    static BackendError agentMissing(std::string path);
    static BackendError failed(std::string text) { return {Kind::failed, std::move(text)}; }
    static BackendError notInstalled();

    Kind kind() const { return _kind; }
    // The text, or for agentMissing the path.
    const std::string& payload() const { return _payload; }

private:
    BackendError(Kind kind, std::string payload, std::string description);
    BackendError(Kind kind, std::string text) : BackendError(kind, text, text) {}

    Kind _kind;
    std::string _payload;
};

}  // namespace tsl
