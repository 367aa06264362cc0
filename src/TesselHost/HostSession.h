#pragma once
#include <atomic>
#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

#include "TslCore/Wire/ControlRecords.h"
#include "TslCore/Wire/VideoCodec.h"
#include "TslStream/Agent/AgentLink.h"
#include "TslStream/Input/InputMapper.h"
#include "TslStream/Measure/ProbeMeasurement.h"
#include "TslStream/Pipeline/StreamReceiver.h"
#include "TslStream/Transport/SocketEndpoint.h"

namespace tsl::host {

// What the host saw of the streams, gathered on the decoding threads.
struct SimFigures {
    uint64_t framesReceived = 0;
    uint64_t framesLost = 0;  // by the test pattern's counter
    uint64_t decodeErrors = 0;
    uint64_t lastEcho = 0;
    std::vector<double> latencyMs;  // input-to-pixel, one per round trip
    // From the frame's capture timestamp (taken as the frame reached the
    // agent) to its arrival on the host: the agent's encode and send, and the
    // transfer. Nothing finer travels with a frame.
    std::vector<double> captureToArrivalMs;
    std::vector<double> decodeMs;           // on the host, to a picture
    std::vector<uint64_t> framesPerSecond;  // whole seconds only
    double seconds = 0;
};

struct StreamSettings {
    VideoCodec codec = VideoCodec::h264;
    int fps = 60;
    double scale = 1.0;
};

// The host's side of one agent, whatever brought the agent up: streams of
// guest windows decoded into pictures, input sent on, the test pattern's
// window timed from a key to the frame that shows it.
class HostSession {
public:
    // A decoded picture for a view; called on a decoding thread.
    using PictureSink = std::function<void(uint32_t windowID, std::shared_ptr<PixelBuffer>, double contentScale)>;
    // Unsolicited messages (window events, the guest's clipboard); on a reader thread.
    using EventSink = std::function<void(const ControlMessage&)>;

    HostSession(std::shared_ptr<AgentLink> link, StreamSettings settings);
    ~HostSession();
    HostSession(const HostSession&) = delete;
    HostSession& operator=(const HostSession&) = delete;

    // Pictures and events start flowing to the sinks.
    void begin(PictureSink pictures, EventSink events = {});
    // The agent's answer; Error when it refuses or does not answer.
    ControlMessage request(ControlMessage message);
    // The guest's windows on screen, optionally one process's only.
    std::vector<GuestWindow> windows(std::optional<int32_t> pid = std::nullopt);

    // Streams a window; nothing when it is streamed already.
    void stream(const GuestWindow& window);
    // Stops its stream, if any; asking the agent only while the window is there.
    void unstream(uint32_t windowID, bool askAgent = true);
    bool streams(uint32_t windowID) const;

    // The window whose frames the measurement reads.
    void measureWindow(uint32_t windowID);
    uint64_t patternFrames() const { return probe.snapshot().frames; }
    // One input-to-pixel round trip: key 122 down (white) or up (black).
    std::optional<double> measureOnce(bool white);
    // `count` round trips, white and black in turn, each key sent at a random
    // moment of the frame interval, as a person's would: one sent right after
    // a frame arrived (the end of the last round trip) would always wait
    // nearly a whole interval for the next capture. `step` hears each one done.
    void measureRoundTrips(int count, int fps, const std::atomic<bool>& stop,
                           const std::function<void(int)>& step = {});
    void sendInput(const InputEvent& event);
    // The mapper of a streamed window, shared with its view so that the
    // measured keys and the view's take their sequences from one count.
    std::shared_ptr<SharedInputMapper> inputFor(uint32_t windowID) const;

    // Stops every stream and closes the link; safe twice.
    void stop();
    SimFigures figures() const;
    const std::shared_ptr<AgentLink>& agent() const { return link; }

private:
    void onVideo(const VideoFrameHeader& header, const Bytes& payload);

    const StreamSettings settings;
    std::shared_ptr<AgentLink> link;
    StreamReceiver receiver{true};
    PictureSink sink;
    ProbeMeasurement probe{0};
    std::atomic<uint32_t> patternWindow{0};

    mutable std::mutex lock;  // everything below
    std::map<uint32_t, uint32_t> windowOfStream;
    std::map<uint32_t, std::shared_ptr<SharedInputMapper>> mappers;
    uint32_t lastStreamID = 0;
    uint64_t started = 0;
    uint64_t framesReceived = 0;
    uint64_t lastEcho = 0;
    std::vector<double> captureToArrivalMs, decodeMs, latencyMs;
    std::vector<uint64_t> perSecond;
};

// The host's hello: the software, this system, and the channel it opens.
Hello hostHello(std::vector<std::string> capabilities);

// Dials a listening agent: one connection per channel, each opened with a
// hello naming it. Throws Error with the reason.
std::shared_ptr<AgentLink> dialAgent(const SocketEndpoint& agent, double timeout);

// Listens on `at` until an agent has dialled in with all its channels, or
// `timeout` passes, or `cancelled` holds. Throws Error with the reason.
std::shared_ptr<AgentLink> awaitAgent(const SocketEndpoint& at, double timeout, const std::atomic<bool>& cancelled,
                                      const std::function<void(const std::string&)>& listening = {});

}  // namespace tsl::host
