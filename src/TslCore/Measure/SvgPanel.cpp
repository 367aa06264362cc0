#include "TslCore/Measure/SvgPanel.h"

#include <cstdio>

namespace tsl::svg {
namespace {

// Ticks of 0.5 need a decimal; whole steps don't.
std::string tickText(double v, const ChartScale& scale) { return fixed(v, scale.step < 1 ? 1 : 0); }

}  // namespace

std::string fixed(double v, int digits) {
    char text[32];
    std::snprintf(text, sizeof text, "%.*f", digits, v);
    return text;
}

std::string text(double x, double y, const std::string& body, const std::string& extra) {
    return "<text x=\"" + fixed(x, 1) + "\" y=\"" + fixed(y, 1) + "\"" + extra + ">" + body + "</text>\n";
}

std::string line(double x1, double y1, double x2, double y2, const std::string& colour) {
    return "<line x1=\"" + fixed(x1, 1) + "\" y1=\"" + fixed(y1, 1) + "\" x2=\"" + fixed(x2, 1) + "\" y2=\"" +
           fixed(y2, 1) + "\" stroke=\"" + colour + "\"/>\n";
}

std::string rect(double x, double y, double width, double height, const std::string& colour) {
    return "<rect x=\"" + fixed(x, 1) + "\" y=\"" + fixed(y, 1) + "\" width=\"" + fixed(width, 1) + "\" height=\"" +
           fixed(height, 1) + "\" fill=\"" + colour + "\"/>\n";
}

std::string polyline(const std::vector<std::pair<double, double>>& points, const std::string& colour) {
    if (points.empty()) return {};
    std::string list;
    for (const auto& [x, y] : points) list += fixed(x, 1) + "," + fixed(y, 1) + " ";
    return "<polyline fill=\"none\" stroke=\"" + colour + "\" stroke-width=\"2\" points=\"" + list + "\"/>\n";
}

std::string begin(int width, int height) {
    return "<svg xmlns=\"http://www.w3.org/2000/svg\" width=\"" + std::to_string(width) + "\" height=\"" +
           std::to_string(height) + "\" font-family=\"sans-serif\" font-size=\"12\">\n" +
           "<rect width=\"100%\" height=\"100%\" fill=\"white\"/>\n";
}

std::string Panel::axes(const std::string& title, const std::string& xUnit, const std::string& yUnit) const {
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

}  // namespace tsl::svg
