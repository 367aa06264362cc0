#pragma once
#include <optional>
#include <string>
#include <vector>

namespace tsl {

// Summaries of measured samples. Percentiles use the nearest rank and never
// interpolate, so every figure reported is one that was measured.
namespace Stats {
std::optional<double> percentile(std::vector<double> values, double percentage);
std::optional<double> median(const std::vector<double>& values);
std::optional<double> mean(const std::vector<double>& values);
}  // namespace Stats

// A figure held to its goal, in the one form that benchmarks and goals print:
// "<what> ratio R (target <= T) met", or "NOT MET".
std::string ratioLine(const std::string& what, double ratio, double target, bool higherIsBetter = true);

}  // namespace tsl
