#pragma once
#include <memory>

#include "Platform/Workspace.h"
#include "Platform/X11/X11WindowControl.h"

namespace tsl::X11 {

// Running applications as X shows them: the processes owning client
// windows. Opening applications and documents is not done here; those calls
// complete with an error.
class X11Workspace final : public Workspace {
public:
    explicit X11Workspace(std::shared_ptr<WindowControl> control) : control(std::move(control)) {}
    std::optional<RunningApplication> frontmostApplication() override;
    std::vector<RunningApplication> runningApplications() override;
    std::optional<RunningApplication> runningApplication(int32_t pid) override;
    bool activate(int32_t pid, uint32_t options) override;
    // Closes every window of the application, as its close buttons would.
    bool terminate(int32_t pid) override;
    std::optional<std::filesystem::path> urlForApplication(const std::string&) override { return std::nullopt; }
    void openApplication(const std::filesystem::path& application, const OpenConfiguration& configuration,
                         OpenCompletion completion) override;
    void openURLs(const std::vector<std::filesystem::path>& urls, const std::filesystem::path& application,
                  const OpenConfiguration& configuration, OpenCompletion completion) override;

private:
    const std::shared_ptr<WindowControl> control;
};

}  // namespace tsl::X11
