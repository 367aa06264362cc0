#pragma once
#include <cstdint>
#include <mutex>

namespace tsl {

// The sequence of the last input event that took effect, which every frame
// of every stream carries back to the host. One per agent, shared by the
// input path (store) and the streams (read).
class EchoCounter {
public:
    uint32_t value() const {
        std::lock_guard g(lock);
        return _value;
    }
    void store(uint32_t sequence) {
        std::lock_guard g(lock);
        _value = sequence;
    }

private:
    mutable std::mutex lock;
    uint32_t _value = 0;
};

}  // namespace tsl
