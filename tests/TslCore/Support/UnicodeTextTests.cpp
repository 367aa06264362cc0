#include <gtest/gtest.h>

#include "TslCore/Support/UnicodeText.h"

using namespace tsl;

TEST(UnicodeText, LowerCasesAllOfUnicodeAndCountsWhatAReaderSees) {
    EXPECT_EQ(lowercased("Com.Example.APP"), "com.example.app");
    EXPECT_EQ(lowercased("ÄRGER Σ"), "ärger σ");
    EXPECT_EQ(lowercased("İ"), "i\u0307");  // grows in bytes
    EXPECT_EQ(lowercased("A\xff"), "a\uFFFD");

    EXPECT_EQ(characterCount(""), 0u);
    EXPECT_EQ(characterCount("plain"), 5u);
    EXPECT_EQ(characterCount("a\r\nb"), 3u);
    EXPECT_EQ(characterCount("e\u0301"), 1u);
    EXPECT_EQ(characterCount("👍🏽!"), 2u);
    EXPECT_EQ(characterCount("🇫🇷\r\n"), 2u);
}
