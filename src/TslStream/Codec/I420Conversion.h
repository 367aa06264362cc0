#pragma once
#include <condition_variable>
#include <cstddef>
#include <cstdint>
#include <mutex>
#include <thread>

namespace tsl {

// The three planes of a 4:2:0 picture, chroma at half size each way.
struct I420Planes {
    uint8_t* y = nullptr;
    int strideY = 0;
    uint8_t* u = nullptr;
    int strideU = 0;
    uint8_t* v = nullptr;
    int strideV = 0;
};

// BGRA bytes (blue first) into I420 with BT.601 limited-range coefficients,
// the form H.264 decoders assume by default. False if the converter refused.
bool convertBGRAToI420(const uint8_t* bgra, size_t bytesPerRow, int64_t width, int64_t height, const I420Planes& out);

// The same conversion with the lower half of a large picture done by a
// helper thread of its own: before an encode the slice threads wait for the
// picture, so a second core is free, and the conversion is the part of a
// frame's latency that does not shrink with slices.
//
// Threading: convert from one thread at a time.
class I420Converter {
public:
    I420Converter();
    ~I420Converter();
    I420Converter(const I420Converter&) = delete;
    I420Converter& operator=(const I420Converter&) = delete;

    bool convert(const uint8_t* bgra, size_t bytesPerRow, int64_t width, int64_t height, const I420Planes& out);

    // Below this many pixels waking the helper costs more than it saves.
    static constexpr int64_t splitFromPixels = 640 * 360;

private:
    struct Part {
        const uint8_t* bgra;
        size_t bytesPerRow;
        int64_t width, height;
        I420Planes out;
    };
    void work();

    std::mutex lock;
    std::condition_variable changed;
    Part part{};
    bool pending = false, finished = false, partOK = false, stopping = false;
    std::thread helper;  // absent on one core
};

}  // namespace tsl
