#pragma once
#include <cstdint>
#include <filesystem>
#include <string>

#include "TslCore/Support/Error.h"

namespace tsl::TreeCopy {

// One failed step of a copy. `errnum` is the system's error number (the
// name `errno` is taken by the C library's macro).
struct Failure : Error {
    Failure(std::string path, std::string operation, int32_t errnum);

    std::string path;
    std::string operation;
    int32_t errnum;
    bool operator==(const Failure& other) const {
        return path == other.path && operation == other.operation && errnum == other.errnum;
    }
};

// Copies the tree at `from` to `to`, which must not exist (not even as a
// dangling link). Links are copied as links with their text unchanged and
// never followed; folders stay owner-only until their content is complete;
// files keep data, mode, times and extended attributes. Anything else (a
// pipe, a socket, a device) ends the copy. On any failure nothing is left at
// `to`. Throws Failure, or std::filesystem::filesystem_error for a folder
// that can't be listed.
void copy(const std::filesystem::path& from, const std::filesystem::path& to);

// The same for the folder or file open at `fd`, which the caller reached
// without following links and still owns; `fromPath` names it in failures.
// Everything below it is reached through descriptors, so no link swapped in
// during the copy leads the copy out of that folder.
void copyOpened(int fd, const std::string& fromPath, const std::filesystem::path& to);

}  // namespace tsl::TreeCopy
