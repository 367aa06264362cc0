#pragma once
#include <cstdlib>
#include <filesystem>
#include <stdexcept>
#include <string>

#include "Support/TestPaths.h"
#include "TslCore/Support/HomeDirectory.h"

namespace tsl::test {

// A fresh private folder, removed with everything in it at the end of scope.
class TempDir {
public:
    explicit TempDir(const std::string& base = "/tmp") {
        std::string tmpl = base + "/tsl-XXXXXX";
        if (!::mkdtemp(tmpl.data())) throw std::runtime_error("mkdtemp failed");
        _path = tmpl;
    }
    ~TempDir() {
        std::error_code ec;
        std::filesystem::remove_all(_path, ec);
    }
    const std::filesystem::path& path() const { return _path; }
    std::filesystem::path operator/(const std::string& name) const { return _path / name; }

    TempDir(const TempDir&) = delete;
    TempDir& operator=(const TempDir&) = delete;

    // Where the agent accepts a simulation root: the build folder, unless that
    // lies in a world-writable place (a clone in /tmp), which the agent
    // refuses; then a folder in the user's cache.
    static std::string simulationBase() {
        std::error_code ec;
        std::string build = std::filesystem::weakly_canonical(binaryDir(), ec).string();
        for (std::string shared : {"/tmp", "/var/tmp", "/private/tmp", "/private/var/tmp", "/Users/Shared"}) {
            if (build != shared && !build.starts_with(shared + "/")) continue;
            auto cache = std::filesystem::path(homeDirectory()) / ".cache" / "tessel-tests";
            std::filesystem::create_directories(cache);
            return cache.string();
        }
        return build;
    }
    static TempDir forSimulation() { return TempDir(simulationBase()); }

private:
    std::filesystem::path _path;
};

}  // namespace tsl::test
