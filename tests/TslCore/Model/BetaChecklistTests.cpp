#include <gtest/gtest.h>

#include "TslCore/Model/BetaChecklist.h"
#include "TslCore/Model/StateJSON.h"
#include "TslCore/Support/ISO8601.h"

using namespace tsl;
using namespace tsl::BetaChecklist;
using V = BetaAnswer::Value;

namespace {

const auto when = *ISO8601::parse("2026-10-07T10:00:00Z");

const Step& named(std::string_view id) {
    for (const Step& s : steps)
        if (s.id == id) return s;
    throw std::out_of_range(std::string(id));
}

void answerApp(BetaChecklistRecord& r, const std::string& app, std::string_view id, V value) {
    r.apps[app][std::string(id)] = BetaAnswer{value, when};
}

// Every per-application step answered `works`.
BetaChecklistRecord allWorks(const std::string& app) {
    BetaChecklistRecord r;
    for (const Step& s : appSteps()) answerApp(r, app, s.id, V::works);
    return r;
}

}  // namespace

TEST(BetaChecklist, StatusFromAnswersThenFromWhatTheProgramSees) {
    Facts facts;
    BetaChecklistRecord record;
    EXPECT_EQ(step("Open"), std::nullopt);
    const Step& mac = named("mac");
    EXPECT_EQ(status(mac, std::nullopt, facts, record), Status::waiting());
    facts.hostOK = false;
    EXPECT_EQ(status(mac, std::nullopt, facts, record), Status::failed());
    record.global["mac"] = BetaAnswer{V::skipped, when};
    EXPECT_EQ(status(mac, std::nullopt, facts, record), Status::answered(V::skipped));

    facts.vmInstalled = true;  // installed implies downloaded
    EXPECT_EQ(status(named("download"), std::nullopt, facts, record), Status::recorded());
    EXPECT_EQ(status(named("firstStart"), std::nullopt, facts, record), Status::waiting());

    // "open" needs an application to look at.
    facts.appsOpened = {"Editor"};
    EXPECT_EQ(autoStatus(named("open"), std::nullopt, facts), std::nullopt);
    EXPECT_EQ(status(named("open"), "Editor", facts, record), Status::recorded());
    EXPECT_FALSE(needsAnswer(named("open"), "Editor", facts, record));

    // A step only the tester can judge waits, whatever has been seen.
    EXPECT_EQ(status(named("typing"), "Editor", facts, record), Status::waiting());
    // A global answer is not an application's.
    record.global["typing"] = BetaAnswer{V::works, when};
    EXPECT_EQ(status(named("typing"), "Editor", facts, record), Status::waiting());
}

TEST(BetaChecklist, TenMinutesIsSeenButStillAsked) {
    Facts facts;
    BetaChecklistRecord record;
    const Step& ten = named("tenMinutes");
    facts.appUseSeconds["Editor"] = 599;
    EXPECT_EQ(status(ten, "Editor", facts, record), Status::waiting());
    facts.appUseSeconds["Editor"] = 600;
    EXPECT_EQ(status(ten, "Editor", facts, record), Status::recorded());
    EXPECT_TRUE(needsAnswer(ten, "Editor", facts, record));
    answerApp(record, "Editor", "tenMinutes", V::problem);
    EXPECT_FALSE(needsAnswer(ten, "Editor", facts, record));
    EXPECT_EQ(status(ten, "Editor", facts, record), Status::answered(V::problem));
}

TEST(BetaChecklist, Verdicts) {
    Facts facts;
    facts.appsOpened = {"Editor"};
    auto record = allWorks("Editor");
    EXPECT_EQ(verdict("Editor", facts, record), Verdict::pass);
    EXPECT_EQ(verdict("Editor", Facts{}, record), Verdict::incomplete) << "never seen open";

    answerApp(record, "Editor", "activation", V::notNeeded);
    EXPECT_EQ(verdict("Editor", facts, record), Verdict::pass);
    answerApp(record, "Editor", "activation", V::skipped);
    EXPECT_EQ(verdict("Editor", facts, record), Verdict::incomplete);

    record = allWorks("Editor");
    answerApp(record, "Editor", "clipboard", V::problem);
    EXPECT_EQ(verdict("Editor", facts, record), Verdict::pass) << "clipboard does not decide";
    answerApp(record, "Editor", "tenMinutes", V::problem);
    EXPECT_EQ(verdict("Editor", Facts{}, record), Verdict::fail) << "a problem fails even unopened";

    // Measured ten minutes don't stand in for the tester's answer.
    record = allWorks("Editor");
    record.apps["Editor"].erase("tenMinutes");
    facts.appUseSeconds["Editor"] = 3600;
    EXPECT_EQ(verdict("Editor", facts, record), Verdict::incomplete);
    EXPECT_EQ(verdict("Other", facts, record), Verdict::incomplete);
}

TEST(BetaChecklist, ProgressCountsAnswersAndUnconfirmedSightings) {
    Facts facts;
    BetaChecklistRecord record;
    EXPECT_EQ(progress({}, facts, record), (Progress{0, 6}));

    facts.hostOK = true;
    facts.vmInstalled = true;
    facts.keptApps = 1;
    facts.appsOpened = {"Editor"};
    facts.appsResumed = {"Editor"};  // seen, but sleepWake asks for a word
    facts.appUseSeconds["Editor"] = 900;
    answerApp(record, "Editor", "typing", V::problem);
    // Setup: mac, download, install, keepApp. Editor: open, typing.
    EXPECT_EQ(progress({"Editor", "Viewer"}, facts, record), (Progress{6, 6 + 13 + 13}));
    answerApp(record, "Editor", "sleepWake", V::works);
    EXPECT_EQ(progress({"Editor"}, facts, record), (Progress{7, 19}));
}

TEST(BetaRecord, DiagnosticsNeedTheCurrentNoticeAndStayingIn) {
    BetaRecord r;
    EXPECT_FALSE(r.diagnosticsOn());
    r.noticeAcknowledgedAt = when;
    r.noticeVersion = "2026-10-05";
    EXPECT_TRUE(r.diagnosticsOn());
    r.noticeVersion = "2026-11-01";
    EXPECT_FALSE(r.diagnosticsOn()) << "a later notice is not the one in force";
    r.noticeVersion = "2026-10-05";
    r.leftBetaAt = when;
    EXPECT_FALSE(r.diagnosticsOn());
    EXPECT_EQ(betaAnswerValueFromString("notNeeded"), V::notNeeded);
    EXPECT_EQ(betaAnswerValueFromString("fine"), std::nullopt);
}

TEST(BetaRecordJSON, EveryKeyFallsBackOnItsOwn) {
    using nlohmann::json;
    BetaRecord r;
    r.noticeVersion = "2026-10-05";
    r.noticeAcknowledgedAt = when;
    r.checklist.global["mac"] = BetaAnswer{V::works, when};
    r.checklist.apps["Editor"]["typing"] = BetaAnswer{V::notNeeded, when};
    r.checklist.opened = {"Editor", "Viewer"};
    r.checklist.useSeconds["Editor"] = 42;
    r.checklist.reportedVerdicts["Editor"] = "pass";
    const json j = r;
    EXPECT_EQ(j.get<BetaRecord>(), r);
    EXPECT_EQ(j.at("checklist").at("apps").at("Editor").at("typing"),
              json::parse(R"({"value":"notNeeded","at":"2026-10-07T10:00:00Z"})"));
    EXPECT_FALSE(j.contains("leftBetaAt"));
    EXPECT_EQ(json(BetaRecord{}), json::parse(R"({"checklist":{"global":{},"apps":{},"opened":[],"resumed":[],
                                                 "useSeconds":{},"reportedVerdicts":{}}})"));

    // One answer without its date loses all of `global`; a bad value all of
    // `apps`; wrong types elsewhere lose their own key only.
    const auto damaged = json::parse(R"({
        "noticeVersion": 7, "noticeAcknowledgedAt": "2026-10-07T10:00:00Z", "serverDeletePending": "yes",
        "checklist": {
            "global": {"mac": {"value": "works", "at": "2026-10-07T10:00:00Z"}, "download": {"value": "works"}},
            "apps": {"Editor": {"typing": {"value": "great", "at": "2026-10-07T10:00:00Z"}}},
            "opened": ["Editor", 3], "resumed": ["Editor", "Editor"],
            "useSeconds": {"Editor": 61.0}, "reportedVerdicts": {"Editor": "fail"}}})")
                              .get<BetaRecord>();
    EXPECT_EQ(damaged.noticeVersion, std::nullopt);
    EXPECT_EQ(damaged.noticeAcknowledgedAt, when);
    EXPECT_EQ(damaged.serverDeletePending, std::nullopt);
    EXPECT_TRUE(damaged.checklist.global.empty());
    EXPECT_TRUE(damaged.checklist.apps.empty());
    EXPECT_TRUE(damaged.checklist.opened.empty());
    EXPECT_EQ(damaged.checklist.resumed, std::set<std::string>{"Editor"});
    EXPECT_EQ(damaged.checklist.useSeconds.at("Editor"), 61);
    EXPECT_EQ(damaged.checklist.reportedVerdicts.at("Editor"), "fail");

    EXPECT_EQ(json::parse(R"({"checklist": [], "leftBetaAt": "soon"})").get<BetaRecord>(), BetaRecord{});
    EXPECT_ANY_THROW(json::parse("[]").get<BetaRecord>());
}
