#include <gtest/gtest.h>

#include "TslCore/Model/ShimNaming.h"

using namespace tsl;

TEST(ShimNaming, BundleIDKeepsLettersNumbersDotsAndDashes) {
    EXPECT_EQ(ShimNaming::bundleID("Com.Example.My_App"), "com.tessel.shim.com.example.my-app");
    EXPECT_EQ(ShimNaming::bundleID("..-com.example-.."), "com.tessel.shim.com.example");
    EXPECT_EQ(ShimNaming::bundleID("_!? ."), "com.tessel.shim.");
    EXPECT_EQ(ShimNaming::bundleID(""), "com.tessel.shim.");
    EXPECT_EQ(ShimNaming::bundleID("org.Café.2x"), "com.tessel.shim.org.café.2x") << "letters beyond ASCII stay, lower-cased";
    // A letter with a combining accent is one character; an emoji is one "-".
    EXPECT_EQ(ShimNaming::bundleID("E\u0301t\U0001F600a"), "com.tessel.shim.e\u0301t-a");
    EXPECT_EQ(ShimNaming::bundleID("a\xFF" "b"), "com.tessel.shim.a-b") << "bytes that aren't UTF-8";
}

TEST(ShimNaming, BundleNameIsOneSafeFileName) {
    EXPECT_EQ(ShimNaming::bundleName("Word Processor"), "Word Processor.app");
    EXPECT_EQ(ShimNaming::bundleName("A/B:C"), "A-B-C.app");
    EXPECT_EQ(ShimNaming::bundleName(" \t\n\u00A0"), "App.app");
    EXPECT_EQ(ShimNaming::bundleName(".hidden"), "App.app");
    EXPECT_EQ(ShimNaming::bundleName("  .hidden"), "App.app") << "a point after the trimmed blanks";
    EXPECT_EQ(ShimNaming::bundleName("\u2003Editor\u2028"), "Editor.app");
    EXPECT_EQ(ShimNaming::bundleName("/etc"), "-etc.app");
    EXPECT_EQ(ShimNaming::folderName, "Tessel");
    EXPECT_EQ(ShimNaming::legacyFolderName, "Tessel Apps");
}
