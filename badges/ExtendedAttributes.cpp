// Lists the names of an item's extended attributes. No badge depends on them.

#include "extension/FinderSync.h"
#include "platform/System.h"

#include <utility>

namespace findersync {

AttributesNames FinderSync::attributesNamesAtPath(const std::string& path) {
    const std::int64_t size = platform::listxattr(path, nullptr, 0);
    if (size == -1)
        return {.error = errnoDescription(), .names = std::nullopt};

    // Leaked on purpose.
    const auto length = static_cast<std::size_t>(size);
    auto* const buffer = static_cast<char*>(platform::malloc(length));
    if (platform::listxattr(path, buffer, length) == -1)
        // NOLINTNEXTLINE(clang-analyzer-unix.Malloc)
        return {.error = errnoDescription(), .names = std::nullopt};

    // Uses the first length, even if the list has become shorter since.
    const std::optional<std::string> text = platform::stringWithUTF8Bytes(buffer, length);
    if (!text)
        return {.error = "Unknown error", .names = std::nullopt};
    auto parts = platform::componentsSeparatedByString(*text, std::string_view("\0", 1));
    // Drops what follows the last NUL, which is normally empty.
    parts.pop_back();
    return {.error = std::nullopt, .names = std::vector<std::string>(parts.begin(), parts.end())};
}

std::string FinderSync::errnoDescription() {
    if (auto text = platform::stringWithUTF8String(platform::strerror(platform::errorNumber())))
        return *std::move(text);
    return std::to_string(platform::errorNumber());
}

} // namespace findersync
