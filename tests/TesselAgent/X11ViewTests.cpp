// tessel view, apps and launch against the agent on a real display, both
// ways round: the host dialling a listening agent, and an agent dialling a
// listening host. Headless, as on a machine without a display.
#include <gtest/gtest.h>

#include <nlohmann/json.hpp>

#include "Support/ChildProcess.h"
#include "Support/TempDir.h"
#include "Support/TestPaths.h"
#include "Support/XDisplay.h"

namespace tsl::test {
namespace {

// The host tool without a display of its own.
std::unique_ptr<ChildProcess> tessel(std::vector<std::string> arguments) {
    arguments.insert(arguments.begin(), {"-u", "DISPLAY", tesselExecutable()});
    return std::make_unique<ChildProcess>("/usr/bin/env", arguments);
}

struct Guest {
    XDisplay display{true};
    TempDir dir;
    std::string socket = "unix:" + (dir / "agent.sock").string();
    std::unique_ptr<ChildProcess> agent;

    bool patternShown() {
        if (!display.ready()) return false;
        display.launchPattern(40, 40, 60);
        return display.waitForWindow("Tsl TestPattern").has_value();
    }
    bool agentListens() {
        agent = std::make_unique<ChildProcess>(agentExecutable(),
                                               std::vector<std::string>{"--desktop", "x11", "--listen", socket});
        return agent->waitForOutput("\n");
    }
};

TEST(X11View, MeasuresThePatternThroughAListeningAgent) {
    Guest g;
    ASSERT_TRUE(g.patternShown());
    ASSERT_TRUE(g.agentListens());
    auto view = tessel({"view", "--connect", g.socket, "--measure", "6", "--json", "--out", (g.dir / "out").string()});
    ASSERT_EQ(view->wait(std::chrono::seconds(60)), 0) << view->standardError();
    auto summary = nlohmann::json::parse(view->standardOutput());
    EXPECT_EQ(summary["roundTrips"], 6);
    EXPECT_EQ(summary["decodeErrors"], 0);
    EXPECT_GT(summary["framesReceived"].get<int>(), 6);
    for (const auto& file : summary["files"]) EXPECT_TRUE(std::filesystem::exists(file.get<std::string>())) << file;

    // The same agent answers the application commands.
    auto apps = tessel({"apps", "--connect", g.socket, "--json"});
    ASSERT_EQ(apps->wait(), 0) << apps->standardError();
    EXPECT_TRUE(nlohmann::json::parse(apps->standardOutput()).is_array());
    auto launch = tessel({"launch", "--connect", g.socket, "no.such.application"});
    EXPECT_EQ(launch->wait(), 1);
    EXPECT_NE(launch->standardError().find("tessel launch: "), std::string::npos);
}

TEST(X11View, WaitsForAnAgentThatDialsIn) {
    Guest g;
    ASSERT_TRUE(g.patternShown());
    auto view = tessel({"view", "--listen", g.socket, "--window", "Tsl TestPattern", "--measure", "4", "--out",
                        (g.dir / "out").string()});
    ASSERT_TRUE(view->waitForError("Waiting for the agent on " + g.socket + "\n"));
    ChildProcess agent(agentExecutable(), {"--desktop", "x11", "--connect", g.socket});
    ASSERT_EQ(view->wait(std::chrono::seconds(60)), 0) << view->standardError();
    EXPECT_NE(view->standardOutput().find("input-to-pixel p50 / floor"), std::string::npos);
}

TEST(X11View, UsageErrorsAndAMissingWindow) {
    Guest g;
    ASSERT_TRUE(g.display.ready());
    ASSERT_TRUE(g.agentListens());
    auto neither = tessel({"view"});
    EXPECT_EQ(neither->wait(), 2);
    EXPECT_EQ(neither->standardError(), "tessel view: give either --connect or --listen\n");
    auto both = tessel({"apps", "--connect", g.socket, "--listen", g.socket});
    EXPECT_EQ(both->wait(), 2);
    auto unknown = tessel({"view", "--connect", g.socket, "--codec", "vp9"});
    EXPECT_EQ(unknown->wait(), 2);

    auto missing = tessel({"view", "--connect", g.socket, "--window", "Nothing Like It"});
    EXPECT_EQ(missing->wait(), 1);
    EXPECT_EQ(missing->standardError(), "tessel view: no guest window is Nothing Like It\n");
}

}  // namespace
}  // namespace tsl::test
