#pragma once
#include <chrono>
#include <cstddef>
#include <filesystem>
#include <functional>
#include <string>
#include <vector>

#include "TslCore/Scanner/AppBundleInfo.h"

namespace tsl {

// Walks application folders and reads every bundle found into one report,
// sorted by name as the user's locale sorts, case aside.
struct AppScanner {
    struct Options {
        std::vector<std::filesystem::path> roots;  // the folders to walk
        bool includeApple = false;                 // list bundles whose identifier begins "com.apple."
        int maxDepth = 1;                          // levels of folders to look at; 1 = a root's children only
        bool operator==(const Options&) const = default;
    };

    struct Report {
        std::chrono::system_clock::time_point scannedAt;  // when the scan began
        double durationSeconds = 0;
        std::vector<std::string> roots;  // the options' roots, as given
        std::vector<AppBundleInfo> apps;

        // How many apps have that class.
        size_t count(ArchClass archClass) const;
        bool operator==(const Report&) const = default;
    };

    // Told of each bundle as it is read, with the number read so far.
    using Progress = std::function<void(size_t bundlesRead, const AppBundleInfo& bundle)>;

    Options options;

    // "/Applications", "/Applications/Utilities" and the user's ~/Applications.
    static std::vector<std::filesystem::path> defaultRoots();

    // Never fails: folders that can't be listed add nothing. Links are never
    // followed, packages never entered, and each bundle is listed once
    // however the roots overlap.
    Report scan(const Progress& progress = {}) const;
};

}  // namespace tsl
