// Texts that once decoded wrongly: each is refused now, and the values at the
// edge of the range still decode exactly.
#include <gtest/gtest.h>

#include <chrono>

#include "Support/DataFiles.h"
#include "TslCore/Support/Base64.h"
#include "TslCore/Support/Decimal.h"
#include "TslCore/Support/ISO8601.h"

using namespace tsl;
using namespace std::chrono;
using tsl::test::dataFile;

TEST(Decimal, RefusesWhatWouldWrapAtEveryWidth) {
    EXPECT_EQ(parseDecimal<uint64_t>(dataFile("TslCore", "decimal-u64-wrap.txt")), std::nullopt);
    EXPECT_EQ(parseDecimal<uint64_t>("18446744073709551615"), UINT64_MAX);
    EXPECT_EQ(parseDecimal<uint64_t>("184467440737095516150"), std::nullopt);
    EXPECT_EQ(parseDecimal<uint64_t>("99999999999999999999"), std::nullopt);
    EXPECT_EQ(parseDecimal<uint64_t>("00000000000000000000018446744073709551615"), UINT64_MAX);
    EXPECT_EQ(parseDecimal<uint8_t>("255"), 255);
    EXPECT_EQ(parseDecimal<uint8_t>("256"), std::nullopt);
    EXPECT_EQ(parseDecimal<uint32_t>("4294967296"), std::nullopt);
}

TEST(Base64, RefusesNonZeroBitsBelowTheLastByte) {
    EXPECT_EQ(Base64::decode(dataFile("TslCore", "base64-noncanonical.txt")), std::nullopt);
    EXPECT_EQ(Base64::decode("aB=="), std::nullopt);
    EXPECT_EQ(Base64::decode("aGl="), std::nullopt);
    EXPECT_EQ(Base64::decode("aQ=="), Bytes{'i'});
    EXPECT_EQ(Base64::decode("aGk="), (Bytes{'h', 'i'}));
}

TEST(ISO8601, DatesOfEveryFourDigitYearOfWhichTheClockHoldsFewer) {
    // Once overflowed the clock on the way in: now a date, which the clock refuses.
    const auto early = ISO8601::parse(dataFile("TslCore", "iso8601-year-overflow.txt"));
    ASSERT_TRUE(early);
    EXPECT_EQ(ISO8601::format(*early), "0226-10-01T12:34:56Z");
    EXPECT_EQ(ISO8601::clockTime(*early), std::nullopt);
    for (const char* edge : {"0000-01-01T00:00:00Z", "9999-12-31T23:59:59Z"}) {
        const auto date = ISO8601::parse(edge);
        ASSERT_TRUE(date) << edge;
        EXPECT_EQ(ISO8601::format(*date), edge);
    }
    // An offset doesn't carry a date past the years four digits write.
    EXPECT_EQ(ISO8601::parse("9999-12-31T23:59:59-00:01"), std::nullopt);
    EXPECT_EQ(ISO8601::parse("0000-01-01T00:00:00+00:01"), std::nullopt);
    // The clock's own limits, in whole seconds.
    for (const char* edge : {"2262-04-11T23:47:16Z", "1677-09-21T00:12:44Z"}) {
        const auto time = ISO8601::clockTime(*ISO8601::parse(edge));
        ASSERT_TRUE(time) << edge;
        EXPECT_EQ(ISO8601::format(*time), edge);
    }
    EXPECT_EQ(ISO8601::clockTime(*ISO8601::parse("2262-04-11T23:47:17Z")), std::nullopt);
    EXPECT_EQ(ISO8601::clockTime(*ISO8601::parse("1677-09-21T00:12:43Z")), std::nullopt);
}
