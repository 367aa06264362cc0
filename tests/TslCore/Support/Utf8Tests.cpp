#include <gtest/gtest.h>

#include "TslCore/Support/Utf8.h"

using namespace tsl;

TEST(Utf8, ScalarsAndMalformedSequences) {
    std::string text = "a\u00E9\u20AC\U0001F600";
    size_t at = 0;
    std::vector<char32_t> read;
    while (auto c = readUtf8Scalar(text, at)) read.push_back(*c);
    EXPECT_EQ(read, (std::vector<char32_t>{U'a', 0xE9, 0x20AC, 0x1F600}));
    EXPECT_EQ(at, text.size());

    for (const char* bad : {"\x80", "\xC0\xAF", "\xE0\x80\xAF", "\xED\xA0\x80", "\xF4\x90\x80\x80", "\xF8\x88\x80\x80\x80",
                            "\xE2\x82", "\xC3("}) {
        EXPECT_FALSE(isValidUtf8(bad)) << bad;
    }
    EXPECT_TRUE(isValidUtf8(""));
    EXPECT_TRUE(isValidUtf8(text));
    EXPECT_TRUE(isValidUtf8("\xF4\x8F\xBF\xBF"));
}

TEST(Utf8, RepairReplacesEachMaximalIllFormedPart) {
    EXPECT_EQ(repairedUtf8("fine \u00E9"), "fine \u00E9");
    EXPECT_EQ(repairedUtf8("a\xF0\x9F\x98!"), "a\uFFFD!");           // a cut-short sequence is one part
    EXPECT_EQ(repairedUtf8("\xC0\xAF"), "\uFFFD\uFFFD");              // no lead byte of an overlong form
    EXPECT_EQ(repairedUtf8("\xE2\x82\xE2\x82\xAC"), "\uFFFD\u20AC");
    EXPECT_EQ(repairedUtf8("\xED\xA0\x80"), "\uFFFD\uFFFD\uFFFD");  // surrogates
    EXPECT_EQ(repairedUtf8("x\xFF"), "x\uFFFD");
}
