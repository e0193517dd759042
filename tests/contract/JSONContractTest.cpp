#include "tests/contract/ContractTest.h"

#include <optional>
#include <string>
#include <string_view>

using platform::NSArray;
using platform::NSDictionary;
using platform::NSNull;
using platform::Object;

namespace {

using JSONContract = contract::ContractTest;

std::optional<Object> parse(std::string_view text) {
    return platform::JSONObjectWithData(
        platform::dataWithBytes(reinterpret_cast<const std::uint8_t*>(text.data()), text.size()));
}

Object string(std::string text) {
    return Object{std::move(text)};
}

TEST_F(JSONContract, ObjectsAndArraysAreParsed) {
    EXPECT_EQ(parse("{}"), Object{NSDictionary()});
    EXPECT_EQ(parse("[]"), Object{NSArray()});
    EXPECT_EQ(parse(" \t\r\n{ \"type\" : \"hello\" } \r"),
              (Object{NSDictionary{{"type", string("hello")}}}));
}

TEST_F(JSONContract, EveryKindOfValueIsKept) {
    const auto object =
        parse(R"({"s":"x","i":-5,"d":1.5,"t":true,"f":false,"n":null,"a":[1,[]],"o":{"k":"v"}})");
    ASSERT_TRUE(object.has_value());
    EXPECT_EQ(*object, (Object{NSDictionary{
                           {"s", string("x")},
                           {"i", Object{std::int64_t{-5}}},
                           {"d", Object{1.5}},
                           {"t", Object{true}},
                           {"f", Object{false}},
                           {"n", Object{NSNull()}},
                           {"a", Object{NSArray{Object{std::int64_t{1}}, Object{NSArray()}}}},
                           {"o", Object{NSDictionary{{"k", string("v")}}}},
                       }}));
}

TEST_F(JSONContract, StringsAreUnescaped) {
    EXPECT_EQ(parse(R"(["\"\\\/\b\f\n\r\t"])"), (Object{NSArray{string("\"\\/\b\f\n\r\t")}}));
    EXPECT_EQ(parse(R"(["\u00e9\u20AC\ud83d\ude00"])"),
              (Object{NSArray{string("\u00e9\u20ac\U0001F600")}}));
    EXPECT_EQ(parse(R"(["a\u0000b"])"), (Object{NSArray{string(std::string("a\0b", 3))}}));
    EXPECT_EQ(parse("[\"caf\u00e9\"]"), (Object{NSArray{string("caf\u00e9")}}));
}

TEST_F(JSONContract, KeysAreMatchedExactly) {
    const auto object = parse(R"({"Type":"a","type ":"b"})");
    ASSERT_TRUE(object.has_value());
    EXPECT_FALSE(std::get<NSDictionary>(object->value).contains("type"));
}

TEST_F(JSONContract, ATopLevelScalarIsRefused) {
    for (const std::string_view text : {"1", "\"text\"", "true", "null", "-1.5e3"})
        EXPECT_EQ(parse(text), std::nullopt) << text;
}

TEST_F(JSONContract, TextThatIsNotJSONIsRefused) {
    for (const std::string_view text :
         {"",          " ",           "hello",         "{",        "}",
          "{\"a\"}",   "{\"a\":}",    "{\"a\":1,}",    "[1,]",     "{a:1}",
          "{'a':1}",   "{\"a\":1}}",  "{\"a\":1} x",   "{}{}",     "[1] // why",
          "/* */{}",   "[NaN]",       "[Infinity]",    "[+1]",     "[01]",
          "[1.]",      "[.5]",        "[tru]",         "[\"\t\"]", "[\"\n\"]",
          "[\"\\x\"]", "[\"\\u12\"]", "[\"unfinished]"})
        EXPECT_EQ(parse(text), std::nullopt) << text;
}

TEST_F(JSONContract, InvalidUTF8IsRefused) {
    EXPECT_EQ(parse("[\"\xff\"]"), std::nullopt);
    EXPECT_EQ(parse("[\"\xc3\"]"), std::nullopt);
    EXPECT_EQ(parse("[\"\xed\xa0\x80\"]"), std::nullopt);
}

TEST_F(JSONContract, AHundredLevelsAreParsedAndNoDepthCrashes) {
    const auto nested = [](std::size_t levels) {
        return std::string(levels, '[') + std::string(levels, ']');
    };
    EXPECT_TRUE(parse(nested(100)).has_value());
    EXPECT_EQ(parse(nested(1'000'000)), std::nullopt);
    EXPECT_EQ(parse(std::string(1'000'000, '[')), std::nullopt);
}

} // namespace
