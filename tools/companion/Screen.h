#pragma once

#include <string>
#include <string_view>

namespace companion {

enum class Color { Automatic, Always, Never };

/// What the program shows: click reports on standard output, everything else on standard error.
class Screen {
public:
    explicit Screen(Color color);

    /// One click report, as one line. Returns false when it cannot be written any more.
    [[nodiscard]] bool report(const std::string& text);

    /// What the program does.
    void status(std::string_view text);

    /// A line of another program's output.
    void other(std::string_view text);

    /// What is wrong.
    void error(std::string_view text);

private:
    [[nodiscard]] int print(int descriptor, std::string_view text, std::string_view color);

    bool hasColor_[3] = {}; ///< By descriptor.
};

} // namespace companion
