#pragma once

#include <string>
#include <string_view>
#include <variant>

namespace companion {

// What a line of input can be.

/// A blank line or a remark.
struct Nothing {};

/// A line for the extension, with its LF. A raw one is sent unchanged.
struct Send {
    std::string line;
    bool isRaw = false;
    std::string warning = {}; ///< Empty when nothing is wrong with it.
};

struct ShowHelp {};

struct Quit {};

/// A line that cannot be carried out, and why.
struct Refusal {
    std::string reason;
};

using Command = std::variant<Nothing, Send, ShowHelp, Quit, Refusal>;

/// Parses one line of input, without its LF. A bad line gives a `Refusal`.
[[nodiscard]] Command parseCommand(std::string_view line);

/// The line as it is sent: when padded, with spaces before its LF up to a whole block, so that no
/// read of the extension can hold parts of two lines.
[[nodiscard]] std::string outboundLine(const Send& message, bool isPadded);

/// One line for each command.
[[nodiscard]] std::string helpOnCommands();

} // namespace companion
