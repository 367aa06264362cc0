#include "TslCore/Migration/ShareIO.h"

#include <dirent.h>
#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <system_error>

#include "TslCore/Support/FileTree.h"
#include "TslCore/Migration/SafePaths.h"
#include "TslCore/Support/PathNames.h"
#include "TslCore/Support/UUID.h"
#include "TslCore/Support/UniqueFd.h"

namespace tsl::ShareIO {
namespace {

std::string describeFailure(Failure::Kind kind, const std::string& name, int32_t errnum) {
    const std::string number = std::to_string(errnum);
    switch (kind) {
        case Failure::Kind::open: return "cannot open " + name + " in the shared folder (errno " + number + ")";
        case Failure::Kind::rename: return "cannot move " + name + " (errno " + number + ")";
    }
    return name;
}

[[noreturn]] void platformError(const std::string& what, const std::filesystem::path& path, int err) {
    throw std::filesystem::filesystem_error(what, path, std::error_code(err, std::generic_category()));
}

constexpr const char* heldPrefixes[] = {"work-", "trash-"};

// Made and locked under a name no sweep looks at, then renamed: a sweep can
// never take a folder that is being born.
HeldFolder makeOwnerOnlyFolder(const std::filesystem::path& root, const std::string& prefix) {
    const std::string id = makeUUIDString();
    const std::filesystem::path host = hostFolder(root);
    const std::filesystem::path born = host / ("new-" + id);
    const std::filesystem::path folder = host / (prefix + id);
    if (const int err = FileTree::makeFolders(born.native(), S_IRWXU); err != 0)
        platformError("cannot create folder", born, err);
    UniqueFd lock(::open(born.c_str(), O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC));
    if (!lock || ::flock(lock.get(), LOCK_EX | LOCK_NB) != 0 || ::rename(born.c_str(), folder.c_str()) != 0) {
        const int err = errno;
        (void)::rmdir(born.c_str());
        platformError("cannot create folder", folder, err);
    }
    return HeldFolder(folder, std::move(lock));
}

}  // namespace

Failure::Failure(Kind kind, std::string name, int32_t errnum)
    : Error(describeFailure(kind, name, errnum)), kind(kind), name(std::move(name)), errnum(errnum) {}

std::filesystem::path hostFolder(const std::filesystem::path& root) {
    return PathNames::appending(PathNames::deletingLastComponent(root.native()), ".tessel-host");
}

HeldFolder::~HeldFolder() {
    if (lock) (void)FileTree::removeAll(path.native());
}

HeldFolder makeWorkFolder(const std::filesystem::path& root) { return makeOwnerOnlyFolder(root, "work-"); }

void sweepAbandoned(const std::filesystem::path& root) {
    const std::filesystem::path host = hostFolder(root);
    DIR* dir = ::opendir(host.c_str());
    if (!dir) return;
    std::vector<std::string> names;
    while (const dirent* entry = ::readdir(dir)) {
        const std::string_view name = entry->d_name;
        for (const char* prefix : heldPrefixes)
            if (name.starts_with(prefix)) names.emplace_back(name);
    }
    ::closedir(dir);
    for (const std::string& name : names) {
        const std::filesystem::path folder = host / name;
        UniqueFd fd(::open(folder.c_str(), O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC));
        if (!fd || ::flock(fd.get(), LOCK_EX | LOCK_NB) != 0) continue;  // gone, or a live run's
        (void)FileTree::removeAll(folder.native());
    }
}

int openDirectory(const std::vector<std::string>& components, const std::filesystem::path& root, bool create) {
    UniqueFd fd(::open(root.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    if (!fd) throw Failure::open(PathNames::lastComponent(root.native()), errno);
    for (const auto& component : components) {
        if (!SafePaths::isSingleComponent(component)) throw Failure::open(component, EINVAL);
        if (create) (void)::mkdirat(fd.get(), component.c_str(), 0755);
        UniqueFd next(::openat(fd.get(), component.c_str(), O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC));
        if (!next) throw Failure::open(component, errno);
        fd = std::move(next);
    }
    return fd.release();
}

void moveIn(const std::filesystem::path& item, const std::vector<std::string>& components,
            const std::filesystem::path& root) {
    if (const int err = FileTree::makeFolders(root.native(), 0755); err != 0)
        platformError("cannot create folder", root, err);
    const std::string parent = PathNames::deletingLastComponent(item.native());
    const std::string name = PathNames::lastComponent(item.native());
    UniqueFd parentFd(::open(parent.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    if (!parentFd) throw Failure::open(PathNames::lastComponent(parent), errno);
    UniqueFd destFd(openDirectory(components, root, true));
    if (::renameat2(parentFd.get(), name.c_str(), destFd.get(), name.c_str(), RENAME_NOREPLACE) != 0)
        throw Failure::rename(name, errno);
}

void remove(const std::string& name, const std::vector<std::string>& components, const std::filesystem::path& root) {
    if (!SafePaths::isSingleComponent(name)) throw Failure::open(name, EINVAL);
    UniqueFd dirFd;
    try {
        dirFd.reset(openDirectory(components, root, false));
    } catch (const Failure&) {
        return;  // nothing reachable to remove
    }
    sweepAbandoned(root);
    HeldFolder trash = makeOwnerOnlyFolder(root, "trash-");
    UniqueFd trashFd(::open(trash.path.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    if (!trashFd) throw Failure::open(PathNames::lastComponent(trash.path.native()), errno);
    if (::renameat(dirFd.get(), name.c_str(), trashFd.get(), name.c_str()) != 0) {
        const int err = errno;
        if (err == ENOENT) return;
        throw Failure::rename(name, err);
    }
    // The entry has left the shared tree: nothing the other side does reaches it now.
    if (const int err = FileTree::removeAll(trash.path.native()); err != 0)
        platformError("cannot remove", trash.path, err);
}

}  // namespace tsl::ShareIO
