#include <gtest/gtest.h>

#include <cmath>

#include "TslCore/Measure/ChartScale.h"

using namespace tsl;

TEST(ChartScale, RoundStepsThatCoverTheValue) {
    struct Case {
        double value, max, step;
    };
    for (const auto& [value, max, step] : std::vector<Case>{
             {7, 8, 2}, {10, 10, 2}, {11, 15, 5}, {60, 60, 20}, {61, 80, 20}, {0.3, 0.3, 0.1}, {240, 250, 50}}) {
        const auto scale = ChartScale::covering(value);
        EXPECT_DOUBLE_EQ(scale.max, max) << value;
        EXPECT_DOUBLE_EQ(scale.step, step) << value;
        EXPECT_GE(scale.max, value);
        EXPECT_LE(scale.ticks().size(), 6u) << value;
    }
    EXPECT_EQ(ChartScale::covering(7).ticks(), (std::vector<double>{0, 2, 4, 6, 8}));
    // Nothing measured still gives an axis to draw.
    EXPECT_DOUBLE_EQ(ChartScale::covering(0).max, 1);
    EXPECT_DOUBLE_EQ(ChartScale::covering(std::nan("")).max, 1);
}
