#include "TslAgent/GuestDocuments.h"

#include <pwd.h>

#include <string>
#include <vector>

namespace tsl::GuestDocuments {
namespace {

// "~" and "~/…" for the current user, "~name" and "~name/…" for any user
// the system knows; anything else unchanged.
std::string expandingTilde(const std::string& path, const std::string& home) {
    if (!path.starts_with('~')) return path;
    const size_t slash = path.find('/');
    const std::string user = path.substr(1, slash == std::string::npos ? std::string::npos : slash - 1);
    const std::string rest = slash == std::string::npos ? "" : path.substr(slash);
    if (user.empty()) return home + rest;
    struct passwd entry {}, *found = nullptr;
    std::vector<char> buffer(16384);
    if (::getpwnam_r(user.c_str(), &entry, buffer.data(), buffer.size(), &found) != 0 || !found || !found->pw_dir)
        return path;
    return found->pw_dir + rest;
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
