#pragma once
#include <cstdint>
#include <filesystem>
#include <optional>
#include <string>
#include <vector>

#include "Platform/Workspace.h"

namespace tsl {

// One application the desktop offers: an identifier, a name, and the file
// that stands for it (a bundle, a desktop entry).
struct InstalledApp {
    std::string id;  // empty when it has none
    std::string name;
    std::filesystem::path path;
    std::optional<std::string> version;
    bool operator==(const InstalledApp&) const = default;
};

// Where the guest's applications come from, how they start and stop. The
// catalog applies the trust rules on top; a source only answers. No state
// of its own: everything is read afresh on each call.
class AppSource {
public:
    virtual ~AppSource() = default;

    // Everything offered, in listing order.
    virtual std::vector<InstalledApp> installed() const = 0;
    // Running applications, each with the identifier and path of its
    // application where the source can tell.
    virtual std::vector<RunningApplication> running() const = 0;
    virtual std::optional<RunningApplication> running(int32_t pid) const = 0;

    // Whether a standardised path lies where this source's applications live.
    virtual bool holds(const std::string& path) const = 0;
    // Whether a standardised path that it holds names something it launches.
    virtual bool launchable(const std::string& path) const = 0;
    // Where applications may come from, as a refusal names it.
    virtual std::string place() const = 0;
    // An application found by identifier outside the listed ones, if the source looks.
    virtual std::optional<std::filesystem::path> lookUp(const std::string& id) const = 0;

    virtual void open(const std::filesystem::path& application, const std::vector<std::filesystem::path>& documents,
                      Workspace::OpenCompletion completion) const = 0;
    // Asks the application to quit, without force.
    virtual bool terminate(int32_t pid) const = 0;
};

}  // namespace tsl
