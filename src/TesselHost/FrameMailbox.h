#pragma once
#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <map>
#include <memory>
#include <mutex>
#include <utility>
#include <vector>

#include "TslCore/Wire/ControlMessage.h"

namespace tsl {
class PixelBuffer;
}

namespace tsl::host {

// Pictures decoded and messages read on the session's threads, on their way
// to the main thread, which owns the views. Only the latest picture of each
// window is kept: a view shows the newest and never queues. The main thread
// sleeps in `wait`, and what is posted wakes it, so a picture is drawn as
// soon as it is decoded.
class FrameMailbox {
public:
    using Pictures = std::map<uint32_t, std::pair<std::shared_ptr<PixelBuffer>, double>>;
    struct Mail {
        Pictures pictures;
        std::vector<ControlMessage> messages;
    };

    // With views, the window system's events end a wait too, and are handed to the views.
    explicit FrameMailbox(bool views) : views(views) {}

    void post(uint32_t window, std::shared_ptr<PixelBuffer> picture, double scale);
    void post(ControlMessage message);
    Mail take();
    // Until mail, a window-system event or `limit`; false once the user asked to quit.
    bool wait(std::chrono::milliseconds limit);

private:
    void wake();

    const bool views;
    std::mutex lock;
    std::condition_variable posted;
    Mail mail;
};

}  // namespace tsl::host
