#include "TesselHost/SimChart.h"

#include <algorithm>
#include <cmath>
#include <cstdio>

#include "TslCore/Measure/ChartScale.h"

namespace tsl::host {
namespace {

std::string fixed(double v, int digits) {
    char text[32];
    std::snprintf(text, sizeof text, "%.*f", digits, v);
    return text;
}

// Ticks of 0.5 need a decimal; whole steps don't.
std::string tickText(double v, const ChartScale& scale) { return fixed(v, scale.step < 1 ? 1 : 0); }

std::string text(double x, double y, const std::string& body, const std::string& extra = "") {
    return "<text x=\"" + fixed(x, 1) + "\" y=\"" + fixed(y, 1) + "\"" + extra + ">" + body + "</text>\n";
}

std::string line(double x1, double y1, double x2, double y2, const std::string& colour) {
    return "<line x1=\"" + fixed(x1, 1) + "\" y1=\"" + fixed(y1, 1) + "\" x2=\"" + fixed(x2, 1) + "\" y2=\"" +
           fixed(y2, 1) + "\" stroke=\"" + colour + "\"/>\n";
}

// One plot area and its two axes, in pixels from the picture's top left.
struct Panel {
    double left, top, width, height;
    ChartScale xScale, yScale;

    double x(double v) const { return left + width * xScale.fraction(v); }
    double y(double v) const { return top + height * (1 - yScale.fraction(v)); }

    std::string axes(const std::string& title, const std::string& xUnit, const std::string& yUnit) const {
        std::string svg = text(left - 40, top - 16, title, " font-size=\"14\"");
        svg += line(left, top + height, left + width, top + height, "black");
        svg += line(left, top, left, top + height, "black");
        for (double v : xScale.ticks()) {
            svg += line(x(v), top + height, x(v), top + height + 4, "black");
            svg += text(x(v), top + height + 16, tickText(v, xScale), " text-anchor=\"middle\"");
        }
        for (double v : yScale.ticks()) {
            svg += line(left - 4, y(v), left, y(v), "black");
            svg += text(left - 6, y(v) + 4, tickText(v, yScale), " text-anchor=\"end\"");
        }
        svg += text(left + width / 2, top + height + 32, xUnit, " text-anchor=\"middle\"");
        svg += text(left - 40, top + height / 2, yUnit,
                    " text-anchor=\"middle\" transform=\"rotate(-90 " + fixed(left - 40, 1) + " " +
                        fixed(top + height / 2, 1) + ")\"");
        return svg;
    }
};

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
        svg += "<rect x=\"" + fixed(x0, 1) + "\" y=\"" + fixed(p.y(double(counts[i])), 1) + "\" width=\"" +
               fixed(std::max(1.0, x1 - x0 - 1), 1) + "\" height=\"" + fixed(p.y(0) - p.y(double(counts[i])), 1) +
               "\" fill=\"#3b6ea8\"/>\n";
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
    std::string points;
    // Each second's count stands at its end.
    for (size_t i = 0; i < perSecond.size(); ++i)
        points += fixed(p.x(double(i + 1)), 1) + "," + fixed(p.y(double(perSecond[i])), 1) + " ";
    if (!points.empty())
        svg += "<polyline fill=\"none\" stroke=\"#27ae60\" stroke-width=\"2\" points=\"" + points + "\"/>\n";
    return svg;
}

}  // namespace

std::string svgChart(const SimFigures& f, const SimSummary& s) {
    constexpr int width = 940, height = 340;
    std::string svg = "<svg xmlns=\"http://www.w3.org/2000/svg\" width=\"" + std::to_string(width) + "\" height=\"" +
                      std::to_string(height) + "\" font-family=\"sans-serif\" font-size=\"12\">\n";
    svg += "<rect width=\"100%\" height=\"100%\" fill=\"white\"/>\n";
    svg += latencyPanel(f, s, Panel{70, 40, 360, 230, {}, {}});
    svg += frameRatePanel(f, Panel{540, 40, 360, 230, {}, {}});
    svg += "</svg>\n";
    return svg;
}

}  // namespace tsl::host
