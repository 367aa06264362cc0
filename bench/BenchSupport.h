#pragma once
#include <algorithm>
#include <chrono>
#include <cstdio>
#include <functional>
#include <vector>

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

inline void ratioLine(const char* what, double ours, double baseline, double target, bool higherIsBetter = true) {
    double ratio = ours / baseline;
    bool met = higherIsBetter ? ratio >= target : ratio <= target;
    std::printf("%-44s ratio %.2f (target %s %.2f) %s\n", what, ratio, higherIsBetter ? ">=" : "<=", target,
                met ? "met" : "NOT MET");
}

}  // namespace tsl::bench
