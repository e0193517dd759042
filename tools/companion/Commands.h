#pragma once

#include <span>
#include <string>
#include <string_view>
#include <variant>

namespace companion {

/// The extension decodes each read of at most this many bytes on its own, so that no line may be
/// longer, its LF included.
inline constexpr std::size_t lineLimit = 1024;

// What a line of input asks for.

/// A blank line or a remark.
struct Nothing {};

/// A line for the extension, without its LF. A raw one goes out as it stands.
struct Send {
    std::string line;
    bool isRaw = false;
    std::string warning = {}; ///< What is wrong with it all the same, empty for nothing.
};

struct ShowHelp {};

struct Quit {};

/// A line that cannot be carried out, and why.
struct Refusal {
    std::string reason;
};

using Command = std::variant<Nothing, Send, ShowHelp, Quit, Refusal>;

/// Understands one line of input, without its LF. Never fails: a bad line is a `Refusal`.
[[nodiscard]] Command parseCommand(std::string_view line);

/// A message as it goes over the link: with its LF and, when it is to be padded, with spaces before
/// it up to exactly `lineLimit` bytes, so that no read can hold parts of two lines.
[[nodiscard]] std::string outboundLine(const Send& message, bool isPadded);

/// One line for each command.
[[nodiscard]] std::string helpOnCommands();

/// Names of all commands, for completion.
[[nodiscard]] std::span<const std::string_view> commandNames();

} // namespace companion
