#include <gtest/gtest.h>
#include <sys/socket.h>
#include <unistd.h>

#include <optional>

#include "Support/Errors.h"
#include "Support/LogLines.h"
#include "Support/Waiter.h"
#include "TslStream/Agent/AgentAcceptor.h"
#include "TslStream/Runtime/GlobalQueue.h"
#include "TslCore/Wire/FrameDecoder.h"
#include "TslStream/Transport/Socket.h"

namespace tsl::test {
namespace {

constexpr auto acceptorLimit = std::chrono::seconds(20);

Hello acceptorHostHello() {
    Hello h;
    h.role = Hello::Role::host;
    h.softwareVersion = "host";
    h.capabilities = {"simulation"};
    return h;
}

Hello agentHello(std::vector<std::string> capabilities) {
    Hello h;
    h.role = Hello::Role::agent;
    h.softwareVersion = "agent";
    h.capabilities = std::move(capabilities);
    return h;
}

// The agent's end of one connection to the acceptor.
struct AgentEnd {
    std::shared_ptr<ControlChannel> channel;
    Waiter closed;

    AgentEnd(AgentAcceptor& acceptor, const std::string& label, std::optional<Channel> expected = std::nullopt) {
        auto [hostFd, agentFd] = socketPair();
        acceptor.accept(hostFd, label, expected);
        channel = std::make_shared<ControlChannel>(std::make_shared<WireConnection>(agentFd, "agent-" + label));
        channel->setOnClose([this](std::exception_ptr) { closed.signal(); });
        channel->start();
    }
    ~AgentEnd() {
        channel->close();
        closed.waitFor(1);
    }

    ControlMessage send(ControlMessage message) {
        return runBlocking(GlobalQueue::executor(), channel->request(std::move(message), 10), acceptorLimit);
    }
    ControlMessage hello(std::vector<std::string> capabilities) { return send(ControlMessage::Hello{agentHello(std::move(capabilities))}); }
    // The handshake's refusal text, or "" when the hello passed.
    std::string refusalOf(ControlMessage message) {
        try {
            send(std::move(message));
            return "";
        } catch (const ControlError& error) {
            EXPECT_EQ(error.info().code, "handshake");
            return error.info().message;
        }
    }
    bool isClosedByHost() { return closed.waitFor(1); }
};

std::shared_ptr<AgentLink> waitForLink(AgentAcceptor& acceptor, double timeout = 10) {
    return runBlocking(GlobalQueue::executor(), acceptor.waitForLink(timeout), acceptorLimit);
}

VideoFrameHeader rawHeader(uint32_t streamID, uint32_t width, uint32_t height) {
    VideoFrameHeader h;
    h.streamID = streamID;
    h.codec = VideoCodec::rawBGRA;
    h.width = width;
    h.height = height;
    h.bytesPerRow = width * 4;
    h.pixelFormat = 0x42475241;
    return h;
}

// What a link delivers to its two handlers.
struct Delivered {
    std::mutex m;
    std::vector<VideoFrameHeader> frames;
    std::vector<size_t> sizes;
    std::vector<ControlEnvelope> events;
    Waiter video, event;

    void watch(AgentLink& link) {
        link.onVideo([this](const VideoFrameHeader& h, const Bytes& data) {
            {
                std::lock_guard g(m);
                frames.push_back(h);
                sizes.push_back(data.size());
            }
            video.signal();
        });
        link.onEvent([this](ControlEnvelope e) {
            {
                std::lock_guard g(m);
                events.push_back(std::move(e));
            }
            event.signal();
        });
    }
};

class AgentAcceptorTest : public ::testing::Test {
protected:
    std::shared_ptr<AgentAcceptor> acceptor = std::make_shared<AgentAcceptor>(acceptorHostHello());
    void TearDown() override {
        if (auto link = acceptor->currentLink()) link->close();
    }
};

TEST_F(AgentAcceptorTest, ChannelsInAnyOrderMakeOneLinkThatDeliversVideoAndEvents) {
    AgentEnd video(*acceptor, "v"), input(*acceptor, "i"), control(*acceptor, "c");
    auto hostReply = video.hello({"channel:video"});
    ASSERT_TRUE(hostReply.get<ControlMessage::Hello>());
    EXPECT_EQ(hostReply.get<ControlMessage::Hello>()->value, acceptorHostHello());
    input.hello({"channel:input"});
    EXPECT_EQ(acceptor->currentLink(), nullptr);

    // A waiter parked before the control channel is resumed by it.
    std::shared_ptr<AgentLink> waited;
    Waiter resumed;
    std::thread waiting([&] {
        waited = waitForLink(*acceptor);
        resumed.signal();
    });
    control.hello({"channel:control", "other"});
    ASSERT_TRUE(resumed.waitFor(1));
    waiting.join();
    auto link = acceptor->currentLink();
    ASSERT_TRUE(link);
    EXPECT_EQ(waited, link);
    EXPECT_EQ(link->agentHello.capabilities, (std::vector<std::string>{"channel:control", "other"}));
    ASSERT_TRUE(link->videoChannel());
    ASSERT_TRUE(link->inputChannel());

    Delivered delivered;
    delivered.watch(*link);
    // Larger than the handshake's limit, which a passed hello lifts.
    video.channel->connection->send(WireMessage::video(rawHeader(7, 160, 120), Bytes(160 * 120 * 4, 0x80)));
    control.channel->connection->send(WireMessage::video(rawHeader(8, 2, 2), Bytes(16, 1)));
    control.channel->postAsync(ControlMessage::Ok{});
    ASSERT_TRUE(delivered.video.waitFor(2));
    ASSERT_TRUE(delivered.event.waitFor(1));
    {
        std::lock_guard g(delivered.m);
        std::vector<uint32_t> streams{delivered.frames[0].streamID, delivered.frames[1].streamID};
        std::sort(streams.begin(), streams.end());
        EXPECT_EQ(streams, (std::vector<uint32_t>{7, 8}));
        EXPECT_EQ(delivered.events[0].message.kind(), ControlMessage::Kind::ok);
    }

}

// An agent sends video on a channel as soon as its hello is out, without
// waiting for the reply: a large frame that arrives in the same read as the
// hello meets the limit the hello lifted, not the handshake's.
TEST_F(AgentAcceptorTest, AFrameRightBehindTheHelloInOneWriteIsDelivered) {
    AgentEnd control(*acceptor, "c");
    control.hello({"channel:control"});
    auto link = acceptor->currentLink();
    ASSERT_TRUE(link);
    Delivered delivered;
    delivered.watch(*link);

    auto [hostFd, agentFd] = socketPair();
    acceptor->accept(hostFd, "v", std::nullopt);
    Bytes bytes = WireMessage::control(ControlEnvelope{1, std::nullopt, ControlMessage::Hello{agentHello({"channel:video"})}})
                      .encoded(0);
    const Bytes frame = WireMessage::video(rawHeader(9, 640, 480), Bytes(640 * 480 * 4, 0x40)).encoded(1);
    bytes.insert(bytes.end(), frame.begin(), frame.end());
    for (size_t at = 0; at < bytes.size();) {
        ssize_t n = ::write(agentFd, bytes.data() + at, bytes.size() - at);
        ASSERT_GT(n, 0);
        at += size_t(n);
    }
    ASSERT_TRUE(delivered.video.waitFor(1));
    {
        std::lock_guard g(delivered.m);
        EXPECT_EQ(delivered.frames[0].streamID, 9u);
        EXPECT_EQ(delivered.sizes[0], size_t(640 * 480 * 4));
    }
    ASSERT_TRUE(link->videoChannel());
    EXPECT_FALSE(link->videoChannel()->connection->isClosed());
    ::close(agentFd);
}

TEST_F(AgentAcceptorTest, LateChannelsAttachToTheLiveLinkAndAReplacedControlClosesTheOldLink) {
    auto first = std::make_unique<AgentEnd>(*acceptor, "c1");
    first->hello({"channel:control"});
    auto link = waitForLink(*acceptor);  // live: returned at once
    EXPECT_EQ(link, acceptor->currentLink());
    AgentEnd video(*acceptor, "v1");
    video.hello({"channel:video"});
    EXPECT_EQ(link->videoChannel()->connection->label(), "v1");
    // A second video channel replaces the first without closing it.
    AgentEnd video2(*acceptor, "v2");
    video2.hello({"channel:video"});
    EXPECT_EQ(link->videoChannel()->connection->label(), "v2");
    EXPECT_FALSE(video.closed.waitFor(1, std::chrono::milliseconds(50)));

    // While it lives, another control channel is refused.
    {
        AgentEnd intruder(*acceptor, "c2");
        EXPECT_EQ(intruder.refusalOf(ControlMessage::Hello{agentHello({"channel:control"})}), "an agent is already connected");
        EXPECT_TRUE(intruder.isClosedByHost());
    }
    EXPECT_EQ(acceptor->currentLink(), link);

    first.reset();  // the agent's control connection dies
    for (int i = 0; i < 200 && link->isLive(); ++i) std::this_thread::sleep_for(std::chrono::milliseconds(10));
    ASSERT_FALSE(link->isLive());
    AgentEnd again(*acceptor, "c3");
    again.hello({});  // a hello naming no channel counts as control
    auto next = acceptor->currentLink();
    ASSERT_NE(next, link);
    EXPECT_TRUE(next->isLive());
    EXPECT_TRUE(video2.isClosedByHost());  // went with the old link
    EXPECT_EQ(next->videoChannel(), nullptr);
}

TEST_F(AgentAcceptorTest, OfTwoWaitingVideoChannelsTheFirstIsClosedAndTheSecondKept) {
    AgentEnd v1(*acceptor, "v1"), v2(*acceptor, "v2"), c(*acceptor, "c");
    v1.hello({"channel:video"});
    v2.hello({"channel:video"});
    EXPECT_TRUE(v1.isClosedByHost());
    c.hello({"channel:control"});
    EXPECT_EQ(acceptor->currentLink()->videoChannel()->connection->label(), "v2");
}

TEST_F(AgentAcceptorTest, FirstMessagesThatAreNoAgentHelloForThePortAreRefusedAndClosed) {
    LogLines logs;
    auto refused = [&](std::optional<Channel> port, ControlMessage first) {
        AgentEnd end(*acceptor, "x", port);
        std::string reason = end.refusalOf(std::move(first));
        EXPECT_TRUE(end.isClosedByHost()) << reason;
        return reason;
    };
    Hello host = agentHello({"channel:control"});
    host.role = Hello::Role::host;
    Hello v2 = agentHello({"channel:control"});
    v2.protocolVersion = 2;
    EXPECT_EQ(refused(std::nullopt, ControlMessage::Hello{host}), "expected agent hello v1");
    EXPECT_EQ(refused(std::nullopt, ControlMessage::Hello{v2}), "expected agent hello v1");
    EXPECT_EQ(refused(std::nullopt, ControlMessage::ListApps{}), "expected agent hello v1");
    for (auto capabilities : std::vector<std::vector<std::string>>{{"channel:control"}, {"channel:video", "channel:control"}, {}})
        EXPECT_EQ(refused(Channel::video, ControlMessage::Hello{agentHello(capabilities)}),
                  "channel does not match port (channel:video)");
    EXPECT_EQ(logs.count("refused agent connection: expected agent hello v1"), 3);
    EXPECT_EQ(acceptor->currentLink(), nullptr);

    // The port's own channel passes.
    AgentEnd input(*acceptor, "i", Channel::input);
    EXPECT_EQ(input.refusalOf(ControlMessage::Hello{agentHello({"channel:input"})}), "");

    // Before a hello no frame above 64 KiB is read: the connection ends unanswered.
    AgentEnd big(*acceptor, "big");
    EXPECT_THROW(big.hello({std::string(70000, 'x')}), ControlError);
    EXPECT_TRUE(big.isClosedByHost());
}

TEST_F(AgentAcceptorTest, TheNinthPendingHandshakeIsDroppedAndSilentOnesTimeOut) {
    LogLines logs;
    auto quick = std::make_shared<AgentAcceptor>(acceptorHostHello(), 0.3);
    std::vector<std::unique_ptr<AgentEnd>> pending;
    for (int i = 0; i < 8; ++i) pending.push_back(std::make_unique<AgentEnd>(*acceptor, "p" + std::to_string(i)));
    AgentEnd ninth(*acceptor, "p8");
    EXPECT_TRUE(ninth.isClosedByHost());
    EXPECT_EQ(logs.count("too many pending agent handshakes; dropping p8"), 1);
    // A peer that goes during its handshake frees its place.
    pending[0].reset();
    for (int i = 0; i < 200; ++i) {
        AgentEnd probe(*acceptor, "probe");
        if (!probe.closed.waitFor(1, std::chrono::milliseconds(20))) {
            EXPECT_EQ(probe.refusalOf(ControlMessage::Hello{agentHello({"channel:control"})}), "");
            break;
        }
    }
    EXPECT_TRUE(acceptor->currentLink());

    AgentEnd silent(*quick, "silent");
    EXPECT_TRUE(silent.isClosedByHost());
    EXPECT_EQ(logs.count("agent connection silent sent no hello; closed"), 1);
}

TEST_F(AgentAcceptorTest, WaitingForALinkTimesOutWithWholeSeconds) {
    auto error = thrownBy<ControlError>([&] { waitForLink(*acceptor, 0.4); });
    EXPECT_EQ(error.info().code, "timeout");
    EXPECT_EQ(error.info().message, "guest agent did not connect within 0 s");
}

TEST_F(AgentAcceptorTest, InputIsShedUnderBackPressureMouseMovesFirst) {
    auto [hostFd, agentFd] = socketPair();
    acceptor->accept(hostFd, "c", std::nullopt);
    auto control = std::make_shared<ControlChannel>(std::make_shared<WireConnection>(agentFd, "agent-c"));
    control->start();
    runBlocking(GlobalQueue::executor(), control->request(ControlMessage::Hello{agentHello({})}, 10), acceptorLimit);
    auto link = acceptor->currentLink();
    ASSERT_TRUE(link);

    auto [linkFd, peerFd] = socketPair();
    // Fill the link's direction so the first send stalls.
    int filler = 0;
    std::vector<uint8_t> junk(4096, 0);
    for (size_t chunk : {junk.size(), size_t(1)})
        for (;;) {
            ssize_t n = ::send(linkFd, junk.data(), chunk, MSG_DONTWAIT | MSG_NOSIGNAL);
            if (n <= 0) break;
            filler += int(n);
        }
    link->attachInputChannel(std::make_shared<ControlChannel>(std::make_shared<WireConnection>(linkFd, "input")));

    auto event = [](InputEvent::Kind kind, uint32_t sequence) {
        InputEvent e;
        e.kind = kind;
        e.sequence = sequence;
        return e;
    };
    uint32_t sequence = 0;
    std::vector<uint32_t> expected;
    for (int i = 0; i < 32; ++i) {
        expected.push_back(++sequence);
        link->sendInput(event(InputEvent::Kind::mouseMove, sequence));
    }
    link->sendInput(event(InputEvent::Kind::mouseMove, ++sequence));  // 32 pending: shed
    for (int i = 32; i < 256; ++i) {
        expected.push_back(++sequence);
        link->sendInput(event(InputEvent::Kind::keyDown, sequence));
    }
    link->sendInput(event(InputEvent::Kind::keyDown, ++sequence));  // 256 pending: shed
    link->sendInput(event(InputEvent::Kind::mouseMove, ++sequence));

    // Drain: the junk, then the events in order; a marker sent once the queue
    // has emptied closes the list.
    FrameDecoder decoder;
    std::vector<uint32_t> arrived;
    std::vector<uint8_t> buffer(65536);
    int skipped = 0;
    bool markerSent = false;
    auto deadline = std::chrono::steady_clock::now() + acceptorLimit;
    while (std::chrono::steady_clock::now() < deadline) {
        ssize_t n = ::recv(peerFd, buffer.data(), buffer.size(), MSG_DONTWAIT);
        if (n <= 0) {
            if (arrived.size() == expected.size() && !markerSent) {
                markerSent = true;
                link->sendInput(event(InputEvent::Kind::keyUp, 9999));
            }
            std::this_thread::sleep_for(std::chrono::milliseconds(1));
            continue;
        }
        std::span<const uint8_t> bytes(buffer.data(), size_t(n));
        int skip = std::min(filler - skipped, int(n));
        skipped += skip;
        for (auto& m : decoder.feed(bytes.subspan(size_t(skip))))
            if (auto e = m.get<InputEvent>()) arrived.push_back(e->sequence);
        if (!arrived.empty() && arrived.back() == 9999) break;
    }
    ::close(peerFd);
    ASSERT_FALSE(arrived.empty());
    EXPECT_EQ(arrived.back(), 9999u);
    arrived.pop_back();
    EXPECT_EQ(arrived, expected);
    control->close();
}

}  // namespace
}  // namespace tsl::test
