#pragma once
#include <cstdint>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <semaphore>

#include "Platform/PixelBuffer.h"

namespace tsl {

// Counts received test-pattern frames and the ones lost on the way (by the
// pattern's counter), and times a key press until the first frame that shows
// it. onFrame runs on the decoding thread; measure blocks a different one.
class ProbeMeasurement {
public:
    struct Snapshot {
        uint64_t frames = 0;
        uint64_t dropped = 0;
        bool operator==(const Snapshot&) const = default;
    };

    explicit ProbeMeasurement(double originY) : originY(originY) {}

    void onFrame(PixelBuffer& frame, double scale);
    Snapshot snapshot() const;
    // Milliseconds from just before `send` to the first frame whose square is
    // in the wanted state; nothing when none comes within `timeoutSeconds`.
    // An error from `send` passes to the caller.
    std::optional<double> measure(bool wantWhite, double timeoutSeconds, const std::function<void()>& send);

    const double originY;

private:
    struct Pending {
        uint64_t t0 = 0;
        bool wantWhite = false;
        std::shared_ptr<std::binary_semaphore> done;
    };

    mutable std::mutex lock;
    uint64_t frames = 0;
    uint64_t dropped = 0;
    std::optional<uint64_t> lastCounter;
    std::optional<Pending> pending;
    std::optional<uint64_t> lastLatencyNs;
};

}  // namespace tsl
