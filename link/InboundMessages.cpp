// Commands of the companion application: one JSON object per line, each with a "type".
//
// A message must arrive complete in one read of at most 1,024 bytes, because incomplete messages
// are not kept between reads.

#include "extension/FinderSync.h"
#include "platform/System.h"

#include <algorithm>
#include <string>
#include <utility>

namespace findersync {

namespace {

constexpr std::size_t readSize = 1024;

const std::string& requiredString(const platform::NSDictionary& message, std::string_view key) {
    const auto found = message.find(key);
    if (found == message.end())
        platform::fatalError("an inbound message has no \"" + std::string(key) + "\"");
    const std::string* string = found->second.string();
    if (string == nullptr)
        platform::fatalError("\"" + std::string(key) + "\" of an inbound message is not a string");
    return *string;
}

auto findPath(const std::vector<std::string>& paths, std::string_view path) {
    return std::ranges::find_if(paths, [path](const std::string& candidate) {
        return platform::isEqualToString(candidate, path);
    });
}

} // namespace

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
            platform::fatalError("inbound bytes are not valid UTF-8");
        platform::print("server said: ", *text);
        handleInboundText(*text);
    }
} // NOLINT(clang-analyzer-unix.Malloc): see above

void FinderSync::handleInboundText(std::string_view text) {
    for (const std::string_view line : platform::componentsSeparatedByString(text, "\n")) {
        // Drops everything after an empty line in the same read, messages included.
        if (line.empty())
            return;
        handleInboundMessage(JSONParseDictionary(line));
    }
}

void FinderSync::handleInboundMessage(const platform::NSDictionary& message) {
    using Command = void (FinderSync::*)(const platform::NSDictionary&);
    static constexpr std::pair<std::string_view, Command> commands[] = {
        {"add_folder", &FinderSync::addFolder},
        {"del_folder", &FinderSync::deleteFolder},
        {"set_locale", &FinderSync::setLocale},
        {"set_menu_usage", &FinderSync::setMenuUsage},
    };

    const std::string& type = requiredString(message, "type");
    platform::print("type - ", type);
    for (const auto& [name, command] : commands) {
        if (platform::isEqualToString(type, name)) {
            (this->*command)(message);
            return;
        }
    }
}

void FinderSync::addFolder(const platform::NSDictionary& message) {
    const std::string& path = requiredString(message, "path");
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

void FinderSync::deleteFolder(const platform::NSDictionary& message) {
    const std::string& path = requiredString(message, "path");
    const std::vector<std::string>& paths = pathsOfRootFolders();
    const auto found = findPath(paths, path);
    if (found == paths.end())
        return;
    std::vector<std::string> remaining(paths.begin(), found);
    remaining.insert(remaining.end(), found + 1, paths.end());
    setPathsOfRootFolders(std::move(remaining));
}

void FinderSync::setLocale(const platform::NSDictionary& message) {
    // Reads all three before setting the first: a message that lacks one changes none.
    const std::string& shareContact = requiredString(message, "shareContactTitle");
    const std::string& shareViaUrl = requiredString(message, "shareViaUrlTitle");
    const std::string& backup = requiredString(message, "backupTitle");
    setShareContactTitle(shareContact);
    setShareViaUrlTitle(shareViaUrl);
    setBackupTitle(backup);
}

void FinderSync::setMenuUsage(const platform::NSDictionary& message) {
    const std::string& value = requiredString(message, "displayBackup");
    setDisplayBackup(platform::isEqualToString(value, "1") ? 1 : 0);
}

} // namespace findersync
