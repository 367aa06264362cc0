// tessel scan [ROOT...]: which applications need an Intel Mac.
#include <CLI/CLI.hpp>

#include <algorithm>
#include <cstdio>
#include <iostream>
#include <memory>
#include <nlohmann/json.hpp>
#include <string>
#include <vector>

#include "TesselHost/Commands.h"
#include "TesselHost/HostText.h"
#include "TesselHost/ScanOptions.h"
#include "TslCore/Scanner/AppScanner.h"
#include "TslCore/Scanner/ScannerJSON.h"
#include "TslCore/Support/Localized.h"

namespace tsl::host {
namespace {

struct ScanArguments {
    ScanOptions walk;
    bool json = false;
};

std::string heading(ArchClass archClass, size_t count) {
    const std::string n = std::to_string(count);
    switch (archClass) {
        case ArchClass::intelOnly: return L("Intel-only (needs the virtual Mac): %@", {n});
        case ArchClass::universal: return L("Universal: %@", {n});
        case ArchClass::appleSilicon: return L("Apple silicon: %@", {n});
        case ArchClass::legacy32bit: return L("32-bit (runs nowhere today): %@", {n});
        case ArchClass::unknown: return L("Unknown: %@", {n});
    }
    return "";
}

std::string archList(const AppBundleInfo& app) {
    if (app.archs.empty()) return "-";
    std::string out;
    for (const auto& arch : app.archs) out += (out.empty() ? "" : ",") + arch.description();
    return out;
}

void printScanTable(const AppScanner::Report& report) {
    std::printf("%s", L("%@ applications", {std::to_string(report.apps.size())}).c_str());
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
        std::printf("\n%s\n", heading(c, group.size()).c_str());
        for (const auto* app : group) {
            std::printf("  %s  %s  %s  %s\n", padded(app->name, nameWidth).c_str(),
                        padded(app->version.value_or("-"), versionWidth).c_str(),
                        padded(archList(*app), archWidth).c_str(), app->path.c_str());
        }
    }
}

ExitStatus runScan(const ScanArguments& args) {
    const AppScanner::Report report = args.walk.scan();
    if (args.json) printJSON(report);
    else printScanTable(report);
    return ExitStatus::success;
}

}  // namespace

void addScanCommand(CLI::App& app, ExitStatus& status) {
    auto args = std::make_shared<ScanArguments>();
    CLI::App* scan = app.add_subcommand("scan", "List applications and the processors they are built for");
    args->walk.addTo(*scan);
    scan->add_flag("--json", args->json, "Print the report as JSON");
    setAction(scan, status, [args] { return runScan(*args); });
}

}  // namespace tsl::host
