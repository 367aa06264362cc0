#include "TslCore/Support/AtomicFile.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <cstring>
#include <filesystem>

#include "TslCore/Support/Error.h"
#include "TslCore/Support/UniqueFd.h"

namespace tsl {
namespace {

[[noreturn]] void fail(const std::string& step, const std::string& path, int error) {
    throw Error("cannot " + step + " " + path + ": " + std::strerror(error));
}

std::string folderOf(const std::string& path) {
    auto slash = path.rfind('/');
    if (slash == std::string::npos) return ".";
    return slash == 0 ? "/" : path.substr(0, slash);
}

}  // namespace

void writeFileAtomically(const std::string& path, std::string_view bytes, mode_t mode) {
    std::string folder = folderOf(path);
    std::string temp = atomicTemporaryPrefix(path) + "XXXXXX";
    UniqueFd fd(::mkostemp(temp.data(), O_CLOEXEC));
    if (!fd) fail("create a file beside", path, errno);
    auto cleanUp = [&](const std::string& step) {
        int error = errno;
        ::unlink(temp.c_str());
        fail(step, path, error);
    };
    if (::fchmod(fd.get(), mode) != 0) cleanUp("set the mode of");
    const char* p = bytes.data();
    size_t left = bytes.size();
    while (left > 0) {
        ssize_t n = ::write(fd.get(), p, left);
        if (n < 0 && errno == EINTR) continue;
        if (n <= 0) cleanUp("write");
        p += n;
        left -= size_t(n);
    }
    if (::fsync(fd.get()) != 0) cleanUp("flush");
    fd.reset();
    if (::rename(temp.c_str(), path.c_str()) != 0) cleanUp("replace");
    UniqueFd dir(::open(folder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    if (dir) ::fsync(dir.get());
}

void sweepAtomicTemporaries(const std::string& folder, const std::vector<std::string>& fileNames) {
    namespace fs = std::filesystem;
    std::error_code ec;
    const auto stale = fs::file_time_type::clock::now() - std::chrono::minutes(1);
    for (fs::directory_iterator it(folder, ec), end; !ec && it != end; it.increment(ec)) {
        const std::string name = it->path().filename().string();
        bool temporary = false;
        for (const std::string& file : fileNames) temporary = temporary || name.starts_with(atomicTemporaryPrefix(file));
        std::error_code timeError;
        if (temporary && it->last_write_time(timeError) < stale && !timeError) fs::remove(it->path(), timeError);
    }
}

}  // namespace tsl
