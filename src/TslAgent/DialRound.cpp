#include "TslAgent/DialRound.h"

namespace tsl {

void DialRound::add(std::shared_ptr<ControlChannel> channel) {
    std::lock_guard guard(lock);
    channels.push_back(std::move(channel));
}

void DialRound::closeAll() {
    std::vector<std::shared_ptr<ControlChannel>> taken;
    {
        std::lock_guard guard(lock);
        taken = channels;
    }
    for (auto& channel : taken) channel->close();
}

bool DialRound::arm() {
    std::lock_guard guard(lock);
    armed = !controlDown;
    return controlDown;
}

void DialRound::controlClosed() {
    {
        std::lock_guard guard(lock);
        controlDown = true;
        if (!armed || signalled) return;
        signalled = true;
    }
    closeAll();
    sem.release();
}

}  // namespace tsl
