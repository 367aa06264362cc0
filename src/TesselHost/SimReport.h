#pragma once
#include <optional>
#include <string>
#include <vector>

#include "TesselHost/SimSession.h"

namespace tsl::host {

// The figures of a simulation run boiled down, and the files it leaves.
struct SimSummary {
    size_t roundTrips = 0;  // measured; the rest timed out
    std::optional<double> p50, p95, p99, mean;
    std::optional<double> transitP50, decodeP50;
    double fps = 0;
    uint64_t frames = 0, lost = 0, decodeErrors = 0;
    // Half a frame interval (the wait for the next capture, on average) plus
    // the median capture-to-arrival and decode times: the least an
    // input-to-pixel round trip can cost on this run.
    std::optional<double> floorMs;

    static SimSummary of(const SimFigures& figures, const SimOptions& options);
};

std::string summaryText(const SimSummary& summary, const SimOptions& options);
// In the benchmarks' form: "<what> ratio R (target <= T) met".
std::string floorLine(const SimSummary& summary);
std::string summaryJSON(const SimSummary& summary, const SimOptions& options, const std::vector<std::string>& files);
// Latency distribution and frames per second, side by side.
std::string svgChart(const SimFigures& figures, const SimSummary& summary);

}  // namespace tsl::host
