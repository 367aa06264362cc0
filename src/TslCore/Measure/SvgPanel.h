#pragma once
#include <string>
#include <utility>
#include <vector>

#include "TslCore/Measure/ChartScale.h"

namespace tsl::svg {

// A number with this many decimals, as SVG attributes and labels take it.
std::string fixed(double v, int digits);
std::string text(double x, double y, const std::string& body, const std::string& extra = "");
std::string line(double x1, double y1, double x2, double y2, const std::string& colour);
std::string rect(double x, double y, double width, double height, const std::string& colour);
// A line through the points, in pixels.
std::string polyline(const std::vector<std::pair<double, double>>& points, const std::string& colour);
// The opening of a white picture of this size; close it with "</svg>\n".
std::string begin(int width, int height);

// One plot area and its two axes, in pixels from the picture's top left.
struct Panel {
    double left, top, width, height;
    ChartScale xScale, yScale;

    double x(double v) const { return left + width * xScale.fraction(v); }
    double y(double v) const { return top + height * (1 - yScale.fraction(v)); }
    // The title above, both axes with their ticks, and each axis's unit.
    std::string axes(const std::string& title, const std::string& xUnit, const std::string& yUnit) const;
};

}  // namespace tsl::svg
