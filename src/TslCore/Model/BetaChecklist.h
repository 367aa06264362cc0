#pragma once
#include <array>
#include <cstdint>
#include <map>
#include <optional>
#include <set>
#include <string>
#include <string_view>
#include <vector>

#include "TslCore/Model/BetaRecord.h"

namespace tsl {

// The beta's fixed list of steps, six for the setup and thirteen for each kept
// application, and pure functions from facts and answers to where each stands.
namespace BetaChecklist {

enum class Scope : uint8_t { setup, perApp };

struct Step {
    std::string_view id;
    Scope scope = Scope::setup;
    bool automatic = false;        // the program can see the result
    bool confirm = false;          // the tester has to answer
    bool allowsNotNeeded = false;  // "not needed" is offered as an answer

    bool operator==(const Step&) const = default;
};

// What the caller has gathered.
struct Facts {
    std::optional<bool> hostOK;  // absent while not determined
    bool restoreImageDownloaded = false;
    bool vmInstalled = false;
    bool agentSaidHello = false;
    bool setupCompleted = false;
    int64_t keptApps = 0;
    std::set<std::string> appsOpened;
    std::set<std::string> appsResumed;
    std::map<std::string, int64_t> appUseSeconds;

    bool operator==(const Facts&) const = default;
};

struct Status {
    enum class Kind : uint8_t { answered, waiting, recorded, failed };

    Kind kind = Kind::waiting;
    std::optional<BetaAnswer::Value> answer;  // with `answered` only

    static Status answered(BetaAnswer::Value value) { return {Kind::answered, value}; }
    static Status waiting() { return {Kind::waiting, std::nullopt}; }
    static Status recorded() { return {Kind::recorded, std::nullopt}; }
    static Status failed() { return {Kind::failed, std::nullopt}; }

    bool operator==(const Status&) const = default;
};

enum class Verdict : uint8_t { pass, fail, incomplete };
std::string_view toString(Verdict verdict);

struct Progress {
    int64_t done = 0;
    int64_t total = 0;
    bool operator==(const Progress&) const = default;
};

// clang-format off
inline constexpr std::array<Step, 19> steps{{
    {"mac",         Scope::setup,  true,  false, false},
    {"download",    Scope::setup,  true,  false, false},
    {"install",     Scope::setup,  true,  false, false},
    {"firstStart",  Scope::setup,  true,  false, false},
    {"permissions", Scope::setup,  true,  false, false},
    {"keepApp",     Scope::setup,  true,  false, false},
    {"open",        Scope::perApp, true,  false, false},
    {"sharp",       Scope::perApp, false, true,  false},
    {"typing",      Scope::perApp, false, true,  false},
    {"save",        Scope::perApp, false, true,  false},
    {"openPanel",   Scope::perApp, false, true,  false},
    {"contextMenu", Scope::perApp, false, true,  false},
    {"menus",       Scope::perApp, false, true,  false},
    {"minimise",    Scope::perApp, false, true,  false},
    {"resize",      Scope::perApp, false, true,  false},
    {"clipboard",   Scope::perApp, false, true,  false},
    {"sleepWake",   Scope::perApp, true,  true,  false},
    {"activation",  Scope::perApp, false, true,  true},
    {"tenMinutes",  Scope::perApp, true,  true,  false},
}};
// clang-format on

std::vector<Step> setupSteps();
std::vector<Step> appSteps();
std::optional<Step> step(std::string_view id);

// What the program sees by itself; absent when it can't tell.
std::optional<bool> autoStatus(const Step& step, const std::optional<std::string>& app, const Facts& facts);

// An answer wins over what the program sees.
Status status(const Step& step, const std::optional<std::string>& app, const Facts& facts,
              const BetaChecklistRecord& record);

// Whether the tester still has to answer; a step that the program has seen
// but that asks for confirmation still does.
bool needsAnswer(const Step& step, const std::optional<std::string>& app, const Facts& facts,
                 const BetaChecklistRecord& record);

Verdict verdict(const std::string& app, const Facts& facts, const BetaChecklistRecord& record);

// The setup's steps, plus each application's own.
Progress progress(const std::vector<std::string>& apps, const Facts& facts, const BetaChecklistRecord& record);

}  // namespace BetaChecklist
}  // namespace tsl
