#include "TslStream/Measure/ProbeMeasurement.h"

#include <algorithm>
#include <chrono>

#include "TslCore/Support/MonoClock.h"
#include "TslStream/Measure/TestPatternProbe.h"

namespace tsl {

void ProbeMeasurement::onFrame(PixelBuffer& frame, double scale) {
    uint64_t now = MonoClock::nowNs();
    // Pixels are read before the lock so that a slow frame never holds up snapshot().
    auto white = TestPatternProbe::squareIsWhite(frame, scale, originY);
    auto count = TestPatternProbe::counter(frame, scale, originY);
    std::lock_guard guard(lock);
    frames += 1;
    if (count) {
        if (lastCounter) {
            uint64_t d = (*count - *lastCounter) % 65536;
            if (d >= 2 && d <= 32767) dropped += d - 1;  // 0, 1 or a step back lose nothing
        }
        lastCounter = count;
    }
    if (pending && white && *white == pending->wantWhite) {
        lastLatencyNs = now - pending->t0;
        pending->done->release();
        pending.reset();
    }
}

ProbeMeasurement::Snapshot ProbeMeasurement::snapshot() const {
    std::lock_guard guard(lock);
    return {frames, dropped};
}

std::optional<double> ProbeMeasurement::measure(bool wantWhite, double timeoutSeconds,
                                                const std::function<void()>& send) {
    auto done = std::make_shared<std::binary_semaphore>(0);
    {
        std::lock_guard guard(lock);
        pending = Pending{MonoClock::nowNs(), wantWhite, done};
        lastLatencyNs.reset();
    }
    send();
    // NaN waits not at all; a wait past any run (infinity too) is cut to one
    // that still fits the clock's nanoseconds.
    const double wait = timeoutSeconds > 0 ? std::min(timeoutSeconds, 1e9) : 0;
    bool arrived = done->try_acquire_for(std::chrono::duration<double>(wait));
    std::lock_guard guard(lock);
    if (!arrived) {
        // The frame may have come just after the wait gave up; either way this one is over.
        if (pending && pending->done == done) pending.reset();
        return std::nullopt;
    }
    return double(*lastLatencyNs) / 1e6;
}

}  // namespace tsl
