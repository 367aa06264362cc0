#include <gtest/gtest.h>

#include <cmath>
#include <limits>

#include "TslStream/Capture/CaptureSize.h"
#include "TslStream/Capture/WindowCapture.h"

namespace tsl {
namespace {

constexpr double inf = std::numeric_limits<double>::infinity();
constexpr double nan = std::numeric_limits<double>::quiet_NaN();

void expectSize(Size points, double backing, double scale, int64_t w, int64_t h, double ppp) {
    CaptureSize c = CaptureSize::compute(points, backing, scale);
    EXPECT_EQ((std::pair{c.width, c.height}), (std::pair{w, h})) << points.width << "x" << points.height;
    EXPECT_NEAR(c.pixelsPerPoint, ppp, 1e-5) << points.width << "x" << points.height;
}

int64_t macroblocks(const CaptureSize& c) { return (c.width + 15) / 16 * ((c.height + 15) / 16); }

TEST(CaptureSize, KnownWindows) {
    expectSize({1440, 900}, 2, 1, 2880, 1800, 2.0);
    expectSize({801, 601}, 1, 1, 802, 602, 1.0);
    expectSize({2560, 1440}, 2, 1, 4096, 2304, 1.6);  // exactly 36864 macroblocks: no second cut
    expectSize({3000, 3000}, 2, 1, 3058, 3058, 1.01888);  // edge limit, then macroblock limit
    expectSize({800, 600}, 2, 5, 3200, 2400, 4.0);
    expectSize({0, 0}, 1, 1, 2, 2, 1.0);
    EXPECT_EQ(macroblocks(CaptureSize::compute({3000, 3000}, 2, 1)), 36864);
}

TEST(CaptureSize, BadInputsCountAsNeutral) {
    expectSize({-5, nan}, 1, 1, 2, 2, 1.0);
    expectSize({inf, 10}, 1, 1, 2, 10, 1.0);
    expectSize({100, 300000}, 1, 2, 6, 4096, 4096.0 / 100000);  // capped at 100000 points first
    expectSize({1000, 500}, 1, 0.01, 100, 50, 0.1);
    expectSize({1000, 500}, 1, nan, 1000, 500, 1.0);
    expectSize({1000, 500}, 0, 1, 1000, 500, 1.0);
    expectSize({1000, 500}, -2, 1, 1000, 500, 1.0);
    expectSize({100, 50}, 8, 1, 400, 200, 4.0);
    // One macroblock over the limit cuts the scale; exactly at it doesn't.
    CaptureSize over = CaptureSize::compute({16 * 192 + 1, 16 * 192}, 1, 1);
    EXPECT_LT(over.pixelsPerPoint, 1.0);
    EXPECT_LE(macroblocks(over), CaptureSize::maxMacroblocks);
    EXPECT_EQ(CaptureSize::compute({16 * 192, 16 * 192}, 1, 1).pixelsPerPoint, 1.0);
}

TEST(CaptureSize, FrameGeometryIsAllFromTheFrameOrAllFallback) {
    const ValueDict good{{CaptureFrameInfo::keyScaleFactor, 2.0}, {CaptureFrameInfo::keyContentScale, 0.5}};
    EXPECT_EQ(WindowCapture::geometry(&good, 1.0, 1.5), (FrameGeometry{1.0, 2.0}));
    EXPECT_EQ(WindowCapture::geometry(nullptr, 1.0, 1.5), (FrameGeometry{1.5, 1.0}));
    const ValueDict empty;
    EXPECT_EQ(WindowCapture::geometry(&empty, 3.0, 1.5), (FrameGeometry{1.5, 3.0}));
    const ValueDict zero{{CaptureFrameInfo::keyScaleFactor, 2.0}, {CaptureFrameInfo::keyContentScale, 0.0}};
    EXPECT_EQ(WindowCapture::geometry(&zero, 1.0, 1.5), (FrameGeometry{1.5, 1.0}));
    const ValueDict text{{CaptureFrameInfo::keyScaleFactor, "2"}, {CaptureFrameInfo::keyContentScale, 1.0}};
    EXPECT_EQ(WindowCapture::geometry(&text, 1.0, 1.5), (FrameGeometry{1.5, 1.0}));
}

TEST(CaptureSize, ConfigurationForTheStream) {
    CaptureConfiguration c = WindowCapture::configuration({640, 400, 1.0}, 500);
    EXPECT_EQ((std::tuple{c.width, c.height, c.minimumFrameIntervalValue, c.minimumFrameIntervalTimescale}),
              (std::tuple{640, 400, 1, 120}));
    EXPECT_EQ((std::tuple{c.pixelFormat, c.queueDepth, c.showsCursor, c.capturesAudio, c.ignoreShadowsSingleWindow}),
              (std::tuple{PixelBuffer::bgra, 3, false, false, true}));
    EXPECT_EQ(WindowCapture::configuration({2, 2, 1.0}, 0).minimumFrameIntervalTimescale, 1);
}

}  // namespace
}  // namespace tsl
