#pragma once
#include <cstdint>
#include <filesystem>
#include <nlohmann/json_fwd.hpp>
#include <optional>
#include <string>

#include "TslCore/Migration/MigrationError.h"
#include "TslCore/Scanner/AppBundleInfo.h"

namespace tsl {

// What keeping one application copies into the share, and where it lands.
// Plain data: it may be stored, so staging tests it again.
struct MigrationPlan {
    std::string appPath;
    std::string bundleID;
    std::string appName;
    std::optional<std::string> prefsPath;    // the preferences file, if one counts
    std::optional<std::string> supportPath;  // the support folder, if one was found
    std::string shareFolder;                 // <share root>/Migrate/<bundleID>
    uint64_t estimatedBytes = 0;             // space on disk of the three

    bool operator==(const MigrationPlan&) const = default;

    // Where each item is in the share once staged.
    std::string sharedAppPath() const;
    std::optional<std::string> sharedPrefsPath() const;
    std::optional<std::string> sharedSupportPath() const;
};

void to_json(nlohmann::json& j, const MigrationPlan& plan);
void from_json(const nlohmann::json& j, MigrationPlan& plan);

// Copies an application with its preferences and support folder into the
// share so that the guest can install it. A staged copy appears in
// "Migrate" whole or not at all: it is built in a work folder beside the
// share and renamed in, never replacing anything.
struct MigrationPlanner {
    std::filesystem::path home;       // the user's home folder
    std::filesystem::path shareRoot;  // the share's root on the host

    // Changes nothing. Throws MigrationError.
    MigrationPlan plan(const AppBundleInfo& app, bool allowNonIntel = false) const;

    // Replaces an earlier staged copy of the same application. Throws
    // MigrationError for a plan that doesn't point into "Migrate", and
    // TreeCopy/ShareIO failures or std::filesystem errors otherwise; the work
    // folder goes in every case.
    void stage(const MigrationPlan& plan) const;

    // Nothing staged is success.
    void unstage(const MigrationPlan& plan) const;

    // Space allocated on disk for the entry and everything below it; links
    // are counted, never followed. 0 for nothing.
    static uint64_t size(const std::filesystem::path& of);

private:
    void validate(const MigrationPlan& plan) const;
};

}  // namespace tsl
