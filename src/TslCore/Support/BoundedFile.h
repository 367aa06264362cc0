#pragma once
#include <sys/types.h>

#include <cstddef>
#include <filesystem>
#include <optional>
#include <string>
#include <system_error>

#include "TslCore/Support/Error.h"

namespace tsl {

// Why a file was refused beyond what the system says (errno).
enum class FileRefusal { notRegularFile = 1, tooLarge };
const std::error_category& fileRefusalCategory();
std::error_code make_error_code(FileRefusal refusal);

// "a folder, not a file", "larger than 4096 bytes", the system's text.
std::string fileErrorText(std::error_code code, size_t limit = 0);

class FileReadError : public Error {
public:
    FileReadError(const std::filesystem::path& path, std::error_code code, size_t limit);
    // An errno of the generic category, or a FileRefusal.
    std::error_code code() const { return _code; }

private:
    std::error_code _code;
};

// The one way to read a file that someone else may have put there: regular
// files only, opened without waiting (a pipe with no writer does not hang),
// and never more than `limit` bytes: a larger file is refused before it is
// read, and one that grows meanwhile after limit + 1 bytes.
struct BoundedFile {
    std::string bytes;
    // Which file was read, so that a later step can tell it is still the same.
    dev_t device = 0;
    ino_t inode = 0;

    // Throws FileReadError.
    static BoundedFile read(const std::filesystem::path& path, size_t limit);
    // The bytes, or nothing when the file is refused for any reason.
    static std::optional<std::string> bytesOf(const std::filesystem::path& path, size_t limit);
    // Standard input or another open stream, with the same bound. Throws FileReadError.
    static std::string readStream(int fd, const std::string& name, size_t limit);
};

}  // namespace tsl

template <>
struct std::is_error_code_enum<tsl::FileRefusal> : std::true_type {};
