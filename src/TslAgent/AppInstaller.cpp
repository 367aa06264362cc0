#include "TslAgent/AppInstaller.h"

#include <fcntl.h>
#include <plist/plist.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <memory>
#include <string_view>
#include <system_error>
#include <vector>

#include "TslAgent/InstallError.h"
#include "TslCore/Migration/SafePaths.h"
#include "TslCore/Migration/ShareIO.h"
#include "TslCore/Migration/TreeCopy.h"
#include "TslCore/Scanner/AppBundleInfo.h"
#include "TslCore/Scanner/PlistDepth.h"
#include "TslCore/Support/AtomicFile.h"
#include "TslCore/Support/Bytes.h"
#include "TslCore/Support/FileTree.h"
#include "TslCore/Support/PathNames.h"
#include "TslCore/Support/UUID.h"
#include "TslCore/Support/UniqueFd.h"

namespace tsl {
namespace {

namespace fs = std::filesystem;

constexpr const char* defaultsTool = "/usr/bin/defaults";
// Far above any real preferences file; a larger one isn't loaded.
constexpr off_t largestPreferences = 64 << 20;

[[noreturn]] void platformError(const std::string& what, const fs::path& path, int err) {
    throw fs::filesystem_error(what, path, std::error_code(err, std::generic_category()));
}

bool entryExists(const fs::path& path) {
    struct stat st {};
    return ::lstat(path.c_str(), &st) == 0;
}

bool isLink(int folder, const char* relative) {
    struct stat st {};
    return ::fstatat(folder, relative, &st, AT_SYMLINK_NOFOLLOW) == 0 && S_ISLNK(st.st_mode);
}

// The entry at `item`, a resolved path below the resolved share root, opened
// component by component from the root without following any link.
UniqueFd openInShare(const std::string& root, const std::string& item, int flags) {
    std::vector<std::string> components;
    std::string_view rest = std::string_view(item).substr(root == "/" ? 1 : root.size() + 1);
    while (!rest.empty()) {
        const size_t slash = rest.find('/');
        if (slash != 0) components.emplace_back(rest.substr(0, slash));
        rest = slash == std::string_view::npos ? std::string_view() : rest.substr(slash + 1);
    }
    const std::string name = components.back();
    components.pop_back();
    UniqueFd parent(ShareIO::openDirectory(components, root, false));
    UniqueFd fd(::openat(parent.get(), name.c_str(), flags | O_NOFOLLOW | O_CLOEXEC));
    if (!fd) throw ShareIO::Failure::open(name, errno);
    return fd;
}

Bytes readAll(int fd, const fs::path& path) {
    struct stat st {};
    if (::fstat(fd, &st) != 0) platformError("cannot read", path, errno);
    if (!S_ISREG(st.st_mode)) platformError("cannot read", path, S_ISDIR(st.st_mode) ? EISDIR : EINVAL);
    if (st.st_size > largestPreferences) platformError("cannot read", path, EFBIG);
    Bytes data(size_t(st.st_size));
    size_t have = 0;
    while (have < data.size()) {
        const ssize_t n = ::read(fd, data.data() + have, data.size() - have);
        if (n < 0 && errno == EINTR) continue;
        if (n < 0) platformError("cannot read", path, errno);
        if (n == 0) break;
        have += size_t(n);
    }
    data.resize(have);
    return data;
}

int writeAll(int fd, const Bytes& data) {
    for (size_t done = 0; done < data.size();) {
        const ssize_t n = ::write(fd, data.data() + done, data.size() - done);
        if (n < 0 && errno != EINTR) return errno;
        if (n > 0) done += size_t(n);
    }
    return 0;
}

// A fresh private file from the template (ending in "XXXXXX") holding `data`.
std::string writeTemporary(std::string pattern, const Bytes& data) {
    UniqueFd fd(::mkstemp(pattern.data()));
    if (!fd) platformError("cannot write", pattern, errno);
    if (const int err = writeAll(fd.get(), data); err != 0) {
        ::unlink(pattern.c_str());
        platformError("cannot write", pattern, err);
    }
    return pattern;
}

void makeFolders(const fs::path& folder) {
    if (const int err = FileTree::makeFolders(folder.native(), 0755); err != 0)
        platformError("cannot create folder", folder, err);
}

// One install's copy of a bundle, in a hidden folder of `appsDir` (the same
// volume, so the copy moves in with one rename), until it is renamed into
// place. The folder is locked while its install lives; one that nobody
// locks was left by an agent that died mid-install and goes at the next.
class StagingFolder {
public:
    explicit StagingFolder(const fs::path& appsDir) {
        sweep(appsDir);
        for (int attempt = 0;; ++attempt) {
            _path = appsDir / (std::string(prefix) + makeUUIDString());
            if (::mkdir(_path.c_str(), S_IRWXU) != 0) platformError("cannot create folder", _path, errno);
            _lock = UniqueFd(::open(_path.c_str(), O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC));
            if (!_lock || ::flock(_lock.get(), LOCK_EX) != 0) {
                const int err = errno;
                (void)FileTree::removeAll(_path.native());
                platformError("cannot lock folder", _path, err);
            }
            // Another install's sweep may have taken it before the lock did.
            struct stat held {}, named {};
            if (::fstat(_lock.get(), &held) == 0 && ::lstat(_path.c_str(), &named) == 0 &&
                held.st_ino == named.st_ino && held.st_dev == named.st_dev)
                return;
            if (attempt == 8) platformError("cannot create folder", _path, EAGAIN);
        }
    }
    ~StagingFolder() { (void)FileTree::removeAll(_path.native()); }
    StagingFolder(const StagingFolder&) = delete;
    StagingFolder& operator=(const StagingFolder&) = delete;

    const fs::path& path() const { return _path; }

private:
    static constexpr std::string_view prefix = ".tsl-install-";

    static void sweep(const fs::path& appsDir) {
        const UniqueFd folder(::open(appsDir.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
        std::vector<std::string> names;
        if (!folder || FileTree::listNames(folder.get(), names) != 0) return;
        for (const std::string& name : names) {
            if (!name.starts_with(prefix)) continue;
            const UniqueFd fd(::openat(folder.get(), name.c_str(), O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC));
            if (fd && ::flock(fd.get(), LOCK_EX | LOCK_NB) == 0) (void)FileTree::removeAll((appsDir / name).native());
        }
    }

    fs::path _path;
    UniqueFd _lock;
};

}  // namespace

AppInstaller::AppInstaller(AgentConfig config, std::shared_ptr<System> system)
    : config(std::move(config)), system(std::move(system)) {}

bool AppInstaller::isValidBundleID(std::string_view id) { return SafePaths::isValidBundleID(id); }

bool AppInstaller::isDictionaryPlist(std::span<const uint8_t> data) {
    // The parser recurses per level, and the host writes these bytes.
    if (data.empty() || data.size() > UINT32_MAX || !PlistDepth::within(data)) return false;
    plist_t parsed = nullptr;
    plist_from_memory(reinterpret_cast<const char*>(data.data()), uint32_t(data.size()), &parsed);
    std::unique_ptr<std::remove_pointer_t<plist_t>, decltype(&plist_free)> root(parsed, &plist_free);
    return root && plist_get_node_type(root.get()) == PLIST_DICT;
}

fs::path AppInstaller::resolveInShare(const std::string& path) const {
    std::string root = SafePaths::resolvedPath(config.sharedDir.native());
    const std::string url = SafePaths::resolvedPath(path);
    if (!root.ends_with('/')) root += '/';
    if (!url.starts_with(root)) throw InstallError::outsideShare(path);
    return url;
}

namespace {

// The install's steps, with the share's resolved root at hand.
struct Installation {
    const AppInstaller& installer;
    const InstallRequest& request;
    const std::string root;

    const AgentConfig& config() const { return installer.config; }

    // The bundle folder, opened, after its identifier was compared.
    UniqueFd openBundle(const fs::path& source) const {
        UniqueFd bundle;
        try {
            bundle = openInShare(root, source.native(), O_RDONLY | O_DIRECTORY);
        } catch (const ShareIO::Failure&) {
            // Nothing there, no folder, or none we may read: a bundle without an identifier.
            throw InstallError::bundleIDMismatch(request.bundleID, std::nullopt);
        }
        // Read through the descriptor: the folder checked is the folder
        // copied. An Info.plist reached through a link could lie outside the
        // share, so such a bundle counts as having none.
        std::optional<std::string> found;
        if (!isLink(bundle.get(), "Contents") && !isLink(bundle.get(), "Contents/Info.plist"))
            found = AppBundleInfo::read("/proc/self/fd/" + std::to_string(bundle.get())).bundleID;
        if (found != request.bundleID) throw InstallError::bundleIDMismatch(request.bundleID, found);
        return bundle;
    }

    // The bundle copied whole beside `destination`, then renamed into place:
    // over the installed one by exchange, which leaves with the staging
    // folder, or where nothing stands. Anybody watching `destination` sees
    // the old bundle or the new one, never part of one, even when the agent
    // dies mid-copy.
    void place(int bundle, const fs::path& source, const fs::path& destination, bool replacing) const {
        const StagingFolder staging(config().appsDir);
        const fs::path staged = staging.path() / destination.filename();
        TreeCopy::copyOpened(bundle, source.native(), staged);
        if (::renameat2(AT_FDCWD, staged.c_str(), AT_FDCWD, destination.c_str(),
                        replacing ? RENAME_EXCHANGE : RENAME_NOREPLACE) != 0)
            platformError(replacing ? "cannot replace" : "cannot install", destination, errno);
    }

    void importPreferences(const fs::path& url) const {
        const UniqueFd fd = openInShare(root, url.native(), O_RDONLY | O_NONBLOCK);
        const Bytes data = readAll(fd.get(), url);
        if (!AppInstaller::isDictionaryPlist(data))
            throw InstallError::badPreferences(url.filename().string() + " is not a dictionary property list");
        if (config().isSimulation) {
            makeFolders(config().prefsDir);
            const fs::path target = config().prefsDir / (request.bundleID + ".plist");
            writeFileAtomically(target.native(), std::string_view(reinterpret_cast<const char*>(data.data()), data.size()));
            return;
        }
        // The tool reads a private copy of the bytes checked here, not the
        // share's file, which the other side could change meanwhile.
        const std::string copy = writeTemporary((fs::temp_directory_path() / "tsl-prefs-XXXXXX").native(), data);
        struct Remove {
            std::string path;
            ~Remove() { ::unlink(path.c_str()); }
        } removeCopy{copy};
        const System::ChildResult result = installer.system->run(defaultsTool, {"import", request.bundleID, copy});
        if (result.exitStatus != 0)
            throw InstallError::badPreferences("defaults import exited " + std::to_string(result.exitStatus));
    }

    void copySupport(const std::string& requested) const {
        const fs::path url = installer.resolveInShare(requested);
        const std::string name = PathNames::lastComponent(url.native());
        if (name.empty() || name == "." || name == ".." || name.find('/') != std::string::npos)
            throw InstallError::outsideShare(requested);
        makeFolders(config().supportDir);
        const fs::path target = config().supportDir / name;
        if (entryExists(target)) return;  // the guest's data wins over a re-install's
        // A folder or a single file; anything else fails in the copy, unopened.
        const UniqueFd item = openInShare(root, url.native(), O_RDONLY | O_NONBLOCK);
        TreeCopy::copyOpened(item.get(), url.native(), target);
    }
};

}  // namespace

fs::path AppInstaller::install(const InstallRequest& request) const {
    if (!isValidBundleID(request.bundleID)) throw InstallError::badBundleID(request.bundleID);
    const Installation step{*this, request, SafePaths::resolvedPath(config.sharedDir.native())};
    const fs::path source = resolveInShare(request.sharedAppPath);
    if (PathNames::extension(PathNames::lastComponent(source.native())) != "app")
        throw InstallError::notAnApp(request.sharedAppPath);
    const UniqueFd bundle = step.openBundle(source);

    makeFolders(config.appsDir);
    const fs::path destination = config.appsDir / source.filename();
    if (!entryExists(destination)) {
        step.place(bundle.get(), source, destination, false);
    } else {
        // An installed application is never overwritten by another one of the same folder name.
        const auto installed = AppBundleInfo::read(destination).bundleID;
        if (installed != request.bundleID) throw InstallError::bundleIDMismatch(request.bundleID, installed);
        step.place(bundle.get(), source, destination, true);
    }

    if (request.sharedPrefsPath) step.importPreferences(resolveInShare(*request.sharedPrefsPath));
    if (request.sharedSupportPath) step.copySupport(*request.sharedSupportPath);
    return destination;
}

}  // namespace tsl
