// A settings suite is one JSON object in $XDG_CONFIG_HOME/<suite name>/settings.json.

#include "platform/Foundation.h"
#include "platform/text/IntegerValue.h"
#include "platform/text/JSON.h"
#include "process/Descriptor.h"

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>
#include <utility>

namespace platform {

namespace {

/// A settings file holds a few keys. A larger file is a mistake and is not read.
constexpr off_t sizeLimit = off_t{1024} * 1024;

std::string errorText(int number) {
    return std::strerror(number);
}

/// The directory for a user's configuration, empty when the environment names none.
std::string configurationDirectory() {
    const char* const configured = std::getenv("XDG_CONFIG_HOME");
    if (configured != nullptr && configured[0] == '/')
        return configured;
    const char* const home = std::getenv("HOME");
    if (home != nullptr && home[0] == '/')
        return std::string(home) + "/.config";
    return {};
}

/// Reads an open settings file, at most `sizeLimit` bytes even if it grows meanwhile.
std::optional<std::string> readSettings(int descriptor, std::string& failure) {
    struct stat status{};
    if (::fstat(descriptor, &status) != 0) {
        failure = errorText(errno);
        return std::nullopt;
    }
    if (!S_ISREG(status.st_mode)) {
        failure = S_ISDIR(status.st_mode) ? "it is a directory" : "it is not a regular file";
        return std::nullopt;
    }
    if (status.st_size > sizeLimit) {
        failure = "it is larger than 1 MiB";
        return std::nullopt;
    }
    std::string text(static_cast<std::size_t>(status.st_size), '\0');
    std::size_t length = 0;
    while (length < text.size()) {
        const ssize_t count = ::read(descriptor, text.data() + length, text.size() - length);
        if (count < 0 && errno == EINTR)
            continue;
        if (count < 0) {
            failure = errorText(errno);
            return std::nullopt;
        }
        if (count == 0)
            break;
        length += static_cast<std::size_t>(count);
    }
    text.resize(length);
    return text;
}

class SettingsSuite : public NSUserDefaults {
public:
    explicit SettingsSuite(NSDictionary settings) : settings_(std::move(settings)) {}

    [[nodiscard]] std::optional<Object> objectForKey(std::string_view key) const override {
        const auto found = settings_.find(key);
        if (found == settings_.end() || std::holds_alternative<NSNull>(found->second.value))
            return std::nullopt;
        return found->second;
    }

    [[nodiscard]] std::int64_t integerForKey(std::string_view key) const override {
        const auto found = settings_.find(key);
        return found == settings_.end() ? 0 : text::integerValue(found->second);
    }

private:
    NSDictionary settings_;
};

} // namespace

std::shared_ptr<const NSUserDefaults> userDefaultsWithSuiteName(std::string_view suiteName,
                                                                std::string& failure) {
    const std::string directory = configurationDirectory();
    if (directory.empty()) {
        failure = "neither XDG_CONFIG_HOME nor HOME names a directory";
        return nullptr;
    }
    const std::string path = directory + "/" + std::string(suiteName) + "/settings.json";

    // O_NONBLOCK: opening a named pipe would wait for its writer.
    const process::Descriptor file(
        ::open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK | O_NOCTTY));
    if (!file && errno == ENOENT)
        return std::make_shared<SettingsSuite>(NSDictionary());
    if (!file) {
        failure = path + ": " + errorText(errno);
        return nullptr;
    }
    const std::optional<std::string> text = readSettings(file.get(), failure);
    std::optional<Object> settings = text ? text::parseJSON(*text, failure) : std::nullopt;
    if (!settings) {
        failure = path + ": " + failure;
        return nullptr;
    }
    auto* const dictionary = std::get_if<NSDictionary>(&settings->value);
    if (dictionary == nullptr) {
        failure = path + ": the top level is not an object";
        return nullptr;
    }
    return std::make_shared<SettingsSuite>(std::move(*dictionary));
}

} // namespace platform
