#include "tools/companion/Screen.h"

#include "process/StandardStreams.h"
#include "tools/console/Text.h"

#include <unistd.h>

namespace companion {

namespace {

constexpr std::string_view reportColor = "\033[32m";
constexpr std::string_view statusColor = "\033[36m";
constexpr std::string_view errorColor = "\033[31m";
constexpr std::string_view otherColor = "\033[2m";
constexpr std::string_view noColor = "\033[0m";

} // namespace

Screen::Screen(Color color) {
    for (const int descriptor : {STDOUT_FILENO, STDERR_FILENO})
        hasColor_[descriptor] = color == Color::Always ||
                                (color == Color::Automatic && console::wantsColor(descriptor));
}

bool Screen::report(const std::string& text) {
    return print(STDOUT_FILENO, text, reportColor) == 0;
}

void Screen::status(std::string_view text) {
    (void)print(STDERR_FILENO, text, statusColor);
}

void Screen::other(std::string_view text) {
    (void)print(STDERR_FILENO, text, otherColor);
}

void Screen::error(std::string_view text) {
    (void)print(STDERR_FILENO, text, errorColor);
}

int Screen::print(int descriptor, std::string_view text, std::string_view color) {
    std::string line;
    if (hasColor_[descriptor])
        line.append(color).append(text).append(noColor);
    else
        line = text;
    line += '\n';
    return process::writeFully(descriptor, line);
}

} // namespace companion
