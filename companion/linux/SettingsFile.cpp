#include "finder_sync_companion/Settings.h"

#include "process/Descriptor.h"
#include "process/StandardStreams.h"

#include <boost/json/parse.hpp>
#include <boost/json/serialize.hpp>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <filesystem>
#include <optional>
#include <string_view>
#include <unistd.h>

namespace finder_sync {

namespace {

namespace json = boost::json;

/// The extension reads nesting up to this depth.
constexpr std::size_t depthLimit = 512;

/// A relative path in the variable counts as none at all.
std::string absolutePathIn(const char* variable) {
    const char* const value = std::getenv(variable);
    return value == nullptr || value[0] != '/' ? "" : value;
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
    boost::system::error_code error;
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

} // namespace

std::string settingsFile(const std::string& group) {
    std::string base = absolutePathIn("XDG_CONFIG_HOME");
    if (base.empty()) {
        const std::string home = absolutePathIn("HOME");
        base = home.empty() ? home : home + "/.config";
    }
    return base.empty() ? base : base + "/" + group + "/settings.json";
}

bool writeSettings(const std::string& group, const Settings& settings, std::string& failure) {
    const std::string path = settingsFile(group);
    failure = problemOf(settings);
    if (failure.empty() && path.empty())
        failure = "there is no place for the settings: neither XDG_CONFIG_HOME nor HOME names a "
                  "directory";
    if (!failure.empty())
        return false;
    std::optional<json::object> merged = readSettings(path, failure);
    if (!merged)
        return false;
    for (const auto& [key, value] : settings)
        std::visit([&, &name = key](const auto& content) { (*merged)[name] = content; }, value);

    std::error_code error;
    std::filesystem::create_directories(std::filesystem::path(path).parent_path(), error);
    const int result = error ? error.value() : replaceFile(path, json::serialize(*merged) + "\n");
    if (result == 0)
        return true;
    failure = "the settings file " + path + " cannot be written: " + std::strerror(result);
    return false;
}

} // namespace finder_sync
