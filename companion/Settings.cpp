#include "finder_sync_companion/Settings.h"

#include "companion/Messages.h"

#include <algorithm>
#include <string_view>

namespace finder_sync {

namespace {

constexpr struct KnownSetting {
    std::string_view key;
    bool isText;
} knownSettings[] = {
    {"RootFolder", true},     {"ServerPort", false},       {"DisplayUrlLink", false},
    {"DisplayBackup", false}, {"ShareContactTitle", true}, {"ShareViaUrlTitle", true},
    {"BackupTitle", true},
};

} // namespace

std::string problemOf(const Settings& settings) {
    for (const auto& [key, value] : settings) {
        const auto* const known = std::ranges::find(knownSettings, key, &KnownSetting::key);
        const std::string* const text = std::get_if<std::string>(&value);
        if (known == std::end(knownSettings))
            return "\"" + key + "\" is not a known setting";
        if (known->isText != (text != nullptr))
            return "the setting " + key + " is " + (known->isText ? "a text" : "an integer");
        if (text != nullptr && !isUTF8(*text))
            return "the setting " + key + " is not UTF-8";
        if (key == "ServerPort" &&
            (std::get<std::int64_t>(value) < 0 || std::get<std::int64_t>(value) > 65535))
            return "the setting ServerPort is no port";
    }
    return {};
}

} // namespace finder_sync
