// The host's library against the real agent executable: started through the
// simulated backend, asked over the link, its streams decoded back into the
// window's picture, typed into over the link's input.
#include <gtest/gtest.h>

#include <algorithm>
#include <condition_variable>

#include "Support/TempDir.h"
#include "Support/TestPaths.h"
#include "Support/VideoFrames.h"
#include "TslCore/Measure/TestPattern.h"
#include "TslStream/Agent/SimulatedGuestBackend.h"
#include "TslStream/Measure/TestPatternProbe.h"
#include "TslStream/Pipeline/StreamReceiver.h"
#include "TslStream/Runtime/GlobalQueue.h"

namespace tsl::test {
namespace {

constexpr auto endToEndLimit = std::chrono::seconds(30);

template <class T>
T run(asio::awaitable<T> task) {
    return runBlocking(GlobalQueue::executor(), std::move(task), endToEndLimit);
}

// Pictures of the streams a link delivers, decoded by a restricted receiver.
class Viewer {
public:
    explicit Viewer(AgentLink& link) {
        link.onVideo([this](const VideoFrameHeader& header, const Bytes& data) {
            receiver.handle(header, data, [&](const DecodedFrame& frame) {
                Picture picture{frame.header, counterShown(*frame.pixelBuffer),
                                TestPatternProbe::squareIsWhite(*frame.pixelBuffer, 1.0, 0).value_or(false)};
                std::lock_guard g(m);
                pictures.push_back(picture);
                arrived.notify_all();
            });
        });
    }
    // The counters of the first `count` pictures of a stream.
    std::vector<uint32_t> counters(uint32_t streamID, size_t count, VideoFrameHeader* last = nullptr) {
        std::unique_lock g(m);
        std::vector<uint32_t> out;
        arrived.wait_for(g, endToEndLimit, [&] {
            out.clear();
            for (const Picture& p : pictures)
                if (p.header.streamID == streamID) {
                    out.push_back(p.counter);
                    if (last) *last = p.header;
                }
            return out.size() >= count;
        });
        return out;
    }

    // Whether a picture of the stream echoing `sequence` arrives, with the square white or not.
    bool echoed(uint32_t streamID, uint32_t sequence, bool white) {
        std::unique_lock g(m);
        return arrived.wait_for(g, endToEndLimit, [&] {
            return std::any_of(pictures.begin(), pictures.end(), [&](const Picture& p) {
                return p.header.streamID == streamID && p.header.inputEcho == sequence && p.white == white;
            });
        });
    }

    StreamReceiver receiver{true};

private:
    std::mutex m;
    std::condition_variable arrived;
    struct Picture {
        VideoFrameHeader header;
        uint32_t counter;
        bool white;
    };
    std::vector<Picture> pictures;
};

TEST(AgentEndToEnd, TheHostListsLaunchesStreamsAWindowRawAndAsH264AndTypesIntoIt) {
    TempDir dir = TempDir::forSimulation();
    SimulatedGuestBackend backend(dir / "guest", agentExecutable());
    auto link = run(backend.start(nullptr));
    ASSERT_TRUE(link);

    auto appsReply = run(link->control->request(ControlMessage::ListApps{}, 10));
    auto apps = appsReply.get<ControlMessage::AppList>();
    ASSERT_TRUE(apps);
    auto pattern = std::find_if(apps->value.begin(), apps->value.end(),
                                [](const GuestApp& a) { return a.bundleID == TestPatternSpec::bundleID; });
    ASSERT_NE(pattern, apps->value.end());

    LaunchRequest launch;
    launch.bundleID = pattern->bundleID;
    auto launchReply = run(link->control->request(ControlMessage::LaunchApp{launch}, 10));
    auto launched = launchReply.get<ControlMessage::Launched>();
    ASSERT_TRUE(launched);
    std::optional<GuestWindow> window;
    for (int i = 0; i < 100 && !window; ++i) {
        auto list = run(link->control->request(ControlMessage::ListWindows{WindowQuery{.pid = launched->value.pid}}, 10));
        for (const auto& w : list.get<ControlMessage::WindowList>()->value)
            if (w.title == TestPatternSpec::windowTitle) window = w;
        if (!window) std::this_thread::sleep_for(std::chrono::milliseconds(50));
    }
    ASSERT_TRUE(window);

    Viewer viewer(*link);
    for (auto [streamID, codec] : {std::pair{1u, VideoCodec::rawBGRA}, std::pair{2u, VideoCodec::h264}}) {
        viewer.receiver.allow(streamID);
        StreamRequest request{.streamID = streamID, .windowID = window->windowID, .fps = 30, .scale = 1.0, .codec = codec};
        auto started = run(link->control->request(ControlMessage::StartStream{request}, 10));
        ASSERT_TRUE(started.get<ControlMessage::StreamStarted>()) << ControlChannel::caseName(started);
        VideoFrameHeader last;
        auto counters = viewer.counters(streamID, 3, &last);
        ASSERT_GE(counters.size(), 3u) << "stream " << streamID;
        // The window's own picture: its counter moves on from frame to frame.
        EXPECT_GT(counters[1], counters[0]);
        EXPECT_GT(counters[2], counters[1]);
        EXPECT_EQ(last.codec, codec);
        EXPECT_EQ((std::pair{last.width, last.height}),
                  (std::pair{uint32_t(TestPatternSpec::contentWidth), uint32_t(TestPatternSpec::contentHeight)}));
        run(link->control->request(ControlMessage::StopStream{streamID}, 10));
    }

    // Key 122 through the link's input: the square turns white, then black,
    // in frames that echo each event's sequence.
    viewer.receiver.allow(3);
    StreamRequest request{.streamID = 3, .windowID = window->windowID, .fps = 30, .scale = 1.0, .codec = VideoCodec::h264};
    ASSERT_TRUE(run(link->control->request(ControlMessage::StartStream{request}, 10)).get<ControlMessage::StreamStarted>());
    auto key = [&](InputEvent::Kind kind, uint32_t sequence) {
        link->sendInput(
            {.kind = kind, .windowID = window->windowID, .keyCode = TestPatternSpec::f1KeyCode, .sequence = sequence});
    };
    key(InputEvent::Kind::keyDown, 11);
    EXPECT_TRUE(viewer.echoed(3, 11, true));
    key(InputEvent::Kind::keyUp, 12);
    EXPECT_TRUE(viewer.echoed(3, 12, false));
    EXPECT_EQ(viewer.receiver.decodeErrors(), 0u);

    run(backend.stop());
    EXPECT_FALSE(link->isLive());
    EXPECT_FALSE(backend.isRunning());
}

}  // namespace
}  // namespace tsl::test
