// A host's view of a simulation run's applications, through the executable.
#include <gtest/gtest.h>

#include "Support/AgentTestSupport.h"
#include "Support/ChildProcess.h"
#include "Support/Errors.h"
#include "Support/TempDir.h"
#include "Support/TestPaths.h"
#include "TslStream/Runtime/GlobalQueue.h"
#include "TslStream/Runtime/Task.h"

using namespace tsl;
using namespace tsl::test;

TEST(SimulationApps, HostListsLaunchesAndQuitsTheSampleApplications) {
    auto root = TempDir::forSimulation();
    const std::string socket = (root / "agent.sock").string();
    ChildProcess agent(agentExecutable(), {"--listen", "unix:" + socket, "--sim-root", root.path().string()});
    ASSERT_TRUE(agent.waitForOutput("TesselAgent listening on unix:" + socket + "\n")) << agent.standardError();
    auto channel = std::make_shared<ControlChannel>(std::make_shared<WireConnection>(SocketEndpoint::unix(socket), "test"));
    channel->start();
    auto request = [&](ControlMessage message) {
        return runBlocking(GlobalQueue::executor(), channel->request(std::move(message), 10), limit);
    };
    request(ControlMessage::Hello{hostHello()});
    auto list = [&] { return request(ControlMessage::ListApps{}).get<ControlMessage::AppList>()->value; };

    auto apps = list();
    ASSERT_EQ(apps.size(), 2u);
    EXPECT_EQ(apps[0].path, (root / "Applications" / "Tsl Scratchpad.app").string());
    EXPECT_EQ(apps[1].bundleID, "com.tessel.testpattern");
    EXPECT_EQ(apps[1].version, "1.0");

    auto launched = request(ControlMessage::LaunchApp{{.bundleID = "com.tessel.testpattern"}});
    const int32_t pid = launched.get<ControlMessage::Launched>()->value.pid;
    EXPECT_EQ(list()[1].pid, pid);
    EXPECT_EQ(request(ControlMessage::QuitApp{pid}), ControlMessage(ControlMessage::Ok{}));
    EXPECT_FALSE(list()[1].running);

    auto refused = thrownBy<ControlError>([&] { request(ControlMessage::QuitApp{1}); });
    EXPECT_EQ(refused.info().message, "forbidden: not a Tessel app: 1");
    channel->close();
}
