#pragma once
#include <vector>

namespace tsl {

// An axis from 0 to a round maximum, with ticks a person reads at a glance:
// steps of 1, 2 or 5 times a power of ten, at most `mostTicks` of them past 0.
struct ChartScale {
    double max = 1;
    double step = 1;

    static ChartScale covering(double value, int mostTicks = 5);
    // 0, step, 2 step, ... max.
    std::vector<double> ticks() const;
    // Where `value` falls along the axis, 0 to 1.
    double fraction(double value) const { return value / max; }
};

}  // namespace tsl
