#include "TslCore/Measure/Stats.h"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <numeric>

namespace tsl::Stats {

std::optional<double> percentile(std::vector<double> values, double percentage) {
    if (values.empty()) return std::nullopt;
    std::sort(values.begin(), values.end());
    double count = double(values.size());
    double rank = std::ceil(percentage / 100.0 * count);
    // A NaN percentage ranks as the lowest rather than indexing nowhere.
    rank = std::isnan(rank) ? 1.0 : std::clamp(rank, 1.0, count);
    return values[size_t(rank) - 1];
}

std::optional<double> median(const std::vector<double>& values) { return percentile(values, 50); }

std::optional<double> mean(const std::vector<double>& values) {
    if (values.empty()) return std::nullopt;
    return std::accumulate(values.begin(), values.end(), 0.0) / double(values.size());
}

}  // namespace tsl::Stats

namespace tsl {

std::string ratioLine(const std::string& what, double ratio, double target, bool higherIsBetter) {
    bool met = higherIsBetter ? ratio >= target : ratio <= target;
    char text[256];
    std::snprintf(text, sizeof text, "%-44s ratio %.2f (target %s %.2f) %s", what.c_str(), ratio,
                  higherIsBetter ? ">=" : "<=", target, met ? "met" : "NOT MET");
    return text;
}

}  // namespace tsl
