#include <gtest/gtest.h>

#include <chrono>

#include "TslCore/Support/ISO8601.h"
#include "TslCore/Support/PathNames.h"
#include "TslCore/Support/UUID.h"

using namespace tsl;

TEST(ISO8601, WholeSecondsInUTC) {
    using namespace std::chrono;
    const sys_seconds t = sys_days{year{2026} / 2 / 28} + hours{23} + minutes{59} + seconds{59};
    EXPECT_EQ(ISO8601::format(t + milliseconds{999}), "2026-02-28T23:59:59Z");
    EXPECT_EQ(ISO8601::format(system_clock::time_point{}), "1970-01-01T00:00:00Z");
    EXPECT_EQ(ISO8601::parse("2026-02-28T23:59:59Z"), t);
    EXPECT_EQ(ISO8601::parse("2026-02-28T23:59:59.250Z"), t);
    EXPECT_EQ(ISO8601::parse("2026-02-30T00:00:00Z"), std::nullopt);
    // An offset names the same instant; across midnight and a month end too.
    EXPECT_EQ(ISO8601::parse("2026-03-01T01:29:59+01:30"), t);
    EXPECT_EQ(ISO8601::parse("2026-02-28T18:59:59-05:00"), t);
    EXPECT_EQ(ISO8601::parse("2026-02-28T23:59:59+0100"), std::nullopt);
    EXPECT_EQ(ISO8601::parse("2026-02-28T23:59:59+24:00"), std::nullopt);
    EXPECT_EQ(ISO8601::parse("2026-02-28T23:59:59Z+01:00"), std::nullopt);
    EXPECT_EQ(ISO8601::parse("2026-02-28 23:59:59Z"), std::nullopt);
    EXPECT_EQ(ISO8601::parse(""), std::nullopt);
}

TEST(PathNames, LexicalFormsAsFileURLsHaveThem) {
    EXPECT_EQ(PathNames::standardizedPath("/a//b/./c/../d/"), "/a/b/d");
    EXPECT_EQ(PathNames::standardizedPath("/../.."), "/");
    EXPECT_EQ(PathNames::lastComponent("/a/Tool.app/"), "Tool.app");
    EXPECT_EQ(PathNames::deletingLastComponent("/a/Tool.app/"), "/a");
    EXPECT_EQ(PathNames::deletingLastComponent("/a"), "/");
    EXPECT_EQ(PathNames::extension("Driver.KEXT"), "KEXT");
    EXPECT_EQ(PathNames::extension(".app"), "");
    EXPECT_EQ(PathNames::extension("name."), "");
    EXPECT_EQ(PathNames::extension("/x.y/plain"), "");
    EXPECT_EQ(PathNames::stem("/Apps/Tool.v2.app"), "Tool.v2");
    EXPECT_EQ(PathNames::stem("/Apps/.app"), ".app");
    EXPECT_EQ(PathNames::appending("/", "a"), "/a");
    EXPECT_EQ(PathNames::urlPath("/a/b//"), "/a/b");
    EXPECT_EQ(PathNames::urlPath("/"), "/");
}

TEST(UUID, FreshVersionFourText) {
    const std::string a = makeUUIDString(), b = makeUUIDString();
    EXPECT_NE(a, b);
    ASSERT_EQ(a.size(), 36u);
    EXPECT_EQ(a[8], '-');
    EXPECT_EQ(a[14], '4');
    EXPECT_NE(std::string("89AB").find(a[19]), std::string::npos);
    EXPECT_EQ(a.find_first_not_of("0123456789ABCDEF-"), std::string::npos);
}
