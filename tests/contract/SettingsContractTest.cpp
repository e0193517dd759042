#include "tests/contract/Surroundings.h"

#include <cstdint>
#include <limits>
#include <map>
#include <memory>
#include <string>

using platform::NSArray;
using platform::NSDictionary;
using platform::NSUserDefaults;
using platform::Object;

namespace {

using SettingsContract = contract::ContractTest;

std::shared_ptr<const NSUserDefaults> open() {
    std::string failure;
    auto suite = platform::userDefaultsWithSuiteName(contract::suiteName, failure);
    EXPECT_TRUE(suite) << failure;
    return suite;
}

std::int64_t integerOf(Object value) {
    contract::storeSettings({{"key", std::move(value)}});
    return open()->integerForKey("key");
}

TEST_F(SettingsContract, ASuiteThatWasNeverWrittenIsEmpty) {
    const auto suite = open();
    EXPECT_EQ(suite->objectForKey("RootFolder"), std::nullopt);
    EXPECT_EQ(suite->integerForKey("ServerPort"), 0);
}

TEST_F(SettingsContract, StoredValuesKeepTheirTypes) {
    const NSDictionary settings = {
        {"text", Object{std::string("/Users/u")}},
        {"empty", Object{std::string()}},
        {"number", Object{std::int64_t{5}}},
        {"large", Object{std::int64_t{1} << 40}},
        {"fraction", Object{0.1}},
        {"yes", Object{true}},
        {"list", Object{NSArray{Object{true}, Object{std::string("b")}, Object{false}}}},
    };
    contract::storeSettings(settings);
    const auto suite = open();
    for (const auto& [key, value] : settings)
        EXPECT_EQ(suite->objectForKey(key), value) << key;
    EXPECT_EQ(suite->objectForKey("Text"), std::nullopt);
}

TEST_F(SettingsContract, EveryValueGivesAnInteger) {
    using Limits = std::numeric_limits<std::int64_t>;
    for (const std::int64_t number : {std::int64_t{0}, std::int64_t{-7}, std::int64_t{4294967295},
                                      Limits::max(), Limits::min()})
        EXPECT_EQ(integerOf({number}), number);
    EXPECT_EQ(integerOf({3.9}), 3);
    EXPECT_EQ(integerOf({-3.9}), -3);
    EXPECT_EQ(integerOf({true}), 1);
    EXPECT_EQ(integerOf({false}), 0);
    for (const auto& [text, number] : std::map<std::string, std::int64_t>{
             {"5000", 5000}, {"-1", -1}, {"007", 7}, {"letters", 0}, {"", 0}})
        EXPECT_EQ(integerOf({text}), number) << text;
    EXPECT_EQ(integerOf({NSArray{Object{std::int64_t{5}}}}), 0);
    EXPECT_EQ(integerOf({NSDictionary{{"a", Object{std::int64_t{5}}}}}), 0);
}

TEST_F(SettingsContract, ASuiteThatCannotBeOpenedGivesNoneAndSaysWhy) {
    contract::breakSettings();
    std::string failure;
    EXPECT_EQ(platform::userDefaultsWithSuiteName(contract::suiteName, failure), nullptr);
    EXPECT_FALSE(failure.empty());
}

} // namespace
