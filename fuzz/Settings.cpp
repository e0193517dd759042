// The settings file: a suite opens exactly when the file holds a JSON object, and gives its
// members.

#include "platform/Foundation.h"

#include "fuzz/Difference.h"

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>
#include <string_view>

using findersync::fuzz::require;

namespace {

constexpr std::string_view suite = "suite";
constexpr std::string_view keys[] = {"RootFolder", "ServerPort", "DisplayUrlLink", "DisplayBackup",
                                     "ShareViaUrlTitle"};

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
        const std::int64_t integer = settings->integerForKey(keys[index]);
        require(object || integer == 0, "an integer comes from nowhere");
        require(!object || !std::holds_alternative<std::int64_t>(object->value) ||
                    *object == platform::Object{integer},
                "an integer is another one");
    }
    return 0;
}
