#pragma once
#include <atomic>
#include <filesystem>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "TesselHost/HostSession.h"
#include "TslStream/Agent/SimulatedGuestBackend.h"

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

// One run of the simulation end to end: a simulated guest (the real agent as
// a child process in a private folder tree), the test pattern installed from
// the share and launched, its windows streamed and decoded, key 122 sent
// over the input channel and timed until the frames show it.
class SimSession {
public:
    using Progress = std::function<void(const std::string&)>;
    // A decoded picture for a view; called on a decoding thread.
    using PictureSink = HostSession::PictureSink;

    SimSession(SimOptions options, Progress progress);
    ~SimSession();

    // Starts the guest, installs, launches and streams. Throws Error with the reason.
    void start(PictureSink sink);
    // Round trips as HostSession measures them.
    void measureRoundTrips(int count, int fps, const std::atomic<bool>& stop, const std::function<void(int)>& step);
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
    const SimOptions options;
    const Progress progress;
    std::filesystem::path root;
    std::unique_ptr<SimulatedGuestBackend> backend;
    std::unique_ptr<HostSession> session;
    std::vector<GuestWindow> _windows;
};

}  // namespace tsl::host
