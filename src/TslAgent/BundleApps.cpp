#include "TslAgent/BundleApps.h"

#include "TslCore/Scanner/AppScanner.h"
#include "TslCore/Support/PathNames.h"

namespace tsl {

std::vector<InstalledApp> BundleApps::installed() const {
    const AppScanner scanner{.options = {.roots = {appsDir}, .includeApple = true, .maxDepth = 1}};
    std::vector<InstalledApp> apps;
    for (auto& bundle : scanner.scan().apps)
        apps.push_back(
            {bundle.bundleID.value_or(""), std::move(bundle.name), std::move(bundle.path), std::move(bundle.version)});
    return apps;
}

bool BundleApps::holds(const std::string& path) const {
    std::string root = PathNames::standardizedPath(appsDir.native());
    if (!root.ends_with('/')) root += '/';
    return path.starts_with(root);
}

bool BundleApps::launchable(const std::string& path) const {
    return holds(path) && PathNames::extension(PathNames::lastComponent(path)) == "app";
}

std::string BundleApps::place() const { return PathNames::urlPath(appsDir.native()); }

void BundleApps::open(const std::filesystem::path& application, const std::vector<std::filesystem::path>& documents,
                      Workspace::OpenCompletion completion) const {
    const Workspace::OpenConfiguration configuration{.activates = true};
    if (documents.empty()) workspace->openApplication(application, configuration, std::move(completion));
    else workspace->openURLs(documents, application, configuration, std::move(completion));
}

}  // namespace tsl
