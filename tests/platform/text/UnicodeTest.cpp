#include "platform/text/Unicode.h"

#include <gtest/gtest.h>
#include <string>

using platform::text::contains;
using platform::text::withoutNoncharacters;

namespace {

TEST(Unicode, NoncharactersAreReplacedAndNothingElse) {
    EXPECT_EQ(withoutNoncharacters("plain"), "plain");
    EXPECT_EQ(withoutNoncharacters("caf\u00e9 \U0001f517 \ufffd"), "caf\u00e9 \U0001f517 \ufffd");
    EXPECT_EQ(withoutNoncharacters("a\ufdd0b\ufdefc"), "a\ufffdb\ufffdc");
    EXPECT_EQ(withoutNoncharacters("\ufffe\uffff\U0001fffe\U0010ffff"), "\ufffd\ufffd\ufffd\ufffd");
    EXPECT_EQ(withoutNoncharacters("\ufdcf\ufdf0\ufffd"), "\ufdcf\ufdf0\ufffd");
    EXPECT_EQ(withoutNoncharacters(std::string("\u00e9\0x", 4)), std::string("\u00e9\0x", 4));
}

TEST(Unicode, ALinesEndIsTwoCharactersWhateverStandsBesideIt) {
    for (const std::string text : {"a\r\nb", "\u00e9\r\nb", "a\r\n\u00e9"}) {
        EXPECT_TRUE(contains(text, "\r")) << text;
        EXPECT_TRUE(contains(text, "\n")) << text;
        EXPECT_TRUE(contains(text, "\r\n")) << text;
    }
}

TEST(Unicode, AMatchEndsAtAGraphemeBoundary) {
    const std::string pair = "\U0001f468\u200d\U0001f469"; // joined pictures
    EXPECT_TRUE(contains(pair, pair));
    EXPECT_FALSE(contains(pair, "\U0001f468"));
    EXPECT_FALSE(contains(pair, "\U0001f468\u200d"));
    const std::string flags = "\U0001f1e6\U0001f1e7\U0001f1e6\U0001f1e7"; // two flags
    EXPECT_TRUE(contains(flags, "\U0001f1e6\U0001f1e7"));
    EXPECT_FALSE(contains(flags, "\U0001f1e6"));
    EXPECT_FALSE(contains("\u0915\u0903", "\u0915")); // a spacing mark follows
}

TEST(Unicode, AMatchMayEndBetweenACarriageReturnAndALineFeed) {
    EXPECT_TRUE(contains("/;/cr\r\n/x", "/;/cr\r"));
    EXPECT_TRUE(contains("/;/cr\r\n/x", "/\u037e/cr\r")); // the same search
    EXPECT_TRUE(contains("/caf\u00e9\r\n/x", "/caf\u00e9\r"));
}

} // namespace
