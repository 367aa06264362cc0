#pragma once
#include <cstdint>
#include <memory>
#include <mutex>

#include "Platform/PixelBuffer.h"
#include "TslCore/Support/Error.h"
#include "TslCore/Wire/InputEvent.h"

namespace tsl {

// The test pattern drawn into fresh pixel buffers, one per frame, with the
// square following key 122. Input and frames may come from different threads.
class SyntheticTestPattern {
public:
    struct Frame {
        std::shared_ptr<PixelBuffer> buffer;
        uint64_t counter = 0;        // 1 for the first frame
        uint32_t lastInputSeq = 0;  // sequence of the last key-122 event applied
    };

    explicit SyntheticTestPattern(double scale);

    // Only key code 122 counts: down whitens the square, up blackens it, and
    // any kind moves the input sequence.
    void apply(const InputEvent& event);
    // Throws Error when no buffer of the pattern's size can be made.
    Frame nextFrame();

    const int64_t pixelWidth;
    const int64_t pixelHeight;
    const double scale;

private:
    std::mutex lock;
    bool squareWhite = false;
    uint64_t counter = 0;
    uint32_t lastInputSeq = 0;
};

}  // namespace tsl
