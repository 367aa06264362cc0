// A host typing into the test pattern application through a simulation run's
// service over real sockets: the square follows key 122 in the decoded
// frames, the frames echo the sequence of the last event that went out, and
// a busy main actor holds none of it up.
#include <gtest/gtest.h>

#include <algorithm>

#include "Support/AgentTestSupport.h"
#include "Support/PatternDesktop.h"
#include "Support/VideoReceiver.h"
#include "TslCore/Measure/TestPattern.h"
#include "TslStream/Measure/TestPatternProbe.h"
#include "TslStream/Pipeline/StreamReceiver.h"

using namespace tsl;
using namespace tsl::test;

namespace {

using Kind = InputEvent::Kind;

struct Picture {
    VideoFrameHeader header;
    bool white = false;
};

// The service over the pattern desktop with timed capture, and a host on
// three connections: control, video (read and decoded here) and input.
struct InputWorld {
    MainActor main;
    PatternDesktop pattern{false};
    ExitRecorder exits;
    std::shared_ptr<AgentService> service = desktopService(pattern.services, exits);
    std::unique_ptr<HostEnd> control;
    std::unique_ptr<VideoReceiver> video;
    std::shared_ptr<WireConnection> input;
    Waiter pongs, inputClosed;
    uint64_t pings = 0;
    StreamReceiver receiver{false};
    std::vector<Picture> pictures;
    size_t decoded = 0;

    InputWorld() {
        control = std::make_unique<HostEnd>(std::make_shared<WireConnection>(attach(Channel::control), "host"));
        control->channel->start();
        video = std::make_unique<VideoReceiver>(attach(Channel::video));
        input = std::make_shared<WireConnection>(attach(Channel::input), "host-input");
        input->start([this](WireMessage m) { if (m.get<WireMessage::Pong>()) pongs.signal(); },
                     [this](std::exception_ptr) { inputClosed.signal(); });
    }
    ~InputWorld() {
        input->close();
        inputClosed.waitFor(1);
        video.reset();
        control.reset();
        main.runUntil([&] { return service->attached().empty(); }, limit);
        main.runUntil([&] { return service->streamManager()->activeStreams().empty(); }, limit);
    }

    // The agent's end joins the service; gives the host's descriptor.
    int attach(Channel channel) {
        auto [agentFd, hostFd] = socketPair();
        auto end = std::make_shared<ControlChannel>(std::make_shared<WireConnection>(agentFd, "agent"));
        service->attach(end, {channel});
        end->start();
        return hostFd;
    }

    void startStream() {
        StreamRequest request{1, pattern.window, 60, 1.0, VideoCodec::h264};
        auto reply = main.runTask(control->channel->request(ControlMessage::StartStream{request}, 10), limit);
        ASSERT_TRUE(reply.get<ControlMessage::StreamStarted>());
    }
    void send(Kind kind, uint32_t window, uint16_t keyCode, uint32_t sequence) {
        input->send(WireMessage::input({.kind = kind, .windowID = window, .keyCode = keyCode, .sequence = sequence}));
    }
    // A ping on the input connection is answered after every input frame
    // before it has been handled.
    bool inputHandled() {
        input->send(WireMessage::ping(++pings));
        return pongs.waitFor(int(pings));
    }

    // Waits on the frames themselves, not on the main actor, for a picture
    // from index `from` on that satisfies `want`.
    template <class Want>
    std::optional<Picture> awaitPicture(size_t from, Want want) {
        const auto deadline = std::chrono::steady_clock::now() + limit;
        for (;;) {
            const int arrived = video->arrived.value();
            for (; decoded < video->count(); ++decoded) {
                auto frame = video->at(decoded);
                receiver.handle(frame.header, frame.data, [&](const DecodedFrame& d) {
                    pictures.push_back({d.header, TestPatternProbe::squareIsWhite(*d.pixelBuffer, 1.0, 0).value_or(false)});
                });
            }
            for (size_t i = from; i < pictures.size(); ++i)
                if (want(pictures[i])) return pictures[i];
            const auto left = deadline - std::chrono::steady_clock::now();
            if (left <= left.zero() ||
                !video->arrived.waitFor(arrived + 1, std::chrono::duration_cast<std::chrono::milliseconds>(left)))
                return std::nullopt;
        }
    }
};

TEST(InputEcho, Key122TurnsTheSquareWhiteThenBlackAndFramesEchoTheSequence) {
    InputWorld w;
    w.startStream();
    auto first = w.awaitPicture(0, [](const Picture&) { return true; });
    ASSERT_TRUE(first);
    EXPECT_FALSE(first->white);
    EXPECT_EQ(first->header.inputEcho, 0u);

    const uint32_t window = w.pattern.window;
    w.send(Kind::keyDown, window, TestPatternSpec::f1KeyCode, 41);
    EXPECT_TRUE(w.awaitPicture(0, [](const Picture& p) { return p.header.inputEcho == 41 && p.white; }));
    w.send(Kind::keyUp, window, TestPatternSpec::f1KeyCode, 42);
    EXPECT_TRUE(w.awaitPicture(0, [](const Picture& p) { return p.header.inputEcho == 42 && !p.white; }));
    // The echo only ever showed what had gone out, in order.
    for (size_t i = 1; i < w.pictures.size(); ++i) {
        const uint32_t echo = w.pictures[i].header.inputEcho;
        EXPECT_TRUE(echo == 0 || echo == 41 || echo == 42) << echo;
        EXPECT_GE(echo, w.pictures[i - 1].header.inputEcho);
    }

    // A window the cache knew and that has since gone from it and from the
    // window server: its event is dropped and the echo stays.
    const uint32_t gone = w.pattern.desktop->addWindow(w.pattern.pid, {.title = "Gone", .frame = {700, 100, 200, 200}});
    w.service->trackWindows();
    w.pattern.desktop->closeWindow(gone);
    w.service->trackWindows();
    const size_t posted = w.pattern.desktop->postedEvents().size();
    w.send(Kind::keyDown, gone, TestPatternSpec::f1KeyCode, 99);
    ASSERT_TRUE(w.inputHandled());
    EXPECT_EQ(w.pattern.desktop->postedEvents().size(), posted);
    EXPECT_EQ(w.service->echoCounter()->value(), 42u);
    const size_t after = w.pictures.size();
    ASSERT_TRUE(w.awaitPicture(after + 4, [](const Picture&) { return true; }));
    for (size_t i = after; i < w.pictures.size(); ++i) {
        EXPECT_EQ(w.pictures[i].header.inputEcho, 42u);
        EXPECT_FALSE(w.pictures[i].white);
    }
    EXPECT_EQ(w.receiver.decodeErrors(), 0u);
}

TEST(InputEcho, InputGoesThroughWhileTheMainActorIsBusy) {
    InputWorld w;
    w.startStream();
    ASSERT_TRUE(w.awaitPicture(0, [](const Picture&) { return true; }));

    // A job that holds the main actor until the key has reached the guest
    // and come back in a frame: input must not need the main actor.
    std::optional<Picture> echoed;
    bool done = false;
    w.main.post([&] {
        w.send(Kind::keyDown, w.pattern.window, TestPatternSpec::f1KeyCode, 7);
        echoed = w.awaitPicture(0, [](const Picture& p) { return p.header.inputEcho == 7 && p.white; });
        done = true;
    });
    ASSERT_TRUE(w.main.runUntil([&] { return done; }, limit));
    EXPECT_TRUE(echoed);
    EXPECT_TRUE(w.pattern.desktop->squareIsWhite(w.pattern.pid));
}

}  // namespace
