#include "TesselHost/HostText.h"

#include <unistd.h>

#include <algorithm>
#include <cstdio>

namespace tsl::host {

size_t displayWidth(const std::string& text) {
    return static_cast<size_t>(
        std::count_if(text.begin(), text.end(), [](char c) { return (static_cast<unsigned char>(c) & 0xC0) != 0x80; }));
}

std::string padded(const std::string& text, size_t width) {
    const size_t w = displayWidth(text);
    return w >= width ? text : text + std::string(width - w, ' ');
}

StatusLine::StatusLine() : _active(::isatty(STDERR_FILENO) == 1) {}

StatusLine::~StatusLine() {
    if (_shown) std::fprintf(stderr, "\r\033[K");
}

void StatusLine::show(const std::string& text) {
    if (!_active) return;
    const auto now = std::chrono::steady_clock::now();
    if (_shown && now - _last < std::chrono::milliseconds(100)) return;
    _last = now;
    _shown = true;
    std::fprintf(stderr, "\r\033[K%s", text.c_str());
    std::fflush(stderr);
}

std::vector<std::filesystem::path> absoluteRoots(const std::vector<std::string>& roots) {
    std::vector<std::filesystem::path> out;
    for (const std::string& root : roots) out.push_back(std::filesystem::absolute(root));
    return out;
}

std::string byteCount(unsigned long long bytes) {
    char text[32];
    if (bytes >= 1000ull * 1000 * 1000) std::snprintf(text, sizeof text, "%.1f GB", double(bytes) / 1e9);
    else if (bytes >= 1000ull * 1000) std::snprintf(text, sizeof text, "%.1f MB", double(bytes) / 1e6);
    else if (bytes >= 1000) std::snprintf(text, sizeof text, "%.0f KB", double(bytes) / 1e3);
    else std::snprintf(text, sizeof text, "%llu bytes", bytes);
    return text;
}

}  // namespace tsl::host
