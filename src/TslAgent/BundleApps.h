#pragma once
#include <filesystem>
#include <memory>

#include "Platform/AppSource.h"

namespace tsl {

// Application bundles: the direct children of `appsDir`, started and
// stopped through the workspace, with the system's own look-up by identifier.
class BundleApps final : public AppSource {
public:
    BundleApps(std::filesystem::path appsDir, std::shared_ptr<Workspace> workspace)
        : appsDir(std::move(appsDir)), workspace(std::move(workspace)) {}

    std::vector<InstalledApp> installed() const override;
    std::vector<RunningApplication> running() const override { return workspace->runningApplications(); }
    std::optional<RunningApplication> running(int32_t pid) const override { return workspace->runningApplication(pid); }
    bool holds(const std::string& path) const override;
    bool launchable(const std::string& path) const override;
    std::string place() const override;
    std::optional<std::filesystem::path> lookUp(const std::string& id) const override {
        return workspace->urlForApplication(id);
    }
    void open(const std::filesystem::path& application, const std::vector<std::filesystem::path>& documents,
              Workspace::OpenCompletion completion) const override;
    bool terminate(int32_t pid) const override { return workspace->terminate(pid); }

private:
    const std::filesystem::path appsDir;
    const std::shared_ptr<Workspace> workspace;
};

}  // namespace tsl
