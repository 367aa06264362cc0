#include "TslCore/Model/GuestSetupFlow.h"

#include <algorithm>

#include "TslCore/Support/Localized.h"

namespace tsl {

std::string_view toString(GuestSetupStep step) {
    switch (step) {
        case GuestSetupStep::download: return "download";
        case GuestSetupStep::install: return "install";
        case GuestSetupStep::firstStart: return "firstStart";
        case GuestSetupStep::permissions: return "permissions";
        case GuestSetupStep::done: return "done";
    }
    return "";
}

std::optional<GuestSetupStep> guestSetupStepFromString(std::string_view text) {
    for (GuestSetupStep step : allGuestSetupSteps)
        if (toString(step) == text) return step;
    return std::nullopt;
}

std::string_view toString(GuestSetupChecklistItem::ID id) {
    using ID = GuestSetupChecklistItem::ID;
    switch (id) {
        case ID::rosetta: return "rosetta";
        case ID::screenRecording: return "screenRecording";
        case ID::accessibility: return "accessibility";
        case ID::autoLogin: return "autoLogin";
        case ID::fileVaultOff: return "fileVaultOff";
        case ID::autoUpdatesOff: return "autoUpdatesOff";
    }
    return "";
}

namespace GuestSetupFlow {

GuestSetupStep step(const Input& input) {
    // A virtual Mac that is gone starts the flow again, finished or not.
    if (!input.vmInstalled) return input.haveRestoreImage ? GuestSetupStep::install : GuestSetupStep::download;
    if (input.record.completedAt) return GuestSetupStep::done;
    if (!input.record.agentFirstHelloAt) return GuestSetupStep::firstStart;
    if (!input.status) return GuestSetupStep::permissions;
    const auto items = checklist(*input.status);
    const bool allDone = std::all_of(items.begin(), items.end(), [](const auto& item) { return item.done; });
    return allDone ? GuestSetupStep::done : GuestSetupStep::permissions;
}

std::vector<GuestSetupChecklistItem> checklist(const AgentStatus& status) {
    using ID = GuestSetupChecklistItem::ID;
    const std::optional<ProvisionReport>& report = status.provision;

    // Without a report the guest tools' work is unknown: FileVault is taken
    // to be off (the assistant advises against it), the rest as not done.
    const bool rosetta = status.rosettaInstalled.value_or(report && report->rosetta);
    const bool fileVaultOff = !report || !report->fileVault;
    const bool autoLogin = report && report->autoLoginUser && !report->autoLoginUser->empty();
    const bool autoUpdatesOff = report && report->autoUpdatesOff;
    const std::string user = report && report->consoleUser ? "“" + *report->consoleUser + "”" : L("your user");

    const auto item = [](ID id, std::string_view title, bool done, std::string instruction) {
        return GuestSetupChecklistItem{id, L(title), done ? std::nullopt : std::optional(std::move(instruction)),
                                       done};
    };
    return {
        item(ID::rosetta, "Rosetta installed in the virtual Mac", rosetta,
             L("Open “Tessel Guest Tools” again from the shared folder (it installs Rosetta; the virtual Mac needs "
               "internet for it).")),
        item(ID::screenRecording, "Screen Recording for TesselAgent", status.screenRecordingGranted,
             L("In the virtual Mac: System Settings → Privacy & Security → Screen & System Audio Recording → turn on "
               "TesselAgent.")),
        item(ID::accessibility, "Accessibility for TesselAgent", status.accessibilityGranted,
             L("In the virtual Mac: System Settings → Privacy & Security → Accessibility → turn on TesselAgent.")),
        item(ID::fileVaultOff, "FileVault off in the virtual Mac", fileVaultOff,
             L("In the virtual Mac: System Settings → Privacy & Security → FileVault → Turn Off. (Your Mac’s own disk "
               "stays encrypted.)")),
        item(ID::autoLogin, "Automatic login in the virtual Mac", autoLogin,
             L("In the virtual Mac: System Settings → Users & Groups → Automatically log in as → ") + user + "."),
        item(ID::autoUpdatesOff, "Automatic macOS updates off", autoUpdatesOff,
             L("Open “Tessel Guest Tools” again (an update to macOS 28 would remove Rosetta from the virtual Mac).")),
    };
}

std::vector<std::string> setupAssistantGuide() {
    return {
        L("In the virtual Mac’s window, set up macOS once: pick your country and keyboard, then create a local "
          "account. Skip Apple Account — Tessel doesn’t need it."),
        L("Say no to FileVault and to Location Services in the virtual Mac (your Mac’s own disk stays encrypted)."),
        L("When the desktop appears, open “My Shared Files” → “Tessel” in the virtual Mac’s Finder and double-click "
          "“Tessel Guest Tools”. They install Rosetta and Tessel’s background agent, and turn off sleep and automatic "
          "updates in the virtual Mac."),
        L("When macOS asks, allow Screen & System Audio Recording and Accessibility for TesselAgent. Tessel continues "
          "by itself as soon as the agent is running."),
    };
}

}  // namespace GuestSetupFlow
}  // namespace tsl
