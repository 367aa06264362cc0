#include "TslCore/Support/PhysicalPath.h"

#include <sys/stat.h>

#include <deque>
#include <filesystem>
#include <vector>

#include "TslCore/Support/PathNames.h"

namespace tsl::PhysicalPath {
namespace {

namespace fs = std::filesystem;

constexpr int linkLimit = 40;

std::vector<fs::path> components(const fs::path& path) {
    const fs::path relative = path.relative_path();
    return {relative.begin(), relative.end()};
}

}  // namespace

std::string resolved(const std::string& path) {
    const auto parts = components(PathNames::absolutePath(path));
    std::deque<fs::path> pending(parts.begin(), parts.end());
    fs::path walked = "/";
    int links = 0;
    while (!pending.empty()) {
        fs::path component = std::move(pending.front());
        pending.pop_front();
        if (component.empty() || component == ".") continue;
        if (component == "..") {
            walked = walked.parent_path();
            continue;
        }
        fs::path candidate = walked / component;
        struct stat st {};
        const bool exists = ::lstat(candidate.c_str(), &st) == 0;
        if (!exists || !S_ISLNK(st.st_mode)) {
            walked = std::move(candidate);
            if (!exists) break;
            continue;
        }
        std::error_code ec;
        const fs::path target = fs::read_symlink(candidate, ec);
        if (ec || ++links > linkLimit) {  // unreadable, or a loop: resolve no further
            walked = std::move(candidate);
            break;
        }
        if (target.is_absolute()) walked = "/";
        const auto targetParts = components(target);
        pending.insert(pending.begin(), targetParts.begin(), targetParts.end());
    }
    for (const auto& rest : pending) walked /= rest;
    return PathNames::standardizedPath(walked.native());
}

}  // namespace tsl::PhysicalPath
