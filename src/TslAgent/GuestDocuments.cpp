#include "TslAgent/GuestDocuments.h"

#include <string>

namespace tsl::GuestDocuments {
namespace {

std::string expandingTilde(const std::string& path, const std::string& home) {
    if (path == "~") return home;
    if (path.starts_with("~/")) return home + path.substr(1);
    return path;
}

}  // namespace

void pointPanelsAtSharedDocuments(const PlatformServices& platform, const std::filesystem::path& mountPoint) {
    const std::filesystem::path target = mountPoint / "Documents";
    std::error_code ec;
    if (!std::filesystem::exists(target, ec)) return;
    Preferences& preferences = *platform.preferences;
    const auto user = Preferences::User::current;
    const auto host = Preferences::Host::any;
    const std::optional<PlatformValue> value =
        preferences.copyValue(lastRootKey, Preferences::anyApplication, user, host);
    const std::string* current = value ? value->asString() : nullptr;
    if (current && !current->empty()) {
        const std::string home = platform.system->homeDirectory().native();
        const std::string chosen = expandingTilde(*current, home);
        if (chosen != home + "/Documents" && chosen != home) return;  // the user's own choice
    }
    preferences.setValue(lastRootKey, PlatformValue(target.native()), Preferences::anyApplication, user, host);
    (void)preferences.synchronize(Preferences::anyApplication, user, host);
}

}  // namespace tsl::GuestDocuments
