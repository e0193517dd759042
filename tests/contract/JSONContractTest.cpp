#include "tests/contract/Surroundings.h"

#include <limits>
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

TEST_F(JSONContract, AFailureHasAReason) {
    std::string failure;
    EXPECT_EQ(platform::JSONObjectWithData({.bytes = {'[', '}'}}, &failure), std::nullopt);
    EXPECT_TRUE(failure.starts_with("not JSON")) << failure;
    failure.clear();
    EXPECT_TRUE(platform::JSONObjectWithData({.bytes = {'[', ']'}}, &failure).has_value());
    EXPECT_EQ(failure, "");
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

std::string written(const Object& value, bool prettyPrinted = false) {
    const auto data = platform::dataWithJSONObject(value, prettyPrinted);
    return data ? std::string(data->bytes.begin(), data->bytes.end()) : "nothing";
}

TEST_F(JSONContract, OnlyContainersOfWhatJSONKnowsAreValid) {
    EXPECT_TRUE(platform::isValidJSONObject({NSDictionary()}));
    EXPECT_TRUE(platform::isValidJSONObject({NSArray{string("x"), {1.5}, {NSNull()}, {true}}}));
    EXPECT_FALSE(platform::isValidJSONObject(string("x")));
    EXPECT_FALSE(platform::isValidJSONObject({std::int64_t{1}}));
    EXPECT_FALSE(platform::isValidJSONObject({NSNull()}));
    EXPECT_FALSE(platform::isValidJSONObject({platform::NSData()}));
    EXPECT_FALSE(platform::isValidJSONObject({NSArray{{NSArray{{platform::NSData()}}}}}));
    constexpr double infinity = std::numeric_limits<double>::infinity();
    EXPECT_FALSE(platform::isValidJSONObject({NSDictionary{{"a", {infinity}}}}));
    EXPECT_FALSE(platform::isValidJSONObject({NSArray{{infinity - infinity}}}));
}

TEST_F(JSONContract, WithoutOptionsTheTextIsCompact) {
    EXPECT_EQ(written({NSDictionary{{"a", {NSArray{{std::int64_t{1}}, {false}, {NSNull()}}}}}}),
              R"({"a":[1,false,null]})");
    EXPECT_EQ(written({NSArray()}), "[]");
}

TEST_F(JSONContract, CharactersOutsideASCIIStandForThemselves) {
    EXPECT_EQ(written({NSArray{string("caf\u00e9 \U0001f517")}}), "[\"caf\u00e9 \U0001f517\"]");
}

TEST_F(JSONContract, WhatIsWrittenIsReadAsTheSameValue) {
    const Object value = {NSDictionary{
        {"text", string(std::string("/\"\\\b\f\n\r\t\0\x1f\x7f\u2028\u00e9", 16))},
        {"numbers", {NSArray{{std::int64_t{-7}}, {0.5}, {1e300}, {-1.25e-7}}}},
        {"", {NSDictionary{{"k\"ey", {true}}}}},
    }};
    EXPECT_EQ(parse(written(value)), value);
    EXPECT_EQ(parse(written(value, true)), value);
}

TEST_F(JSONContract, PrettyPrintingTakesSeveralIndentedLines) {
    const std::string text = written({NSDictionary{{"a", {NSArray{{true}}}}}}, true);
    EXPECT_NE(text.find("\n  "), std::string::npos) << text;
}

} // namespace
