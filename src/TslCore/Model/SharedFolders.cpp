#include "TslCore/Model/SharedFolders.h"

#include <sys/stat.h>

#include <algorithm>
#include <array>
#include <nlohmann/json.hpp>
#include <set>

#include "TslCore/Migration/SafePaths.h"
#include "TslCore/Support/JSONFields.h"
#include "TslCore/Support/PathNames.h"
#include "TslCore/Support/UnicodeText.h"
#include "TslCore/Support/Utf8.h"

namespace tsl {

template <class V, JSONFields::Is<SharedFolder> R>
void fields(V& v, R& r) {
    v("hostPath", r.hostPath);
    v("name", r.name);
}

void to_json(nlohmann::json& j, const SharedFolder& folder) { j = JSONFields::toJSON(folder); }

void from_json(const nlohmann::json& j, SharedFolder& folder) { JSONFields::decodeAsLibrary(j, folder); }

namespace SharedFolders {
namespace {

constexpr std::array<std::string_view, 10> systemFolders{"/System", "/Library", "/usr",  "/bin",   "/sbin",
                                                         "/private", "/Applications", "/opt", "/cores", "/dev"};

// Strictly inside: the root followed by "/", so a sibling sharing the root's
// name as a prefix stays outside.
bool isInside(std::string_view path, std::string_view root) {
    if (root == "/") return path != "/";
    return path.size() > root.size() && path.starts_with(root) && path[root.size()] == '/';
}

bool isAtOrInside(std::string_view path, std::string_view root) { return path == root || isInside(path, root); }

bool overlap(std::string_view a, std::string_view b) { return a == b || isInside(a, b) || isInside(b, a); }

std::vector<std::string_view> pieces(std::string_view path) {
    std::vector<std::string_view> out;
    while (!path.empty()) {
        const size_t slash = path.find('/');
        const std::string_view piece = path.substr(0, slash);
        if (!piece.empty()) out.push_back(piece);
        if (slash == std::string_view::npos) break;
        path.remove_prefix(slash + 1);
    }
    return out;
}

bool isFolder(std::string_view path) {
    struct stat st {};
    return ::stat(std::string(path).c_str(), &st) == 0 && S_ISDIR(st.st_mode);
}

bool anyHidden(const std::vector<std::string_view>& list) {
    for (const auto piece : list)
        if (piece.starts_with('.')) return true;
    return false;
}

std::string trimmedWhitespace(std::string_view text) {
    size_t at = 0, first = std::string_view::npos, end = 0;
    while (at < text.size()) {
        const size_t before = at;
        const auto c = readUtf8Scalar(text, at);
        if (!c) {
            if (first == std::string_view::npos) first = before;
            at = before + 1;
            end = at;
            continue;
        }
        if (isUnicodeWhitespace(*c)) continue;
        if (first == std::string_view::npos) first = before;
        end = at;
    }
    return first == std::string_view::npos ? std::string() : std::string(text.substr(first, end - first));
}

std::string derivedName(const std::string& resolved) {
    std::string name = PathNames::lastComponent(resolved);
    for (char& c : name)
        if (c == '/' || c == ':') c = '-';
    name = trimmedWhitespace(name);
    if (name.empty() || name.starts_with('.')) return "Folder";
    return name;
}

}  // namespace

std::string_view toString(Rejection rejection) {
    switch (rejection) {
        case Rejection::notAFolder: return "notAFolder";
        case Rejection::homeFolder: return "homeFolder";
        case Rejection::library: return "library";
        case Rejection::hidden: return "hidden";
        case Rejection::system: return "system";
        case Rejection::tesselData: return "tesselData";
    }
    return "";
}

std::vector<std::string> defaultPaths(const std::filesystem::path& home) {
    std::vector<std::string> out;
    for (const char* name : {"Documents", "Desktop", "Downloads"})
        out.push_back(PathNames::appending(PathNames::urlPath(home.native()), name));
    return out;
}

std::optional<Rejection> rejection(std::string_view path, const std::filesystem::path& home,
                                   const std::vector<std::string>& protectedPaths) {
    if (!path.starts_with('/') || !isFolder(path)) return Rejection::notAFolder;
    const std::string resolved = SafePaths::resolvedPath(path);
    for (const auto& data : protectedPaths)
        if (overlap(SafePaths::resolvedPath(data), resolved)) return Rejection::tesselData;

    const std::string homePath = SafePaths::resolvedPath(home.native());
    if (resolved == homePath) return Rejection::homeFolder;
    if (isInside(resolved, homePath)) {
        if (isAtOrInside(resolved, PathNames::appending(homePath, "Library"))) return Rejection::library;
        if (isAtOrInside(resolved, PathNames::appending(homePath, "Applications"))) return Rejection::system;
        const std::string_view below = std::string_view(resolved).substr(homePath == "/" ? 0 : homePath.size());
        return anyHidden(pieces(below)) ? std::optional(Rejection::hidden) : std::nullopt;
    }

    if (resolved == "/" || resolved == "/Users" || resolved == "/Volumes") return Rejection::system;
    for (const auto folder : systemFolders)
        if (isAtOrInside(resolved, folder)) return Rejection::system;
    const auto list = pieces(resolved);
    if (list.size() == 2 && list[0] == "Volumes") return Rejection::system;  // a volume's root
    if (list.size() >= 2 && list[0] == "Users") return Rejection::system;    // another user's home
    for (const auto piece : list)
        if (piece == "Backups.backupdb" || piece.ends_with(".backup") || piece.ends_with(".sparsebundle"))
            return Rejection::system;
    return anyHidden(list) ? std::optional(Rejection::hidden) : std::nullopt;
}

std::vector<SharedFolder> entries(const std::vector<std::string>& userFolders,
                                  const std::filesystem::path& tesselShare,
                                  const std::map<std::string, std::string>& names,
                                  const std::vector<std::string>& protectedPaths, const std::filesystem::path& home) {
    std::vector<SharedFolder> result{{std::string(tesselEntryName), SafePaths::resolvedPath(tesselShare.native())}};
    std::set<std::string> used{lowercased(tesselEntryName)};
    for (const auto& [path, name] : names) used.insert(lowercased(name));

    std::vector<std::string> accepted;
    for (const auto& path : userFolders) {
        if (rejection(path, home, protectedPaths)) continue;
        const std::string resolved = SafePaths::resolvedPath(path);
        bool covered = false;
        for (const auto& wider : accepted) covered = covered || isAtOrInside(resolved, wider);
        if (covered) continue;
        // The new folder covers narrower ones already taken; their names stay used.
        std::erase_if(accepted, [&](const std::string& p) { return isInside(p, resolved); });
        result.erase(std::remove_if(result.begin() + 1, result.end(),
                                    [&](const SharedFolder& f) { return isInside(f.hostPath, resolved); }),
                     result.end());
        accepted.push_back(resolved);

        auto pinned = names.find(resolved);
        if (pinned == names.end()) pinned = names.find(path);
        if (pinned != names.end()) {
            result.push_back({pinned->second, resolved});
            continue;
        }
        const std::string base = derivedName(resolved);
        std::string name = base;
        for (int n = 2; used.contains(lowercased(name)); ++n) name = base + " " + std::to_string(n);
        used.insert(lowercased(name));
        result.push_back({name, resolved});
    }
    return result;
}

std::optional<SharedFolder> folder(const std::filesystem::path& containing, const std::vector<SharedFolder>& in) {
    const std::string resolved = SafePaths::resolvedPath(containing.native());
    for (const auto& f : in)
        if (isAtOrInside(resolved, f.hostPath)) return f;
    return std::nullopt;
}

std::optional<std::string> guestPath(const std::filesystem::path& forHost, const std::vector<SharedFolder>& in,
                                     std::string_view mountPoint) {
    const std::string resolved = SafePaths::resolvedPath(forHost.native());
    for (const auto& f : in) {
        if (!isAtOrInside(resolved, f.hostPath)) continue;
        const std::string_view tail =
            f.hostPath == "/" ? std::string_view(resolved).substr(resolved == "/" ? 1 : 0)
                              : std::string_view(resolved).substr(f.hostPath.size());
        std::string out(mountPoint);
        out += '/';
        out += f.name;
        out += tail;
        return out;
    }
    return std::nullopt;
}

std::optional<std::filesystem::path> hostURL(std::string_view forGuest, const std::vector<SharedFolder>& in,
                                             std::string_view mountPoint) {
    const std::string prefix = std::string(mountPoint) + "/";
    if (!forGuest.starts_with(prefix)) return std::nullopt;
    for (std::string_view rest = forGuest; !rest.empty();) {
        const size_t slash = rest.find('/');
        if (rest.substr(0, slash) == "..") return std::nullopt;
        if (slash == std::string_view::npos) break;
        rest.remove_prefix(slash + 1);
    }
    const std::string_view rest = forGuest.substr(prefix.size());
    const std::string_view name = rest.substr(0, rest.find('/'));
    for (const auto& f : in) {
        if (f.name != name) continue;
        const std::string_view remaining = rest.substr(name.size());
        if (remaining.empty()) return std::filesystem::path(f.hostPath);
        std::string out = f.hostPath == "/" ? std::string() : f.hostPath;
        out += remaining;
        return std::filesystem::path(out);
    }
    return std::nullopt;
}

}  // namespace SharedFolders
}  // namespace tsl
