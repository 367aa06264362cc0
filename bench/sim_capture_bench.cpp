// Simulated capture of the test pattern window at 1280×800 (two pixels a
// point) and 60 frames a second: frames delivered per second, and the
// capture thread's CPU time per frame against a plain fill and copy of the
// same frame size measured in the same run.
#include <pthread.h>
#include <time.h>

#include <atomic>
#include <cstring>
#include <mutex>
#include <thread>

#include "BenchSupport.h"
#include "Platform/Sim/Desktop.h"
#include "TslCore/Measure/TestPattern.h"

using namespace tsl;

namespace {

constexpr int64_t width = 1280, height = 800;

double threadCpuSeconds() {
    timespec ts{};
    clock_gettime(CLOCK_THREAD_CPUTIME_ID, &ts);
    return double(ts.tv_sec) + double(ts.tv_nsec) * 1e-9;
}

struct Pattern {
    std::shared_ptr<Sim::Desktop> desktop;
    PlatformServices services;
    uint32_t window = 0;

    explicit Pattern(bool manual) : desktop(Sim::Desktop::make({.manualCapture = manual})), services(desktop->services()) {
        const int32_t pid = desktop->addProcess({.name = "Pattern", .kind = Sim::AppKind::testPattern});
        window =
            desktop->addWindow(pid, {.title = std::string(TestPatternSpec::windowTitle),
                                     .frame = {0, 0, TestPatternSpec::contentWidth, TestPatternSpec::contentHeight}});
    }
    std::shared_ptr<CaptureStream> start(int32_t fps, CaptureStream::OutputHandler handler) {
        auto stream = services.screenCapture->makeStream(
            {.windowID = window},
            {.width = width, .height = height, .minimumFrameIntervalValue = 1, .minimumFrameIntervalTimescale = fps},
            nullptr);
        stream->addStreamOutput(CaptureOutputType::screen, std::move(handler));
        stream->startCapture([](std::exception_ptr) {});
        return stream;
    }
};

}  // namespace

int main() {
    const double frameBytes = double(width * height * 4);

    // Baseline: fill a frame, then copy it, as a renderer that draws into
    // memory and hands it on would at the least.
    std::vector<uint32_t> source(size_t(width * height)), target(source.size());
    uint32_t colour = 0xFF303030;
    const int baselineFrames = 200;
    const double baselineSeconds = bench::bestSeconds(5, [&] {
        for (int i = 0; i < baselineFrames; ++i) {
            std::fill(source.begin(), source.end(), colour++);
            std::memcpy(target.data(), source.data(), source.size() * 4);
        }
    });
    const double baselinePerFrame = baselineSeconds / baselineFrames;

    // Timed: what a 60 fps stream delivers in three seconds.
    double cpuFirst = 0, cpuLast = 0;
    std::atomic<uint64_t> delivered{0};
    {
        Pattern pattern(false);
        auto stream = pattern.start(60, [&](const CaptureSample& sample, CaptureOutputType) {
            if (!sample.imageBuffer) return;
            const double cpu = threadCpuSeconds();
            if (delivered.fetch_add(1) == 0) cpuFirst = cpu;
            cpuLast = cpu;
        });
        std::this_thread::sleep_for(std::chrono::seconds(3));
        stream->stopCapture([](std::exception_ptr) {});
    }
    const uint64_t frames = delivered.load();
    const double deliveredPerSecond = double(frames) / 3.0;
    const double cpuPerFrame = frames > 1 ? (cpuLast - cpuFirst) / double(frames - 1) : 0;

    // Unthrottled: one frame after another on request, for the ceiling.
    const int steps = 300;
    double stepSeconds;
    {
        Pattern pattern(true);
        auto stream = pattern.start(60, [](const CaptureSample&, CaptureOutputType) {});
        stepSeconds = bench::bestSeconds(3, [&] {
            for (int i = 0; i < steps; ++i) pattern.desktop->stepCapture();
        });
        stream->stopCapture([](std::exception_ptr) {});
    }
    const double stepPerFrame = stepSeconds / steps;

    std::printf("frame %lldx%lld BGRA, %.1f MB\n", (long long)width, (long long)height, frameBytes / 1e6);
    std::printf("baseline fill+copy:          %.3f ms/frame (%.0f frames/s)\n", baselinePerFrame * 1e3,
                1 / baselinePerFrame);
    std::printf("60 fps stream:               %llu frames in 3 s, %.1f frames/s delivered\n",
                (unsigned long long)frames, deliveredPerSecond);
    std::printf("capture thread CPU:          %.3f ms/frame (%.1f%% of one core at 60 fps)\n", cpuPerFrame * 1e3,
                cpuPerFrame * 60 * 100);
    std::printf("unthrottled step, round trip: %.3f ms/frame (%.0f frames/s ceiling)\n", stepPerFrame * 1e3,
                1 / stepPerFrame);
    bench::ratioLine("frames delivered vs 60 requested", deliveredPerSecond, 60, 0.95);
    bench::ratioLine("CPU per frame vs fill+copy", cpuPerFrame, baselinePerFrame, 3.0, false);
    return 0;
}
