#pragma once
#include <filesystem>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "Platform/AppSource.h"

namespace tsl::X11 {

// Applications from freedesktop desktop entries, read through GIO: the
// visible entries under each data folder's "applications", the first of an
// identifier winning. The identifier is the desktop id without ".desktop".
// A running process belongs to the entry GIO launched it from
// (GIO_LAUNCHED_DESKTOP_FILE with its own pid in its environment), else to
// the first entry whose StartupWMClass or executable names it. Quitting
// closes the application's windows, as their close buttons would.
class DesktopEntries final : public AppSource {
public:
    // `dataDirs` in order of precedence; `workspace` knows the running processes.
    DesktopEntries(std::shared_ptr<Workspace> workspace, std::vector<std::filesystem::path> dataDirs);
    // $XDG_DATA_DIRS, or the standard folders when it is unset or empty.
    static std::vector<std::filesystem::path> systemDataDirs();

    std::vector<InstalledApp> installed() const override;
    std::vector<RunningApplication> running() const override;
    std::optional<RunningApplication> running(int32_t pid) const override;
    bool holds(const std::string& path) const override;
    bool launchable(const std::string& path) const override;
    std::string place() const override;
    std::optional<std::filesystem::path> lookUp(const std::string&) const override { return std::nullopt; }
    // Documents go in through the entry's Exec field codes, as file URIs.
    void open(const std::filesystem::path& application, const std::vector<std::filesystem::path>& documents,
              Workspace::OpenCompletion completion) const override;
    bool terminate(int32_t pid) const override { return workspace->terminate(pid); }
    // Gives the process the identifier and file of the entry it belongs to,
    // and takes away any it had when there is none.
    void name(RunningApplication& process) const;

private:
    struct Entry {
        InstalledApp app;
        std::string executable;   // the file name of Exec's program
        std::string windowClass;  // StartupWMClass
    };
    // An entry file as the walk met it.
    struct Seen {
        size_t root;  // index into `roots`
        std::string path;
        int64_t changed, size;
        bool operator==(const Seen&) const = default;
    };
    using Listing = std::vector<Seen>;
    Listing walk() const;
    // Read again through GIO only when a file came, went or changed:
    // window tracking asks several times a second.
    std::shared_ptr<const std::vector<Entry>> entries() const;
    void mark(RunningApplication& process, const std::vector<Entry>& all) const;

    const std::shared_ptr<Workspace> workspace;
    std::vector<std::string> roots;  // standardised "applications" folders, each ending in "/"
    mutable std::mutex cacheLock;
    mutable Listing cachedListing;
    mutable std::shared_ptr<const std::vector<Entry>> cached;
};

}  // namespace tsl::X11
