#include <gtest/gtest.h>

#include "TslCore/Model/GuestSetupFlow.h"
#include "TslCore/Model/StateJSON.h"
#include "TslCore/Support/ISO8601.h"

using namespace tsl;
using ID = GuestSetupChecklistItem::ID;
using nlohmann::json;

namespace {

GuestSetupRecord::Date at(const char* text) { return *ISO8601::parse(text); }

ProvisionReport fullReport() {
    ProvisionReport r;
    r.schema = 1;
    r.rosetta = true;
    r.autoUpdatesOff = true;
    r.sleepOff = true;
    r.fileVault = false;
    r.autoLoginUser = "ann";
    r.consoleUser = "ann";
    return r;
}

AgentStatus allGranted() {
    AgentStatus s;
    s.screenRecordingGranted = true;
    s.accessibilityGranted = true;
    s.rosettaInstalled = true;
    s.provision = fullReport();
    return s;
}

GuestSetupChecklistItem item(const std::vector<GuestSetupChecklistItem>& items, ID id) {
    for (const auto& i : items)
        if (i.id == id) return i;
    throw std::out_of_range("no item");
}

}  // namespace

TEST(GuestSetupFlow, StepFollowsTheFirstRuleThatFits) {
    GuestSetupRecord complete{at("2026-01-01T00:00:00Z"), at("2026-01-01T00:01:00Z"), at("2026-01-01T00:02:00Z"),
                              at("2026-01-01T00:03:00Z")};
    AgentStatus withdrawn;  // every permission gone, no report
    GuestSetupRecord helloSeen;
    helloSeen.agentFirstHelloAt = at("2026-01-01T00:02:00Z");
    AgentStatus missingOne = allGranted();
    missingOne.accessibilityGranted = false;

    struct Case {
        const char* what;
        GuestSetupFlow::Input input;
        GuestSetupStep step;
    };
    const std::vector<Case> cases = {
        {"a virtual Mac that is gone starts again", {false, false, complete, allGranted()}, GuestSetupStep::download},
        {"with a restore image, install", {false, true, complete, std::nullopt}, GuestSetupStep::install},
        {"completed stays done without asking the checklist", {true, false, complete, withdrawn}, GuestSetupStep::done},
        {"no hello yet", {true, false, GuestSetupRecord{}, allGranted()}, GuestSetupStep::firstStart},
        {"hello seen, no agent answering", {true, false, helloSeen, std::nullopt}, GuestSetupStep::permissions},
        {"hello seen, everything in place", {true, false, helloSeen, allGranted()}, GuestSetupStep::done},
        {"hello seen, one item open", {true, false, helloSeen, missingOne}, GuestSetupStep::permissions},
    };
    for (const auto& c : cases) EXPECT_EQ(GuestSetupFlow::step(c.input), c.step) << c.what;
}

TEST(GuestSetupFlow, ChecklistComesInItsOwnOrderWithTheTextsToShow) {
    AgentStatus status;
    const auto items = GuestSetupFlow::checklist(status);
    std::vector<ID> order;
    for (const auto& i : items) order.push_back(i.id);
    EXPECT_EQ(order, (std::vector<ID>{ID::rosetta, ID::screenRecording, ID::accessibility, ID::fileVaultOff,
                                      ID::autoLogin, ID::autoUpdatesOff}));

    // An agent without a report: Rosetta by the live answer alone, FileVault
    // taken as off, the guest tools' two settings open.
    EXPECT_FALSE(item(items, ID::rosetta).done);
    EXPECT_TRUE(item(items, ID::fileVaultOff).done);
    EXPECT_EQ(item(items, ID::fileVaultOff).instruction, std::nullopt);
    EXPECT_FALSE(item(items, ID::autoLogin).done);
    EXPECT_FALSE(item(items, ID::autoUpdatesOff).done);

    const auto& screen = item(items, ID::screenRecording);
    EXPECT_EQ(screen.title, "Screen Recording for TesselAgent");
    EXPECT_EQ(screen.instruction, "In the virtual Mac: System Settings → Privacy & Security → Screen & System Audio "
                                  "Recording → turn on TesselAgent.");
    EXPECT_EQ(item(items, ID::rosetta).instruction,
              "Open “Tessel Guest Tools” again from the shared folder (it installs Rosetta; the virtual Mac needs "
              "internet for it).");
    EXPECT_EQ(item(items, ID::autoUpdatesOff).instruction,
              "Open “Tessel Guest Tools” again (an update to macOS 28 would remove Rosetta from the virtual Mac).");

    for (const auto& i : GuestSetupFlow::checklist(allGranted())) {
        EXPECT_TRUE(i.done) << toString(i.id);
        EXPECT_EQ(i.instruction, std::nullopt) << toString(i.id);
    }
}

TEST(GuestSetupFlow, RosettaTrustsTheLiveAnswerOverTheReport) {
    AgentStatus status;
    status.provision = fullReport();
    status.rosettaInstalled = false;
    EXPECT_FALSE(item(GuestSetupFlow::checklist(status), ID::rosetta).done);
    status.rosettaInstalled.reset();
    EXPECT_TRUE(item(GuestSetupFlow::checklist(status), ID::rosetta).done);
    status.provision->rosetta = false;
    EXPECT_FALSE(item(GuestSetupFlow::checklist(status), ID::rosetta).done);
}

TEST(GuestSetupFlow, AutoLoginNamesTheConsoleUser) {
    AgentStatus status;
    status.provision = fullReport();
    status.provision->autoLoginUser = "";
    status.provision->consoleUser = "Ann Smith";
    const auto items = GuestSetupFlow::checklist(status);
    const auto& named = item(items, ID::autoLogin);
    EXPECT_FALSE(named.done);
    EXPECT_EQ(named.title, "Automatic login in the virtual Mac");
    EXPECT_EQ(named.instruction,
              "In the virtual Mac: System Settings → Users & Groups → Automatically log in as → “Ann Smith”.");

    status.provision->consoleUser = "";  // present though empty: still quoted
    EXPECT_EQ(item(GuestSetupFlow::checklist(status), ID::autoLogin).instruction,
              "In the virtual Mac: System Settings → Users & Groups → Automatically log in as → “”.");
    status.provision->consoleUser.reset();
    EXPECT_EQ(item(GuestSetupFlow::checklist(status), ID::autoLogin).instruction,
              "In the virtual Mac: System Settings → Users & Groups → Automatically log in as → your user.");

    status.provision->fileVault = true;
    EXPECT_FALSE(item(GuestSetupFlow::checklist(status), ID::fileVaultOff).done);
}

TEST(GuestSetupFlow, AssistantGuideAndStepNames) {
    const auto guide = GuestSetupFlow::setupAssistantGuide();
    ASSERT_EQ(guide.size(), 4u);
    EXPECT_EQ(guide[0], "In the virtual Mac’s window, set up macOS once: pick your country and keyboard, then create "
                        "a local account. Skip Apple Account — Tessel doesn’t need it.");
    EXPECT_EQ(guide[3], "When macOS asks, allow Screen & System Audio Recording and Accessibility for TesselAgent. "
                        "Tessel continues by itself as soon as the agent is running.");
    for (GuestSetupStep s : allGuestSetupSteps) EXPECT_EQ(guestSetupStepFromString(toString(s)), s);
    EXPECT_EQ(toString(GuestSetupStep::firstStart), "firstStart");
    EXPECT_EQ(guestSetupStepFromString("Done"), std::nullopt);
}

TEST(GuestSetupRecordJSON, WritesOnlyPresentDatesAndFailsWholeOnAWrongOne) {
    GuestSetupRecord r;
    r.firstBootAt = at("2026-10-07T12:34:56Z");
    json j = r;
    EXPECT_EQ(j, json::parse(R"({"firstBootAt":"2026-10-07T12:34:56Z"})"));
    EXPECT_EQ(j.get<GuestSetupRecord>(), r);
    EXPECT_EQ(json::parse(R"({"completedAt":null})").get<GuestSetupRecord>(), GuestSetupRecord{});

    for (const char* bad : {R"({"firstBootAt":"2026-10-07T12:34:56Z","completedAt":5})",
                            R"({"agentFirstHelloAt":"yesterday"})", R"([])"})
        EXPECT_ANY_THROW(json::parse(bad).get<GuestSetupRecord>()) << bad;
}
