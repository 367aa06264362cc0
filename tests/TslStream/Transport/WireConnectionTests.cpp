#include <gtest/gtest.h>
#include <unistd.h>

#include <atomic>
#include <map>
#include <thread>

#include "Support/Waiter.h"
#include "TslCore/Wire/FrameDecoder.h"
#include "TslCore/Wire/WireError.h"
#include "TslStream/Transport/Socket.h"
#include "TslStream/Transport/SocketError.h"
#include "TslStream/Transport/WireConnection.h"

using namespace tsl;
using tsl::test::Waiter;

namespace {

// What one connection's callbacks saw, safe to read once `closed` fired.
// Closes its connection and waits for the reader's end before it goes away.
struct Recorder {
    std::mutex m;
    std::vector<WireMessage> messages;
    std::exception_ptr error;
    Waiter received, closed;
    std::shared_ptr<WireConnection> connection;
    bool started = false;

    ~Recorder() {
        if (!started) return;
        connection->close();
        EXPECT_TRUE(closed.waitFor(1));
    }

    void start(const std::shared_ptr<WireConnection>& c) {
        connection = c;
        started = !c->isClosed();
        c->start(
            [this](WireMessage msg) {
                {
                    std::lock_guard g(m);
                    messages.push_back(std::move(msg));
                }
                received.signal();
            },
            [this](std::exception_ptr e) {
                {
                    std::lock_guard g(m);
                    error = e;
                }
                closed.signal();
            });
    }
};

std::pair<std::shared_ptr<WireConnection>, std::shared_ptr<WireConnection>> pair() {
    auto [a, b] = socketPair();
    return {std::make_shared<WireConnection>(a, "a"), std::make_shared<WireConnection>(b, "b")};
}

template <typename E>
E errorAs(std::exception_ptr p) {
    try {
        std::rethrow_exception(p);
    } catch (const E& e) {
        return e;
    }
}

WireMessage bigVideo(size_t pictureBytes) {
    VideoFrameHeader h;
    h.width = h.height = 1;
    return WireMessage::video(h, Bytes(pictureBytes));
}

}  // namespace

TEST(WireConnection, DeliversInOrderAndCounts) {
    auto [a, b] = pair();
    Recorder rb;
    rb.start(b);
    a->send(WireMessage::ping(1));
    a->send(bigVideo(3 << 20));
    a->send(WireMessage::pong(2));
    ASSERT_TRUE(rb.received.waitFor(3));
    {
        std::lock_guard g(rb.m);
        EXPECT_EQ(*rb.messages[0].get<WireMessage::Ping>(), WireMessage::Ping{1});
        EXPECT_EQ(rb.messages[1].get<WireMessage::Video>()->data.size(), size_t(3 << 20));
        EXPECT_EQ(*rb.messages[2].get<WireMessage::Pong>(), WireMessage::Pong{2});
    }
    EXPECT_EQ(a->bytesSent(), 24u + (16u + 48u + (3u << 20)) + 24u);
    EXPECT_EQ(b->bytesReceived(), a->bytesSent());
    a->close();
    ASSERT_TRUE(rb.closed.waitFor(1));
    EXPECT_FALSE(rb.error) << "peer closing is a clean end";
}

TEST(WireConnection, LocalCloseIsCleanAndOnCloseFiresOnce) {
    auto [a, b] = pair();
    Recorder ra;
    ra.start(a);
    a->close();
    a->close();
    ASSERT_TRUE(ra.closed.waitFor(1));
    EXPECT_FALSE(ra.error) << "never a read error for a local close";
    EXPECT_TRUE(a->isClosed());
    b->close();
    EXPECT_FALSE(ra.closed.waitFor(2, std::chrono::milliseconds(100)));
}

TEST(WireConnection, SecondStartAndStartAfterCloseFailAtOnce) {
    auto [a, b] = pair();
    Recorder first;
    first.start(a);
    Recorder second;
    second.start(a);
    ASSERT_EQ(second.closed.value(), 1) << "called at once, on the caller's thread";
    EXPECT_EQ(errorAs<SocketError>(second.error).code(), EBADF);
    EXPECT_EQ(errorAs<SocketError>(second.error).op(), "start");
    // The first reader still runs.
    b->send(WireMessage::ping(9));
    EXPECT_TRUE(first.received.waitFor(1));

    auto [c, d] = pair();
    c->close();
    Recorder late;
    late.start(c);
    EXPECT_EQ(late.closed.value(), 1);
}

TEST(WireConnection, SendAfterCloseSpendsTheSequenceNumber) {
    auto [a, b] = pair();
    a->send(WireMessage::ping(1));  // sequence 1
    a->close();
    try {
        a->send(WireMessage::ping(2));  // sequence 2, refused
        ADD_FAILURE();
    } catch (const SocketError& e) {
        EXPECT_EQ(e.op(), "write");
        EXPECT_EQ(e.code(), EPIPE);
    }
    Recorder rb;
    rb.start(b);
    ASSERT_TRUE(rb.closed.waitFor(1));
    std::lock_guard g(rb.m);
    ASSERT_EQ(rb.messages.size(), 1u);
}

TEST(WireConnection, GarbageLogsOnceAndClosesWithTheWireError) {
    static std::atomic<int> protocolLines{0};
    Logger::setObserver([](const Logger& l, Logger::Level level, const std::string& line) {
        if (l.category() == "connection" && level == Logger::Level::error && line.find("g: protocol error") == 0) ++protocolLines;
    });
    auto [fdA, fdB] = socketPair();
    auto g = std::make_shared<WireConnection>(fdB, "g");
    Recorder rg;
    rg.start(g);
    ASSERT_EQ(::write(fdA, "XXXXXXXXXXXXXXXXXXXXXXXX", 24), 24);
    ASSERT_TRUE(rg.closed.waitFor(1));
    EXPECT_EQ(errorAs<WireError>(rg.error), WireError::badMagic(0x58585858));
    EXPECT_EQ(protocolLines.load(), 1);
    Logger::setObserver(nullptr);
    ::close(fdA);
}

TEST(WireConnection, PayloadLimitAppliesToFramesNotYetParsed) {
    auto [a, b] = pair();
    b->setPayloadLimit(100);
    Recorder rb;
    rb.start(b);
    a->send(WireMessage::ping(1));
    ASSERT_TRUE(rb.received.waitFor(1));
    a->send(bigVideo(200));
    ASSERT_TRUE(rb.closed.waitFor(1));
    EXPECT_EQ(errorAs<WireError>(rb.error), WireError::payloadTooLarge(2, 248));
}

TEST(WireConnection, FramesFromManyThreadsNeverInterleave) {
    auto [a, b] = pair();
    Recorder rb;
    rb.start(b);
    constexpr int threads = 4, perThread = 200;
    std::vector<std::thread> senders;
    for (int t = 0; t < threads; ++t) {
        senders.emplace_back([&, t] {
            for (int i = 0; i < perThread; ++i) {
                if (i % 50 == 0) a->send(bigVideo(300000 + size_t(t)));
                else a->send(WireMessage::ping(uint64_t(t) << 32 | uint64_t(i)));
            }
        });
    }
    for (auto& s : senders) s.join();
    ASSERT_TRUE(rb.received.waitFor(threads * perThread));
    std::lock_guard g(rb.m);
    std::map<int, int> nextPerThread;
    for (auto& m : rb.messages) {
        if (auto p = m.get<WireMessage::Ping>()) {
            int t = int(p->value >> 32), i = int(p->value & 0xFFFFFFFF);
            EXPECT_GT(i, nextPerThread[t] - 1);
            nextPerThread[t] = i + 1;
        }
    }
}

TEST(WireConnection, SequenceNumbersRiseByOneInWriteOrder) {
    auto [fdA, fdB] = socketPair();
    auto a = std::make_shared<WireConnection>(fdA, "a");
    std::vector<std::thread> senders;
    for (int t = 0; t < 3; ++t)
        senders.emplace_back([&] {
            for (int i = 0; i < 100; ++i) a->send(WireMessage::ping(1));
        });
    for (auto& s : senders) s.join();
    EXPECT_THROW(a->send(bigVideo(100663296)), WireError);  // number 301 is spent on a frame never written
    a->send(WireMessage::ping(2));                          // so this one carries 302
    a->close();
    Bytes all;
    uint8_t buf[4096];
    ssize_t n;
    while ((n = ::read(fdB, buf, sizeof buf)) > 0) all.insert(all.end(), buf, buf + n);
    ASSERT_EQ(all.size(), 301u * 24);
    for (uint32_t k = 0; k < 301; ++k) {
        const uint8_t* h = all.data() + k * 24 + 12;
        uint32_t seq = uint32_t(h[0]) | uint32_t(h[1]) << 8 | uint32_t(h[2]) << 16 | uint32_t(h[3]) << 24;
        EXPECT_EQ(seq, k < 300 ? k + 1 : 302);
    }
    ::close(fdB);
}

TEST(WireConnection, CloseReleasesABlockedWriteFromEitherSide) {
    for (bool closeLocally : {true, false}) {
        auto [a, b] = pair();
        Recorder ra;
        ra.start(a);  // a reader on the writing side owns the closing
        std::atomic<bool> threw{false};
        std::thread writer([&] {
            try {
                for (int i = 0; i < 64; ++i) a->send(bigVideo(8 << 20));  // b never reads: blocks
            } catch (const SocketError&) {
                threw = true;
            }
        });
        std::this_thread::sleep_for(std::chrono::milliseconds(100));  // likely blocked by now; either way it must end
        if (closeLocally) a->close();
        else b->close();
        writer.join();
        EXPECT_TRUE(threw) << (closeLocally ? "local" : "peer");
        EXPECT_TRUE(ra.closed.waitFor(1));
        b->close();
    }
}

TEST(WireConnection, CloseReleasesABlockedReadFromEitherSide) {
    for (bool closeLocally : {true, false}) {
        auto [a, b] = pair();
        Recorder ra;
        ra.start(a);
        if (closeLocally) a->close();
        else b->close();
        ASSERT_TRUE(ra.closed.waitFor(1));
        EXPECT_FALSE(ra.error);
        EXPECT_TRUE(a->isClosed());
    }
}

TEST(WireConnection, TrySendSpendsTheNumberOfAFrameThatFails) {
    auto [fdA, fdB] = socketPair();
    auto a = std::make_shared<WireConnection>(fdA, "a");
    EXPECT_TRUE(a->trySend(WireMessage::ping(1)));  // sequence 1
    ClipboardPayload huge;
    huge.items.push_back({"public.png", Bytes(3'300'000)});  // past the control limit once in Base64
    EXPECT_THROW(a->trySend(WireMessage::control(ControlEnvelope{1, std::nullopt, ControlMessage::Clipboard{huge}})),
                 WireError);  // sequence 2, spent
    EXPECT_TRUE(a->trySend(WireMessage::ping(3)));
    a->close();
    Bytes all(64);
    size_t have = 0;
    for (ssize_t n; have < all.size() && (n = ::read(fdB, all.data() + have, all.size() - have)) > 0;) have += size_t(n);
    ASSERT_EQ(have, 48u);
    const auto frames = FrameDecoder().feed(std::span<const uint8_t>(all.data(), have));
    ASSERT_EQ(frames.size(), 2u);
    const uint8_t* h = all.data() + 24 + 12;  // the second frame's sequence
    EXPECT_EQ(uint32_t(h[0]) | uint32_t(h[1]) << 8 | uint32_t(h[2]) << 16 | uint32_t(h[3]) << 24, 3u);
    ::close(fdB);
}

TEST(WireConnection, TrySendWritesNothingAndSpendsNoNumberWhenTheSocketIsFull) {
    auto [fdA, fdB] = socketPair();
    auto a = std::make_shared<WireConnection>(fdA, "a");
    EXPECT_TRUE(a->trySend(WireMessage::ping(1)));  // sequence 1
    int refused = 0;
    while (a->trySend(WireMessage::ping(2))) {}  // small frames fill the socket whole or not at all
    for (int i = 0; i < 3; ++i) refused += !a->trySend(WireMessage::ping(2));
    EXPECT_EQ(refused, 3);
    uint64_t sent = a->bytesSent();
    std::thread drain([fdB = fdB, sent] {
        Bytes all;
        uint8_t buf[65536];
        ssize_t n;
        while ((n = ::read(fdB, buf, sizeof buf)) > 0) all.insert(all.end(), buf, buf + n);
        // Everything written, then the frame after the refusals numbered straight on.
        EXPECT_EQ(all.size(), sent + 24);
        FrameDecoder d;
        auto frames = d.feed(all);
        ASSERT_GE(all.size(), 24u);
        const uint8_t* h = all.data() + all.size() - 24 + 12;
        uint32_t last = uint32_t(h[0]) | uint32_t(h[1]) << 8 | uint32_t(h[2]) << 16 | uint32_t(h[3]) << 24;
        EXPECT_EQ(last, uint32_t(frames.size()));
    });
    a->send(WireMessage::ping(3));
    a->close();
    drain.join();
    ::close(fdB);
}

TEST(WireConnection, AFrameThatStallsOrTricklesIsClosedAtItsDeadline) {
    const WireConnection::FrameDeadline quick{0.3, 1000};
    Bytes ping = WireMessage::ping(5).encoded(1);
    auto receiving = [&] {
        auto [fdA, fdB] = socketPair();
        auto c = std::make_shared<WireConnection>(fdB, "slow");
        c->setFrameDeadline(quick);
        return std::pair{fdA, c};
    };
    {
        // Half a header, then nothing.
        auto [peer, c] = receiving();
        Recorder r;
        r.start(c);
        ASSERT_EQ(::write(peer, ping.data(), 8), 8);
        ASSERT_TRUE(r.closed.waitFor(1));
        EXPECT_EQ(errorAs<SocketError>(r.error).code(), ETIMEDOUT);
        ::close(peer);
    }
    {
        // One byte at a time: each arrives well within the deadline, the frame never does.
        auto [peer, c] = receiving();
        Recorder r;
        r.start(c);
        for (size_t i = 0; i < ping.size() && r.closed.value() == 0; ++i) {
            // The deadline may close the connection between the look and the
            // write; the write then fails, and the close is checked below.
            if (::write(peer, ping.data() + i, 1) != 1) break;
            r.closed.waitFor(1, std::chrono::milliseconds(100));
        }
        ASSERT_TRUE(r.closed.waitFor(1));
        EXPECT_EQ(errorAs<SocketError>(r.error).code(), ETIMEDOUT);
        std::lock_guard g(r.m);
        EXPECT_TRUE(r.messages.empty());
        ::close(peer);
    }
}

TEST(WireConnection, AnIdleConnectionHasNoDeadline) {
    auto [a, b] = pair();
    b->setFrameDeadline({0.1, 1000});
    Recorder rb;
    rb.start(b);
    a->send(WireMessage::ping(1));
    ASSERT_TRUE(rb.received.waitFor(1));
    // Idle for longer than a frame may take, between whole frames.
    EXPECT_FALSE(rb.closed.waitFor(1, std::chrono::milliseconds(400)));
    a->send(WireMessage::ping(2));
    EXPECT_TRUE(rb.received.waitFor(2));
}
