#include "TslCore/Measure/ChartScale.h"

#include <cmath>

namespace tsl {

ChartScale ChartScale::covering(double value, int mostTicks) {
    if (!(value > 0) || !std::isfinite(value)) return {};
    const double power = std::pow(10.0, std::floor(std::log10(value / mostTicks)));
    for (const double factor : {1.0, 2.0, 5.0, 10.0}) {
        const double step = factor * power;
        const double max = std::ceil(value / step) * step;
        if (max / step <= mostTicks + 1e-9) return {max, step};
    }
    return {std::ceil(value / (10 * power)) * 10 * power, 10 * power};
}

std::vector<double> ChartScale::ticks() const {
    std::vector<double> out;
    const long count = std::lround(max / step);
    for (long i = 0; i <= count; ++i) out.push_back(double(i) * step);
    return out;
}

}  // namespace tsl
