#include "platform/linux/Text.h"

#include <gtest/gtest.h>
#include <string>

using platform::linux_backend::contains;
using platform::linux_backend::isInFolder;
using platform::linux_backend::withoutNoncharacters;

namespace {

TEST(Text, NoncharactersAreReplacedAndNothingElse) {
    EXPECT_EQ(withoutNoncharacters("plain"), "plain");
    EXPECT_EQ(withoutNoncharacters("caf\u00e9 \U0001f517 \ufffd"), "caf\u00e9 \U0001f517 \ufffd");
    EXPECT_EQ(withoutNoncharacters("a\ufdd0b\ufdefc"), "a\ufffdb\ufffdc");
    EXPECT_EQ(withoutNoncharacters("\ufffe\uffff\U0001fffe\U0010ffff"), "\ufffd\ufffd\ufffd\ufffd");
    EXPECT_EQ(withoutNoncharacters("\ufdcf\ufdf0\ufffd"), "\ufdcf\ufdf0\ufffd");
    EXPECT_EQ(withoutNoncharacters(std::string("\u00e9\0x", 4)), std::string("\u00e9\0x", 4));
}

TEST(Text, ALinesEndIsTwoCharactersWhateverStandsBesideIt) {
    for (const std::string text : {"a\r\nb", "\u00e9\r\nb", "a\r\n\u00e9"}) {
        EXPECT_TRUE(contains(text, "\r")) << text;
        EXPECT_TRUE(contains(text, "\n")) << text;
        EXPECT_TRUE(contains(text, "\r\n")) << text;
    }
}

TEST(Text, AMatchMayEndBetweenACarriageReturnAndALineFeed) {
    EXPECT_TRUE(contains("/;/cr\r\n/x", "/;/cr\r"));
    EXPECT_TRUE(contains("/;/cr\r\n/x", "/\u037e/cr\r")); // the same search
    EXPECT_TRUE(contains("/caf\u00e9\r\n/x", "/caf\u00e9\r"));
}

TEST(Text, AFolderHoldsItselfAndWhatLiesBelow) {
    EXPECT_TRUE(isInFolder("/a/b", "/a/b"));
    EXPECT_TRUE(isInFolder("/a/b/c", "/a/b"));
    EXPECT_TRUE(isInFolder("/a", "/"));
    EXPECT_TRUE(isInFolder("/", "/"));
    EXPECT_FALSE(isInFolder("/a", "/a/b"));
    EXPECT_FALSE(isInFolder("/a/bc", "/a/b"));
    EXPECT_FALSE(isInFolder("/x/a/b", "/a/b"));
    EXPECT_FALSE(isInFolder("/", "/a"));
}

TEST(Text, AFolderMayBeSpelledInOtherWays) {
    EXPECT_TRUE(isInFolder("/tmp/y/z", "/tmp/x/../y"));
    EXPECT_TRUE(isInFolder("/tmp/y/z", "//tmp/./y/"));
    EXPECT_TRUE(isInFolder("/tmp/y/z", "/../tmp/y"));
    EXPECT_FALSE(isInFolder("/tmp/y/../z", "/tmp/y"));
    EXPECT_TRUE(isInFolder("/cafe\u0301/x", "/caf\u00e9"));
    EXPECT_FALSE(isInFolder("/cafe\u0301/x", "/cafe"));
}

} // namespace
