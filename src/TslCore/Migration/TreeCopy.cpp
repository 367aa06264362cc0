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

void copyLink(const std::string& src, const std::string& dst, bool& made) {
    std::array<char, 1024> buffer{};
    const ssize_t n = ::readlink(src.c_str(), buffer.data(), buffer.size());
    if (n < 0) fail(src, "readlink", errno);
    const std::string text = repairedUtf8(std::string_view(buffer.data(), static_cast<size_t>(n)));
    if (::symlink(text.c_str(), dst.c_str()) != 0) fail(dst, "symlink", errno);
    made = true;
}

void copyFile(const std::string& src, const std::string& dst, bool& made) {
    UniqueFd in(::open(src.c_str(), O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC));
    if (!in) fail(dst, "copy", errno);
    struct stat st {};
    if (::fstat(in.get(), &st) != 0) fail(dst, "copy", errno);
    // The entry changed kind since it was examined.
    if (!S_ISREG(st.st_mode)) fail(src, notCopyable, EINVAL);
    UniqueFd out(::open(dst.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, S_IRUSR | S_IWUSR));
    if (!out) fail(dst, "copy", errno);
    made = true;
    int err = copyData(in.get(), out.get());
    if (err == 0) err = FileTree::copyAttributes(in.get(), out.get());
    if (err == 0 && ::fchmod(out.get(), st.st_mode & 07777) != 0) err = errno;
    const std::array<timespec, 2> times{st.st_atim, st.st_mtim};
    if (err == 0 && ::futimens(out.get(), times.data()) != 0) err = errno;
    if (err != 0) fail(dst, "copy", err);
}

void copyEntry(const std::string& src, const std::string& dst, bool& made);

void copyFolder(const std::string& src, const std::string& dst, const struct stat& st, bool& made) {
    if (::mkdir(dst.c_str(), S_IRWXU) != 0) fail(dst, "mkdir", errno);
    made = true;
    UniqueFd in(::open(src.c_str(), O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC));
    if (!in) failListing(src, errno);
    for (const auto& name : sortedNames(in.get(), src)) {
        bool madeInner = false;  // the top-level cleanup takes it along
        copyEntry(src + "/" + name, dst + "/" + name, madeInner);
    }
    UniqueFd out(::open(dst.c_str(), O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC));
    if (!out) fail(dst, "copy attributes", errno);
    if (const int err = FileTree::copyAttributes(in.get(), out.get()); err != 0) fail(dst, "copy attributes", err);
    if (::fchmod(out.get(), st.st_mode & 07777) != 0) fail(dst, "chmod", errno);
}

void copyEntry(const std::string& src, const std::string& dst, bool& made) {
    struct stat st {};
    if (::lstat(src.c_str(), &st) != 0) fail(src, "lstat", errno);
    if (S_ISLNK(st.st_mode)) {
        copyLink(src, dst, made);
    } else if (S_ISDIR(st.st_mode)) {
        copyFolder(src, dst, st, made);
    } else if (S_ISREG(st.st_mode)) {
        copyFile(src, dst, made);
    } else {
        fail(src, notCopyable, EINVAL);
    }
}

std::string describe(const std::string& path, const std::string& operation, int32_t errnum) {
    return operation + " " + path + ": " + std::strerror(errnum) + " (" + std::to_string(errnum) + ")";
}

}  // namespace

Failure::Failure(std::string path, std::string operation, int32_t errnum)
    : Error(describe(path, operation, errnum)),
      path(std::move(path)),
      operation(std::move(operation)),
      errnum(errnum) {}

void copy(const std::filesystem::path& from, const std::filesystem::path& to) {
    const std::string src = from.native();
    const std::string dst = to.native();
    struct stat st {};
    if (::lstat(dst.c_str(), &st) == 0) fail(dst, "create", EEXIST);
    bool made = false;
    try {
        copyEntry(src, dst, made);
    } catch (...) {
        // Only what this copy made is removed, never an entry that raced in.
        if (made) (void)FileTree::removeAll(dst);
        throw;
    }
}

}  // namespace tsl::TreeCopy
