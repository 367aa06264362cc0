#include "TesselHost/HostText.h"

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>

#include "TslCore/Support/UniqueFd.h"

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

std::optional<std::string> readFile(const std::string& path, size_t limit) {
    UniqueFd fd(::open(path.c_str(), O_RDONLY | O_CLOEXEC));
    if (!fd) return std::nullopt;
    std::string out;
    char buffer[65536];
    while (out.size() < limit) {
        const ssize_t n = ::read(fd.get(), buffer, std::min(sizeof buffer, limit - out.size()));
        if (n < 0 && errno == EINTR) continue;
        if (n < 0) return std::nullopt;
        if (n == 0) break;
        out.append(buffer, static_cast<size_t>(n));
    }
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
