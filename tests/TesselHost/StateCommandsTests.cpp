// The built `tessel state`, `tessel setup` and `tessel beta` over real files
// and a real simulation agent.
#include <gtest/gtest.h>

#include <optional>
#include <string>
#include <vector>

#include "Support/ChildProcess.h"
#include "Support/Files.h"
#include "Support/TempDir.h"
#include "Support/TestPaths.h"
#include "TslCore/Model/StateJSON.h"
#include "TslCore/Model/StateStore.h"
#include "TslCore/Support/ISO8601.h"
#include "TslCore/Wire/WireJSON.h"

using namespace tsl;
using namespace tsl::test;
using nlohmann::json;

namespace {

const std::string& tessel = tsl::test::tesselExecutable();
const auto when = *ISO8601::parse("2026-10-07T12:00:00Z");

struct Run {
    std::optional<int> status;
    std::string out, err;
    json parsed() const { return json::parse(out); }
};

Run runState(const std::vector<std::string>& args) {
    ChildProcess child(tessel, args);
    Run run;
    run.status = child.wait();
    run.out = child.standardOutput();
    run.err = child.standardError();
    return run;
}

PersistedState keptTwo() {
    PersistedState s;
    s.guestSetup.firstBootAt = when;
    s.guestSetup.agentFirstHelloAt = when;
    for (const char* id : {"com.example.editor", "com.example.viewer"})
        s.migrated.push_back(MigratedApp{id, id, "/Applications/x.app", "/Applications/x.app", "/shim/x.app", when});
    return s;
}

AgentStatus granted(bool withReport) {
    AgentStatus s;
    s.screenRecordingGranted = true;
    s.accessibilityGranted = true;
    s.rosettaInstalled = true;
    if (withReport) {
        ProvisionReport r;
        r.rosetta = r.autoUpdatesOff = r.sleepOff = true;
        r.autoLoginUser = "ann";
        s.provision = r;
    }
    return s;
}

void writeStatus(const std::filesystem::path& path, const AgentStatus& status) {
    const Bytes bytes = WireJSON::encode(status);
    writeFile(path, std::string(bytes.begin(), bytes.end()));
}

}  // namespace

TEST(TesselState, ShowPrintsTheOutcomeAndTheStateInItsFileForm) {
    TempDir dir;
    const auto file = (dir / "state.json").string();
    StateStore(file).save(keptTwo());
    auto run = runState({"state", "show", "--file", file, "--json"});
    ASSERT_EQ(run.status, 0) << run.err;
    EXPECT_EQ(run.parsed().at("outcome"), "loaded");
    EXPECT_EQ(run.parsed().at("state"), json::parse(readFile(file)));

    run = runState({"state", "show", "--file", file});
    ASSERT_EQ(run.status, 0) << run.err;
    EXPECT_NE(run.out.find(file + ": loaded"), std::string::npos) << run.out;
    EXPECT_NE(run.out.find("Kept applications: 2"), std::string::npos) << run.out;

    run = runState({"state", "check", "--file", (dir / "none.json").string()});
    EXPECT_EQ(run.status, 0) << "a missing file is no damage";
}

TEST(TesselState, ShowAndCheckReportDamageAndLeaveTheFileAsItIs) {
    TempDir dir;
    const auto file = (dir / "state.json").string();
    writeFile(file, "{\"onboardingDone\": tru");
    for (const char* command : {"show", "check"}) {
        auto run = runState({"state", command, "--state", file, "--json"});
        EXPECT_EQ(run.status, 1) << command;
        EXPECT_EQ(run.parsed().at("outcome"), "damaged") << command;
        EXPECT_FALSE(run.parsed().contains("state")) << command;
        EXPECT_EQ(readFile(file), "{\"onboardingDone\": tru") << command;
        EXPECT_EQ(std::distance(std::filesystem::directory_iterator(dir.path()), {}), 1) << command << " moved it";
    }
    auto run = runState({"beta", "--state", file});
    EXPECT_EQ(run.status, 1);
    EXPECT_EQ(run.err, "tessel beta: " + file + ": damaged; left as it is\n");

    std::filesystem::remove(file);
    std::filesystem::create_directories(file);
    run = runState({"state", "check", "--file", file});
    EXPECT_EQ(run.status, 1);
    EXPECT_NE(run.out.find("unreadable"), std::string::npos) << run.out;
    EXPECT_TRUE(std::filesystem::is_directory(file)) << "left where it is";

    EXPECT_EQ(runState({"state"}).status, 2);
    EXPECT_EQ(runState({"state", "show", "--bogus"}).status, 2);
}

TEST(TesselSetup, StepAndChecklistFromAStatusFile) {
    TempDir dir;
    const auto state = (dir / "state.json").string();
    const auto status = dir / "status.json";

    auto run = runState({"setup", "--state", state, "--json"});
    ASSERT_EQ(run.status, 0) << run.err;
    EXPECT_EQ(run.parsed().at("step"), "download");
    EXPECT_EQ(runState({"setup", "--state", state, "--restore-image", "--json"}).parsed().at("step"), "install");
    run = runState({"setup", "--state", state, "--vm-installed", "--json"});
    EXPECT_EQ(run.parsed().at("step"), "firstStart");
    EXPECT_EQ(run.parsed().at("guide").size(), 4u);

    writeStatus(status, granted(false));
    run = runState({"setup", "--state", state, "--status", status.string(), "--json"});
    ASSERT_EQ(run.status, 0) << run.err;
    EXPECT_EQ(run.parsed().at("step"), "permissions");
    const json items = run.parsed().at("checklist");
    ASSERT_EQ(items.size(), 6u);
    EXPECT_EQ(items[4].at("id"), "autoLogin");
    EXPECT_EQ(items[4].at("instruction"),
              "In the virtual Mac: System Settings → Users & Groups → Automatically log in as → your user.");

    writeStatus(status, granted(true));
    run = runState({"setup", "--state", state, "--status", status.string()});
    ASSERT_EQ(run.status, 0) << run.err;
    EXPECT_NE(run.out.find("(done)"), std::string::npos) << run.out;
    EXPECT_NE(run.out.find("[x] Automatic login in the virtual Mac"), std::string::npos) << run.out;

    writeFile(status, R"({"screenRecordingGranted": true})");
    run = runState({"setup", "--state", state, "--status", status.string()});
    EXPECT_EQ(run.status, 1);
    EXPECT_NE(run.err.find("holds no agent status"), std::string::npos) << run.err;
    EXPECT_EQ(runState({"setup", "--status", status.string(), "--agent", "unix:/x"}).status, 2);
    EXPECT_EQ(runState({"setup", "--state", state, "--agent", "carrier-pigeon"}).status, 2);
    run = runState({"setup", "--state", state, "--agent", "unix:" + (dir / "nobody.sock").string()});
    EXPECT_EQ(run.status, 1);
    EXPECT_NE(run.err.find("no status from the agent"), std::string::npos) << run.err;
}

TEST(TesselSetup, AsksARunningAgent) {
    auto root = TempDir::forSimulation();
    const std::string socket = (root / "agent.sock").string();
    ChildProcess agent(agentExecutable(), {"--listen", "unix:" + socket, "--sim-root", root.path().string()});
    ASSERT_TRUE(agent.waitForOutput("TesselAgent listening on unix:" + socket + "\n")) << agent.standardError();

    // The simulated guest grants both permissions and has no guest tools' report.
    auto run = runState({"setup", "--state", (root / "state.json").string(), "--agent", "unix:" + socket, "--json"});
    ASSERT_EQ(run.status, 0) << run.err;
    const json result = run.parsed();
    EXPECT_EQ(result.at("step"), "permissions");
    std::map<std::string, bool> done;
    for (const auto& item : result.at("checklist")) done[item.at("id")] = item.at("done");
    EXPECT_TRUE(done.at("screenRecording"));
    EXPECT_TRUE(done.at("accessibility"));
    EXPECT_TRUE(done.at("fileVaultOff"));
    EXPECT_FALSE(done.at("autoUpdatesOff"));
}

TEST(TesselBeta, ProgressAndVerdictsFromTheStateFile) {
    TempDir dir;
    const auto file = (dir / "state.json").string();
    PersistedState s = keptTwo();
    auto& record = s.beta.checklist;
    record.opened = {"com.example.editor"};
    for (const char* id : {"typing", "save", "menus", "activation", "tenMinutes"})
        record.apps["com.example.editor"][id] = BetaAnswer{BetaAnswer::Value::works, when};
    record.apps["com.example.viewer"]["save"] = BetaAnswer{BetaAnswer::Value::problem, when};
    StateStore(file).save(s);

    auto run = runState({"beta", "--state", file, "--json"});
    ASSERT_EQ(run.status, 0) << run.err;
    const json result = run.parsed();
    // Setup: download, install, firstStart, keepApp; editor: open and five answers; viewer: one.
    EXPECT_EQ(result.at("progress"), json::parse(R"({"done": 11, "total": 32})"));
    ASSERT_EQ(result.at("apps").size(), 2u);
    EXPECT_EQ(result.at("apps")[0].at("verdict"), "pass");
    EXPECT_EQ(result.at("apps")[1].at("verdict"), "fail");
    EXPECT_EQ(result.at("setup")[0], json::parse(R"({"id": "mac", "status": "waiting", "needsAnswer": false})"));

    run = runState({"beta", "--state", file});
    ASSERT_EQ(run.status, 0) << run.err;
    EXPECT_NE(run.out.find("Beta checklist: 11 / 32"), std::string::npos) << run.out;
    EXPECT_NE(run.out.find("com.example.viewer (com.example.viewer): fail"), std::string::npos) << run.out;

    std::filesystem::remove(file);
    std::filesystem::create_directories(file);
    EXPECT_EQ(runState({"beta", "--state", file}).status, 1) << "an unreadable state is no report";
}
