// A host typing into the test pattern application through a simulation run's
// service over real sockets: the square follows key 122 in the decoded
// frames, the frames echo the sequence of the last event that went out, and
// a busy main actor holds none of it up.
#include <gtest/gtest.h>

#include <algorithm>

#include "Support/PatternDesktop.h"
#include "Support/ServiceHost.h"
#include "TslCore/Measure/TestPattern.h"

using namespace tsl;
using namespace tsl::test;

namespace {

using Kind = InputEvent::Kind;

using Picture = ServiceHost::Picture;

// The service over the pattern desktop with timed capture, and a host on
// three connections.
struct InputWorld {
    MainActor main;
    PatternDesktop pattern{false};
    ExitRecorder exits;
    ServiceHost host{main, desktopService(pattern.services, exits)};

    void startStream() {
        auto reply = host.request(ControlMessage::StartStream{{1, pattern.window, 60, 1.0, VideoCodec::h264}});
        ASSERT_TRUE(reply.get<ControlMessage::StreamStarted>());
    }
    void send(Kind kind, uint32_t window, uint16_t keyCode, uint32_t sequence) {
        host.send({.kind = kind, .windowID = window, .keyCode = keyCode, .sequence = sequence});
    }

    // Waits on the frames themselves, not on the main actor, for a picture
    // from index `from` on that satisfies `want`.
    template <class Want>
    std::optional<Picture> awaitPicture(size_t from, Want want) {
        const auto deadline = std::chrono::steady_clock::now() + limit;
        for (;;) {
            const int arrived = host.video->arrived.value();
            if (auto found = host.decodedPicture(from, want)) return found;
            const auto left = deadline - std::chrono::steady_clock::now();
            if (left <= left.zero() ||
                !host.video->arrived.waitFor(arrived + 1, std::chrono::duration_cast<std::chrono::milliseconds>(left)))
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
    for (size_t i = 1; i < w.host.pictures.size(); ++i) {
        const uint32_t echo = w.host.pictures[i].header.inputEcho;
        EXPECT_TRUE(echo == 0 || echo == 41 || echo == 42) << echo;
        EXPECT_GE(echo, w.host.pictures[i - 1].header.inputEcho);
    }

    // A window the cache knew and that has since gone from it and from the
    // window server: its event is dropped and the echo stays.
    const uint32_t gone = w.pattern.desktop->addWindow(w.pattern.pid, {.title = "Gone", .frame = {700, 100, 200, 200}});
    w.host.service->trackWindows();
    w.pattern.desktop->closeWindow(gone);
    w.host.service->trackWindows();
    const size_t posted = w.pattern.desktop->postedEvents().size();
    w.send(Kind::keyDown, gone, TestPatternSpec::f1KeyCode, 99);
    ASSERT_TRUE(w.host.inputHandled());
    EXPECT_EQ(w.pattern.desktop->postedEvents().size(), posted);
    EXPECT_EQ(w.host.service->echoCounter()->value(), 42u);
    const size_t after = w.host.pictures.size();
    ASSERT_TRUE(w.awaitPicture(after + 4, [](const Picture&) { return true; }));
    for (size_t i = after; i < w.host.pictures.size(); ++i) {
        EXPECT_EQ(w.host.pictures[i].header.inputEcho, 42u);
        EXPECT_FALSE(w.host.pictures[i].white);
    }
    EXPECT_EQ(w.host.receiver.decodeErrors(), 0u);
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
