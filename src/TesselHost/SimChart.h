#pragma once
#include <string>

#include "TesselHost/SimReport.h"

namespace tsl::host {

// Latency distribution and frames per second, side by side, each on axes
// with ticks and units.
std::string svgChart(const SimFigures& figures, const SimSummary& summary);

}  // namespace tsl::host
