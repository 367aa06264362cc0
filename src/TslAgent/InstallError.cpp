#include "TslAgent/InstallError.h"

namespace tsl {
namespace {

std::string describeInstall(InstallError::Kind kind, const std::string& subject,
                            const std::optional<std::string>& found) {
    using Kind = InstallError::Kind;
    switch (kind) {
        case Kind::outsideShare: return "path is outside the shared folder: " + subject;
        case Kind::notAnApp: return "not an application bundle: " + subject;
        case Kind::badBundleID: return "invalid bundle identifier: " + subject;
        case Kind::bundleIDMismatch: return "bundle id mismatch: expected " + subject + ", found " + found.value_or("none");
        case Kind::badPreferences: return "preferences not imported: " + subject;
    }
    return subject;
}

}  // namespace

InstallError::InstallError(Kind kind, std::string subject, std::optional<std::string> found)
    : Error(describeInstall(kind, subject, found)),
      _kind(kind),
      _subject(std::move(subject)),
      _found(std::move(found)) {}

}  // namespace tsl
