// Commands of the companion application: one JSON object per line, each with a "type".
//
// A message must arrive complete in one read of at most 1,024 bytes, because incomplete messages
// are not kept between reads.

#include "extension/FinderSync.h"
#include "platform/System.h"

#include <algorithm>
#include <cstdio>
#include <optional>
#include <string>
#include <utility>
#include <variant>

namespace findersync {

namespace {

constexpr std::size_t readSize = 1024;

/// The beginning of a companion's text, with control characters escaped, for a diagnostic.
std::string excerpt(std::string_view text) {
    constexpr std::size_t limit = 80; // characters
    std::size_t characters = 0;
    std::string result;
    for (const char character : text) {
        const auto byte = static_cast<unsigned char>(character);
        const bool continuesCharacter = (byte & 0xc0U) == 0x80;
        if (!continuesCharacter && characters++ == limit)
            return result + "\u2026";
        char escape[sizeof "\\x7F"];
        (void)std::snprintf(escape, sizeof escape, "\\x%02X", static_cast<unsigned>(byte));
        if (byte < 0x20 || byte == 0x7f)
            result += escape;
        else
            result += character;
    }
    return result;
}

/// Ends the process because of a line, which is part of the text of its read.
[[noreturn]] void failOnLine(std::string_view line, std::string_view readText,
                             std::size_t bytesRead, const std::string& reason) {
    const auto number = 1 + std::count(readText.data(), line.data(), '\n');
    platform::fatalError("line " + std::to_string(number) + " of a read of " +
                         std::to_string(bytesRead) + " bytes: " + reason + ": " + excerpt(line));
}

/// What to add to the reason for a line that cannot be parsed.
std::string probableCause(std::size_t bytesRead) {
    return bytesRead < readSize ? ""
                                : " (the read was full, so a message was probably cut: see "
                                  "docs/protocol.md#the-1024-byte-rule)";
}

/// Ends the process because of bytes that are not UTF-8: shows the valid ones before them.
[[noreturn]] void failOnBytes(const std::uint8_t* bytes, std::size_t count) {
    std::size_t valid = count;
    std::optional<std::string> text;
    while (!text)
        text = platform::stringWithUTF8Bytes(bytes, --valid);
    const std::string_view line = std::string_view(*text).substr(text->rfind('\n') + 1);
    failOnLine(line, *text, count,
               "not valid UTF-8 at byte " + std::to_string(line.size()) + probableCause(count));
}

/// Why a line has no "type".
std::string reasonForNoType(std::string_view line, std::size_t bytesRead) {
    std::string failure = "not encodable as UTF-8";
    const std::optional<platform::NSData> data = platform::dataUsingUTF8Encoding(line);
    const std::optional<platform::Object> object =
        data ? platform::JSONObjectWithData(*data, &failure) : std::nullopt;
    if (!object)
        return failure + probableCause(bytesRead);
    if (!std::holds_alternative<platform::NSDictionary>(object->value))
        return "the top level is not an object";
    return "no \"type\"";
}

auto findPath(const std::vector<std::string>& paths, std::string_view path) {
    return std::ranges::find_if(paths, [path](const std::string& candidate) {
        return platform::isEqualToString(candidate, path);
    });
}

} // namespace

/// A parsed line, and where it comes from.
struct FinderSync::InboundMessage {
    std::string_view line; ///< part of `readText`
    std::string_view readText;
    platform::NSDictionary values;

    /// Ends the process when the value is missing or not a string.
    [[nodiscard]] const std::string& requiredString(std::string_view key) const {
        const auto found = values.find(key);
        if (found == values.end())
            fail(key == "type" ? reasonForNoType(line, readText.size())
                               : "no \"" + std::string(key) + "\"");
        const std::string* string = found->second.string();
        if (string == nullptr)
            fail("\"" + std::string(key) + "\" is not a string");
        return *string;
    }

private:
    [[noreturn]] void fail(const std::string& reason) const {
        failOnLine(line, readText, readText.size(), reason);
    }
};

void FinderSync::readInboundMessages() {
    // Leaked on purpose, once for each event.
    auto* const buffer = static_cast<std::uint8_t*>(platform::malloc(readSize));
    if (buffer == nullptr)
        platform::fatalError("no memory for the inbound buffer");

    const auto bytesAvailable = [this] {
        if (!inputStream_) // cannot happen after `connect`
            platform::fatalError("the input stream is gone while it is being read");
        return inputStream_->hasBytesAvailable();
    };
    while (bytesAvailable()) {
        const std::int64_t count = inputStream_->read(buffer, readSize);
        if (count <= 0)
            continue;
        const auto text = platform::stringWithUTF8Data(
            platform::dataWithBytes(buffer, static_cast<std::size_t>(count)));
        if (!text)
            failOnBytes(buffer, static_cast<std::size_t>(count));
        platform::print("server said: ", *text);
        handleInboundText(*text);
    }
} // NOLINT(clang-analyzer-unix.Malloc): see above

void FinderSync::handleInboundText(std::string_view text) {
    for (const std::string_view line : platform::componentsSeparatedByString(text, "\n")) {
        // Drops everything after an empty line in the same read, messages included.
        if (line.empty())
            return;
        handleInboundMessage({line, text, JSONParseDictionary(line)});
    }
}

void FinderSync::handleInboundMessage(const InboundMessage& message) {
    using Command = void (FinderSync::*)(const InboundMessage&);
    static constexpr std::pair<std::string_view, Command> commands[] = {
        {"add_folder", &FinderSync::addFolder},
        {"del_folder", &FinderSync::deleteFolder},
        {"set_locale", &FinderSync::setLocale},
        {"set_menu_usage", &FinderSync::setMenuUsage},
    };

    const std::string& type = message.requiredString("type");
    platform::print("type - ", type);
    for (const auto& [name, command] : commands) {
        if (platform::isEqualToString(type, name)) {
            (this->*command)(message);
            return;
        }
    }
}

void FinderSync::addFolder(const InboundMessage& message) {
    const std::string& path = message.requiredString("path");
    const std::vector<std::string>& paths = pathsOfRootFolders();
    const auto found = findPath(paths, path);
    if (found != paths.end()) {
        platform::print("new path is at index ", std::to_string(found - paths.begin()));
        return;
    }
    std::vector<std::string> extended;
    extended.reserve(paths.size() + 1);
    extended = paths;
    extended.push_back(path);
    setPathsOfRootFolders(std::move(extended));
}

void FinderSync::deleteFolder(const InboundMessage& message) {
    const std::string& path = message.requiredString("path");
    const std::vector<std::string>& paths = pathsOfRootFolders();
    const auto found = findPath(paths, path);
    if (found == paths.end())
        return;
    std::vector<std::string> remaining(paths.begin(), found);
    remaining.insert(remaining.end(), found + 1, paths.end());
    setPathsOfRootFolders(std::move(remaining));
}

void FinderSync::setLocale(const InboundMessage& message) {
    // Reads all three before setting the first: a message that lacks one changes none.
    const std::string& shareContact = message.requiredString("shareContactTitle");
    const std::string& shareViaUrl = message.requiredString("shareViaUrlTitle");
    const std::string& backup = message.requiredString("backupTitle");
    setShareContactTitle(shareContact);
    setShareViaUrlTitle(shareViaUrl);
    setBackupTitle(backup);
}

void FinderSync::setMenuUsage(const InboundMessage& message) {
    const std::string& value = message.requiredString("displayBackup");
    setDisplayBackup(platform::isEqualToString(value, "1") ? 1 : 0);
}

} // namespace findersync
