#pragma once
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace tsl {

// What the guest tools did when they ran; they write it once, the agent reads
// it for every status request. Its JSON is also its wire form (WireJSON).
struct ProvisionReport {
    static constexpr std::string_view path = "/Library/Application Support/Tessel/provision-status.json";

    int64_t schema = 0;  // not interpreted by readers
    std::optional<std::string> installedAt;
    std::optional<std::string> toolsVersion;
    bool rosetta = false;
    bool autoUpdatesOff = false;
    bool sleepOff = false;
    bool fileVault = false;
    std::optional<std::string> autoLoginUser;
    std::optional<std::string> consoleUser;

    bool operator==(const ProvisionReport&) const = default;
};

}  // namespace tsl
