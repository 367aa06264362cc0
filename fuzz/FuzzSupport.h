#pragma once
// Shared by the fuzz targets: a finding is an abort with a reason, so that
// libFuzzer keeps the input that caused it.
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>
#include <string_view>

namespace tsl::fuzz {

[[noreturn]] inline void finding(const char* what) {
    std::fprintf(stderr, "FUZZ FINDING: %s\n", what);
    std::abort();
}

inline void require(bool ok, const char* what) {
    if (!ok) finding(what);
}

// One private folder per process, made on first use and removed at exit;
// targets that need files work only inside it.
inline const std::filesystem::path& scratchDir() {
    static const std::filesystem::path dir = [] {
        std::string tmpl = (std::filesystem::temp_directory_path() / "tsl-fuzz-XXXXXX").string();
        if (!::mkdtemp(tmpl.data())) finding("mkdtemp failed");
        std::filesystem::path p = tmpl;
        std::atexit([] {
            std::error_code ec;
            std::filesystem::remove_all(scratchDir(), ec);
        });
        return p;
    }();
    return dir;
}

// Empties the scratch folder, so that one input's files never meet the next's.
inline void clearScratch() {
    std::error_code ec;
    for (const auto& entry : std::filesystem::directory_iterator(scratchDir(), ec))
        std::filesystem::remove_all(entry.path(), ec);
}

inline void writeFile(const std::filesystem::path& path, const uint8_t* data, size_t size) {
    std::error_code ec;
    if (!std::filesystem::is_directory(path.parent_path(), ec)) std::filesystem::create_directories(path.parent_path());
    std::ofstream out(path, std::ios::binary | std::ios::trunc);
    out.write(reinterpret_cast<const char*>(data), std::streamsize(size));
}

}  // namespace tsl::fuzz
