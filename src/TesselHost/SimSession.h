#pragma once
#include <atomic>
#include <cstdint>
#include <filesystem>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

#include "TslCore/Wire/ControlRecords.h"
#include "TslCore/Wire/VideoCodec.h"
#include "TslStream/Agent/SimulatedGuestBackend.h"
#include "TslStream/Codec/VideoDecoder.h"
#include "TslStream/Input/InputMapper.h"
#include "TslStream/Measure/ProbeMeasurement.h"
#include "TslStream/Pipeline/StreamReceiver.h"

namespace tsl::host {

struct SimOptions {
    bool headless = false;
    VideoCodec codec = VideoCodec::h264;
    int fps = 60;
    double scale = 1.0;
    int measure = 100;
    double duration = 5.0;  // seconds of streaming in all, at least what measuring takes
    std::string out;        // the results' folder; the user's cache when empty
    std::string agent;  // the agent executable; beside this program when empty
    bool json = false;
};

// What the host saw of the streams, gathered on the decoding threads.
struct SimFigures {
    uint64_t framesReceived = 0;
    uint64_t framesLost = 0;  // by the test pattern's counter
    uint64_t decodeErrors = 0;
    uint64_t lastEcho = 0;
    std::vector<double> latencyMs;    // input-to-pixel, one per round trip
    // From the frame's capture timestamp (taken as the frame reached the
    // agent) to its arrival on the host: the agent's encode and send, and the
    // transfer. Nothing finer travels with a frame.
    std::vector<double> captureToArrivalMs;
    std::vector<double> decodeMs;  // on the host, to a picture
    std::vector<uint64_t> framesPerSecond;  // whole seconds only
    double seconds = 0;
};

// One run of the simulation end to end: a simulated guest (the real agent as
// a child process in a private folder tree), the test pattern installed from
// the share and launched, its windows streamed and decoded, key 122 sent
// over the input channel and timed until the frames show it.
class SimSession {
public:
    using Progress = std::function<void(const std::string&)>;
    // A decoded picture for a view; called on a decoding thread.
    using PictureSink = std::function<void(uint32_t windowID, std::shared_ptr<PixelBuffer>, double contentScale)>;

    SimSession(SimOptions options, Progress progress);
    ~SimSession();

    // Starts the guest, installs, launches and streams. Throws Error with the reason.
    void start(PictureSink sink);
    // One input-to-pixel round trip: key 122 down (white) or up (black).
    std::optional<double> measureOnce(bool white);
    // Input from a view, passed on as it is.
    void sendInput(const InputEvent& event);
    // The mapper of a guest window, for its view: the measured keys of the
    // test pattern's window take their sequences from the same count.
    // Nothing for a window that isn't streamed.
    std::shared_ptr<SharedInputMapper> inputFor(uint32_t windowID) const;
    // Stops the streams and the guest and removes its folder tree; safe twice.
    void stop();

    const std::vector<GuestWindow>& windows() const { return _windows; }
    SimFigures figures() const;

private:
    void onVideo(const VideoFrameHeader& header, const Bytes& payload);
    // The agent's answer; Error when it refuses or does not answer.
    ControlMessage request(ControlMessage message);

    const SimOptions options;
    const Progress progress;
    std::filesystem::path root;
    std::unique_ptr<SimulatedGuestBackend> backend;
    std::shared_ptr<AgentLink> link;
    StreamReceiver receiver{true};
    std::vector<GuestWindow> _windows;
    std::map<uint32_t, uint32_t> windowOfStream;
    uint32_t patternWindow = 0;
    PictureSink sink;
    ProbeMeasurement probe{0};
    std::map<uint32_t, std::shared_ptr<SharedInputMapper>> mappers;  // filled by start, then only read

    mutable std::mutex lock;  // the figures below
    uint64_t started = 0;
    uint64_t framesReceived = 0;
    uint64_t lastEcho = 0;
    std::vector<double> captureToArrivalMs, decodeMs, latencyMs;
    std::vector<uint64_t> perSecond;
};

}  // namespace tsl::host
