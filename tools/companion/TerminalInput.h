#pragma once

#include "tools/companion/Input.h"
#include "tools/companion/Screen.h"

#include <histedit.h>
#include <string>
#include <systemd/sd-event.h>

namespace companion {

/// Lines from a terminal, with a prompt, line editing, history and completion of command names.
///
/// It uses the editor's own interface and not the one that imitates another library: the latter
/// keeps pointing to freed memory once a line outgrows its first buffer.
class TerminalInput : public Input, public EditedLine {
public:
    explicit TerminalInput(InputObserver& observer) : observer_(observer) {}

    /// Gives the terminal its settings back.
    ~TerminalInput() override;
    TerminalInput(const TerminalInput&) = delete;
    TerminalInput& operator=(const TerminalInput&) = delete;

    /// Whether standard input and output are a terminal that a line can be edited on.
    [[nodiscard]] static bool isPossible();

    /// Shows the prompt and has the event loop read keys. Gives 0 or a negative errno.
    [[nodiscard]] int serve(sd_event* event);

    void setPaused(bool isPaused) override;
    void stop() override;
    void hide() override;
    void show() override;

private:
    struct Callbacks;

    [[nodiscard]] bool setUpEditor();
    [[nodiscard]] bool bindKeys();
    void loadHistory();
    void remember(const std::string& line);
    [[nodiscard]] int watchTerminal(sd_event* event);
    void setEditing(bool isEditing);
    void readKey();
    void finishLine(const std::string& line);
    [[nodiscard]] int readCharacter(wchar_t& character);
    [[nodiscard]] unsigned char completeCommandName();
    void takeWindowSize();
    void takeTerminalBack();

    InputObserver& observer_;
    EditLine* editor_ = nullptr;
    History* history_ = nullptr;
    std::string historyPath_;
    sd_event_source* keySource_ = nullptr;
    sd_event_source* resizeSource_ = nullptr;
    sd_event_source* continueSource_ = nullptr;
    bool isEditing_ = false;      ///< The prompt is on the screen.
    bool isWithinEscape_ = false; ///< The key that is being read started with Escape.
    std::size_t columns_ = 80;    ///< Width of the terminal when the line was last drawn.
};

} // namespace companion
