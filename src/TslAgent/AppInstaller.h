#pragma once
#include <cstdint>
#include <filesystem>
#include <memory>
#include <span>
#include <string>
#include <string_view>

#include "Platform/System.h"
#include "TslAgent/AgentConfig.h"
#include "TslCore/Wire/ControlRecords.h"

namespace tsl {

// Copies an application the host staged in the shared folder into the
// guest: the bundle into `appsDir`, its preferences into the user's defaults
// (in a simulation, a file under `prefsDir`), its support folder into
// `supportDir` unless one is there already.
//
// Everything the request names is tested before anything is written: the
// identifier's form, then each path against the shared folder, then the
// bundle against the identifier claimed. What is read from the share is
// reached by descriptor from the share's root down, never through a link, so
// a link swapped in after the tests fails the install instead of leading it
// out of the share. A plain value; `install` blocks for the whole copy.
struct AppInstaller {
    AgentConfig config;
    std::shared_ptr<System> system;  // runs the preferences tool in a guest run

    AppInstaller(AgentConfig config, std::shared_ptr<System> system);

    // The installed bundle. Throws InstallError for a refused request,
    // TreeCopy::Failure or ShareIO::Failure from the copies, and the
    // platform's errors (folders, reads, the replacement, LaunchError).
    // A refusal at the tests changes nothing; a failed first copy leaves
    // nothing; a failed update leaves the old bundle; a failure at the
    // preferences or support folder leaves the bundle installed.
    std::filesystem::path install(const InstallRequest& request) const;

    // `path` with its links resolved, when that lies strictly inside the
    // shared folder (itself resolved); otherwise InstallError::outsideShare.
    std::filesystem::path resolveInShare(const std::string& path) const;

    static bool isValidBundleID(std::string_view id);

    // Whether preferences bytes are a property list (XML or binary) whose
    // root is a dictionary; false for anything nested too deep to parse.
    static bool isDictionaryPlist(std::span<const uint8_t> data);
};

}  // namespace tsl
