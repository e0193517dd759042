#include "platform/text/IntegerValue.h"

#include <charconv>
#include <cmath>
#include <limits>
#include <string_view>

namespace platform::text {

namespace {

std::int64_t integerOfNumber(double number) {
    // As doubles: the lowest integer, and 2^63, the first number that is too large.
    if (number >= static_cast<double>(std::numeric_limits<std::int64_t>::max()))
        return std::numeric_limits<std::int64_t>::max();
    if (number < static_cast<double>(std::numeric_limits<std::int64_t>::min()))
        return std::numeric_limits<std::int64_t>::min();
    return static_cast<std::int64_t>(std::trunc(number));
}

/// A decimal integer with an optional minus sign and nothing else; 0 for any other text.
std::int64_t integerOfText(std::string_view text) {
    std::int64_t number = 0;
    const char* const end = text.data() + text.size();
    const auto [stop, error] = std::from_chars(text.data(), end, number);
    if (stop != end)
        return 0;
    if (error == std::errc::result_out_of_range)
        return text.front() == '-' ? std::numeric_limits<std::int64_t>::min()
                                   : std::numeric_limits<std::int64_t>::max();
    return number;
}

} // namespace

std::int64_t integerValue(const Object& object) {
    const Object::Variant& value = object.value;
    if (const auto* boolean = std::get_if<bool>(&value))
        return *boolean ? 1 : 0;
    if (const auto* integer = std::get_if<std::int64_t>(&value))
        return *integer;
    if (const auto* number = std::get_if<double>(&value))
        return integerOfNumber(*number);
    if (const auto* text = std::get_if<std::string>(&value))
        return integerOfText(*text);
    return 0;
}

} // namespace platform::text
