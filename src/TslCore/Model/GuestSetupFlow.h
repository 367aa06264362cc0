#pragma once
#include <array>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "TslCore/Model/GuestSetupRecord.h"
#include "TslCore/Wire/ControlRecords.h"

namespace tsl {

// Where the user stands in bringing up a new virtual Mac.
enum class GuestSetupStep : uint8_t { download, install, firstStart, permissions, done };

inline constexpr std::array<GuestSetupStep, 5> allGuestSetupSteps{
    GuestSetupStep::download, GuestSetupStep::install, GuestSetupStep::firstStart, GuestSetupStep::permissions,
    GuestSetupStep::done};

std::string_view toString(GuestSetupStep step);
std::optional<GuestSetupStep> guestSetupStepFromString(std::string_view text);

// One thing that must be so in the guest before it is usable; not persisted.
struct GuestSetupChecklistItem {
    enum class ID : uint8_t { rosetta, screenRecording, accessibility, autoLogin, fileVaultOff, autoUpdatesOff };

    ID id = ID::rosetta;
    std::string title;
    std::optional<std::string> instruction;  // what to do; absent once done
    bool done = false;

    bool operator==(const GuestSetupChecklistItem&) const = default;
};

std::string_view toString(GuestSetupChecklistItem::ID id);

// Pure functions from what the host knows, and what the agent reported, to
// the step of the setup and what is still to do. Texts come localised.
namespace GuestSetupFlow {

struct Input {
    bool vmInstalled = false;
    bool haveRestoreImage = false;
    GuestSetupRecord record;
    std::optional<AgentStatus> status;  // absent while no agent has answered

    bool operator==(const Input&) const = default;
};

GuestSetupStep step(const Input& input);

// Six items, always in the same order.
std::vector<GuestSetupChecklistItem> checklist(const AgentStatus& status);

// The lines that lead the user through macOS's own first-run assistant.
std::vector<std::string> setupAssistantGuide();

}  // namespace GuestSetupFlow
}  // namespace tsl
