// tessel scan [ROOT...]: which applications need an Intel Mac.
#include <CLI/CLI.hpp>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <iostream>
#include <memory>
#include <nlohmann/json.hpp>
#include <string>
#include <vector>

#include "TesselHost/Commands.h"
#include "TslCore/Scanner/AppScanner.h"
#include "TslCore/Scanner/ScannerJSON.h"

namespace tsl::host {
namespace {

struct ScanArguments {
    std::vector<std::string> roots;
    int maxDepth = 2;
    bool includeApple = false;
    bool json = false;
};

const char* heading(ArchClass archClass) {
    switch (archClass) {
        case ArchClass::intelOnly: return "Intel-only (needs the virtual Mac)";
        case ArchClass::universal: return "Universal";
        case ArchClass::appleSilicon: return "Apple silicon";
        case ArchClass::legacy32bit: return "32-bit (runs nowhere today)";
        case ArchClass::unknown: return "Unknown";
    }
    return "";
}

// Columns are counted in code points, which is what a terminal shows for
// the names found in practice.
size_t displayWidth(const std::string& text) {
    return static_cast<size_t>(
        std::count_if(text.begin(), text.end(), [](char c) { return (static_cast<unsigned char>(c) & 0xC0) != 0x80; }));
}

std::string padded(const std::string& text, size_t width) {
    const size_t w = displayWidth(text);
    return w >= width ? text : text + std::string(width - w, ' ');
}

std::string archList(const AppBundleInfo& app) {
    if (app.archs.empty()) return "-";
    std::string out;
    for (const auto& arch : app.archs) out += (out.empty() ? "" : ",") + arch.description();
    return out;
}

void printTable(const AppScanner::Report& report) {
    std::printf("%zu applications", report.apps.size());
    for (const ArchClass c : allArchClasses)
        if (const size_t n = report.count(c))
            std::printf("%s %s %zu", c == allArchClasses[0] ? ":" : ",", std::string(toString(c)).c_str(), n);
    std::printf("\n");
    for (const ArchClass c : allArchClasses) {
        std::vector<const AppBundleInfo*> group;
        for (const auto& app : report.apps)
            if (app.archClass == c) group.push_back(&app);
        if (group.empty()) continue;
        size_t nameWidth = 0, versionWidth = 0, archWidth = 0;
        for (const auto* app : group) {
            nameWidth = std::max(nameWidth, displayWidth(app->name));
            versionWidth = std::max(versionWidth, displayWidth(app->version.value_or("-")));
            archWidth = std::max(archWidth, archList(*app).size());
        }
        std::printf("\n%s: %zu\n", heading(c), group.size());
        for (const auto* app : group) {
            std::printf("  %s  %s  %s  %s\n", padded(app->name, nameWidth).c_str(),
                        padded(app->version.value_or("-"), versionWidth).c_str(),
                        padded(archList(*app), archWidth).c_str(), app->path.c_str());
        }
    }
}

// Counts bundles on standard error, at most ten times a second, when it is a
// terminal; the line is wiped when the scan ends.
class ProgressLine {
public:
    ProgressLine() : _active(::isatty(STDERR_FILENO) == 1) {}
    ~ProgressLine() {
        if (_shown) std::fprintf(stderr, "\r\033[K");
    }
    AppScanner::Progress callback() {
        if (!_active) return {};
        return [this](size_t read, const AppBundleInfo&) {
            const auto now = std::chrono::steady_clock::now();
            if (_shown && now - _last < std::chrono::milliseconds(100)) return;
            _last = now;
            _shown = true;
            std::fprintf(stderr, "\rScanning… %zu applications", read);
        };
    }

private:
    bool _active;
    bool _shown = false;
    std::chrono::steady_clock::time_point _last{};
};

int runScan(const ScanArguments& args) {
    AppScanner scanner;
    if (args.roots.empty()) {
        scanner.options.roots = AppScanner::defaultRoots();
    } else {
        scanner.options.roots.assign(args.roots.begin(), args.roots.end());
    }
    scanner.options.maxDepth = args.maxDepth;
    scanner.options.includeApple = args.includeApple;
    AppScanner::Report report;
    {
        ProgressLine progress;
        report = scanner.scan(progress.callback());
    }
    if (args.json) {
        const nlohmann::json j = report;
        std::cout << j.dump(2, ' ', false, nlohmann::json::error_handler_t::replace) << '\n';
    } else {
        printTable(report);
    }
    std::cout.flush();
    return std::ferror(stdout) ? 1 : 0;
}

}  // namespace

void addScanCommand(CLI::App& app, int& exitCode) {
    auto args = std::make_shared<ScanArguments>();
    CLI::App* scan = app.add_subcommand("scan", "List applications and the processors they are built for");
    scan->add_option("roots", args->roots,
                     "Folders to walk (default: /Applications, /Applications/Utilities, ~/Applications)");
    scan->add_option("--max-depth", args->maxDepth, "Levels of folders to look at; 1 = a root's direct children")
        ->check(CLI::Range(1, 64))
        ->capture_default_str();
    scan->add_flag("--include-apple", args->includeApple, "Also list applications whose identifier begins com.apple.");
    scan->add_flag("--json", args->json, "Print the report as JSON");
    scan->callback([args, &exitCode] { exitCode = runScan(*args); });
}

}  // namespace tsl::host
