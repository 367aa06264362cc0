#pragma once
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <functional>
#include <thread>
#include <utility>
#include <vector>

#include "TslCore/Measure/Stats.h"
#include "TslCore/Support/MonoClock.h"
#include "TslStream/Transport/Socket.h"

namespace tsl::bench {

// Best of several timed runs of fn, in seconds. Benchmarks compare against a
// baseline measured the same way in the same run.
inline double bestSeconds(int runs, const std::function<void()>& fn) {
    double best = 1e30;
    for (int i = 0; i < runs; ++i) {
        auto t0 = std::chrono::steady_clock::now();
        fn();
        double s = std::chrono::duration<double>(std::chrono::steady_clock::now() - t0).count();
        best = std::min(best, s);
    }
    return best;
}

inline double percentile(std::vector<double> v, double p) {
    if (v.empty()) return 0;
    std::sort(v.begin(), v.end());
    return v[std::min(v.size() - 1, size_t(p * double(v.size())))];
}

// Medians of two ways, in microseconds, timed in turns so that the
// machine's load falls on both alike.
inline std::pair<double, double> medianMicrosInTurns(int rounds, const std::function<void()>& ours,
                                                     const std::function<void()>& bare) {
    std::vector<double> a, b;
    auto time = [](const std::function<void()>& fn) {
        auto t0 = std::chrono::steady_clock::now();
        fn();
        return std::chrono::duration<double, std::micro>(std::chrono::steady_clock::now() - t0).count();
    };
    for (int i = 0; i < rounds; ++i) {
        a.push_back(time(ours));
        b.push_back(time(bare));
    }
    return {percentile(a, 0.5), percentile(b, 0.5)};
}

inline void ratioLine(const char* what, double ours, double baseline, double target, bool higherIsBetter = true) {
    std::printf("%s\n", tsl::ratioLine(what, ours / baseline, target, higherIsBetter).c_str());
}

// Round trips, in microseconds, of `bytes` (at most 100) written by this
// thread, echoed by another over a socket pair and read back: the floor for
// any request.
inline std::vector<double> rawPingPongMicros(int rounds, size_t bytes = 100) {
    auto [a, b] = socketPair();
    bytes = std::min<size_t>(bytes, 100);
    std::thread echo([b = b, rounds, bytes] {
        uint8_t buf[100];
        for (int i = 0; i < rounds; ++i) {
            size_t got = 0;
            while (got < bytes) got += size_t(::read(b, buf + got, bytes - got));
            if (::write(b, buf, bytes) != ssize_t(bytes)) std::abort();
        }
    });
    std::vector<double> micros;
    uint8_t buf[100] = {};
    for (int i = 0; i < rounds; ++i) {
        uint64_t t0 = MonoClock::nowNs();
        if (::write(a, buf, bytes) != ssize_t(bytes)) std::abort();
        size_t got = 0;
        while (got < bytes) got += size_t(::read(a, buf + got, bytes - got));
        micros.push_back(double(MonoClock::nowNs() - t0) / 1e3);
    }
    echo.join();
    ::close(a);
    ::close(b);
    return micros;
}

// Frames of `bytes` (at most 100) per second written back to back, one write
// each, by one thread and read by another over a socket pair: the floor for a
// stream of small frames in one direction.
inline double rawOneWayFramesPerSecond(int frames, size_t bytes = 100) {
    auto [a, b] = socketPair();
    bytes = std::min<size_t>(bytes, 100);
    const size_t total = size_t(frames) * bytes;
    auto t0 = std::chrono::steady_clock::now();
    std::thread writer([a = a, frames, bytes] {
        uint8_t buf[100] = {};
        for (int i = 0; i < frames; ++i)
            if (::write(a, buf, bytes) != ssize_t(bytes)) std::abort();
    });
    uint8_t buf[4096];
    for (size_t got = 0; got < total;) {
        ssize_t n = ::read(b, buf, std::min(sizeof buf, total - got));
        if (n <= 0) std::abort();
        got += size_t(n);
    }
    double seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - t0).count();
    writer.join();
    ::close(a);
    ::close(b);
    return frames / seconds;
}

}  // namespace tsl::bench
