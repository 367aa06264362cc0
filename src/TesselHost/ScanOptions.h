#pragma once
#include <string>
#include <vector>

#include "TslCore/Scanner/AppScanner.h"

namespace CLI {
class App;
}

namespace tsl::host {

// The walk that `scan` and `compat` both make: which folders, how deep, and
// whether Apple's own applications count.
struct ScanOptions {
    std::vector<std::string> roots;
    int maxDepth = 2;
    bool includeApple = false;

    void addTo(CLI::App& command);
    // Counts applications on the status line while it walks, when standard
    // error is a terminal.
    AppScanner::Report scan() const;
};

}  // namespace tsl::host
