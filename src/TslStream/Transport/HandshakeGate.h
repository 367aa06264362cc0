#pragma once
#include <cstddef>
#include <cstdint>
#include <memory>
#include <mutex>

#include "TslStream/Transport/ControlChannel.h"

namespace tsl {

// One per accepted connection: the first of the hello and the time-out passes
// it, the other finds it closed. Until then it keeps the channel given alive,
// for owners whose every other reference to it is weak.
class HandshakeGate {
public:
    // No frame above this passes before a hello has.
    static constexpr uint32_t payloadLimit = 0x10000;
    // Connections a listener holds in handshake at once; more are closed at once.
    static constexpr size_t maxPending = 8;

    explicit HandshakeGate(std::shared_ptr<ControlChannel> channel) : held(std::move(channel)) {}

    // True for the one call that closed the gate.
    bool pass() {
        std::shared_ptr<ControlChannel> released;
        std::lock_guard guard(lock);
        bool wasOpen = !done;
        done = true;
        released = std::move(held);
        return wasOpen;
    }

    bool isOpen() {
        std::lock_guard guard(lock);
        return !done;
    }

private:
    std::mutex lock;
    bool done = false;
    std::shared_ptr<ControlChannel> held;
};

}  // namespace tsl
