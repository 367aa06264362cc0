#pragma once
#include <filesystem>
#include <string>
#include <string_view>

#include "TslCore/Support/Error.h"

namespace tsl::SafePaths {

// A path that leaves its root or passes through a symbolic link.
struct Violation : Error {
    enum class Kind : uint8_t { outside, symlink };

    Violation(Kind kind, std::string path);
    static Violation outside(std::string path) { return {Kind::outside, std::move(path)}; }
    static Violation symlink(std::string path) { return {Kind::symlink, std::move(path)}; }

    Kind kind;
    std::string path;
    bool operator==(const Violation& other) const { return kind == other.kind && path == other.path; }
};

// Identifiers from the other side: ASCII letters, digits, ".", "-", "_",
// 1 to 255 of them, no leading or trailing dot and no "..".
bool isValidBundleID(std::string_view id);

// One visible path component: 1 to 255 bytes, no "/", no NUL, no leading ".".
bool isSingleComponent(std::string_view name);

// The path with its links resolved as far as they exist; a tail that doesn't
// exist yet is kept as written. Says nothing about where a later write through
// a dangling link would land.
std::string resolvedPath(std::string_view path);

// Throws a Violation when `url` isn't `root` or below it, or when the root or
// an existing component between them is a symbolic link. A test at one moment:
// ShareIO gives the lasting guarantee.
void checkNoSymlinks(const std::filesystem::path& url, const std::filesystem::path& root);

}  // namespace tsl::SafePaths
