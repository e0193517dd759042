// The settings file: a suite opens exactly when the file holds a JSON object, and gives its
// members.

#include "platform/Foundation.h"

#include "fuzz/Difference.h"

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <limits>
#include <string>
#include <string_view>

using findersync::fuzz::require;

namespace {

constexpr std::string_view suite = "suite";
constexpr std::string_view keys[] = {"RootFolder", "ServerPort", "DisplayUrlLink", "DisplayBackup",
                                     "ShareViaUrlTitle"};
using Limits = std::numeric_limits<std::int64_t>;

/// Writes the file of the suite in a folder of this process's own, which scripts/fuzz removes.
void writeSettings(std::string_view text) {
    static const std::filesystem::path folder = [] {
        std::string name = std::filesystem::temp_directory_path() / "fuzz-settings-XXXXXX";
        require(::mkdtemp(name.data()) != nullptr, "no folder for the settings");
        std::filesystem::create_directory(std::filesystem::path(name) / suite);
        (void)::setenv("XDG_CONFIG_HOME", name.c_str(), 1);
        return name;
    }();
    std::ofstream file(folder / suite / "settings.json", std::ios::binary);
    file << text << std::flush;
    require(file.good(), "the file cannot be written");
}

/// A decimal integer with an optional minus sign, digit by digit, stopping at the limits.
std::int64_t integerIn(std::string_view text) {
    const bool isNegative = text.starts_with('-');
    const std::string_view digits = text.substr(isNegative ? 1 : 0);
    if (digits.empty() || digits.find_first_not_of("0123456789") != std::string_view::npos)
        return 0;
    __extension__ __int128 number = 0;
    for (const char digit : digits)
        number = std::min<__int128>(number * 10 + (digit - '0'), __int128{Limits::max()} + 1);
    return static_cast<std::int64_t>(isNegative ? -number
                                                : std::min<__int128>(number, Limits::max()));
}

std::int64_t integerOf(const platform::Object& object) {
    if (const auto* const boolean = std::get_if<bool>(&object.value))
        return *boolean ? 1 : 0;
    if (const auto* const integer = std::get_if<std::int64_t>(&object.value))
        return *integer;
    if (const auto* const number = std::get_if<double>(&object.value)) {
        if (std::fabs(*number) >= 0x1p63)
            return *number < 0 ? Limits::min() : Limits::max();
        return static_cast<std::int64_t>(*number);
    }
    return object.string() == nullptr ? 0 : integerIn(*object.string());
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    writeSettings({reinterpret_cast<const char*>(data), size});
    std::string failure;
    const auto settings = platform::userDefaultsWithSuiteName(suite, failure);
    require((settings != nullptr) == failure.empty(),
            "a failure has no reason, or success has one");
    const auto parsed = platform::JSONObjectWithData(platform::dataWithBytes(data, size));
    const auto* const members =
        parsed ? std::get_if<platform::NSDictionary>(&parsed->value) : nullptr;
    require((settings != nullptr) == (members != nullptr), "a suite opens, or does not");
    for (std::size_t index = 0; settings && index < std::size(keys); ++index) {
        const auto member = members->find(keys[index]);
        const bool isPresent = member != members->end() &&
                               !std::holds_alternative<platform::NSNull>(member->second.value);
        const auto object = settings->objectForKey(keys[index]);
        require(object.has_value() == isPresent, "a key is there, or is not");
        require(!object || *object == member->second, "a setting is another value");
        require(settings->integerForKey(keys[index]) == (object ? integerOf(*object) : 0),
                "a setting is another integer");
    }
    return 0;
}
