#include "TslStream/Capture/CaptureSize.h"

#include <algorithm>
#include <cmath>

namespace tsl {
namespace {

double side(double points) { return std::isfinite(points) && points >= 1 ? std::min(points, 100000.0) : 1.0; }

int64_t even(double v) {
    auto n = int64_t(std::clamp(std::ceil(v), 2.0, double(CaptureSize::maxEdge)));
    if (n % 2 != 0) n = std::min(n + 1, CaptureSize::maxEdge);
    return n;
}

}  // namespace

CaptureSize CaptureSize::compute(Size pointSize, double backingScale, double scale) {
    const double w = side(pointSize.width), h = side(pointSize.height);
    double requested = !std::isfinite(scale) ? 1.0 : scale >= 2.0 ? 2.0 : std::max(scale, 0.1);
    double backing = std::isfinite(backingScale) && backingScale > 0 ? std::min(backingScale, 4.0) : 1.0;
    double s = requested * backing;

    const double r = double(maxEdge) / std::max(w * s, h * s);
    if (r < 1) s *= r;
    const double m = std::ceil(w * s / 16) * std::ceil(h * s / 16);
    if (m > double(maxMacroblocks)) s *= std::sqrt(double(maxMacroblocks) / m) * 0.995;

    return {even(w * s), even(h * s), s};
}

}  // namespace tsl
