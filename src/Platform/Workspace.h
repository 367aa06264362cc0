#pragma once
#include <cstdint>
#include <exception>
#include <filesystem>
#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "TslCore/Support/Error.h"

namespace tsl {

// One running application as the workspace sees it.
struct RunningApplication {
    int32_t processIdentifier = 0;
    std::optional<std::string> bundleIdentifier;
    std::optional<std::filesystem::path> bundleURL;
    std::optional<std::string> localizedName;
    bool operator==(const RunningApplication&) const = default;
};

// An application could not be opened; the text is the platform's own.
struct WorkspaceError : Error {
    using Error::Error;
};

// Running applications and the opening of applications and documents.
class Workspace {
public:
    struct OpenConfiguration {
        bool activates = true;
    };
    // Gets the launched application, or the error (rethrow it as it came).
    // May run before the opening call returns, and on any thread.
    using OpenCompletion = std::function<void(std::optional<RunningApplication>, std::exception_ptr)>;

    virtual ~Workspace() = default;

    virtual std::optional<RunningApplication> frontmostApplication() = 0;
    virtual std::vector<RunningApplication> runningApplications() = 0;
    virtual std::optional<RunningApplication> runningApplication(int32_t pid) = 0;

    // Brings the application to the front; false if there is no such
    // application or it refused. `options` are the platform's activation bits.
    virtual bool activate(int32_t pid, uint32_t options) = 0;
    // Asks the application to quit, without force.
    virtual bool terminate(int32_t pid) = 0;

    // Where the system would find the application with this identifier.
    virtual std::optional<std::filesystem::path> urlForApplication(const std::string& bundleID) = 0;

    virtual void openApplication(const std::filesystem::path& application, const OpenConfiguration& configuration,
                                 OpenCompletion completion) = 0;
    virtual void openURLs(const std::vector<std::filesystem::path>& urls, const std::filesystem::path& application,
                          const OpenConfiguration& configuration, OpenCompletion completion) = 0;
};

}  // namespace tsl
