#include "TslCore/Support/FileTree.h"

#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <sys/xattr.h>

#include <cerrno>
#include <string_view>
#include <vector>

#include "TslCore/Support/PathNames.h"
#include "TslCore/Support/UniqueFd.h"

namespace tsl::FileTree {
namespace {

int removeAt(int dirFd, const char* name) {
    struct stat st {};
    if (::fstatat(dirFd, name, &st, AT_SYMLINK_NOFOLLOW) != 0) return errno == ENOENT ? 0 : errno;
    if (!S_ISDIR(st.st_mode)) return ::unlinkat(dirFd, name, 0) == 0 || errno == ENOENT ? 0 : errno;

    UniqueFd fd(::openat(dirFd, name, O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC));
    if (!fd) return errno;
    (void)::fchmod(fd.get(), S_IRWXU);
    std::vector<std::string> names;
    int first = listNames(fd.get(), names);
    for (const auto& n : names) {
        const int err = removeAt(fd.get(), n.c_str());
        if (err != 0 && first == 0) first = err;
    }
    if (::unlinkat(dirFd, name, AT_REMOVEDIR) != 0 && first == 0 && errno != ENOENT) first = errno;
    return first;
}

}  // namespace

int listNames(int folderFd, std::vector<std::string>& names) {
    // readdir consumes its descriptor, so it gets a copy of its own.
    const int listFd = ::dup(folderFd);
    DIR* dir = listFd >= 0 ? ::fdopendir(listFd) : nullptr;
    if (!dir) {
        const int err = errno;
        if (listFd >= 0) ::close(listFd);
        return err;
    }
    ::rewinddir(dir);
    errno = 0;
    while (const dirent* entry = ::readdir(dir)) {
        const std::string_view n = entry->d_name;
        if (n != "." && n != "..") names.emplace_back(n);
    }
    const int err = errno;
    ::closedir(dir);
    return err;
}

int listNames(const std::string& folder, std::vector<std::string>& names) {
    UniqueFd fd(::open(folder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    return fd ? listNames(fd.get(), names) : errno;
}

int removeAll(const std::string& path) {
    const std::string parent = PathNames::deletingLastComponent(path);
    const std::string name = PathNames::lastComponent(path);
    if (name == "/" || name == "." || name == "..") return EINVAL;
    UniqueFd parentFd(::open(parent.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    if (!parentFd) return errno == ENOENT ? 0 : errno;
    return removeAt(parentFd.get(), name.c_str());
}

int copyAttributes(int fromFd, int toFd) {
    const ssize_t size = ::flistxattr(fromFd, nullptr, 0);
    if (size < 0) return errno == ENOTSUP ? 0 : errno;
    std::vector<char> names(static_cast<size_t>(size));
    const ssize_t got = size == 0 ? 0 : ::flistxattr(fromFd, names.data(), names.size());
    if (got < 0) return errno;
    std::vector<char> value;
    for (size_t at = 0; at < static_cast<size_t>(got);) {
        const std::string_view name(names.data() + at);
        at += name.size() + 1;
        // Only the user namespace travels: the others belong to the system and
        // the security modules of the machine that made them.
        if (!name.starts_with("user.")) continue;
        const std::string key(name);
        const ssize_t length = ::fgetxattr(fromFd, key.c_str(), nullptr, 0);
        if (length < 0) return errno;
        value.resize(static_cast<size_t>(length));
        const ssize_t read = length == 0 ? 0 : ::fgetxattr(fromFd, key.c_str(), value.data(), value.size());
        if (read < 0) return errno;
        if (::fsetxattr(toFd, key.c_str(), value.data(), static_cast<size_t>(read), 0) != 0) return errno;
    }
    return 0;
}

int makeFolders(const std::string& path, unsigned mode) {
    const std::string standard = PathNames::standardizedPath(path);
    std::string soFar;
    std::string_view rest = std::string_view(standard).substr(1);
    while (!rest.empty()) {
        const size_t slash = rest.find('/');
        soFar += '/';
        soFar += rest.substr(0, slash);
        rest = slash == std::string_view::npos ? std::string_view{} : rest.substr(slash + 1);
        if (::mkdir(soFar.c_str(), static_cast<mode_t>(mode)) != 0 && errno != EEXIST) return errno;
    }
    struct stat st {};
    if (::stat(standard.c_str(), &st) != 0) return errno;
    return S_ISDIR(st.st_mode) ? 0 : ENOTDIR;
}

}  // namespace tsl::FileTree
