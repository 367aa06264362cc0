#include "TslCore/Support/PathNames.h"

#include <unistd.h>

#include <memory>
#include <vector>

namespace tsl::PathNames {
namespace {

std::string_view withoutTrailingSlashes(std::string_view path) {
    while (path.size() > 1 && path.back() == '/') path.remove_suffix(1);
    return path;
}

std::string currentDirectory() {
    std::unique_ptr<char, decltype(&free)> cwd(getcwd(nullptr, 0), &free);
    return cwd ? std::string(cwd.get()) : std::string("/");
}

}  // namespace

std::string absolutePath(std::string_view path) {
    if (path.starts_with('/')) return std::string(path);
    return path.empty() ? currentDirectory() : appending(currentDirectory(), path);
}

std::string standardizedPath(std::string_view path) {
    const std::string absolute = absolutePath(path);
    std::vector<std::string_view> parts;
    std::string_view rest = absolute;
    while (!rest.empty()) {
        const size_t slash = rest.find('/');
        const std::string_view piece = rest.substr(0, slash);
        rest = slash == std::string_view::npos ? std::string_view{} : rest.substr(slash + 1);
        if (piece.empty() || piece == ".") continue;
        if (piece == "..") {
            if (!parts.empty()) parts.pop_back();
            continue;
        }
        parts.push_back(piece);
    }
    std::string out;
    for (const auto& piece : parts) {
        out += '/';
        out += piece;
    }
    return out.empty() ? "/" : out;
}

std::string urlPath(std::string_view path) { return std::string(withoutTrailingSlashes(path)); }

std::string lastComponent(std::string_view path) {
    path = withoutTrailingSlashes(path);
    if (path == "/") return "/";
    const size_t slash = path.rfind('/');
    return std::string(slash == std::string_view::npos ? path : path.substr(slash + 1));
}

std::string deletingLastComponent(std::string_view path) {
    path = withoutTrailingSlashes(path);
    const size_t slash = path.rfind('/');
    if (slash == std::string_view::npos) return ".";
    if (slash == 0) return "/";
    return std::string(withoutTrailingSlashes(path.substr(0, slash)));
}

std::string extension(std::string_view name) {
    const std::string last = lastComponent(name);
    const size_t dot = last.rfind('.');
    if (dot == std::string::npos || dot == 0) return {};
    return last.substr(dot + 1);
}

std::string stem(std::string_view path) {
    const std::string last = lastComponent(path);
    const std::string ext = extension(last);
    return ext.empty() ? last : last.substr(0, last.size() - ext.size() - 1);
}

std::string appending(std::string_view base, std::string_view name) {
    std::string out(base);
    if (out.empty() || out.back() != '/') out += '/';
    out += name;
    return out;
}

}  // namespace tsl::PathNames
