// The settings file: what it gives is what another parser finds in it.

#include "platform/Foundation.h"

#include "fuzz/Difference.h"

#include <algorithm>
#include <boost/json/parse.hpp>
#include <boost/json/value.hpp>
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <fcntl.h>
#include <filesystem>
#include <limits>
#include <string>
#include <string_view>
#include <unistd.h>

using findersync::fuzz::require;

namespace {

constexpr std::string_view suite = "suite";
constexpr std::string_view keys[] = {"RootFolder", "ServerPort", "DisplayUrlLink", "DisplayBackup",
                                     "ShareViaUrlTitle"};

/// The file of a suite in a folder of this process's own, gone when the process ends.
class SettingsFile {
public:
    SettingsFile() {
        std::string folder = std::filesystem::temp_directory_path() / "fuzz-settings-XXXXXX";
        require(::mkdtemp(folder.data()) != nullptr, "no folder for the settings");
        folder_ = folder;
        std::filesystem::create_directory(folder_ / suite);
        (void)::setenv("XDG_CONFIG_HOME", folder_.c_str(), 1);
    }
    ~SettingsFile() { std::filesystem::remove_all(folder_); }
    SettingsFile(const SettingsFile&) = delete;
    SettingsFile& operator=(const SettingsFile&) = delete;

    void write(std::string_view text) const {
        const std::filesystem::path path = folder_ / suite / "settings.json";
        const int file = ::open(path.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0600);
        const ssize_t count = ::write(file, text.data(), text.size());
        (void)::close(file);
        require(count == static_cast<ssize_t>(text.size()), "the file cannot be written");
    }

private:
    std::filesystem::path folder_;
};

__extension__ using Wide = __int128;

std::int64_t limitOfSign(bool isNegative) {
    using Limits = std::numeric_limits<std::int64_t>;
    return isNegative ? Limits::min() : Limits::max();
}

/// A decimal integer with an optional minus sign, digit by digit, stopping at the limits.
std::int64_t integerOf(std::string_view text) {
    const bool isNegative = text.starts_with('-');
    const std::string_view digits = text.substr(isNegative ? 1 : 0);
    if (digits.empty() || digits.find_first_not_of("0123456789") != std::string_view::npos)
        return 0;
    constexpr Wide limit = std::numeric_limits<std::int64_t>::max();
    Wide number = 0;
    for (const char digit : digits)
        number = std::min(number * 10 + (digit - '0'), limit + 1);
    return static_cast<std::int64_t>(isNegative ? -number : std::min(number, limit));
}

/// Whether a setting is the integer that the other parser found. That one misses the closest double
/// by a little.
bool isInteger(std::int64_t setting, const boost::json::value& value) {
    if (const auto* boolean = value.if_bool())
        return setting == (*boolean ? 1 : 0);
    if (const auto* integer = value.if_int64())
        return setting == *integer;
    // It makes no number of zero times a large power of ten.
    if (value.is_double() && std::isnan(value.get_double()))
        return setting == 0;
    if (const auto* number = value.if_double(); number != nullptr && std::fabs(*number) < 0x1p62)
        return std::fabs(static_cast<double>(setting) - *number) <=
               1 + std::fabs(*number) * 0x1p-50;
    if (const auto* number = value.if_double(); number != nullptr && std::fabs(*number) < 0x1p64)
        return (setting < 0) == (*number < 0);
    if (value.is_uint64() || value.is_double())
        return setting == limitOfSign(value.is_double() && value.get_double() < 0);
    const auto* text = value.if_string();
    return setting == (text == nullptr ? 0 : integerOf({text->data(), text->size()}));
}

void compare(const platform::NSUserDefaults& settings, const boost::json::object& expected) {
    for (const std::string_view key : keys) {
        const auto* const value = expected.if_contains({key.data(), key.size()});
        const auto object = settings.objectForKey(key);
        const bool isPresent = value != nullptr && !value->is_null();
        require(object.has_value() == isPresent, "a key is there, or is not");
        const std::int64_t integer = settings.integerForKey(key);
        require(isPresent ? isInteger(integer, *value) : integer == 0,
                "a setting is another integer");
        const std::string* const text = object ? object->string() : nullptr;
        require((text != nullptr) == (isPresent && value->is_string()), "a setting is a string");
        require(text == nullptr || *text == value->get_string(), "a setting is another string");
    }
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    static const SettingsFile file;
    const std::string_view text(reinterpret_cast<const char*>(data), size);
    file.write(text);

    std::string failure;
    const auto settings = platform::userDefaultsWithSuiteName(suite, failure);
    require((settings != nullptr) == failure.empty(),
            "a failure has no reason, or success has one");

    boost::json::parse_options options;
    options.max_depth = 512;
    boost::json::error_code error;
    const boost::json::value expected =
        boost::json::parse({text.data(), text.size()}, error, {}, options);
    if (settings && !error)
        compare(*settings, expected.as_object());
    require(!settings || !error, "a file that is not JSON is read");
    // The other parser takes numbers beyond every double.
    const bool isTooLarge = failure.find("exponent overflow") != std::string::npos;
    require(settings || error || isTooLarge || !expected.is_object(), "JSON cannot be read");
    return 0;
}
