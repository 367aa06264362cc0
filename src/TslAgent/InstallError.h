#pragma once
#include <cstdint>
#include <optional>
#include <string>

#include "TslCore/Support/Error.h"

namespace tsl {

// Why an installation request from the host was refused.
class InstallError : public Error {
public:
    enum class Kind : uint8_t { outsideShare, notAnApp, badBundleID, bundleIDMismatch, badPreferences };

    static InstallError outsideShare(std::string path) { return {Kind::outsideShare, std::move(path)}; }
    static InstallError notAnApp(std::string path) { return {Kind::notAnApp, std::move(path)}; }
    static InstallError badBundleID(std::string identifier) { return {Kind::badBundleID, std::move(identifier)}; }
    static InstallError bundleIDMismatch(std::string expected, std::optional<std::string> found) {
        return {Kind::bundleIDMismatch, std::move(expected), std::move(found)};
    }
    static InstallError badPreferences(std::string text) { return {Kind::badPreferences, std::move(text)}; }

    Kind kind() const { return _kind; }
    // The path, identifier or text of the case; the expected identifier of a mismatch.
    const std::string& subject() const { return _subject; }
    const std::optional<std::string>& found() const { return _found; }

    bool operator==(const InstallError& o) const {
        return _kind == o._kind && _subject == o._subject && _found == o._found;
    }

private:
    InstallError(Kind kind, std::string subject, std::optional<std::string> found = std::nullopt);

    Kind _kind;
    std::string _subject;
    std::optional<std::string> _found;
};

}  // namespace tsl
