#include "tools/companion/SettingsFile.h"

#include "Names.h"
#include "process/Descriptor.h"
#include "process/StandardStreams.h"
#include "tools/console/Text.h"

#include <boost/json/parse.hpp>
#include <boost/json/serialize.hpp>
#include <cerrno>
#include <charconv>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <filesystem>
#include <string_view>
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

/// A relative path in the variable counts as none at all.
std::optional<std::string> absolutePathIn(const char* variable) {
    const char* const value = std::getenv(variable);
    if (value == nullptr || value[0] != '/')
        return std::nullopt;
    return value;
}

std::optional<std::string> settingsDirectory() {
    std::optional<std::string> base = absolutePathIn("XDG_CONFIG_HOME");
    if (!base && (base = absolutePathIn("HOME")))
        base->append("/.config");
    if (base)
        base->append("/").append(findersync::applicationGroup);
    return base;
}

/// Reads a whole file. Returns 0 or an errno.
int readFile(const std::string& path, std::string& text) {
    // Opening does not wait for a writer if it is a named pipe.
    const process::Descriptor file(
        ::open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK | O_NOCTTY));
    if (!file)
        return errno;
    char buffer[4096];
    ssize_t count = 0;
    while ((count = ::read(file.get(), buffer, sizeof buffer)) > 0)
        text.append(buffer, static_cast<std::size_t>(count));
    return count < 0 ? errno : 0;
}

/// The settings of the file, an empty object when there is no file. None on failure.
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

/// Writes a temporary file in the same directory and renames it. Returns 0 or an errno.
int replaceFile(const std::string& path, std::string_view text) {
    std::string temporary = path + ".XXXXXX";
    process::Descriptor file(::mkostemp(temporary.data(), O_CLOEXEC)); // with mode 0600
    if (!file)
        return errno;
    int result = process::writeFully(file.get(), text);
    if (result == 0 && ::fsync(file.get()) != 0)
        result = errno;
    if (::close(file.release()) != 0 && result == 0)
        result = errno;
    if (result == 0 && ::rename(temporary.c_str(), path.c_str()) != 0)
        result = errno;
    if (result != 0)
        (void)::unlink(temporary.c_str());
    return result;
}

/// Adds a setting of the form KEY=VALUE. Returns what is wrong with it, empty for nothing.
std::string addSetting(json::object& settings, std::string_view keyAndValue) {
    const std::size_t separator = keyAndValue.find('=');
    const std::string_view key = keyAndValue.substr(0, separator);
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
        settings[key] = text;
    return {};
}

} // namespace

std::string problemOfSettings(const std::vector<std::string>& settings) {
    json::object ignored;
    std::string problem;
    for (const std::string& setting : settings) {
        if (problem.empty())
            problem = addSetting(ignored, setting);
    }
    return problem;
}

std::optional<std::string> mergeIntoSettingsFile(const std::vector<std::string>& settings,
                                                 std::uint16_t port, std::string& failure) {
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
    (*merged)["ServerPort"] = port; // unless a setting replaces it
    for (const std::string& setting : settings)
        (void)addSetting(*merged, setting);

    std::error_code error;
    std::filesystem::create_directories(*directory, error);
    const int result = error ? error.value() : replaceFile(path, json::serialize(*merged) + "\n");
    if (result == 0)
        return path;
    failure = "the settings file " + path + " cannot be written: " + std::strerror(result);
    return std::nullopt;
}

} // namespace companion
