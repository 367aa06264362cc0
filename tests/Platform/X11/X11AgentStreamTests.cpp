// The agent's service over a real display, as a host sees it on three
// connections: the pattern client's frames decoded with the counter
// advancing, F1 through the input link turning the square white with the
// event's echo, a resize that starts the new size with a key frame, and a
// closed window ending its stream.
#include <gtest/gtest.h>

#include "Platform/Sim/Desktop.h"
#include "Platform/X11/X11Desktop.h"
#include "Support/ServiceHost.h"
#include "Support/XDisplay.h"
#include "TslCore/Measure/TestPattern.h"

namespace tsl::test {
namespace {

using Picture = ServiceHost::Picture;

struct X11StreamWorld {
    MainActor main;
    XDisplay display{true};
    std::shared_ptr<X11::X11Desktop> desktop = X11::X11Desktop::open(display.name());
    std::shared_ptr<Sim::Desktop> rest = Sim::Desktop::make({});
    ExitRecorder exits;
    ServiceHost host{main, desktopService(desktop->services(rest->services()), exits)};

    // Tracks windows meanwhile, as the agent's timer would, until a picture
    // from index `from` on satisfies `want`.
    template <class Want>
    std::optional<Picture> awaitPicture(size_t from, Want want) {
        std::optional<Picture> found;
        main.runUntil(
            [&] {
                host.service->trackWindows();
                return (found = host.decodedPicture(from, want)).has_value();
            },
            limit);
        return found;
    }
};

TEST(X11AgentStream, PatternFramesFollowKeysResizesAndTheWindowsEnd) {
    X11StreamWorld w;
    ASSERT_TRUE(w.display.ready());
    w.display.launchPattern(60, 60, 60);
    auto pattern = w.display.waitForWindow("Tsl TestPattern");
    ASSERT_TRUE(pattern);
    w.host.service->trackWindows();
    auto started = w.host.request(ControlMessage::StartStream{{1, pattern->id, 60, 1.0, VideoCodec::h264}});
    ASSERT_TRUE(started.get<ControlMessage::StreamStarted>());

    auto first = w.awaitPicture(0, [](const Picture& p) { return p.counter.has_value(); });
    ASSERT_TRUE(first);
    EXPECT_EQ(first->header.width, uint32_t(pattern->bounds.width));
    EXPECT_FALSE(first->white);
    EXPECT_TRUE(w.awaitPicture(0, [&](const Picture& p) { return p.counter && *p.counter > *first->counter; }));

    using Kind = InputEvent::Kind;
    auto key = [&](Kind kind, uint32_t sequence) {
        w.host.send(
            {.kind = kind, .windowID = pattern->id, .keyCode = TestPatternSpec::f1KeyCode, .sequence = sequence});
    };
    key(Kind::keyDown, 41);
    EXPECT_TRUE(w.awaitPicture(0, [](const Picture& p) { return p.header.inputEcho == 41 && p.white; }));
    key(Kind::keyUp, 42);
    EXPECT_TRUE(w.awaitPicture(0, [](const Picture& p) { return p.header.inputEcho == 42 && !p.white; }));

    const WireRect bigger{pattern->bounds.x, pattern->bounds.y, pattern->bounds.width + 80,
                          pattern->bounds.height + 40};
    ASSERT_EQ(w.host.request(ControlMessage::WindowAction{
                  {.windowID = pattern->id, .kind = WindowAction::Kind::setFrame, .frame = bigger}}),
              ControlMessage(ControlMessage::Ok{}));
    const size_t before = w.host.pictures.size();
    auto resized = w.awaitPicture(before, [&](const Picture& p) { return p.header.width == uint32_t(bigger.width); });
    ASSERT_TRUE(resized);
    EXPECT_EQ(resized->header.height, uint32_t(bigger.height));
    EXPECT_TRUE(resized->header.flags.contains(VideoFrameHeader::Flags::keyframe));
    EXPECT_EQ(w.host.receiver.decodeErrors(), 0u);

    ASSERT_EQ(
        w.host.request(ControlMessage::WindowAction{{.windowID = pattern->id, .kind = WindowAction::Kind::close}}),
        ControlMessage(ControlMessage::Ok{}));
    EXPECT_TRUE(w.main.runUntil(
        [&] {
            w.host.service->trackWindows();
            return w.host.service->streamManager()->activeStreams().empty();
        },
        limit));
}

}  // namespace
}  // namespace tsl::test
