// tessel beta: how far the beta checklist has come, and the verdict on each
// kept application.
#include <CLI/CLI.hpp>

#include <cstdio>
#include <memory>

#include "TesselHost/Commands.h"
#include "TesselHost/HostState.h"
#include "TslCore/Model/BetaChecklist.h"
#include "TslCore/Support/Localized.h"

namespace tsl::host {
namespace {

using namespace BetaChecklist;

struct BetaArguments {
    StateFileChoice choice;
    bool json = false;
};

// What the state file tells of the checklist's facts. Whether the host is fit
// and the restore image is on disk are the application's to know: not here.
Facts factsOf(const PersistedState& s) {
    Facts f;
    f.vmInstalled = s.guestSetup.firstBootAt.has_value();
    f.agentSaidHello = s.guestSetup.agentFirstHelloAt.has_value();
    f.setupCompleted = s.guestSetup.completedAt.has_value();
    f.keptApps = int64_t(s.migrated.size());
    f.appsOpened = s.beta.checklist.opened;
    f.appsResumed = s.beta.checklist.resumed;
    f.appUseSeconds = s.beta.checklist.useSeconds;
    return f;
}

std::string statusText(const Status& status) {
    switch (status.kind) {
        case Status::Kind::answered: return std::string(toString(*status.answer));
        case Status::Kind::waiting: return L("waiting");
        case Status::Kind::recorded: return L("seen");
        case Status::Kind::failed: return L("failed");
    }
    return "";
}

const char* mark(const Status& status) {
    switch (status.kind) {
        case Status::Kind::answered: return status.answer == BetaAnswer::Value::problem ? "!" : "x";
        case Status::Kind::recorded: return "x";
        case Status::Kind::failed: return "!";
        case Status::Kind::waiting: return " ";
    }
    return " ";
}

nlohmann::json stepJSON(const Step& step, const std::optional<std::string>& app, const Facts& facts,
                        const BetaChecklistRecord& record) {
    const Status status = BetaChecklist::status(step, app, facts, record);
    static constexpr const char* kinds[] = {"answered", "waiting", "recorded", "failed"};
    nlohmann::json j = {{"id", step.id},
                        {"status", kinds[size_t(status.kind)]},
                        {"needsAnswer", needsAnswer(step, app, facts, record)}};
    if (status.answer) j["answer"] = toString(*status.answer);
    return j;
}

void printSteps(const std::vector<Step>& steps, const std::optional<std::string>& app, const Facts& facts,
                const BetaChecklistRecord& record, const char* indent) {
    for (const Step& step : steps) {
        const Status status = BetaChecklist::status(step, app, facts, record);
        const bool asks = needsAnswer(step, app, facts, record);
        std::printf("%s[%s] %-12s %s%s\n", indent, mark(status), std::string(step.id).c_str(),
                    statusText(status).c_str(), asks ? (", " + L("needs an answer")).c_str() : "");
    }
}

ExitStatus runBeta(const BetaArguments& args) {
    const auto state = loadForReport(args.choice.store());
    const Facts facts = factsOf(state);
    const BetaChecklistRecord& record = state.beta.checklist;
    std::vector<std::string> apps;
    for (const auto& app : state.migrated) apps.push_back(app.bundleID);
    const Progress done = progress(apps, facts, record);

    if (args.json) {
        nlohmann::json j = {{"progress", {{"done", done.done}, {"total", done.total}}},
                            {"diagnosticsOn", state.beta.diagnosticsOn()},
                            {"setup", nlohmann::json::array()},
                            {"apps", nlohmann::json::array()}};
        for (const Step& step : setupSteps()) j["setup"].push_back(stepJSON(step, std::nullopt, facts, record));
        for (const auto& app : state.migrated) {
            nlohmann::json a = {{"app", app.bundleID},
                                {"name", app.name},
                                {"verdict", toString(verdict(app.bundleID, facts, record))},
                                {"steps", nlohmann::json::array()}};
            for (const Step& step : appSteps()) a["steps"].push_back(stepJSON(step, app.bundleID, facts, record));
            j["apps"].push_back(a);
        }
        printJSON(j);
        return ExitStatus::success;
    }

    std::printf("%s %lld / %lld\n", L("Beta checklist:").c_str(), static_cast<long long>(done.done),
                static_cast<long long>(done.total));
    std::printf("%s %s\n\n%s\n", L("Diagnostics:").c_str(),
                state.beta.diagnosticsOn() ? L("on").c_str() : L("off").c_str(), L("Setup").c_str());
    printSteps(setupSteps(), std::nullopt, facts, record, "  ");
    if (state.migrated.empty()) std::printf("\n%s\n", L("No kept applications yet.").c_str());
    for (const auto& app : state.migrated) {
        std::printf("\n%s (%s): %s\n", app.name.c_str(), app.bundleID.c_str(),
                    std::string(toString(verdict(app.bundleID, facts, record))).c_str());
        printSteps(appSteps(), app.bundleID, facts, record, "  ");
    }
    return ExitStatus::success;
}

}  // namespace

void addBetaCommand(CLI::App& app, ExitStatus& status) {
    auto args = std::make_shared<BetaArguments>();
    CLI::App* beta = app.add_subcommand("beta", "The beta checklist's progress and the verdict on each kept application");
    addStateFileOptions(*beta, args->choice);
    beta->add_flag("--json", args->json, "Print the progress, every step's status and the verdicts as JSON");
    setAction(beta, status, [args] { return runBeta(*args); });
}

}  // namespace tsl::host
