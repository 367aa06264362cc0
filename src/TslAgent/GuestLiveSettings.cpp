#include "TslAgent/GuestLiveSettings.h"

#include <mutex>

#include "TslCore/Support/Utf8.h"

namespace tsl::GuestLiveSettings {
namespace {

struct Cached {
    std::chrono::system_clock::time_point at;
    std::optional<bool> on;
};

std::mutex lock;
std::optional<Cached> cached;

}  // namespace

std::optional<std::string> autoLoginUser(Preferences& preferences) {
    std::optional<PlatformValue> value = preferences.copyValue("autoLoginUser", loginWindowDomain,
                                                               Preferences::User::any, Preferences::Host::current);
    if (!value)
        value = preferences.copyValue("autoLoginUser", loginWindowDomain, Preferences::User::any,
                                      Preferences::Host::any);
    const std::string* text = value ? value->asString() : nullptr;
    if (!text || text->empty()) return std::nullopt;
    return *text;
}

std::optional<bool> parseFileVaultStatus(std::string_view output) {
    if (!isValidUtf8(output)) return std::nullopt;
    if (output.find("FileVault is On") != std::string_view::npos) return true;
    if (output.find("FileVault is Off") != std::string_view::npos) return false;
    return std::nullopt;
}

std::optional<bool> fileVaultOn(System& system, std::chrono::system_clock::time_point now) {
    {
        std::lock_guard g(lock);
        if (cached && now - cached->at < fileVaultCacheLife) return cached->on;
    }
    std::optional<bool> on;
    const auto started = std::chrono::steady_clock::now();
    try {
        const System::ChildResult result = system.run(fdesetupPath, {"status"});
        const auto& out = result.standardOutput;
        on = parseFileVaultStatus(std::string_view(reinterpret_cast<const char*>(out.data()), out.size()));
    } catch (const std::exception&) {
        // A tool that can't be started tells nothing.
    }
    // Stamped when the answer came, as the clock then reads.
    const auto at = now + std::chrono::duration_cast<std::chrono::system_clock::duration>(
                              std::chrono::steady_clock::now() - started);
    std::lock_guard g(lock);
    cached = Cached{at, on};
    return on;
}

}  // namespace tsl::GuestLiveSettings
