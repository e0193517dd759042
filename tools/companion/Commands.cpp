#include "tools/companion/Commands.h"

#include "companion/Messages.h"
#include "tools/console/Text.h"

#include <algorithm>
#include <optional>
#include <utility>
#include <vector>

namespace companion {

namespace {

constexpr std::string_view blanks = " \t";

/// A message; a refusal when it is too long.
Command sendMessage(std::string line) {
    if (line.size() > finder_sync::blockSize)
        return Refusal{"the message takes " + std::to_string(line.size()) +
                       " bytes with its line end, and the extension reads no more than " +
                       std::to_string(finder_sync::blockSize) +
                       " at once: it is not sent (\"raw\" sends it anyway)"};
    return Send{std::move(line)};
}

std::string_view withoutTrailingBlanks(std::string_view text) {
    const std::size_t last = text.find_last_not_of(blanks);
    return text.substr(0, last == std::string_view::npos ? 0 : last + 1);
}

/// Removes the word, quoted as in a shell, that the text starts with, and returns it, none when
/// a quote or an escape has no end.
std::optional<std::string> takeWord(std::string_view& text) {
    std::string word;
    char quote = '\0';
    while (!text.empty()) {
        const char character = text.front();
        if (quote == '\0' && blanks.find(character) != std::string_view::npos)
            break;
        text.remove_prefix(1);
        if (character == quote) {
            quote = '\0';
        } else if (quote == '\0' && (character == '"' || character == '\'')) {
            quote = character;
        } else if (character == '\\' && quote != '\'') {
            if (text.empty())
                return std::nullopt;
            word += text.front();
            text.remove_prefix(1);
        } else {
            word += character;
        }
    }
    if (quote != '\0')
        return std::nullopt;
    return word;
}

std::optional<std::vector<std::string>> splitIntoWords(std::string_view text) {
    std::vector<std::string> words;
    for (;;) {
        text.remove_prefix(std::min(text.find_first_not_of(blanks), text.size()));
        if (text.empty())
            return words;
        std::optional<std::string> word = takeWord(text);
        if (!word)
            return std::nullopt;
        words.push_back(*std::move(word));
    }
}

/// The message has the path of a folder. A path that is not absolute is sent all the same.
Command sendFolder(std::string message, std::string_view path) {
    Command command = sendMessage(std::move(message));
    if (auto* const send = std::get_if<Send>(&command); send != nullptr && !path.starts_with('/'))
        send->warning = path.starts_with('~')
                            ? "\"~\" is not replaced by your home here"
                            : "the path is not absolute; the extension takes it as it stands";
    return command;
}

// The commands. `rest` is what follows the name and one blank.

Command addFolder(std::string_view rest) {
    return sendFolder(finder_sync::addFolder(rest), rest);
}

Command deleteFolder(std::string_view rest) {
    if (rest.empty())
        return Refusal{"del_folder needs the path of a folder"};
    return sendFolder(finder_sync::deleteFolder(rest), rest);
}

Command setLocale(std::string_view rest) {
    auto words = splitIntoWords(rest);
    if (!words)
        return Refusal{"a quote or a backslash has no end"};
    if (words->size() != 3)
        return Refusal{
            "set_locale needs three titles, not " + std::to_string(words->size()) +
            "; put those with spaces into quotes: set_locale \"Share with\" Link Backup"};
    return sendMessage(finder_sync::setLocale(
        {std::move((*words)[0]), std::move((*words)[1]), std::move((*words)[2])}));
}

Command setMenuUsage(std::string_view rest) {
    const std::string_view value = withoutTrailingBlanks(rest);
    if (value != "0" && value != "1")
        return Refusal{"set_menu_usage needs 0 or 1"};
    return sendMessage(finder_sync::setMenuUsage(value == "1"));
}

Command sendRaw(std::string_view rest) {
    return Send{std::string(rest) + '\n', true,
                console::isUTF8(rest) ? "" : "the line is not valid UTF-8, but it is sent"};
}

Command showHelp(std::string_view) {
    return ShowHelp{};
}

Command quit(std::string_view) {
    return Quit{};
}

struct CommandEntry {
    std::string_view name;
    Command (*parse)(std::string_view rest);
    std::string_view synopsis;
    std::string_view summary;
};

constexpr CommandEntry commands[] = {
    {"add_folder", addFolder, "add_folder PATH", "announce a root folder"},
    {"del_folder", deleteFolder, "del_folder PATH", "withdraw a root folder"},
    {"set_locale", setLocale, "set_locale CONTACT URL BACKUP",
     R"(set the titles of the menu entries; "..." for spaces)"},
    {"set_menu_usage", setMenuUsage, "set_menu_usage 0|1", "hide or show the backup entry"},
    {"raw", sendRaw, "raw TEXT", "send a line as it stands"},
    {"help", showHelp, "help", "show this list"},
    {"quit", quit, "quit", "send what is waiting, then end"},
};

} // namespace

Command parseCommand(std::string_view line) {
    const std::size_t start = line.find_first_not_of(blanks);
    if (start == std::string_view::npos || line[start] == '#')
        return Nothing{};
    line.remove_prefix(start);
    const std::size_t end = std::min(line.find_first_of(blanks), line.size());
    const std::string_view name = line.substr(0, end);
    const std::string_view rest = line.substr(std::min(end + 1, line.size()));

    const auto* const found = std::ranges::find(commands, name, &CommandEntry::name);
    if (found == std::end(commands))
        return Refusal{"unknown command \"" + console::printable(name) +
                       R"("; "help" lists the commands)"};
    if (found->parse != sendRaw && !console::isUTF8(rest))
        return Refusal{"it is not valid UTF-8: it is not sent"};
    return found->parse(rest);
}

std::string outboundLine(const Send& message, bool isPadded) {
    std::string line = message.line;
    if (isPadded && !message.isRaw)
        line.insert(line.size() - 1, finder_sync::blockSize - line.size(), ' ');
    return line;
}

std::string helpOnCommands() {
    constexpr std::size_t column = 32;
    std::string text;
    for (const CommandEntry& entry : commands) {
        text += entry.synopsis;
        text.append(column - entry.synopsis.size(), ' ');
        text += entry.summary;
        text += '\n';
    }
    return text;
}

} // namespace companion
