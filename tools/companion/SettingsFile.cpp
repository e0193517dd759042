#include "tools/companion/SettingsFile.h"

#include "process/StandardStreams.h"
#include "tools/companion/UserDirectories.h"
#include "tools/console/Text.h"

#include <cerrno>
#include <charconv>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <filesystem>
#include <unistd.h>

namespace companion {

namespace {

namespace json = boost::json;

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

/// The extension reads nesting up to this depth.
constexpr std::size_t depthLimit = 512;

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

/// Reads a whole file. Gives 0 or an errno.
int readFile(const std::string& path, std::string& text) {
    // Opening must not wait, not even for the writer of a named pipe.
    const int descriptor = ::open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK | O_NOCTTY);
    if (descriptor < 0)
        return errno;
    char buffer[4096];
    ssize_t count = 0;
    while ((count = ::read(descriptor, buffer, sizeof buffer)) > 0)
        text.append(buffer, static_cast<std::size_t>(count));
    const int result = count < 0 ? errno : 0;
    (void)::close(descriptor);
    return result;
}

/// The settings that are there already; none at all when there is no file.
std::optional<json::object> readSettings(const std::string& path, std::string& failure) {
    std::string text;
    const int result = readFile(path, text);
    if (result == ENOENT)
        return json::object();
    if (result != 0) {
        failure = "the settings file " + path + " cannot be read: " + std::strerror(result);
        return std::nullopt;
    }
    json::parse_options options;
    options.max_depth = depthLimit;
    json::error_code error;
    json::value settings = json::parse(text, error, {}, options);
    if (!error && settings.is_object())
        return std::move(settings.get_object());
    failure = "the settings file " + path + " is malformed (" +
              (error ? error.message() : "its top level is not an object") +
              "): correct or remove it; it was left as it is";
    return std::nullopt;
}

/// Writes a file next to its final place and moves it there. Gives 0 or an errno.
int replaceFile(const std::string& path, std::string_view text) {
    std::string temporary = path + ".XXXXXX";
    const int descriptor = ::mkostemp(temporary.data(), O_CLOEXEC); // with mode 0600
    if (descriptor < 0)
        return errno;
    int result = process::writeFully(descriptor, text);
    if (result == 0 && ::fsync(descriptor) != 0)
        result = errno;
    if (::close(descriptor) != 0 && result == 0)
        result = errno;
    if (result == 0 && ::rename(temporary.c_str(), path.c_str()) != 0)
        result = errno;
    if (result != 0)
        (void)::unlink(temporary.c_str());
    return result;
}

} // namespace

bool addSetting(json::object& settings, std::string_view keyAndValue, std::string& failure) {
    const std::size_t separator = keyAndValue.find('=');
    const std::string_view key = keyAndValue.substr(0, separator);
    const std::string quotedKey = "\"" + console::printable(key) + "\"";
    if (separator == std::string_view::npos) {
        failure = quotedKey + " is not of the form KEY=VALUE";
        return false;
    }
    const std::string_view text = keyAndValue.substr(separator + 1);
    const std::optional<Type> type = typeOfSetting(key);
    const std::optional<std::int64_t> integer = integerOfText(text);
    if (!type)
        failure = quotedKey + " is not a known key; these are: " + namesOfKnownSettings();
    else if (*type == Type::Integer && !integer)
        failure = "the value of " + quotedKey + " is not an integer of 64 bits: \"" +
                  console::printable(text) + "\"";
    else if (!console::isUTF8(text))
        failure = "the value of " + quotedKey + " is not valid UTF-8";
    else if (*type == Type::Integer)
        settings[key] = *integer;
    else
        settings[key] = text;
    return failure.empty();
}

std::optional<std::string> mergeIntoSettingsFile(const json::object& settings,
                                                 std::string& failure) {
    const std::optional<std::string> directory = settingsDirectory();
    if (!directory) {
        failure = "there is no place for the settings: neither XDG_CONFIG_HOME nor HOME names a "
                  "directory";
        return std::nullopt;
    }
    const std::string path = *directory + "/settings.json";
    std::optional<json::object> merged = readSettings(path, failure);
    if (!merged)
        return std::nullopt;
    for (const auto& setting : settings)
        (*merged)[setting.key()] = setting.value();

    std::error_code error;
    std::filesystem::create_directories(*directory, error);
    const int result = error ? error.value() : replaceFile(path, json::serialize(*merged) + "\n");
    if (result == 0)
        return path;
    failure = "the settings file " + path + " cannot be written: " + std::strerror(result);
    return std::nullopt;
}

} // namespace companion
