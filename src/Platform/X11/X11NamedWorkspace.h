#pragma once
#include <memory>

#include "Platform/Workspace.h"
#include "Platform/X11/X11DesktopEntries.h"

namespace tsl::X11 {

// The running applications of another workspace, each named by the desktop
// entry it belongs to: what X shows carries no identifier of its own, and
// window lists, queries by identifier and the dialog log need one.
class NamedWorkspace final : public Workspace {
public:
    NamedWorkspace(std::shared_ptr<Workspace> windows, std::shared_ptr<const DesktopEntries> entries)
        : windows(std::move(windows)), entries(std::move(entries)) {}
    std::optional<RunningApplication> frontmostApplication() override { return named(windows->frontmostApplication()); }
    std::vector<RunningApplication> runningApplications() override { return entries->running(); }
    std::optional<RunningApplication> runningApplication(int32_t pid) override {
        return named(windows->runningApplication(pid));
    }
    bool activate(int32_t pid, uint32_t options) override { return windows->activate(pid, options); }
    bool terminate(int32_t pid) override { return windows->terminate(pid); }
    std::optional<std::filesystem::path> urlForApplication(const std::string& id) override {
        return windows->urlForApplication(id);
    }
    void openApplication(const std::filesystem::path& application, const OpenConfiguration& configuration,
                         OpenCompletion completion) override {
        windows->openApplication(application, configuration, std::move(completion));
    }
    void openURLs(const std::vector<std::filesystem::path>& urls, const std::filesystem::path& application,
                  const OpenConfiguration& configuration, OpenCompletion completion) override {
        windows->openURLs(urls, application, configuration, std::move(completion));
    }

private:
    std::optional<RunningApplication> named(std::optional<RunningApplication> process) const {
        if (process) entries->name(*process);
        return process;
    }

    const std::shared_ptr<Workspace> windows;
    const std::shared_ptr<const DesktopEntries> entries;
};

}  // namespace tsl::X11
