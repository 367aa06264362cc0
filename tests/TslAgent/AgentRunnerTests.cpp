#include <gtest/gtest.h>
#include <unistd.h>

#include "Support/AgentTestSupport.h"
#include "Support/Errors.h"
#include "Support/TempDir.h"
#include "Platform/Sim/Desktop.h"
#include "TslAgent/AgentRunner.h"
#include "TslStream/Runtime/Task.h"

using namespace tsl;
using namespace tsl::test;

namespace {

// An agent (service and runner) on this thread's main actor.
struct Agent {
    MainActor main;
    TempDir root;
    std::string socket = (root / "agent.sock").string();
    ExitRecorder exits;
    AgentConfig config;
    std::shared_ptr<AgentService> service;
    std::unique_ptr<AgentRunner> runner;

    Agent(bool listen, bool exitOnDisconnect)
        : config(AgentConfig::simulation(listen ? AgentConfig::Mode::listen(SocketEndpoint::unix(socket))
                                                : AgentConfig::Mode::connect({SocketEndpoint::unix(socket)}),
                                         root.path(), exitOnDisconnect)),
          service(std::make_shared<AgentService>(config, Sim::Desktop::make()->services(), exits.function())),
          runner(std::make_unique<AgentRunner>(config, service, exits.function())) {}
    ~Agent() {
        // The runner's thread may be inside a call onto the main actor.
        std::atomic<bool> stopped = false;
        std::thread stopper([&] {
            runner.reset();
            stopped = true;
        });
        main.runUntil([&] { return stopped.load(); }, limit);
        stopper.join();
    }
    bool runUntil(const std::function<bool()>& done) { return main.runUntil(done, limit); }
};

// A host dialling a listening agent.
std::unique_ptr<HostEnd> dial(const std::string& socket) {
    auto end = std::make_unique<HostEnd>(std::make_shared<WireConnection>(SocketEndpoint::unix(socket), "host"));
    end->channel->start();
    return end;
}

}  // namespace

TEST(AgentRunner, PlanPairsEndpointsWithChannels) {
    auto a = SocketEndpoint::unix("/a"), b = SocketEndpoint::unix("/b"), c = SocketEndpoint::unix("/c"),
         d = SocketEndpoint::unix("/d");
    using Plan = std::vector<std::pair<SocketEndpoint, Channel>>;
    EXPECT_EQ(AgentRunner::plan({}), Plan{});
    Plan shared{{a, Channel::control}, {a, Channel::video}, {a, Channel::input}};
    EXPECT_EQ(AgentRunner::plan({a}), shared);
    EXPECT_EQ(AgentRunner::plan({a, b}), shared);
    Plan separate{{a, Channel::control}, {b, Channel::video}, {c, Channel::input}};
    EXPECT_EQ(AgentRunner::plan({a, b, c}), separate);
    EXPECT_EQ(AgentRunner::plan({a, b, c, d}), separate);
}

TEST(AgentRunner, ListeningAgentRepliesToEachHostsHelloAfterAttaching) {
    Agent agent(true, false);
    agent.runner->run();
    ASSERT_TRUE(agent.runUntil([&] { return std::filesystem::exists(agent.socket); }));

    // Two hosts at once; the second says hello first.
    auto first = dial(agent.socket);
    auto second = dial(agent.socket);
    auto reply = agent.main.runTask(second->channel->request(ControlMessage::Hello{hostHello()}, 10), limit);
    EXPECT_EQ(reply, ControlMessage(ControlMessage::Hello{AgentService::agentHelloBase()}));
    reply = agent.main.runTask(
        first->channel->request(ControlMessage::Hello{hostHello({"channel:control", "channel:video"})}, 10), limit);
    EXPECT_EQ(reply.kind(), ControlMessage::Kind::hello);
    EXPECT_EQ(agent.service->controls().size(), 2u);
    ASSERT_NE(agent.service->videoConnection(), nullptr);
    EXPECT_EQ(agent.service->videoConnection()->label(), "host-1");

    // The service now answers requests on the channel.
    auto refused = thrownBy<ControlError>(
        [&] { agent.main.runTask(second->channel->request(ControlMessage::Ok{}, 10), limit); });
    EXPECT_EQ(refused.info().message, "unsupported: agent does not handle ok");

    // A listening run outlives its hosts.
    second.reset();
    first.reset();
    ASSERT_TRUE(agent.runUntil([&] { return agent.service->attached().empty(); }));
    EXPECT_EQ(agent.exits.status.load(), -1);
}

TEST(AgentRunner, ListeningAgentClosesOnAWrongFirstMessageWithoutAReply) {
    Agent agent(true, false);
    agent.runner->run();
    ASSERT_TRUE(agent.runUntil([&] { return std::filesystem::exists(agent.socket); }));
    Hello fromAgent = hostHello();
    fromAgent.role = Hello::Role::agent;
    Hello version2 = hostHello();
    version2.protocolVersion = 2;
    for (ControlMessage first : {ControlMessage(ControlMessage::Hello{fromAgent}),
                                 ControlMessage(ControlMessage::Hello{version2}),
                                 ControlMessage(ControlMessage::ListApps{})}) {
        auto host = dial(agent.socket);
        host->channel->post(first);
        ASSERT_TRUE(host->closed.waitFor(1));
        EXPECT_EQ(host->arrived.value(), 0);
    }
    EXPECT_TRUE(agent.service->attached().empty());
}

TEST(AgentRunner, ListeningAgentClosesASilentConnectionAfterItsLimit) {
    Agent agent(true, false);
    agent.runner->run();
    ASSERT_TRUE(agent.runUntil([&] { return std::filesystem::exists(agent.socket); }));
    auto silent = dial(agent.socket);
    auto late = dial(agent.socket);
    // Each connection has its own limit; the other one still says hello in time.
    auto polite = dial(agent.socket);
    EXPECT_EQ(agent.main.runTask(polite->channel->request(ControlMessage::Hello{hostHello()}, 10), limit).kind(),
              ControlMessage::Kind::hello);
    ASSERT_TRUE(agent.runUntil([&] { return silent->closed.value() == 1 && late->closed.value() == 1; }));
    EXPECT_EQ(polite->closed.value(), 0);
    // A hello after the limit finds the channel closed.
    EXPECT_THROW(agent.main.runTask(late->channel->request(ControlMessage::Hello{hostHello()}, 10), limit),
                 ControlError);
}

TEST(AgentRunner, DiallingAgentOpensThreeChannelsInOrderAndRedialsAfterALostRound) {
    LogLines logs;
    Agent agent(false, false);  // stays up like a guest run
    FakeHost host(agent.socket);
    agent.runner->run();
    ASSERT_TRUE(agent.runUntil([&] { return host.hellos.value() == 3; }));
    EXPECT_EQ(host.channelNames(), (std::vector<std::string>{"channel:control", "channel:video", "channel:input"}));
    ASSERT_TRUE(agent.runUntil([&] { return agent.service->attached().size() == 3; }));
    EXPECT_EQ(agent.service->controls().size(), 1u);
    EXPECT_EQ(agent.service->videoConnection()->label(), "agent-channel:video");
    std::string connected = "connected to host on unix:" + agent.socket;
    ASSERT_TRUE(agent.runUntil([&] { return LogLines::count(connected) == 1; }));

    // The video connection dying alone leaves the round up.
    host.end(1)->channel->close();
    ASSERT_TRUE(agent.runUntil([&] { return agent.service->videoConnection() == nullptr; }));
    EXPECT_EQ(host.accepted.value(), 3);

    // Losing control ends the round: the others close and three fresh ones follow at once.
    host.end(0)->channel->close();
    ASSERT_TRUE(agent.runUntil([&] { return host.hellos.value() == 6; }));
    EXPECT_TRUE(host.end(2)->closed.waitFor(1));
    EXPECT_EQ(agent.exits.status.load(), -1);
}

TEST(AgentRunner, DiallingSimulationExitsWhenItsControlChannelCloses) {
    Agent agent(false, true);
    FakeHost host(agent.socket);
    agent.runner->run();
    ASSERT_TRUE(agent.runUntil([&] { return agent.service->attached().size() == 3; }));
    host.end(0)->channel->close();
    ASSERT_TRUE(agent.runUntil([&] { return agent.exits.exited.value() > 0; }));
    EXPECT_EQ(agent.exits.status.load(), 0);
}

TEST(AgentRunner, AHostThatNeverAnswersCostsOneHandshakeFailure) {
    LogLines logs;
    Agent agent(false, false);
    FakeHost host(agent.socket, false);
    agent.runner->run();
    ASSERT_TRUE(agent.runUntil([&] { return LogLines::count("handshake failed on channel:control") == 1; }));
    EXPECT_TRUE(host.end(0)->closed.waitFor(1));
    EXPECT_EQ(host.channelNames(), std::vector<std::string>{"channel:control"});
}

TEST(AgentRunner, DiallingAgentRedialsEachTimeItsHostComesBack) {
    Agent agent(false, false);  // stays up like a guest run
    auto host = std::make_unique<FakeHost>(agent.socket);
    agent.runner->run();
    for (int cycle = 1; cycle <= 100; ++cycle) {
        ASSERT_TRUE(agent.runUntil([&] { return host->hellos.value() == 3; })) << "cycle " << cycle;
        if (cycle % 10 == 0) {
            // Gone for a while: the agent meets no listener and backs off first.
            host.reset();
            host = std::make_unique<FakeHost>(agent.socket);
        } else {
            // Restarted in place: the next host listens before the old one's connections drop.
            host->stopListening();
            auto next = std::make_unique<FakeHost>(agent.socket);
            host = std::move(next);
        }
    }
    ASSERT_TRUE(agent.runUntil([&] { return host->hellos.value() == 3; }));
    ASSERT_TRUE(agent.runUntil([&] { return agent.service->attached().size() == 3; }));
    EXPECT_EQ(agent.exits.status.load(), -1);
}
