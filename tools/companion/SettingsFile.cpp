#include "tools/companion/SettingsFile.h"

#include "Names.h"
#include "finder_sync_companion/Settings.h"
#include "tools/console/Text.h"

#include <charconv>
#include <string_view>

namespace companion {

namespace {

using finder_sync::Settings;

enum class Type { Integer, String };

constexpr struct {
    std::string_view key;
    Type type;
} knownSettings[] = {
    {"RootFolder", Type::String},        {"ServerPort", Type::Integer},
    {"DisplayUrlLink", Type::Integer},   {"DisplayBackup", Type::Integer},
    {"ShareContactTitle", Type::String}, {"ShareViaUrlTitle", Type::String},
    {"BackupTitle", Type::String},
};

std::optional<Type> typeOfSetting(std::string_view key) {
    for (const auto& known : knownSettings) {
        if (known.key == key)
            return known.type;
    }
    return std::nullopt;
}

std::string namesOfKnownSettings() {
    std::string names;
    for (const auto& known : knownSettings)
        names.append(names.empty() ? "" : ", ").append(known.key);
    return names;
}

std::optional<std::int64_t> integerOfText(std::string_view text) {
    std::int64_t number = 0;
    const char* const end = text.data() + text.size();
    const auto [stop, error] = std::from_chars(text.data(), end, number);
    if (stop != end || error != std::errc())
        return std::nullopt;
    return number;
}

/// Adds a setting of the form KEY=VALUE. Returns what is wrong with it, empty for nothing.
std::string addSetting(Settings& settings, std::string_view keyAndValue) {
    const std::size_t separator = keyAndValue.find('=');
    const std::string key(keyAndValue.substr(0, separator));
    const std::string quotedKey = "\"" + console::printable(key) + "\"";
    if (separator == std::string_view::npos)
        return quotedKey + " is not of the form KEY=VALUE";
    const std::string_view text = keyAndValue.substr(separator + 1);
    const std::optional<Type> type = typeOfSetting(key);
    const std::optional<std::int64_t> integer = integerOfText(text);
    if (!type)
        return quotedKey + " is not a known key; these are: " + namesOfKnownSettings();
    if (*type == Type::Integer && !integer)
        return "the value of " + quotedKey + " is not an integer of 64 bits: \"" +
               console::printable(text) + "\"";
    if (!console::isUTF8(text))
        return "the value of " + quotedKey + " is not valid UTF-8";
    if (*type == Type::Integer)
        settings[key] = *integer;
    else
        settings[key] = std::string(text);
    return {};
}

} // namespace

std::string problemOfSettings(const std::vector<std::string>& settings) {
    Settings ignored;
    std::string problem;
    for (const std::string& setting : settings) {
        if (problem.empty())
            problem = addSetting(ignored, setting);
    }
    return problem;
}

std::optional<std::string> mergeIntoSettingsFile(const std::vector<std::string>& settings,
                                                 std::uint16_t port, std::string& failure) {
    Settings merged = {{"ServerPort", port}}; // unless a setting replaces it
    for (const std::string& setting : settings)
        (void)addSetting(merged, setting);
    if (!finder_sync::writeSettings(findersync::applicationGroup, merged, failure))
        return std::nullopt;
    return finder_sync::settingsFile(findersync::applicationGroup);
}

} // namespace companion
