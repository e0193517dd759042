// Compares the JSON parser with Boost's, and checks that a value survives being written and parsed.

#include "platform/text/JSON.h"

#include "fuzz/Difference.h"

#include <algorithm>
#include <boost/json/parse.hpp>
#include <boost/json/value.hpp>
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

using findersync::fuzz::require;
using namespace platform::text;

namespace {

/// Whether two parsers found the same value, doubles aside: Boost's misses the closest double by a
/// little.
bool isSame(const platform::Object& one, const boost::json::value& other) {
    if (const std::string* const text = one.string())
        return other.is_string() && *text == other.get_string();
    if (const auto* const array = std::get_if<platform::NSArray>(&one.value))
        return other.is_array() && std::ranges::equal(*array, other.get_array(), isSame);
    if (const auto* const dictionary = std::get_if<platform::NSDictionary>(&one.value)) {
        const auto isMember = [&other](const auto& member) {
            const auto* const value = other.get_object().if_contains(member.first);
            return value != nullptr && isSame(member.second, *value);
        };
        return other.is_object() && dictionary->size() == other.get_object().size() &&
               std::ranges::all_of(*dictionary, isMember);
    }
    if (const auto* const boolean = std::get_if<bool>(&one.value))
        return other.is_bool() && *boolean == other.get_bool();
    if (const auto* const integer = std::get_if<std::int64_t>(&one.value))
        return other.is_int64() && *integer == other.get_int64();
    if (const auto* const number = std::get_if<double>(&one.value))
        return other.is_number() && !std::isnan(*number);
    return other.is_null();
}

void requireSameAgain(const platform::Object& value, bool prettyPrinted) {
    const std::string text = JSONText(value, prettyPrinted);
    std::string failure;
    const auto again = parseJSON(text, failure);
    require(again.has_value(), "what was written cannot be parsed: " + failure);
    require(*again == value, "what was written stands for another value");
    require(JSONText(*again, prettyPrinted) == text, "what was written is written in another way");
    const bool isOneLine = text.find_first_of("\r\n") == std::string::npos;
    require(prettyPrinted || isOneLine, "a compact text has line breaks");
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const std::string_view text(reinterpret_cast<const char*>(data), size);
    std::string failure;
    const auto value = parseJSON(text, failure);
    require(value.has_value() == failure.empty(), "a failure has no reason, or success has one");

    boost::json::parse_options options;
    options.max_depth = 512;
    boost::system::error_code error;
    const auto expected = boost::json::parse({text.data(), text.size()}, error, {}, options);
    require(!value || (!error && isSame(*value, expected)), "a text stands for another value");
    // Boost's parser also accepts numbers that overflow a double, and values that are not
    // containers.
    const bool isTooLarge = failure.find("exponent overflow") != std::string::npos;
    require(value || error || isTooLarge || !expected.is_structured(), "JSON cannot be read");

    // JSON that holds an integer beyond the range of a double is valid but cannot be written.
    if (!value || !isJSONContainer(*value))
        return 0;
    requireSameAgain(*value, false);
    requireSameAgain(*value, true);
    return 0;
}
