#pragma once
#include <cstdint>

namespace tsl {

// The one clock of the video pipeline: nanoseconds that keep counting
// through sleep (CLOCK_BOOTTIME on Linux).
struct MonoClock {
    static uint64_t nowNs() noexcept;
};

}  // namespace tsl
