#include <gtest/gtest.h>

#include "Support/AgentTestSupport.h"
#include "Support/ChildProcess.h"
#include "Support/TempDir.h"
#include "Support/TestPaths.h"
#include "TslStream/Runtime/GlobalQueue.h"
#include "TslStream/Runtime/Task.h"

using namespace tsl;
using tsl::test::ChildProcess;
using tsl::test::TempDir;
using namespace tsl::test;

TEST(TesselAgentEntry, RefusedCommandLinesExitWithStatusTwo) {
    struct Case {
        std::vector<std::string> args;
        std::string line;
    };
    std::vector<Case> cases{
        {{}, "TesselAgent: one of --vsock, --connect unix:<path>, --listen unix:<path> is required\n"},
        {{"--vsock", "--sim-root", "/x"}, "TesselAgent: --sim-root is for Simulation, not --vsock\n"},
        {{"--connect", "--sim-root", "/x"}, "TesselAgent: --connect needs a value\n"},
        {{"--listen", "unix:/a", "--sim-root", "/tmp/x"}, "TesselAgent: refusing to run: /tmp/x/Applications is in a world-writable location\n"},
        {{"--bogus"}, "TesselAgent: unknown argument --bogus\n"},
    };
    for (auto& c : cases) {
        ChildProcess agent(agentExecutable(), c.args);
        EXPECT_EQ(agent.wait(), 2);
        EXPECT_EQ(agent.standardError(), c.line);
        EXPECT_EQ(agent.standardOutput(), "");
    }
}

TEST(TesselAgentEntry, ListeningSimulationAnswersAHostHello) {
    auto root = TempDir::forSimulation();
    std::string socket = (root / "agent.sock").string();
    ChildProcess agent(agentExecutable(), {"--listen", "unix:" + socket, "--sim-root", root.path().string()});
    ASSERT_TRUE(agent.waitForOutput("TesselAgent listening on unix:" + socket + "\n")) << agent.standardError();
    auto channel = std::make_shared<ControlChannel>(std::make_shared<WireConnection>(SocketEndpoint::unix(socket), "test"));
    channel->start();
    auto reply = runBlocking(GlobalQueue::executor(), channel->request(ControlMessage::Hello{hostHello()}, 10), limit);
    EXPECT_EQ(reply, ControlMessage(ControlMessage::Hello{AgentService::agentHelloBase()}));
    channel->close();
    EXPECT_FALSE(agent.wait(std::chrono::milliseconds(200)));  // a listening run stays up
}

TEST(TesselAgentEntry, ListenerThatCannotBeMadeExitsWithStatusOne) {
    auto root = TempDir::forSimulation();
    std::string socket = (root / "missing" / "agent.sock").string();
    ChildProcess agent(agentExecutable(), {"--listen", "unix:" + socket, "--sim-root", root.path().string()});
    EXPECT_EQ(agent.wait(), 1);
    EXPECT_NE(agent.standardError().find("cannot listen on unix:" + socket + " (unix sockets only)"), std::string::npos);
}

TEST(TesselAgentEntry, ConnectingSimulationExitsWithStatusZeroWhenControlCloses) {
    auto root = TempDir::forSimulation();
    std::string socket = (root / "host.sock").string();
    FakeHost host(socket);
    ChildProcess agent(agentExecutable(), {"--connect", "unix:" + socket, "--sim-root", root.path().string()});
    ASSERT_TRUE(host.hellos.waitFor(3)) << agent.standardError();
    EXPECT_EQ(host.channelNames(), (std::vector<std::string>{"channel:control", "channel:video", "channel:input"}));
    // A request in flight does not hold the exit up.
    host.end(0)->channel->postAsync(ControlMessage::Status{});
    host.end(0)->channel->close();
    // The service (with its log line) and the runner race to exit; both say 0.
    EXPECT_EQ(agent.wait(), 0);
}
