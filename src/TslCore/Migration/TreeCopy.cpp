#include "TslCore/Migration/TreeCopy.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstring>
#include <string_view>
#include <system_error>
#include <vector>

#include "TslCore/Support/FileTree.h"
#include "TslCore/Support/Utf8.h"
#include "TslCore/Support/UniqueFd.h"

namespace tsl::TreeCopy {
namespace {

constexpr const char* notCopyable = "copy (not a file, folder or link)";

[[noreturn]] void fail(const std::string& path, const char* operation, int err) { throw Failure(path, operation, err); }

// A folder that can't be listed is the platform's error, not a Failure.
[[noreturn]] void failListing(const std::string& path, int err) {
    throw std::filesystem::filesystem_error("cannot list folder", path, std::error_code(err, std::generic_category()));
}

std::vector<std::string> sortedNames(int folderFd, const std::string& path) {
    std::vector<std::string> names;
    if (const int err = FileTree::listNames(folderFd, names); err != 0) failListing(path, err);
    std::sort(names.begin(), names.end());
    return names;
}

// Data through the kernel where it can, else through a buffer.
int copyData(int from, int to) {
    bool kernel = true;
    while (kernel) {
        const ssize_t n = ::copy_file_range(from, nullptr, to, nullptr, size_t{1} << 30, 0);
        if (n == 0) return 0;
        if (n > 0) continue;
        if (errno == EINTR) continue;
        if (errno != EXDEV && errno != ENOSYS && errno != EOPNOTSUPP && errno != EINVAL) return errno;
        kernel = false;
    }
    std::array<char, 1 << 16> buffer;
    while (true) {
        const ssize_t n = ::read(from, buffer.data(), buffer.size());
        if (n == 0) return 0;
        if (n < 0) {
            if (errno == EINTR) continue;
            return errno;
        }
        for (ssize_t done = 0; done < n;) {
            const ssize_t w = ::write(to, buffer.data() + done, static_cast<size_t>(n - done));
            if (w < 0) {
                if (errno == EINTR) continue;
                return errno;
            }
            done += w;
        }
    }
}

// Each entry is reached through its parent's descriptor and never through a
// link, so a folder swapped for a link during the copy can't redirect it. The
// top-level entries are named by whole paths relative to AT_FDCWD.
struct Entry {
    int dir;           // the open parent folder, or AT_FDCWD
    std::string name;  // relative to `dir`
    std::string path;  // for messages
    Entry child(int folder, const std::string& childName) const { return {folder, childName, path + "/" + childName}; }
};

void copyLink(const Entry& src, const Entry& dst, bool& made) {
    std::array<char, 1024> buffer{};
    const ssize_t n = ::readlinkat(src.dir, src.name.c_str(), buffer.data(), buffer.size());
    if (n < 0) fail(src.path, "readlink", errno);
    const std::string text = repairedUtf8(std::string_view(buffer.data(), static_cast<size_t>(n)));
    if (::symlinkat(text.c_str(), dst.dir, dst.name.c_str()) != 0) fail(dst.path, "symlink", errno);
    made = true;
}

// The regular file open at `in`, described by `st`, into a fresh file at `dst`.
void copyOpenFile(int in, const struct stat& st, const Entry& dst, bool& made) {
    UniqueFd out(::openat(dst.dir, dst.name.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC,
                          S_IRUSR | S_IWUSR));
    if (!out) fail(dst.path, "copy", errno);
    made = true;
    int err = copyData(in, out.get());
    if (err == 0) err = FileTree::copyAttributes(in, out.get());
    if (err == 0 && ::fchmod(out.get(), st.st_mode & 07777) != 0) err = errno;
    const std::array<timespec, 2> times{st.st_atim, st.st_mtim};
    if (err == 0 && ::futimens(out.get(), times.data()) != 0) err = errno;
    if (err != 0) fail(dst.path, "copy", err);
}

void copyFile(const Entry& src, const Entry& dst, bool& made) {
    UniqueFd in(::openat(src.dir, src.name.c_str(), O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC));
    if (!in) fail(dst.path, "copy", errno);
    struct stat st {};
    if (::fstat(in.get(), &st) != 0) fail(dst.path, "copy", errno);
    // The entry changed kind since it was examined.
    if (!S_ISREG(st.st_mode)) fail(src.path, notCopyable, EINVAL);
    copyOpenFile(in.get(), st, dst, made);
}

void copyEntry(const Entry& src, const Entry& dst, bool& made);

// The content of the open folder `in` into the fresh folder made at `dst`.
void copyFolderContent(int in, const std::string& srcPath, const Entry& dst, const struct stat& st) {
    UniqueFd out(::openat(dst.dir, dst.name.c_str(), O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC));
    if (!out) fail(dst.path, "copy attributes", errno);
    const Entry from{in, "", srcPath};
    for (const auto& name : sortedNames(in, srcPath)) {
        bool madeInner = false;  // the top-level cleanup takes it along
        copyEntry(from.child(in, name), dst.child(out.get(), name), madeInner);
    }
    if (const int err = FileTree::copyAttributes(in, out.get()); err != 0) fail(dst.path, "copy attributes", err);
    if (::fchmod(out.get(), st.st_mode & 07777) != 0) fail(dst.path, "chmod", errno);
}

void makeFolder(const Entry& dst, bool& made) {
    if (::mkdirat(dst.dir, dst.name.c_str(), S_IRWXU) != 0) fail(dst.path, "mkdir", errno);
    made = true;
}

void copyEntry(const Entry& src, const Entry& dst, bool& made) {
    struct stat st {};
    if (::fstatat(src.dir, src.name.c_str(), &st, AT_SYMLINK_NOFOLLOW) != 0) fail(src.path, "lstat", errno);
    if (S_ISLNK(st.st_mode)) {
        copyLink(src, dst, made);
    } else if (S_ISDIR(st.st_mode)) {
        makeFolder(dst, made);
        UniqueFd in(::openat(src.dir, src.name.c_str(), O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC));
        if (!in) failListing(src.path, errno);
        copyFolderContent(in.get(), src.path, dst, st);
    } else if (S_ISREG(st.st_mode)) {
        copyFile(src, dst, made);
    } else {
        fail(src.path, notCopyable, EINVAL);
    }
}

// Runs `body` for a destination that must not exist yet, and removes what it
// made there when it fails.
template <class Body>
void intoFreshDestination(const std::string& dst, Body body) {
    struct stat st {};
    if (::lstat(dst.c_str(), &st) == 0) fail(dst, "create", EEXIST);
    bool made = false;
    try {
        body(made);
    } catch (...) {
        // Only what this copy made is removed, never an entry that raced in.
        if (made) (void)FileTree::removeAll(dst);
        throw;
    }
}

std::string describeCopyError(const std::string& path, const std::string& operation, int32_t errnum) {
    return operation + " " + path + ": " + std::strerror(errnum) + " (" + std::to_string(errnum) + ")";
}

}  // namespace

Failure::Failure(std::string path, std::string operation, int32_t errnum)
    : Error(describeCopyError(path, operation, errnum)),
      path(std::move(path)),
      operation(std::move(operation)),
      errnum(errnum) {}

void copy(const std::filesystem::path& from, const std::filesystem::path& to) {
    const Entry dst{AT_FDCWD, to.native(), to.native()};
    intoFreshDestination(dst.path, [&](bool& made) { copyEntry({AT_FDCWD, from.native(), from.native()}, dst, made); });
}

void copyOpened(int fd, const std::string& fromPath, const std::filesystem::path& to) {
    const Entry dst{AT_FDCWD, to.native(), to.native()};
    intoFreshDestination(dst.path, [&](bool& made) {
        struct stat st {};
        if (::fstat(fd, &st) != 0) fail(fromPath, "lstat", errno);
        if (S_ISREG(st.st_mode)) return copyOpenFile(fd, st, dst, made);
        if (!S_ISDIR(st.st_mode)) fail(fromPath, notCopyable, EINVAL);
        makeFolder(dst, made);
        copyFolderContent(fd, fromPath, dst, st);
    });
}

}  // namespace tsl::TreeCopy
