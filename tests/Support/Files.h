#pragma once
#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>

// Small file-system helpers for tests that build trees in a TempDir.
namespace tsl::test {

inline void writeFile(const std::filesystem::path& p, const std::string& bytes) {
    std::filesystem::create_directories(p.parent_path());
    std::ofstream(p, std::ios::binary) << bytes;
}

inline std::string readFile(const std::filesystem::path& p) {
    std::ifstream in(p, std::ios::binary);
    return {std::istreambuf_iterator<char>(in), {}};
}

// Whether anything stands at `p`, a dangling link included.
inline bool entryExists(const std::filesystem::path& p) {
    struct stat st {};
    return ::lstat(p.c_str(), &st) == 0;
}

inline mode_t modeOf(const std::filesystem::path& p) {
    struct stat st {};
    return ::lstat(p.c_str(), &st) == 0 ? st.st_mode : 0;
}

inline std::string linkText(const std::filesystem::path& p) {
    char buffer[4096];
    const ssize_t n = ::readlink(p.c_str(), buffer, sizeof buffer);
    return n < 0 ? std::string() : std::string(buffer, static_cast<size_t>(n));
}

}  // namespace tsl::test
