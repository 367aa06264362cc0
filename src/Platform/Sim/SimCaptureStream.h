#pragma once
#include <chrono>
#include <condition_variable>
#include <thread>

#include "Platform/ScreenCapture.h"
#include "Platform/Sim/Desktop.h"

namespace tsl::Sim {

struct StreamCore;

// One capture of one window. Its thread, named "tsl.capture", renders the
// window at the configured size and delivers each frame to the output
// handler, at most once per frame interval (or on Desktop::stepCapture in
// manual mode). Ticks that pass while a frame is being handled are skipped,
// not made up. At most `queueDepth` pictures are out with the client at
// once; a tick with none free delivers nothing.
//
// The thread shares only the stream's core (state, lock, buffers) and holds
// the desktop weakly, so dropping the stream or the desktop ends it. The
// stream's destructor stops and joins the thread (detaches it when the last
// reference goes on that thread).
class SimCaptureStream final : public CaptureStream {
public:
    SimCaptureStream(std::weak_ptr<Desktop> desktop, ContentFilter filter, CaptureConfiguration configuration,
                     ScreenCapture::StopHandler didStop);
    ~SimCaptureStream() override;

    void addStreamOutput(CaptureOutputType type, OutputHandler handler) override;
    void startCapture(Completion completion) override;
    void updateConfiguration(const CaptureConfiguration& configuration, Completion completion) override;
    void stopCapture(Completion completion) override;

    uint32_t windowID() const { return _windowID; }
    // Re-examines the window at once (it may have gone).
    void wake();
    // Manual mode: asks for one frame; gives the count of handled ticks to
    // wait for, nothing when the stream isn't running.
    std::optional<uint64_t> requestFrame();
    bool waitForFrames(uint64_t count, std::chrono::steady_clock::time_point deadline);

private:
    void halt();

    const std::weak_ptr<Desktop> _desktop;
    const uint32_t _windowID;
    const std::shared_ptr<StreamCore> _core;
    std::mutex _threadLock;  // guards _thread against a concurrent start and stop
    std::thread _thread;
    bool _indicatorShown = false;  // under _threadLock: this stream put up the capture indicator
};

}  // namespace tsl::Sim
