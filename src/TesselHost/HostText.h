#pragma once
#include <chrono>
#include <cstddef>
#include <filesystem>
#include <string>
#include <vector>

// Output helpers shared by the host tool's commands.
namespace tsl::host {

// Columns are counted in code points, which is what a terminal shows for
// the names found in practice.
size_t displayWidth(const std::string& text);
std::string padded(const std::string& text, size_t width);

// A line of progress on standard error, redrawn at most ten times a second,
// only when standard error is a terminal; wiped when it goes.
class StatusLine {
public:
    StatusLine();
    ~StatusLine();
    StatusLine(const StatusLine&) = delete;
    StatusLine& operator=(const StatusLine&) = delete;

    bool active() const { return _active; }
    void show(const std::string& text);

private:
    bool _active;
    bool _shown = false;
    std::chrono::steady_clock::time_point _last{};
};

// Folders given on the command line, made absolute as a bundle's URL gives
// paths in a report; links stay as typed.
std::vector<std::filesystem::path> absoluteRoots(const std::vector<std::string>& roots);

// "1.2 MB", "840 KB", "12 bytes".
std::string byteCount(unsigned long long bytes);

}  // namespace tsl::host
