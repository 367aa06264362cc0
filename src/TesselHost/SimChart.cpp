#include "TesselHost/SimChart.h"

#include <algorithm>
#include <cmath>
#include <cstdio>

#include "TslCore/Measure/SvgPanel.h"

namespace tsl::host {
namespace {

using svg::fixed;
using svg::line;
using svg::Panel;
using svg::text;

// How input-to-pixel latencies spread: round trips per bin of milliseconds.
std::string latencyPanel(const SimFigures& f, const SimSummary& s, Panel p) {
    const double top99 = std::max(1.0, s.p99.value_or(1.0) * 1.2);
    p.xScale = ChartScale::covering(top99);
    const size_t bins = std::clamp<size_t>(size_t(p.xScale.max), 1, 60);
    const double binWidth = p.xScale.max / double(bins);
    std::vector<size_t> counts(bins, 0);
    for (double v : f.latencyMs) counts[std::min(bins - 1, size_t(std::max(0.0, v) / binWidth))] += 1;
    p.yScale = ChartScale::covering(double(*std::max_element(counts.begin(), counts.end())));
    std::string svg =
        p.axes("Input to pixel, " + std::to_string(f.latencyMs.size()) + " round trips", "milliseconds", "round trips");
    for (size_t i = 0; i < bins; ++i) {
        if (counts[i] == 0) continue;
        const double x0 = p.x(binWidth * double(i)), x1 = p.x(binWidth * double(i + 1));
        svg += svg::rect(x0, p.y(double(counts[i])), std::max(1.0, x1 - x0 - 1), p.y(0) - p.y(double(counts[i])),
                         "#3b6ea8");
    }
    if (s.p50) {
        svg += line(p.x(*s.p50), p.top, p.x(*s.p50), p.top + p.height, "#c0392b");
        svg += text(p.x(*s.p50) + 4, p.top + 12, "p50 " + fixed(*s.p50, 1) + " ms", " fill=\"#c0392b\"");
    }
    return svg;
}

// Frames received in each whole second of the run.
std::string frameRatePanel(const SimFigures& f, Panel p) {
    const auto& perSecond = f.framesPerSecond;
    p.xScale = ChartScale::covering(double(std::max<size_t>(1, perSecond.size())));
    const uint64_t most = perSecond.empty() ? 0 : *std::max_element(perSecond.begin(), perSecond.end());
    p.yScale = ChartScale::covering(double(most));
    std::string svg = p.axes("Frames per second", "seconds", "frames");
    std::vector<std::pair<double, double>> points;
    // Each second's count stands at its end.
    for (size_t i = 0; i < perSecond.size(); ++i) points.emplace_back(p.x(double(i + 1)), p.y(double(perSecond[i])));
    return svg + svg::polyline(points, "#27ae60");
}

}  // namespace

std::string svgChart(const SimFigures& f, const SimSummary& s) {
    constexpr int width = 940, height = 340;
    std::string svg = svg::begin(width, height);
    svg += latencyPanel(f, s, Panel{70, 40, 360, 230, {}, {}});
    svg += frameRatePanel(f, Panel{540, 40, 360, 230, {}, {}});
    svg += "</svg>\n";
    return svg;
}

}  // namespace tsl::host
