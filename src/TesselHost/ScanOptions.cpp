#include "TesselHost/ScanOptions.h"

#include <CLI/CLI.hpp>

#include "TesselHost/HostText.h"
#include "TslCore/Support/Localized.h"

namespace tsl::host {

void ScanOptions::addTo(CLI::App& command) {
    command.add_option("roots", roots,
                       "Folders to walk (default: /Applications, /Applications/Utilities, ~/Applications)");
    command.add_option("--max-depth", maxDepth, "Levels of folders to look at; 1 = a root's direct children")
        ->check(CLI::Range(1, 64))
        ->capture_default_str();
    command.add_flag("--include-apple", includeApple, "Also list applications whose identifier begins com.apple.");
}

AppScanner::Report ScanOptions::scan() const {
    AppScanner scanner;
    scanner.options.roots = roots.empty() ? AppScanner::defaultRoots() : absoluteRoots(roots);
    scanner.options.maxDepth = maxDepth;
    scanner.options.includeApple = includeApple;
    StatusLine line;
    AppScanner::Progress progress;
    if (line.active())
        progress = [&line](size_t read, const AppBundleInfo&) {
            line.show(L("Scanning… %@ applications", {std::to_string(read)}));
        };
    return scanner.scan(progress);
}

}  // namespace tsl::host
