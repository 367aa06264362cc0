// tessel share check PATH...: which folders may be shared with the guest, and under which names.
#include <CLI/CLI.hpp>

#include <cstdio>
#include <iostream>
#include <memory>
#include <nlohmann/json.hpp>
#include <string>
#include <vector>

#include "TesselHost/Commands.h"
#include "TesselHost/HostText.h"
#include "TslCore/Migration/SafePaths.h"
#include "TslCore/Model/SharedFolders.h"
#include "TslCore/Support/HomeDirectory.h"
#include "TslCore/Support/Localized.h"
#include "TslCore/Support/PathNames.h"

namespace tsl::host {
namespace {

struct ShareArguments {
    std::vector<std::string> paths;
    std::string home;
    std::vector<std::string> protectedPaths;
    bool json = false;
};

std::string reasonText(SharedFolders::Rejection rejection) {
    switch (rejection) {
        case SharedFolders::Rejection::notAFolder: return L("refused: not a folder");
        case SharedFolders::Rejection::homeFolder: return L("refused: the whole home folder; share folders inside it instead");
        case SharedFolders::Rejection::library: return L("refused: the Library folder holds settings and secrets");
        case SharedFolders::Rejection::hidden: return L("refused: a hidden folder");
        case SharedFolders::Rejection::system: return L("refused: a system, volume, other user's or backup location");
        case SharedFolders::Rejection::tesselData: return L("refused: overlaps Tessel’s own data");
    }
    return "";
}

struct Row {
    std::string path;
    std::optional<SharedFolders::Rejection> rejection;
    std::optional<SharedFolder> entry;  // the entry that shows it in the guest
};

ExitStatus runCheck(const ShareArguments& args) {
    const std::string home = !args.home.empty() ? args.home : homeDirectory();
    std::vector<std::string> protectedPaths = args.protectedPaths;
    const std::string data = PathNames::appending(home, "Library/Application Support/Tessel");
    protectedPaths.push_back(data);

    std::vector<std::string> absolute;
    for (const auto& p : args.paths) absolute.push_back(PathNames::standardizedPath(p));
    const auto folders = SharedFolders::entries(absolute, PathNames::appending(data, "Share"), {}, protectedPaths, home);
    const std::vector<SharedFolder> userFolders(folders.begin() + 1, folders.end());

    std::vector<Row> rows;
    bool refused = false;
    for (const auto& path : absolute) {
        Row row{path, SharedFolders::rejection(path, home, protectedPaths), std::nullopt};
        if (!row.rejection) row.entry = SharedFolders::folder(path, userFolders);
        refused = refused || row.rejection;
        rows.push_back(std::move(row));
    }

    if (args.json) {
        nlohmann::json list = nlohmann::json::array();
        for (const auto& row : rows) {
            nlohmann::json j{{"path", row.path}, {"accepted", !row.rejection}};
            if (row.rejection) j["rejection"] = SharedFolders::toString(*row.rejection);
            if (row.entry) {
                j["name"] = row.entry->name;
                j["guestPath"] = SharedFolders::guestPath(row.path, userFolders).value_or("");
            }
            list.push_back(std::move(j));
        }
        printJSON({{"folders", list}});
    } else {
        size_t width = 0;
        for (const auto& row : rows) width = std::max(width, displayWidth(row.path));
        for (const auto& row : rows) {
            std::string verdict;
            if (row.rejection) verdict = reasonText(*row.rejection);
            else if (row.entry && row.entry->hostPath != SafePaths::resolvedPath(row.path))
                verdict = L("shared within \"%@\" as %@", {row.entry->name, *SharedFolders::guestPath(row.path, userFolders)});
            else if (row.entry)
                verdict = L("shared as \"%@\" at %@", {row.entry->name, *SharedFolders::guestPath(row.path, userFolders)});
            std::printf("%s  %s\n", padded(row.path, width).c_str(), verdict.c_str());
        }
    }
    return refused ? ExitStatus::failure : ExitStatus::success;
}

}  // namespace

void addShareCommand(CLI::App& app, ExitStatus& status) {
    auto args = std::make_shared<ShareArguments>();
    CLI::App* share = app.add_subcommand("share", "Shared folders between the host and the guest");
    share->require_subcommand(1);
    CLI::App* check = share->add_subcommand("check", "Say whether folders may be shared, and their names in the guest");
    check->add_option("paths", args->paths, "Folders, in the order they would be shared")->required();
    check->add_option("--home", args->home, "The user's home folder (default: $HOME, else the password database's)");
    check->add_option("--protect", args->protectedPaths, "More folders that must not be shared nor lie in a share");
    check->add_flag("--json", args->json, "Print the result as JSON");
    check->footer("Status 1 also when any folder is refused.");
    setAction(check, status, [args] { return runCheck(*args); });
}

}  // namespace tsl::host
