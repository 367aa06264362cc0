#include <gtest/gtest.h>

#include "TslCore/Compat/CompatDatabase.h"
#include "TslCore/Compat/VersionNumber.h"

using namespace tsl;

TEST(VersionNumber, ReadsTheFirstRunOfDigitsAndDots) {
    using P = std::vector<int64_t>;
    EXPECT_EQ(VersionNumber::parts("v2.1-beta3"), (P{2, 1}));
    EXPECT_EQ(VersionNumber::parts("Version 10.15.7 (19H15)"), (P{10, 15, 7}));
    EXPECT_EQ(VersionNumber::parts("2..3."), (P{2, 3}));
    EXPECT_EQ(VersionNumber::parts("beta"), P{});
    EXPECT_EQ(VersionNumber::parts("\u0663.1 then 4"), (P{1}));  // an Arabic-Indic three is no digit here
    EXPECT_EQ(VersionNumber::parts("1.2.3.4.5.6.7.8"), (P{1, 2, 3, 4, 5, 6}));
    EXPECT_EQ(VersionNumber::parts("1.99999999999999999999.3"), (P{1, 0, 3}));
    EXPECT_EQ(VersionNumber::parts("9223372036854775807"), P{INT64_MAX});
}

TEST(VersionNumber, ComparesPositionByPosition) {
    EXPECT_EQ(VersionNumber::compare("1.2", "1.2.0"), 0);
    EXPECT_EQ(VersionNumber::compare("10.15.7", "10.9"), 1);
    EXPECT_EQ(VersionNumber::compare("10.9", "10.15.7"), -1);
    EXPECT_EQ(VersionNumber::compare("1.2.3.4.5.6.7", "1.2.3.4.5.6.8"), 0);
    EXPECT_EQ(VersionNumber::compare("none", "0"), 0);
    EXPECT_EQ(VersionNumber::compare("99999999999999999999", "1"), -1);
    EXPECT_EQ(VersionNumber::compare("2..3", "2.3"), 0);
}

TEST(VersionNumber, RangesAreInclusiveAndNeedAVersionOnlyWhenBounded) {
    using Range = CompatDatabase::VersionRange;
    EXPECT_TRUE((Range{std::nullopt, "3.0"}).contains("3.0"));
    EXPECT_TRUE((Range{std::nullopt, "3"}).contains("3.0"));
    EXPECT_FALSE((Range{std::nullopt, "3"}).contains("3.0.1"));
    EXPECT_TRUE((Range{"2", std::nullopt}).contains("2"));
    EXPECT_FALSE((Range{"2", std::nullopt}).contains("1.9"));
    EXPECT_FALSE((Range{"1", "2"}).contains(std::nullopt));
    EXPECT_TRUE(Range{}.contains(std::nullopt));
    EXPECT_TRUE(Range{}.contains("anything"));
}
