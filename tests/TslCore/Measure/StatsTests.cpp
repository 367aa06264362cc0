#include <gtest/gtest.h>

#include "TslCore/Measure/Stats.h"

namespace tsl {
namespace {

TEST(Stats, NearestRankNeverInterpolates) {
    EXPECT_EQ(Stats::percentile({}, 50), std::nullopt);
    EXPECT_EQ(Stats::median({}), std::nullopt);
    EXPECT_EQ(Stats::mean({}), std::nullopt);
    for (double p : {0.0, 1.0, 50.0, 99.0, 100.0}) EXPECT_EQ(Stats::percentile({7.5}, p), 7.5);

    std::vector<double> four{40, 10, 30, 20};
    EXPECT_EQ(Stats::median(four), 20);  // rank ceil(2) = 2, not 25
    EXPECT_EQ(Stats::percentile(four, 0), 10);
    EXPECT_EQ(Stats::percentile(four, 100), 40);
    EXPECT_EQ(Stats::percentile(four, 51), 30);
    EXPECT_EQ(Stats::percentile(four, 250), 40);
    EXPECT_EQ(Stats::percentile(four, -5), 10);
    EXPECT_EQ(Stats::mean(four), 25);

    std::vector<double> hundred;
    for (int i = 100; i >= 1; --i) hundred.push_back(i);
    EXPECT_EQ(Stats::percentile(hundred, 99), 99);
    EXPECT_EQ(Stats::percentile(hundred, 99.5), 100);
}

}  // namespace
}  // namespace tsl
