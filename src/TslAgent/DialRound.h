#pragma once
#include <memory>
#include <mutex>
#include <semaphore>
#include <vector>

#include "TslStream/Transport/ControlChannel.h"

namespace tsl {

// One attempt to hold the three channels, from the first dial until it is
// over. The runner's thread sleeps on `sem` while the round is alive; the
// control channel's close signals it once. Threading: any thread; the lock is
// never held while a channel is closed (closing re-enters controlClosed).
class DialRound {
public:
    void add(std::shared_ptr<ControlChannel> channel);
    // From the control channel's close, on whichever thread closes it.
    void controlClosed();
    // After the hello exchanges: arms the round unless control already went
    // down, which it returns.
    bool arm();
    // Closes every channel of the round.
    void closeAll();

    std::counting_semaphore<> sem{0};

private:
    std::mutex lock;
    std::vector<std::shared_ptr<ControlChannel>> channels;
    bool armed = false;
    bool controlDown = false;
    bool signalled = false;
};

}  // namespace tsl
