#pragma once
#include <nlohmann/json.hpp>
#include <optional>
#include <string>
#include <vector>

#include "TesselHost/SimSession.h"

namespace tsl::host {

// The figures of a simulation run boiled down, and the files it leaves.
struct SimSummary {
    size_t roundTrips = 0;  // measured; the rest timed out
    std::optional<double> p50, p95, p99, mean;
    // The stages of a frame, medians: capture to arrival on the host (the
    // agent's encode and send, and the transfer), decode on the host.
    std::optional<double> captureToArrivalP50, decodeP50;
    double fps = 0;
    uint64_t frames = 0, lost = 0, decodeErrors = 0;
    // Half a frame interval (the wait for the next capture, on average) plus
    // the stages' medians: the least an input-to-pixel round trip can cost
    // on this run.
    std::optional<double> floorMs;
    // The goal: the p50 round trip over that floor, at most floorTarget.
    std::optional<double> floorRatio;
    static constexpr double floorTarget = 1.2;
    bool floorMet() const { return floorRatio && *floorRatio <= floorTarget; }

    static SimSummary of(const SimFigures& figures, const SimOptions& options);
};

std::string summaryText(const SimSummary& summary, const SimOptions& options);
// The goal in the benchmarks' form.
std::string floorLine(const SimSummary& summary);

// Where a command's results go: `named`, else the user's cache
// (<home>/.cache/tessel/<kind>-results), never the folder it runs in.
std::string resultsFolder(const std::string& named, const std::string& kind);
// The latency and frame-rate CSVs, the text summary and the chart, each
// named after `kind`; the paths written. Throws Error.
std::vector<std::string> writeResults(const SimFigures& figures, const SimSummary& summary, const std::string& folder,
                                      const std::string& kind, const std::string& text);
nlohmann::json summaryJSON(const SimSummary& summary, const SimOptions& options, const std::vector<std::string>& files);

}  // namespace tsl::host
