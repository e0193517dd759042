#include "tests/contract/Surroundings.h"

#include <optional>
#include <string>
#include <string_view>
#include <vector>

using namespace std::string_view_literals;
using platform::containsString;
using platform::isEqualToString;

namespace {

using TextContract = contract::ContractTest;

std::optional<std::string> decode(std::string_view bytes) {
    return platform::stringWithUTF8Data(
        platform::dataWithBytes(reinterpret_cast<const std::uint8_t*>(bytes.data()), bytes.size()));
}

TEST_F(TextContract, DataHoldsACopyOfTheBytes) {
    std::uint8_t bytes[] = {1, 0, 255};
    const platform::NSData data = platform::dataWithBytes(bytes, sizeof bytes);
    bytes[0] = 9;
    EXPECT_EQ(data.bytes, (std::vector<std::uint8_t>{1, 0, 255}));
    EXPECT_TRUE(platform::dataWithBytes(bytes, 0).bytes.empty());
}

TEST_F(TextContract, ValidUTF8IsDecoded) {
    for (const std::string_view text :
         {""sv, "plain"sv, "caf\u00e9"sv, "\u20ac"sv, "\U0010FFFF"sv, "a\0b"sv, "\u0000"sv,
          "\ufeffa byte-order mark is a character"sv, "sixteen bytes and more, then \u00e9"sv})
        EXPECT_EQ(decode(text), text);
}

TEST_F(TextContract, InvalidUTF8IsRefused) {
    for (const std::string_view bytes : {
             "\xff",                                 // no such byte
             "\x80",                                 // continuation without a start
             "\xc3",                                 // cut short
             "\xe2\x82",                             // cut short
             "\xc0\xaf",                             // overlong
             "\xe0\x80\xaf",                         // overlong
             "\xed\xa0\x80",                         // high surrogate
             "\xed\xb0\x80",                         // low surrogate
             "\xf4\x90\x80\x80",                     // above U+10FFFF
             "a good beginning of a text, then \xc3" // cut short after more than eight bytes
         })
        EXPECT_EQ(decode(bytes), std::nullopt) << testing::PrintToString(bytes);
}

TEST_F(TextContract, BytesAreDecodedToTheGivenLength) {
    EXPECT_EQ(platform::stringWithUTF8Bytes("abc", 2), "ab");
    EXPECT_EQ(platform::stringWithUTF8Bytes("a\0b", 3), "a\0b"sv);
    EXPECT_EQ(platform::stringWithUTF8Bytes("abc", 0), "");
    EXPECT_EQ(platform::stringWithUTF8Bytes("\u00e9", 1), std::nullopt);
}

TEST_F(TextContract, ACStringIsDecodedToItsNUL) {
    EXPECT_EQ(platform::stringWithUTF8String("caf\u00e9"), "caf\u00e9");
    EXPECT_EQ(platform::stringWithUTF8String("a\0b"), "a");
    EXPECT_EQ(platform::stringWithUTF8String(""), "");
    EXPECT_EQ(platform::stringWithUTF8String("\xff"), std::nullopt);
}

TEST_F(TextContract, EncodingGivesTheBytesOfTheText) {
    const auto data = platform::dataUsingUTF8Encoding("\u00e9");
    ASSERT_TRUE(data.has_value());
    EXPECT_EQ(data->bytes, (std::vector<std::uint8_t>{0xc3, 0xa9}));
}

TEST_F(TextContract, SplittingKeepsEmptyPieces) {
    using Pieces = std::vector<std::string_view>;
    const auto lines = [](std::string_view text) {
        return platform::componentsSeparatedByString(text, "\n");
    };
    EXPECT_EQ(lines("a\nb"), (Pieces{"a", "b"}));
    EXPECT_EQ(lines("a\n"), (Pieces{"a", ""}));
    EXPECT_EQ(lines("\n\na"), (Pieces{"", "", "a"}));
    EXPECT_EQ(lines(""), (Pieces{""}));
    EXPECT_EQ(lines("a\r\nb"), (Pieces{"a\r", "b"}));
    // Also where a combining mark follows the line feed.
    EXPECT_EQ(lines("a\n\u0301b"), (Pieces{"a", "\u0301b"}));
}

TEST_F(TextContract, CanonicallyEquivalentTextsAreEqual) {
    for (const std::string_view text : {"", "/Users/u/Sync", "/caf\u00e9"})
        EXPECT_TRUE(isEqualToString(text, std::string(text)));
    EXPECT_TRUE(isEqualToString("/caf\u00e9", "/cafe\u0301")); // accent
    EXPECT_TRUE(isEqualToString("\u212b", "A\u030a"));         // singleton
    EXPECT_TRUE(isEqualToString("\u212b", "\u00c5"));          // singleton
    EXPECT_TRUE(isEqualToString("\u212a", "K"));               // ASCII singleton
    EXPECT_TRUE(isEqualToString("K", "\u212a"));
    EXPECT_TRUE(isEqualToString("\ud55c", "\u1112\u1161\u11ab"));       // Hangul
    EXPECT_TRUE(isEqualToString("a\u0323\u0307", "a\u0307\u0323"));     // order of marks
    EXPECT_TRUE(isEqualToString("\u1e9b\u0323", "\u017f\u0323\u0307")); // long s
}

TEST_F(TextContract, NothingElseMakesTextsEqual) {
    EXPECT_FALSE(isEqualToString("/a", "/a/"));
    EXPECT_FALSE(isEqualToString("/a", "/A"));
    EXPECT_FALSE(isEqualToString("/\u00e9", "/\u00c9"));
    EXPECT_FALSE(isEqualToString("/a/./b", "/a/b"));
    EXPECT_FALSE(isEqualToString("\ufb01", "fi")); // compatibility is not canonical
    EXPECT_FALSE(isEqualToString("\u00e9", "e"));
    EXPECT_FALSE(isEqualToString("", "\u0301"));
}

TEST_F(TextContract, AByteOrderMarkCounts) {
    EXPECT_FALSE(isEqualToString("\ufeff\u00e9", "\u00e9"));
    EXPECT_FALSE(isEqualToString("\ufeffa", "a"));
}

TEST_F(TextContract, TextAfterANULCounts) {
    EXPECT_TRUE(isEqualToString("a\0b"sv, "a\0b"sv));
    EXPECT_FALSE(isEqualToString("a\0b"sv, "a\0c"sv));
    EXPECT_FALSE(isEqualToString("a\0"sv, "a"sv));
    EXPECT_TRUE(isEqualToString("\u00e9\0b"sv, "e\u0301\0b"sv));
    EXPECT_FALSE(isEqualToString("\u00e9\0b"sv, "e\u0301\0c"sv));
    EXPECT_TRUE(containsString("/a\0b/x"sv, "/a\0b"sv));
    EXPECT_FALSE(containsString("/a\0c/x"sv, "/a\0b"sv));
    EXPECT_TRUE(containsString("/\u00e9\0b/x"sv, "\0b"sv));
}

TEST_F(TextContract, ATextIsFoundAnywhereInAnother) {
    EXPECT_TRUE(containsString("/a/Sync/x", "/a/Sync"));
    EXPECT_TRUE(containsString("/a/Sync/x", "/a/Sync/x"));
    EXPECT_TRUE(containsString("/a/Sync/x", "x"));
    EXPECT_TRUE(containsString("/caf\u00e9/x", "/caf\u00e9"));
    EXPECT_TRUE(containsString("/caf\u00e9/x", "/cafe\u0301"));
    EXPECT_TRUE(containsString("/cafe\u0301/x", "/caf\u00e9"));
    EXPECT_FALSE(containsString("/a/Sync/x", "/A/sync"));
    EXPECT_FALSE(containsString("/a/Sync", "/a/Sync/x"));
    EXPECT_FALSE(containsString("", "x"));
    // The empty text is found nowhere.
    for (const char* text : {"/a", "", "\u00e9"})
        EXPECT_FALSE(containsString(text, "")) << text;
}

TEST_F(TextContract, CanonicallyEquivalentSequencesAreFound) {
    EXPECT_TRUE(containsString("/\u212b/x", "/A\u030a/"));
    EXPECT_TRUE(containsString("/\u212a/x", "/K/")); // ASCII finds its singleton
    EXPECT_TRUE(containsString("/\ud55c\uae00/x", "/\u1112\u1161\u11ab"));
    EXPECT_TRUE(containsString("/a\u0307\u0323/x", "/a\u0323\u0307"));
}

TEST_F(TextContract, AMatchNeverEndsInsideACombinedCharacter) {
    EXPECT_FALSE(containsString("/cafe\u0301/x", "/cafe"));
    EXPECT_FALSE(containsString("/caf\u00e9", "/cafe"));
    EXPECT_FALSE(containsString("/\u1112\u1161\u11ab", "/\u1112\u1161")); // Hangul
    EXPECT_FALSE(containsString("/\ud55c", "/\ud558"));
    EXPECT_FALSE(containsString("/a\u0323\u0307", "/a\u0323"));
    // A later occurrence counts.
    EXPECT_TRUE(containsString("/cafe\u0301/cafe/x", "/cafe"));
}

} // namespace
