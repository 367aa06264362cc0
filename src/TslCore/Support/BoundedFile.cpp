#include "TslCore/Support/BoundedFile.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>

#include "TslCore/Support/UniqueFd.h"

namespace tsl {
namespace {

class RefusalCategory : public std::error_category {
public:
    const char* name() const noexcept override { return "file refusal"; }
    std::string message(int value) const override {
        switch (FileRefusal(value)) {
            case FileRefusal::notRegularFile: return "not a regular file: a device, a pipe or a socket";
            case FileRefusal::tooLarge: return "larger than its limit";
        }
        return "refused";
    }
};

std::error_code systemError(int error) { return {error, std::generic_category()}; }

// Up to limit + 1 bytes from where the descriptor stands.
std::error_code readUpTo(int fd, size_t limit, std::string& into) {
    char buffer[65536];
    while (into.size() <= limit) {
        const size_t want = std::min(sizeof buffer, limit + 1 - into.size());
        const ssize_t n = ::read(fd, buffer, want);
        if (n < 0 && errno == EINTR) continue;
        if (n < 0) return systemError(errno);
        if (n == 0) return {};
        into.append(buffer, size_t(n));
    }
    return FileRefusal::tooLarge;
}

}  // namespace

std::string fileErrorText(std::error_code code, size_t limit) {
    if (code == FileRefusal::tooLarge && limit > 0) return "larger than " + std::to_string(limit) + " bytes";
    if (code == std::errc::is_a_directory) return "a folder, not a file";
    return code.message();
}

const std::error_category& fileRefusalCategory() {
    static const RefusalCategory category;
    return category;
}

std::error_code make_error_code(FileRefusal refusal) { return {int(refusal), fileRefusalCategory()}; }

FileReadError::FileReadError(const std::filesystem::path& path, std::error_code code, size_t limit)
    : Error(path.string() + ": " + fileErrorText(code, limit)), _code(code) {}

BoundedFile BoundedFile::read(const std::filesystem::path& path, size_t limit) {
    UniqueFd fd(::open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK | O_NOCTTY));
    struct stat st {};
    if (!fd || ::fstat(fd.get(), &st) != 0) throw FileReadError(path, systemError(errno), limit);
    if (S_ISDIR(st.st_mode)) throw FileReadError(path, systemError(EISDIR), limit);
    if (!S_ISREG(st.st_mode)) throw FileReadError(path, FileRefusal::notRegularFile, limit);
    if (st.st_size < 0 || uint64_t(st.st_size) > limit) throw FileReadError(path, FileRefusal::tooLarge, limit);
    BoundedFile file;
    file.device = st.st_dev;
    file.inode = st.st_ino;
    file.bytes.reserve(size_t(st.st_size));
    if (const auto error = readUpTo(fd.get(), limit, file.bytes)) throw FileReadError(path, error, limit);
    return file;
}

std::optional<std::string> BoundedFile::bytesOf(const std::filesystem::path& path, size_t limit) {
    try {
        return read(path, limit).bytes;
    } catch (const FileReadError&) {
        return std::nullopt;
    }
}

std::string BoundedFile::readStream(int fd, const std::string& name, size_t limit) {
    std::string bytes;
    if (const auto error = readUpTo(fd, limit, bytes)) throw FileReadError(name, error, limit);
    return bytes;
}

}  // namespace tsl
