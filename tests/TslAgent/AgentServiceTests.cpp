#include <gtest/gtest.h>

#include <cmath>

#include "Support/AgentTestSupport.h"
#include "Platform/Sim/Desktop.h"
#include "Support/Errors.h"
#include "TslCore/Support/TesselVersion.h"
#include "TslStream/Runtime/GlobalQueue.h"

using namespace tsl;
using namespace tsl::test;

namespace {

AgentConfig listeningConfig(bool exitOnDisconnect) {
    return AgentConfig::simulation(AgentConfig::Mode::listen(SocketEndpoint::unix("/unused")), "/nonexistent-root",
                                   exitOnDisconnect);
}

// A service on this thread's main actor with channels attached over socket
// pairs; the host ends are plain control channels.
struct AgentServiceWorld {
    MainActor main;
    std::shared_ptr<Sim::Desktop> desktop = Sim::Desktop::make();
    ExitRecorder exits;
    std::shared_ptr<AgentService> service;
    std::vector<std::shared_ptr<ControlChannel>> agentEnds;
    std::vector<std::unique_ptr<HostEnd>> hostEnds;

    explicit AgentServiceWorld(bool exitOnDisconnect = false)
        : service(std::make_shared<AgentService>(listeningConfig(exitOnDisconnect), desktop->services(),
                                                 exits.function())) {}
    ~AgentServiceWorld() {
        hostEnds.clear();
        main.runUntil([&] { return service->attached().empty(); }, limit);
    }

    // Attaches a new channel naming `channels`; returns its index.
    size_t attach(std::set<Channel> channels) {
        auto [a, b] = socketPair();
        auto agentEnd = std::make_shared<ControlChannel>(std::make_shared<WireConnection>(a, "agent"));
        service->attach(agentEnd, channels);
        agentEnd->start();
        hostEnds.push_back(std::make_unique<HostEnd>(std::make_shared<WireConnection>(b, "host")));
        hostEnds.back()->channel->start();
        agentEnds.push_back(agentEnd);
        return agentEnds.size() - 1;
    }

    ControlMessage request(size_t host, ControlMessage message) {
        return main.runTask(hostEnds[host]->channel->request(std::move(message), 10), limit);
    }
    void closeHost(size_t host) {
        hostEnds[host]->channel->close();
        auto& attached = service->attached();
        ASSERT_TRUE(main.runUntil(
            [&] { return std::find(attached.begin(), attached.end(), agentEnds[host]) == attached.end(); }, limit));
    }
};

template <class Fn>
std::string badRequestText(Fn&& fn) {
    return thrownBy<ControlError>(fn).description();
}

}  // namespace

TEST(AgentService, HelloNamesTheAgentAndItsCapabilities) {
    Hello h = AgentService::agentHelloBase();
    EXPECT_EQ(h.role, Hello::Role::agent);
    EXPECT_EQ(h.protocolVersion, 1);
    EXPECT_EQ(h.capabilities, (std::vector<std::string>{"h264", "raw", "clipboard", "menus", "stream-update"}));
    EXPECT_EQ(h.agentProto, 2);
    EXPECT_EQ(h.softwareVersion, TesselVersion::string);
    EXPECT_FALSE(h.osVersion.empty());
    EXPECT_TRUE(h.arch == "x86_64" || h.arch == "arm64");
}

TEST(AgentService, RequestsGetRepliesAndRefusalsComeBackAsFailed) {
    AgentServiceWorld world;
    world.attach({Channel::control});
    auto reply = world.request(0, ControlMessage::Hello{hostHello()});
    EXPECT_EQ(reply, ControlMessage(ControlMessage::Hello{AgentService::agentHelloBase()}));
    for (ControlMessage unhandled : {ControlMessage(ControlMessage::Ok{}), ControlMessage(ControlMessage::Error{}),
                                     ControlMessage(ControlMessage::AppList{})}) {
        auto error = thrownBy<ControlError>([&] { world.request(0, unhandled); });
        EXPECT_EQ(error.info().code, "failed");
        EXPECT_EQ(error.info().message, "unsupported: agent does not handle " + ControlChannel::caseName(unhandled));
    }
    // Refused requests never close the channel.
    EXPECT_NO_THROW(world.request(0, ControlMessage::Hello{hostHello()}));
}

TEST(AgentService, StreamRequestLimits) {
    auto text = [](int64_t fps, double scale) {
        try {
            AgentService::validateStreamRequest(StreamRequest{1, 2, fps, scale});
            return std::string("ok");
        } catch (const ControlError& e) {
            return e.description();
        }
    };
    const std::string refused = "badRequest: fps must be 1…120 and scale 0.1…2.0";
    EXPECT_EQ(text(0, 1), refused);
    EXPECT_EQ(text(121, 1), refused);
    EXPECT_EQ(text(30, 0.09), refused);
    EXPECT_EQ(text(30, 2.01), refused);
    EXPECT_EQ(text(30, NAN), refused);
    EXPECT_EQ(text(30, INFINITY), refused);
    EXPECT_EQ(text(120, 2.0), "ok");
    EXPECT_EQ(text(1, 0.1), "ok");
}

TEST(AgentService, WindowFrameLimits) {
    auto passes = [](WireRect frame) {
        try {
            AgentService::validate(WindowAction{7, WindowAction::Kind::setFrame, frame});
            return true;
        } catch (const ControlError& e) {
            EXPECT_EQ(e.description(), "badRequest: window frame out of range");
            return false;
        }
    };
    EXPECT_TRUE(passes({0, 0, 0, 0}));
    EXPECT_FALSE(passes({0, 0, -1, 10}));
    EXPECT_FALSE(passes({0, 0, 10, -1}));
    EXPECT_FALSE(passes({100000, 0, 10, 10}));
    EXPECT_TRUE(passes({-99999.5, 0, 10, 10}));
    EXPECT_FALSE(passes({0, NAN, 10, 10}));
    EXPECT_FALSE(passes({0, 0, INFINITY, 10}));
    EXPECT_NO_THROW(AgentService::validate(WindowAction{7, WindowAction::Kind::close, std::nullopt}));
}

TEST(AgentService, ChannelsJoinAndLeaveTheLists) {
    AgentServiceWorld world;
    world.attach({Channel::control});
    world.attach({Channel::video});
    world.attach({Channel::input});
    EXPECT_EQ(world.service->controls().size(), 1u);
    EXPECT_EQ(world.service->attached().size(), 3u);
    EXPECT_EQ(world.service->videoConnection(), world.agentEnds[1]->connection);

    // A connection that names no channel serves as everything, but does not
    // take the video role from a named one.
    world.attach({});
    EXPECT_EQ(world.service->controls().size(), 2u);
    EXPECT_EQ(world.service->videoConnection(), world.agentEnds[1]->connection);
    // Only control channels take requests.
    EXPECT_EQ(world.request(3, ControlMessage::Hello{hostHello()}).kind(), ControlMessage::Kind::hello);

    // The video connection dying alone empties the video role; control lives on.
    world.closeHost(1);
    EXPECT_EQ(world.service->videoConnection(), nullptr);
    EXPECT_EQ(world.service->attached().size(), 3u);
    EXPECT_EQ(world.request(0, ControlMessage::Hello{hostHello()}).kind(), ControlMessage::Kind::hello);

    // A newly attached video channel takes the role.
    world.attach({Channel::video});
    EXPECT_EQ(world.service->videoConnection(), world.agentEnds[4]->connection);

    world.closeHost(0);
    EXPECT_EQ(world.service->controls().size(), 1u);
    EXPECT_EQ(world.exits.status.load(), -1);  // not an exiting run
}

TEST(AgentService, LastControlChannelEndsAnExitingRunWithStatusZero) {
    LogLines logs;
    AgentServiceWorld world(true);
    world.attach({Channel::control});
    world.attach({Channel::control});
    world.closeHost(0);
    EXPECT_EQ(world.exits.status.load(), -1);
    // Even with a request outstanding on the host's side.
    GlobalQueue::spawn([ch = world.hostEnds[1]->channel]() -> asio::awaitable<void> {
        try {
            co_await ch->request(ControlMessage::Status{}, 10);
        } catch (const std::exception&) {
        }
    });
    world.closeHost(1);
    EXPECT_EQ(world.exits.status.load(), 0);
    EXPECT_EQ(LogLines::count("host disconnected; exiting (simulation)"), 1);
}

TEST(AgentService, StatusReportsPermissionsAndNoProvisionInASimulation) {
    AgentServiceWorld world;
    world.attach({Channel::control});
    world.desktop->setScreenRecordingGranted(false);
    world.desktop->setAccessibilityTrusted(true);
    auto reply = world.request(0, ControlMessage::Status{AgentStatus{}});  // a value in the request is ignored
    auto status = reply.get<ControlMessage::Status>();
    ASSERT_TRUE(status && status->value);
    EXPECT_FALSE(status->value->screenRecordingGranted);
    EXPECT_TRUE(status->value->accessibilityGranted);
    EXPECT_TRUE(status->value->activeStreams.empty());
    EXPECT_FALSE(status->value->provision);
    EXPECT_GE(status->value->uptimeSeconds, 0);
}
