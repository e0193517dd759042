// What this back end settles beyond the contract.

#include "platform/text/JSON.h"

#include <gtest/gtest.h>
#include <string>
#include <utility>

using platform::NSArray;
using platform::Object;
using platform::text::parseJSON;

namespace {

std::optional<Object> parse(std::string_view text) {
    std::string failure;
    auto object = parseJSON(text, failure);
    EXPECT_EQ(object.has_value(), failure.empty()) << text << ": " << failure;
    return object;
}

TEST(JSON, NumbersThatOverflowADoubleAreErrors) {
    for (const char* text : {"[1e309]", "[-1e309]", "[1e999999999999]", "[1.0e400]"})
        EXPECT_EQ(parse(text), std::nullopt) << text;
    EXPECT_EQ(parse("[" + std::string(400, '9') + ".5]"), std::nullopt);
    EXPECT_EQ(parse("[" + std::string(131, '9') + "1e9999]"), std::nullopt);
}

TEST(JSON, ANumberIsTheClosestDouble) {
    const std::pair<const char*, double> numbers[] = {
        {"3539.1e-23", 3539.1e-23},
        {"92233223372036854775807", 92233223372036854775807.0},
        {"1.7976931348623157e308", 1.7976931348623157e308},
        {"5e-324", 5e-324},
        {"1e-999", 0.0},
        {"0e700", 0.0},
        {"0.0e999", 0.0}};
    for (const auto& [text, number] : numbers)
        EXPECT_EQ(parse("[" + std::string(text) + "]"), (Object{NSArray{{number}}})) << text;
}

TEST(JSON, IntegersMayHaveAnyLength) {
    for (const std::string& number :
         {std::string("18446744073709551615"), std::string("18446744073709551616"),
          std::string("-9223372036854775809"), std::string(400, '9'), "-" + std::string(2000, '9')})
        EXPECT_TRUE(parse("[" + number + "]").has_value()) << number;
    EXPECT_TRUE(parse("{\"a\":" + std::string(900, '1') + ",\"type\":\"x\"}").has_value());
}

TEST(JSON, TheFailureSaysWhatAndWhere) {
    std::string failure;
    EXPECT_EQ(parseJSON(R"({"a": nope})", failure), std::nullopt);
    EXPECT_NE(failure.find("syntax error"), std::string::npos) << failure;
    EXPECT_NE(failure.find("at byte"), std::string::npos) << failure;
    EXPECT_EQ(parseJSON("5", failure), std::nullopt);
    EXPECT_EQ(failure, "the top level is neither an object nor an array");
}

} // namespace
