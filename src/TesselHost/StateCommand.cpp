// tessel state show|check: the host's state file and what loading it found.
#include <CLI/CLI.hpp>

#include <cstdio>
#include <memory>

#include "TesselHost/Commands.h"
#include "TesselHost/HostState.h"
#include "TslCore/Model/StateJSON.h"
#include "TslCore/Support/BoundedFile.h"
#include "TslCore/Support/Localized.h"

namespace tsl::host {
namespace {

struct StateArguments {
    StateFileChoice choice;
    bool json = false;
};

const char* yesNo(bool value) { return value ? "yes" : "no"; }

void printState(const PersistedState& s) {
    const auto& t = s.settings;
    std::printf("%s %s\n", L("Onboarding done:").c_str(), yesNo(s.onboardingDone));
    std::printf("%s %s\n", L("Personal-use terms accepted:").c_str(), yesNo(s.acceptedPersonalUseTerms));
    std::printf("\n%s\n", L("Settings").c_str());
    std::printf("  %s %lld\n", L("Processors:").c_str(), static_cast<long long>(t.cpuCount));
    std::printf("  %s %lld GB\n", L("Memory:").c_str(), static_cast<long long>(t.memoryGB));
    std::printf("  %s %lld min\n", L("Suspend when idle for:").c_str(), static_cast<long long>(t.idleSuspendMinutes));
    std::printf("  %s %s\n", L("Show the virtual Mac’s window:").c_str(), yesNo(t.showDebugVMWindow));
    std::printf("  %s %s\n", L("Simulated guest:").c_str(), yesNo(t.simulationMode));
    std::printf("  %s %s\n", L("Codec:").c_str(), t.codec == VideoCodec::h264 ? "H.264" : "raw BGRA");
    std::printf("  %s %s\n", L("Add kept applications to the Dock:").c_str(),
                t.addToDock ? yesNo(*t.addToDock) : L("not set").c_str());
    if (!t.sharedFolders || t.sharedFolders->empty()) {
        std::printf("  %s %s\n", L("Shared folders:").c_str(), L("none").c_str());
    } else {
        std::printf("  %s\n", L("Shared folders:").c_str());
        for (const auto& path : *t.sharedFolders) {
            std::string line = path;
            if (t.sharedFolderNames)
                if (auto named = t.sharedFolderNames->find(path); named != t.sharedFolderNames->end())
                    line += " (" + named->second + ")";
            std::printf("    %s\n", line.c_str());
        }
    }

    std::printf("\n%s %zu\n", L("Kept applications:").c_str(), s.migrated.size());
    for (const auto& app : s.migrated) {
        std::printf("  %s  %s  %s\n", app.name.c_str(), app.bundleID.c_str(), dateText(app.migratedAt, "").c_str());
        std::printf("    %s %s\n    %s %s\n", L("in the virtual Mac:").c_str(), app.guestPath.c_str(),
                    L("shim:").c_str(), app.shimPath.c_str());
    }

    const auto& g = s.guestSetup;
    const std::string notYet = L("not yet");
    std::printf("\n%s\n", L("Guest setup").c_str());
    std::printf("  %s %s\n", L("First boot:").c_str(), dateText(g.firstBootAt, notYet).c_str());
    std::printf("  %s %s\n", L("Guest tools offered:").c_str(), dateText(g.guestToolsOfferedAt, notYet).c_str());
    std::printf("  %s %s\n", L("Agent’s first hello:").c_str(), dateText(g.agentFirstHelloAt, notYet).c_str());
    std::printf("  %s %s\n", L("Completed:").c_str(), dateText(g.completedAt, notYet).c_str());

    const auto& b = s.beta;
    std::printf("\n%s\n", L("Beta").c_str());
    std::printf("  %s %s%s\n", L("Notice acknowledged:").c_str(), dateText(b.noticeAcknowledgedAt, notYet).c_str(),
                b.noticeVersion ? (" (" + *b.noticeVersion + ")").c_str() : "");
    std::printf("  %s %s\n", L("Diagnostics:").c_str(), b.diagnosticsOn() ? L("on").c_str() : L("off").c_str());
    if (b.leftBetaAt) std::printf("  %s %s\n", L("Left the beta:").c_str(), dateText(b.leftBetaAt, "").c_str());
    size_t answers = b.checklist.global.size();
    for (const auto& entry : b.checklist.apps) answers += entry.second.size();
    std::printf("  %s %zu\n", L("Checklist answers:").c_str(), answers);
}

nlohmann::json loadJSON(const StateStore& store, const StateStore::Loaded& loaded) {
    nlohmann::json j = {{"outcome", toString(loaded.outcome)}, {"file", store.url.string()}};
    if (loaded.outcome == StateStore::LoadOutcome::readError) j["error"] = fileErrorText(loaded.failure);
    return j;
}

bool sound(const StateStore::Loaded& loaded) {
    return loaded.outcome == StateStore::LoadOutcome::loaded || loaded.outcome == StateStore::LoadOutcome::missing;
}

// Both report what a load would find and leave the file as it is: only the
// product's own load moves a damaged file aside.
ExitStatus runShow(const StateArguments& args) {
    const StateStore store = args.choice.store();
    const auto loaded = store.inspect();
    if (args.json) {
        auto j = loadJSON(store, loaded);
        if (sound(loaded)) j["state"] = loaded.state;
        printJSON(j);
    } else {
        std::printf("%s: %s\n", store.url.c_str(), describe(loaded).c_str());
        if (sound(loaded)) {
            std::printf("\n");
            printState(loaded.state);
        }
    }
    return sound(loaded) ? ExitStatus::success : ExitStatus::failure;
}

ExitStatus runStateCheck(const StateArguments& args) {
    const StateStore store = args.choice.store();
    const auto loaded = store.inspect();
    if (args.json) printJSON(loadJSON(store, loaded));
    else std::printf("%s: %s\n", store.url.c_str(), describe(loaded).c_str());
    return sound(loaded) ? ExitStatus::success : ExitStatus::failure;
}

}  // namespace

void addStateCommand(CLI::App& app, ExitStatus& status) {
    auto args = std::make_shared<StateArguments>();
    CLI::App* state = app.add_subcommand("state", "Show or check the host's state file, changing nothing");
    state->require_subcommand(1);

    CLI::App* show = state->add_subcommand("show", "Print the state and what reading it found");
    addStateFileOptions(*show, args->choice);
    show->add_flag("--json", args->json, "Print {\"outcome\": ..., \"state\": ...}, the state in the file's own form");
    show->footer("A damaged or unreadable file is reported, left as it is, and the status is 1.");
    setAction(show, status, [args] { return runShow(*args); });

    CLI::App* check =
        state->add_subcommand("check", "Say whether the state file loads; status 1 when it is damaged or unreadable");
    addStateFileOptions(*check, args->choice);
    check->add_flag("--json", args->json, "Print the outcome as JSON");
    setAction(check, status, [args] { return runStateCheck(*args); });
}

}  // namespace tsl::host
