#include "TslCore/Migration/SafePaths.h"

#include <sys/stat.h>

#include <climits>
#include <cstdlib>
#include <memory>
#include <vector>

#include "TslCore/Support/PathNames.h"

namespace tsl::SafePaths {
namespace {

std::string describeViolation(Violation::Kind kind, const std::string& path) {
    switch (kind) {
        case Violation::Kind::outside: return "path escapes its root: " + path;
        case Violation::Kind::symlink: return "refusing to follow a symlink inside a shared folder: " + path;
    }
    return path;
}

bool isSymlink(const std::string& path, bool& exists) {
    struct stat st {};
    exists = ::lstat(path.c_str(), &st) == 0;
    return exists && S_ISLNK(st.st_mode);
}

}  // namespace

Violation::Violation(Kind kind, std::string path)
    : Error(describeViolation(kind, path)), kind(kind), path(std::move(path)) {}

bool isValidBundleID(std::string_view id) {
    if (id.empty() || id.size() > 255) return false;
    if (id.front() == '.' || id.back() == '.' || id.find("..") != std::string_view::npos) return false;
    for (const char c : id) {
        const bool ok = (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') || c == '.' ||
                        c == '-' || c == '_';
        if (!ok) return false;
    }
    return true;
}

bool isSingleComponent(std::string_view name) {
    return !name.empty() && name.size() < 256 && name.find('/') == std::string_view::npos &&
           name.find('\0') == std::string_view::npos && name.front() != '.';
}

std::string resolvedPath(std::string_view path) {
    const std::string standard = PathNames::standardizedPath(path);
    if (standard == "/") return standard;
    std::string current = standard;
    std::vector<std::string> missing;
    std::unique_ptr<char, decltype(&free)> resolved(nullptr, &free);
    while (true) {
        if (current == "/") return standard;
        resolved.reset(::realpath(current.c_str(), nullptr));
        if (resolved) break;
        missing.push_back(PathNames::lastComponent(current));
        current = PathNames::deletingLastComponent(current);
    }
    std::string result = resolved.get();
    if (missing.empty()) return result;
    if (result == "/") result.clear();
    for (auto it = missing.rbegin(); it != missing.rend(); ++it) {
        result += '/';
        result += *it;
    }
    return result;
}

void checkNoSymlinks(const std::filesystem::path& url, const std::filesystem::path& root) {
    const std::string rootPath = PathNames::standardizedPath(root.native());
    const std::string target = PathNames::standardizedPath(url.native());
    const std::string prefix = rootPath == "/" ? rootPath : rootPath + "/";
    if (target != rootPath && !target.starts_with(prefix)) throw Violation::outside(target);
    bool exists = false;
    if (isSymlink(rootPath, exists)) throw Violation::symlink(rootPath);
    std::string soFar = rootPath == "/" ? std::string{} : rootPath;
    std::string_view rest = std::string_view(target).substr(std::min(target.size(), rootPath.size()));
    while (!rest.empty()) {
        const size_t slash = rest.find('/');
        const std::string_view piece = rest.substr(0, slash);
        rest = slash == std::string_view::npos ? std::string_view{} : rest.substr(slash + 1);
        if (piece.empty()) continue;
        soFar += '/';
        soFar += piece;
        if (isSymlink(soFar, exists)) throw Violation::symlink(soFar);
        if (!exists) return;
    }
}

}  // namespace tsl::SafePaths
