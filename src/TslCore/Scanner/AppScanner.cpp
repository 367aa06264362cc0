#include "TslCore/Scanner/AppScanner.h"

#include <sys/stat.h>
#include <unicode/coll.h>
#include <unicode/locid.h>

#include <algorithm>
#include <array>
#include <memory>
#include <unordered_set>

#include "TslCore/Support/FileTree.h"
#include "TslCore/Support/HomeDirectory.h"
#include "TslCore/Support/PathNames.h"

namespace tsl {
namespace {

constexpr std::string_view applePrefix = "com.apple.";

// Folder extensions that mark a package: a folder the user sees as one file,
// which a scan doesn't enter. The guest's platform knows its registered
// package types; here this list of the common ones stands in for it.
constexpr std::array<std::string_view, 20> packageExtensions{
    "app",         "appex",      "bundle", "component",       "dext", "docset", "framework",
    "kext",        "mdimporter", "mpkg",   "photoslibrary",   "pkg",  "plugin", "prefPane",
    "qlgenerator", "rtfd",       "saver",  "systemextension", "wdgt", "xpc"};

bool isPackage(const std::string& name) {
    const std::string extension = PathNames::extension(name);
    return !extension.empty() &&
           std::find(packageExtensions.begin(), packageExtensions.end(), extension) != packageExtensions.end();
}

// Compares as the current locale does with case ignored (accents still
// count). A POSIX locale has a collation of its own that orders by case
// first, so it falls back to the root order.
class NameOrder {
public:
    NameOrder() {
        UErrorCode status = U_ZERO_ERROR;
        icu::Locale locale = icu::Locale::getDefault();
        if (std::string_view(locale.getName()).find("POSIX") != std::string_view::npos) locale = icu::Locale::getRoot();
        _collator.reset(icu::Collator::createInstance(locale, status));
        if (U_FAILURE(status)) _collator.reset();
        if (_collator) _collator->setStrength(icu::Collator::SECONDARY);
    }
    bool less(const std::string& a, const std::string& b) const {
        if (!_collator) return a < b;
        UErrorCode status = U_ZERO_ERROR;
        const UCollationResult r = _collator->compareUTF8(a, b, status);
        return U_SUCCESS(status) ? r == UCOL_LESS : a < b;
    }

private:
    std::unique_ptr<icu::Collator> _collator;
};

struct Walk {
    const AppScanner::Options& options;
    const AppScanner::Progress& progress;
    std::unordered_set<std::string> seen;
    std::vector<AppBundleInfo> found;
    size_t read = 0;

    void collect(const std::string& folder, int depth) {
        std::vector<std::string> names;
        if (FileTree::listNames(folder, names) != 0) return;  // adds nothing, reports nothing
        for (const auto& name : names) {
            if (name.starts_with('.')) continue;  // hidden
            const std::string path = PathNames::appending(folder, name);
            struct stat st {};
            if (::lstat(path.c_str(), &st) != 0) continue;
            // Links are never followed, neither into a bundle nor into a folder.
            if (S_ISLNK(st.st_mode) || !S_ISDIR(st.st_mode)) continue;
            if (PathNames::extension(name) == "app") {
                if (!seen.insert(PathNames::standardizedPath(path)).second) continue;
                AppBundleInfo info = AppBundleInfo::read(path);
                ++read;
                if (progress) progress(read, info);
                if (!options.includeApple && info.bundleID && info.bundleID->starts_with(applePrefix)) continue;
                found.push_back(std::move(info));
            } else if (depth + 1 < options.maxDepth && !isPackage(name)) {
                collect(path, depth + 1);
            }
        }
    }
};

}  // namespace

size_t AppScanner::Report::count(ArchClass archClass) const {
    return static_cast<size_t>(
        std::count_if(apps.begin(), apps.end(), [&](const AppBundleInfo& a) { return a.archClass == archClass; }));
}

std::vector<std::filesystem::path> AppScanner::defaultRoots() {
    return {"/Applications", "/Applications/Utilities", PathNames::appending(homeDirectory(), "Applications")};
}

AppScanner::Report AppScanner::scan(const Progress& progress) const {
    Report report;
    report.scannedAt = std::chrono::system_clock::now();
    const auto start = std::chrono::steady_clock::now();
    Walk walk{options, progress, {}, {}, 0};
    for (const auto& root : options.roots) {
        report.roots.push_back(PathNames::urlPath(root.native()));
        walk.collect(root.native(), 0);
    }
    const NameOrder order;
    std::stable_sort(walk.found.begin(), walk.found.end(),
                     [&](const AppBundleInfo& a, const AppBundleInfo& b) { return order.less(a.name, b.name); });
    report.apps = std::move(walk.found);
    report.durationSeconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
    return report;
}

}  // namespace tsl
