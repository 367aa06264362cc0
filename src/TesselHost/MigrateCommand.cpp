// tessel migrate plan|stage|unstage APP --share DIR: copy an application into the share for the guest.
#include <CLI/CLI.hpp>

#include <condition_variable>
#include <cstdio>
#include <iostream>
#include <memory>
#include <mutex>
#include <nlohmann/json.hpp>
#include <string>
#include <thread>

#include "TesselHost/Commands.h"
#include "TesselHost/HostText.h"
#include "TslCore/Migration/MigrationPlanner.h"
#include "TslCore/Migration/ShareIO.h"
#include "TslCore/Support/HomeDirectory.h"
#include "TslCore/Support/Localized.h"

namespace tsl::host {
namespace {

enum class Action { plan, stage, unstage };

struct MigrateArguments {
    std::string app, share, home;
    bool allowNonIntel = false;
    bool json = false;
};

// Shows how much of the copy has arrived in the work folders while staging.
class StagingProgress {
public:
    StagingProgress(std::filesystem::path work, uint64_t total) : _work(std::move(work)), _total(total) {
        if (!_line.active()) return;
        _thread = std::thread([this] {
            std::unique_lock lock(_mutex);
            while (!_done) {
                lock.unlock();
                const uint64_t copied = MigrationPlanner::size(_work);
                lock.lock();
                if (_done) break;
                _line.show(L("Staging… %@ of %@", {byteCount(copied), byteCount(_total)}));
                _wake.wait_for(lock, std::chrono::milliseconds(250));
            }
        });
    }
    ~StagingProgress() {
        {
            std::lock_guard lock(_mutex);
            _done = true;
        }
        _wake.notify_all();
        if (_thread.joinable()) _thread.join();
    }

private:
    std::filesystem::path _work;
    uint64_t _total;
    StatusLine _line;
    std::mutex _mutex;
    std::condition_variable _wake;
    bool _done = false;
    std::thread _thread;
};

void printPlan(const MigrationPlan& plan, Action action) {
    std::printf("%s (%s)\n", plan.appName.c_str(), plan.bundleID.c_str());
    std::printf("  application  %s\n", plan.appPath.c_str());
    std::printf("  preferences  %s\n", plan.prefsPath.value_or("-").c_str());
    std::printf("  support      %s\n", plan.supportPath.value_or("-").c_str());
    std::printf("  in the share %s\n", plan.shareFolder.c_str());
    std::printf("  size         %s\n", byteCount(plan.estimatedBytes).c_str());
    if (action == Action::stage) std::printf("staged\n");
    if (action == Action::unstage) std::printf("unstaged\n");
}

ExitStatus run(Action action, const MigrateArguments& args) {
    const std::string home = !args.home.empty() ? args.home : homeDirectory();
    const MigrationPlanner planner{home, args.share};
    const AppBundleInfo app = AppBundleInfo::read(args.app);
    // Taking a copy away needs no judgement of the application.
    const MigrationPlan plan = planner.plan(app, args.allowNonIntel || action == Action::unstage);
    if (action == Action::stage) {
        StagingProgress progress(ShareIO::hostFolder(args.share), plan.estimatedBytes);
        planner.stage(plan);
    } else if (action == Action::unstage) {
        planner.unstage(plan);
    }
    if (args.json) {
        nlohmann::json j{{"plan", plan}};
        if (action != Action::plan) j[action == Action::stage ? "staged" : "unstaged"] = true;
        printJSON(j);
    } else {
        printPlan(plan, action);
    }
    return ExitStatus::success;
}

}  // namespace

void addMigrateCommand(CLI::App& app, ExitStatus& status) {
    auto args = std::make_shared<MigrateArguments>();
    CLI::App* migrate = app.add_subcommand("migrate", "Copy an application into the share for the guest to install");
    migrate->require_subcommand(1);
    const std::pair<const char*, Action> actions[] = {
        {"plan", Action::plan}, {"stage", Action::stage}, {"unstage", Action::unstage}};
    const char* help[] = {"Say what keeping the application copies, changing nothing",
                          "Copy it into <share>/Migrate/<bundle id>, whole or not at all",
                          "Take its staged copy out of the share"};
    for (size_t i = 0; i < 3; ++i) {
        const Action action = actions[i].second;
        CLI::App* sub = migrate->add_subcommand(actions[i].first, help[i]);
        sub->add_option("app", args->app, "The application bundle")->required()->check(CLI::ExistingDirectory);
        sub->add_option("--share", args->share, "The shared folder's root on the host")->required();
        sub->add_option("--home", args->home, "The user's home folder (default: $HOME, else the password database's)");
        if (action != Action::unstage)
            sub->add_flag("--allow-non-intel", args->allowNonIntel, "Also keep an application that runs natively");
        sub->add_flag("--json", args->json, "Print the plan as JSON");
        setAction(sub, status, [args, action] { return run(action, *args); });
    }
}

}  // namespace tsl::host
