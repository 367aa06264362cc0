// tessel compat [ROOT...] [--db FILE]: which applications to keep, and how they will fare.
#include <CLI/CLI.hpp>

#include <cstdio>
#include <iostream>
#include <memory>
#include <nlohmann/json.hpp>
#include <string>
#include <vector>

#include "TesselHost/Commands.h"
#include "TesselHost/HostText.h"
#include "TesselHost/ScanOptions.h"
#include "TslCore/Compat/CompatAssessor.h"
#include "TslCore/Compat/CompatError.h"
#include "TslCore/Compat/CompatUpdater.h"
#include "TslCore/Scanner/AppScanner.h"
#include "TslCore/Scanner/ScannerJSON.h"
#include "TslCore/Support/BoundedFile.h"

namespace tsl::host {
namespace {

struct CompatArguments {
    ScanOptions walk;
    std::string database;
    bool json = false;
};

struct Assessed {
    const AppBundleInfo* app;
    CompatVerdict verdict;
    CompatGroup group;
};

nlohmann::json verdictJSON(const CompatVerdict& v) {
    nlohmann::json j{{"status", toString(v.status)}, {"likely", v.likely}, {"source", toString(v.source)}};
    if (v.reason) j["reason"] = *v.reason;
    if (v.note) j["note"] = *v.note;
    if (v.vendorURL) j["vendorURL"] = *v.vendorURL;
    if (v.recipe) j["recipe"] = *v.recipe;
    return j;
}

void printGroups(const std::vector<Assessed>& list) {
    nlohmann::json groups = nlohmann::json::array();
    for (const CompatGroup g : allCompatGroups) {
        nlohmann::json apps = nlohmann::json::array();
        for (const auto& a : list) {
            if (a.group != g) continue;
            apps.push_back({{"app", *a.app}, {"verdict", verdictJSON(a.verdict)},
                            {"preselected", CompatAssessor::preselect(g)}});
        }
        groups.push_back({{"group", toString(g)}, {"title", title(g)}, {"subtitle", subtitle(g)}, {"apps", apps}});
    }
    printJSON({{"groups", groups}});
}

std::string badge(const CompatVerdict& v) {
    std::string text(toString(v.status));
    if (v.likely) text += " (likely)";
    if (v.reason) text += ": " + *v.reason;
    return text;
}

void printTable(const std::vector<Assessed>& list) {
    std::printf("%zu applications; * = preselected to keep\n", list.size());
    for (const CompatGroup g : allCompatGroups) {
        std::vector<const Assessed*> group;
        for (const auto& a : list)
            if (a.group == g) group.push_back(&a);
        if (group.empty()) continue;
        size_t nameWidth = 0, versionWidth = 0, badgeWidth = 0;
        for (const auto* a : group) {
            nameWidth = std::max(nameWidth, displayWidth(a->app->name));
            versionWidth = std::max(versionWidth, displayWidth(a->app->version.value_or("-")));
            badgeWidth = std::max(badgeWidth, displayWidth(badge(a->verdict)));
        }
        std::printf("\n%s: %zu\n%s\n", title(g).c_str(), group.size(), subtitle(g).c_str());
        for (const auto* a : group) {
            std::printf("%s %s  %s  %s  %s\n", CompatAssessor::preselect(g) ? "*" : " ",
                        padded(a->app->name, nameWidth).c_str(), padded(a->app->version.value_or("-"), versionWidth).c_str(),
                        padded(badge(a->verdict), badgeWidth).c_str(), a->app->path.c_str());
            if (a->verdict.note && a->verdict.note != a->verdict.reason)
                std::printf("    %s\n", a->verdict.note->c_str());
            if (a->verdict.vendorURL) std::printf("    update: %s\n", a->verdict.vendorURL->c_str());
        }
    }
}

ExitStatus runCompat(const CompatArguments& args) {
    CompatDatabase db;
    if (!args.database.empty()) {
        // A local file is trusted like any file the user names, but no larger than a feed.
        const std::string bytes = BoundedFile::read(args.database, CompatUpdater::maxBytes).bytes;
        try {
            db = CompatDatabase::decode({reinterpret_cast<const uint8_t*>(bytes.data()), bytes.size()});
        } catch (const std::exception& e) {
            throw CommandFailure(args.database + " is no compatibility database: " + e.what());
        }
    }

    const AppScanner::Report report = args.walk.scan();

    std::vector<Assessed> list;
    list.reserve(report.apps.size());
    for (const auto& app : report.apps) {
        auto verdict = CompatAssessor::verdict(app, db);
        const auto group = CompatAssessor::group(app, verdict);
        list.push_back({&app, std::move(verdict), group});
    }
    if (args.json) printGroups(list);
    else printTable(list);
    return ExitStatus::success;
}

}  // namespace

void addCompatCommand(CLI::App& app, ExitStatus& status) {
    auto args = std::make_shared<CompatArguments>();
    CLI::App* compat = app.add_subcommand("compat", "Scan applications and say which to keep and how they will fare");
    args->walk.addTo(*compat);
    compat->add_option("--db", args->database, "Compatibility database to assess against (JSON; default: none)");
    compat->add_flag("--json", args->json, "Print the groups as JSON");
    setAction(compat, status, [args] { return runCompat(*args); });
}

}  // namespace tsl::host
