#include <gtest/gtest.h>

#include <unistd.h>

#include <atomic>
#include <mutex>
#include <vector>

#include "Support/Errors.h"
#include "Support/Waiter.h"
#include "TslStream/Runtime/GlobalQueue.h"
#include "TslStream/Runtime/Task.h"
#include "TslStream/Transport/ControlChannel.h"
#include "TslStream/Transport/Socket.h"
#include "TslStream/Transport/SocketError.h"
#include "TslCore/Wire/WireError.h"

using namespace tsl;
using tsl::test::thrownBy;
using tsl::test::Waiter;

namespace {

constexpr auto channelLimit = std::chrono::seconds(10);

// The far end of a channel under test: a plain connection that records what
// arrives and can answer.
struct Peer {
    std::shared_ptr<WireConnection> connection;
    std::mutex m;
    std::vector<WireMessage> received;
    Waiter arrived, closed;

    explicit Peer(int fd) : connection(std::make_shared<WireConnection>(fd, "peer")) {
        connection->start(
            [this](WireMessage message) {
                {
                    std::lock_guard g(m);
                    received.push_back(std::move(message));
                }
                arrived.signal();
            },
            [this](std::exception_ptr) { closed.signal(); });
    }
    ~Peer() {
        connection->close();
        EXPECT_TRUE(closed.waitFor(1));
    }
    WireMessage at(size_t i) {
        std::lock_guard g(m);
        return received.at(i);
    }
    ControlEnvelope envelopeAt(size_t i) { return *at(i).get<ControlEnvelope>(); }
    void answer(uint32_t replyTo, ControlMessage message, uint32_t id = 1) {
        connection->send(WireMessage::control(ControlEnvelope{id, replyTo, std::move(message)}));
    }
};

// What the channel's handlers saw.
struct Seen {
    std::mutex m;
    std::vector<ControlEnvelope> unsolicited;
    std::vector<WireMessage> frames;
    std::vector<std::string> order;  // "unsolicited", "frame", "close"
    Waiter unsolicitedCount, frameCount, closed;

    void attach(ControlChannel& channel) {
        channel.setOnUnsolicited([this](ControlEnvelope e) {
            record("unsolicited", [&] { unsolicited.push_back(std::move(e)); });
            unsolicitedCount.signal();
        });
        channel.setOnFrame([this](WireMessage f) {
            record("frame", [&] { frames.push_back(std::move(f)); });
            frameCount.signal();
        });
        channel.setOnClose([this](std::exception_ptr) {
            record("close", [] {});
            closed.signal();
        });
    }
    template <class F>
    void record(const char* what, F&& f) {
        std::lock_guard g(m);
        f();
        order.push_back(what);
    }
};

struct Fixture {
    std::unique_ptr<Peer> peer;
    std::shared_ptr<ControlChannel> channel;
    Seen seen;

    explicit Fixture(bool startChannel = true) {
        auto [a, b] = socketPair();
        peer = std::make_unique<Peer>(b);
        channel = std::make_shared<ControlChannel>(std::make_shared<WireConnection>(a, "channel"));
        seen.attach(*channel);
        if (startChannel) channel->start();
    }
    ~Fixture() {
        channel->close();
        EXPECT_TRUE(seen.closed.waitFor(1));
    }

    ControlMessage request(ControlMessage message, double timeout = 10) {
        return runBlocking(GlobalQueue::executor(), channel->request(std::move(message), timeout), channelLimit);
    }
};

ControlMessage statusRequest() { return ControlMessage::Status{}; }

}  // namespace

TEST(ControlChannel, RequestGetsItsReplyAndErrorsThrowControlError) {
    Fixture f;
    std::thread answerer([&] {
        ASSERT_TRUE(f.peer->arrived.waitFor(1));
        auto request = f.peer->envelopeAt(0);
        EXPECT_FALSE(request.replyTo);
        EXPECT_EQ(request.message, statusRequest());
        f.peer->answer(request.id, ControlMessage::Ok{});
        ASSERT_TRUE(f.peer->arrived.waitFor(2));
        f.peer->answer(f.peer->envelopeAt(1).id, ControlMessage::Error{ErrorInfo{"failed", "no: such"}});
    });
    EXPECT_EQ(f.request(statusRequest()), ControlMessage(ControlMessage::Ok{}));
    auto error = thrownBy<ControlError>([&] { f.request(ControlMessage::ListApps{}); });
    answerer.join();
    EXPECT_EQ(error.info(), (ErrorInfo{"failed", "no: such"}));
    EXPECT_EQ(error.description(), "failed: no: such");
    EXPECT_EQ(f.seen.unsolicitedCount.value(), 0);
}

TEST(ControlChannel, LateAndSpuriousRepliesGoToUnsolicited) {
    Fixture f;
    // Timeout 0 still sends the frame; the reply then arrives after the time-out.
    auto error = thrownBy<ControlError>([&] { f.request(statusRequest(), 0); });
    EXPECT_EQ(error.info().code, "timeout");
    EXPECT_EQ(error.info().message, "no reply to status within 0.0 s");
    ASSERT_TRUE(f.peer->arrived.waitFor(1));
    uint32_t late = f.peer->envelopeAt(0).id;
    f.peer->answer(late, ControlMessage::Ok{}, 7);
    f.peer->answer(99999, ControlMessage::Ok{}, 8);
    ASSERT_TRUE(f.seen.unsolicitedCount.waitFor(2));
    std::lock_guard g(f.seen.m);
    EXPECT_EQ(f.seen.unsolicited[0].replyTo, late);
    EXPECT_EQ(f.seen.unsolicited[0].id, 7u);
    EXPECT_EQ(f.seen.unsolicited[1].replyTo, 99999u);
}

TEST(ControlChannel, TimeoutTextPrintsTheSecondsAsADecimal) {
    Fixture f;
    auto error = thrownBy<ControlError>([&] { f.request(ControlMessage::GetMenu{}, 0.25); });
    EXPECT_EQ(error.info().message, "no reply to getMenu within 0.25 s");
}

TEST(ControlChannel, CloseFailsEveryWaiterBeforeOnCloseAndRefusesLaterRequests) {
    Fixture f;
    std::mutex m;
    std::vector<std::string> outcomes;
    Waiter failed;
    for (int i = 0; i < 3; ++i) {
        GlobalQueue::spawn([&, ch = f.channel]() -> asio::awaitable<void> {
            try {
                co_await ch->request(statusRequest(), 30);
            } catch (const ControlError& e) {
                std::lock_guard g(m);
                outcomes.push_back(e.info().code);
            } catch (const std::exception& e) {
                std::lock_guard g(m);
                outcomes.push_back(e.what());
            }
            failed.signal();
        });
    }
    ASSERT_TRUE(f.peer->arrived.waitFor(3));
    f.peer->connection->close();  // a clean end from the far side
    ASSERT_TRUE(failed.waitFor(3));
    ASSERT_TRUE(f.seen.closed.waitFor(1));
    {
        std::lock_guard g(m);
        EXPECT_EQ(outcomes, std::vector<std::string>(3, "closed"));
    }
    auto refused = thrownBy<ControlError>([&] { f.request(statusRequest()); });
    EXPECT_EQ(refused.description(), "closed: connection closed");
    // Writes after the end fail as the connection refuses them.
    EXPECT_THROW(f.channel->post(ControlMessage::Ok{}), SocketError);
}

TEST(ControlChannel, RequestOnAClosedChannelSendsNothing) {
    Fixture f;
    f.channel->close();
    ASSERT_TRUE(f.seen.closed.waitFor(1));
    EXPECT_THROW(f.request(statusRequest()), ControlError);
    // The peer's reader has seen the end of the stream, so everything sent came before it.
    ASSERT_TRUE(f.peer->closed.waitFor(1));
    EXPECT_EQ(f.peer->arrived.value(), 0);
}

TEST(ControlChannel, NumbersWrapToOneAndAreSharedByEveryKindOfSend) {
    Fixture f;
    f.channel->setLastID(UINT32_MAX - 1);
    f.channel->post(ControlMessage::Ok{});
    f.channel->postAsync(ControlMessage::Ok{});
    ASSERT_TRUE(f.peer->arrived.waitFor(2));
    f.channel->reply(ControlEnvelope{41, std::nullopt, ControlMessage::ListApps{}}, ControlMessage::Ok{});
    ASSERT_TRUE(f.peer->arrived.waitFor(3));
    EXPECT_EQ(f.peer->envelopeAt(0).id, UINT32_MAX);
    EXPECT_EQ(f.peer->envelopeAt(1).id, 1u);
    EXPECT_EQ(f.peer->envelopeAt(2).id, 2u);
    EXPECT_EQ(f.peer->envelopeAt(2).replyTo, 41u);
}

TEST(ControlChannel, PingIsAnsweredWithoutAnyHandlerAndPongGoesToOnFrame) {
    auto [a, b] = socketPair();
    Peer peer(b);
    auto channel = std::make_shared<ControlChannel>(std::make_shared<WireConnection>(a, "bare"));
    channel->start();
    peer.connection->send(WireMessage::ping(0xABCDEF));
    ASSERT_TRUE(peer.arrived.waitFor(1));
    EXPECT_EQ(peer.at(0), WireMessage::pong(0xABCDEF));
    channel->close();

    Fixture f;
    f.peer->connection->send(WireMessage::ping(5));
    f.peer->connection->send(WireMessage::pong(6));
    f.peer->connection->send(WireMessage::control(ControlEnvelope{3, std::nullopt, ControlMessage::ListApps{}}));
    ASSERT_TRUE(f.seen.unsolicitedCount.waitFor(1));
    std::lock_guard g(f.seen.m);
    ASSERT_EQ(f.seen.frames.size(), 1u);
    EXPECT_EQ(f.seen.frames[0], WireMessage::pong(6));
    EXPECT_EQ(f.seen.order, (std::vector<std::string>{"frame", "unsolicited"}));
}

TEST(ControlChannel, ABadFrameFailsWaitersWithTheDecoderError) {
    auto [a, b] = socketPair();
    auto channel = std::make_shared<ControlChannel>(std::make_shared<WireConnection>(a, "bad"));
    Seen seen;
    seen.attach(*channel);
    channel->start();
    std::exception_ptr error;
    Waiter done;
    GlobalQueue::spawn([&, channel]() -> asio::awaitable<void> {
        try {
            co_await channel->request(statusRequest(), 30);
        } catch (...) {
            error = std::current_exception();
        }
        done.signal();
    });
    uint8_t buffer[256];
    ASSERT_GT(::read(b, buffer, sizeof buffer), 0);  // the request went out
    const uint8_t junk[16] = {0xde, 0xad, 0xbe, 0xef};  // a header with the wrong magic
    ASSERT_EQ(::write(b, junk, sizeof junk), 16);
    ASSERT_TRUE(done.waitFor(1));
    EXPECT_THROW(std::rethrow_exception(error), WireError);
    EXPECT_TRUE(seen.closed.waitFor(1));
    ::close(b);
}

TEST(ControlChannel, ConcurrentRequestsEachGetTheirOwnReply) {
    auto [a, b] = socketPair();
    // An echoing peer: answers each request with the request's own message.
    auto echo = std::make_shared<WireConnection>(b, "echo");
    Waiter echoClosed;
    echo->start(
        [echo = echo.get()](WireMessage m) {
            auto e = *m.get<ControlEnvelope>();
            echo->send(WireMessage::control(ControlEnvelope{e.id, e.id, e.message}));
        },
        [&](std::exception_ptr) { echoClosed.signal(); });
    auto channel = std::make_shared<ControlChannel>(std::make_shared<WireConnection>(a, "many"));
    channel->start();
    std::atomic<int> matched = 0;
    Waiter finished;
    constexpr int count = 200;
    for (int i = 0; i < count; ++i)
        GlobalQueue::spawn([&, channel, i]() -> asio::awaitable<void> {
            ControlMessage mine = ControlMessage::QuitApp{i};
            if (co_await channel->request(mine, 30) == mine) ++matched;
            finished.signal();
        });
    ASSERT_TRUE(finished.waitFor(count));
    EXPECT_EQ(matched.load(), count);
    channel->close();
    EXPECT_TRUE(echoClosed.waitFor(1));
}
