#pragma once

namespace tsl {

// Global display coordinates in points, y going down from the top of the
// main display, as the window server and Accessibility both report them.
struct Point {
    double x = 0;
    double y = 0;
    bool operator==(const Point&) const = default;
};

struct Size {
    double width = 0;
    double height = 0;
    bool operator==(const Size&) const = default;
};

struct Rect {
    double x = 0;
    double y = 0;
    double width = 0;
    double height = 0;

    Point origin() const { return {x, y}; }
    Size size() const { return {width, height}; }
    // Half-open on the far edges, so two abutting windows never share a point.
    bool contains(Point p) const { return p.x >= x && p.y >= y && p.x < x + width && p.y < y + height; }

    bool operator==(const Rect&) const = default;
};

}  // namespace tsl
