#pragma once

#include <string>
#include <string_view>

namespace companion {

enum class Color { Automatic, Always, Never };

/// The line that the user is editing, where there is one.
class EditedLine {
public:
    virtual ~EditedLine() = default;

    /// Takes it off the screen, so that other text can be printed.
    virtual void hide() = 0;

    /// Puts it back.
    virtual void show() = 0;
};

/// What the program shows: click reports on standard output, everything else on standard error.
class Screen {
public:
    explicit Screen(Color color);

    /// One click report, as one line. Gives false when standard output takes nothing any more.
    [[nodiscard]] bool report(const std::string& text);

    /// What the program does.
    void status(std::string_view text);

    /// A line of another program's output.
    void other(std::string_view text);

    /// What is wrong.
    void error(std::string_view text);

    /// Has output leave the edited line alone. Null when there is none any more.
    void setEditedLine(EditedLine* line) { editedLine_ = line; }

private:
    [[nodiscard]] int print(int descriptor, std::string_view text, std::string_view color);

    bool hasColor_[3] = {}; ///< By descriptor.
    EditedLine* editedLine_ = nullptr;
};

} // namespace companion
