#pragma once
#include <cstdint>

#include "Platform/Geometry.h"

namespace tsl {

// The pixel size a window is captured at, and the scale that gave it. Every
// size stays within 4096 pixels an edge and 36864 macroblocks, whatever the
// window does; the sides are even.
struct CaptureSize {
    static constexpr int64_t maxEdge = 4096;
    static constexpr int64_t maxMacroblocks = 36864;  // squares of 16 by 16 pixels

    int64_t width = 2;
    int64_t height = 2;
    double pixelsPerPoint = 1.0;  // exact; the sides are rounded up from it

    // The window's size in points at the display's backing scale times the
    // scale the host asked for, cut down to the limits. Bad inputs count as
    // their neutral values.
    static CaptureSize compute(Size pointSize, double backingScale, double scale);

    bool operator==(const CaptureSize&) const = default;
};

// How a frame's pixels relate to the window's points.
struct FrameGeometry {
    double pixelsPerPoint = 1.0;
    double nativeScale = 1.0;  // the guest display's own backing scale
    bool operator==(const FrameGeometry&) const = default;
};

}  // namespace tsl
