#include "TslCore/Support/MonoClock.h"

#include <time.h>

namespace tsl {

uint64_t MonoClock::nowNs() noexcept {
    timespec ts{};
    if (clock_gettime(CLOCK_BOOTTIME, &ts) != 0) clock_gettime(CLOCK_MONOTONIC, &ts);
    return uint64_t(ts.tv_sec) * 1'000'000'000ull + uint64_t(ts.tv_nsec);
}

}  // namespace tsl
