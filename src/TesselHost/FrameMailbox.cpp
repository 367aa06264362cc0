#include "TesselHost/FrameMailbox.h"

#include "Platform/PixelBuffer.h"
#include "TslStream/Render/StreamView.h"

namespace tsl::host {

void FrameMailbox::post(uint32_t window, std::shared_ptr<PixelBuffer> picture, double scale) {
    {
        std::lock_guard guard(lock);
        mail.pictures[window] = {std::move(picture), scale};
    }
    wake();
}

void FrameMailbox::post(ControlMessage message) {
    {
        std::lock_guard guard(lock);
        mail.messages.push_back(std::move(message));
    }
    wake();
}

FrameMailbox::Mail FrameMailbox::take() {
    std::lock_guard guard(lock);
    return std::exchange(mail, {});
}

bool FrameMailbox::wait(std::chrono::milliseconds limit) {
    if (views) return StreamView::pumpEvents(limit);
    std::unique_lock guard(lock);
    posted.wait_for(guard, limit, [&] { return !mail.pictures.empty() || !mail.messages.empty(); });
    return true;
}

void FrameMailbox::wake() {
    if (views) StreamView::wake();
    else posted.notify_one();
}

}  // namespace tsl::host
