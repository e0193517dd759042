#include "tools/companion/TerminalInput.h"

#include "process/StandardStreams.h"
#include "process/Termination.h"
#include "tools/companion/Commands.h"
#include "tools/companion/UserDirectories.h"

#include <cerrno>
#include <clocale>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <cwchar>
#include <filesystem>
#include <langinfo.h>
#include <poll.h>
#include <string_view>
#include <sys/epoll.h>
#include <sys/ioctl.h>
#include <unistd.h>
#include <vector>

namespace companion {

namespace {

constexpr const char* promptText = "companion> ";
constexpr int historySize = 1000;
constexpr char endOfInputKey = '\x04';
constexpr char escapeKey = '\x1b';

/// How long the rest of a key may take that starts with Escape. Longer than any terminal needs;
/// a lone Escape must not hold up the link.
constexpr int escapePatienceInMilliseconds = 300;

std::size_t terminalColumns() {
    winsize size{};
    if (::ioctl(STDOUT_FILENO, TIOCGWINSZ, &size) != 0 || size.ws_col == 0)
        return 80;
    return size.ws_col;
}

/// Column after text that starts at a column, as the editor shows it.
std::size_t columnAfter(std::size_t column, std::string_view text) {
    std::mbstate_t state{};
    while (!text.empty()) {
        wchar_t character = 0;
        const std::size_t length = std::mbrtowc(&character, text.data(), text.size(), &state);
        if (length == 0 || length > text.size())
            return column;
        text.remove_prefix(length);
        const int width = ::wcwidth(character);
        if (character == L'\t')
            column += 8 - column % 8;
        else
            column += width < 0 ? 2 : static_cast<std::size_t>(width); // ^X
    }
    return column;
}

/// The editor decodes what is typed by the locale; the link speaks UTF-8 in any case.
void ensureLocaleOfUTF8() {
    (void)std::setlocale(LC_CTYPE, "");
    if (std::string_view(::nl_langinfo(CODESET)) != "UTF-8")
        (void)std::setlocale(LC_CTYPE, "C.UTF-8");
}

std::vector<std::string_view> namesStartingWith(std::string_view prefix) {
    std::vector<std::string_view> names;
    for (const std::string_view name : commandNames()) {
        if (name.starts_with(prefix))
            names.push_back(name);
    }
    return names;
}

/// The longest start that all names share; there is at least one.
std::string commonStart(const std::vector<std::string_view>& names) {
    std::string_view start = names.front();
    for (const std::string_view name : names) {
        while (!name.starts_with(start))
            start.remove_suffix(1);
    }
    return std::string(start);
}

} // namespace

struct TerminalInput::Callbacks {
    static TerminalInput& input(void* self) { return *static_cast<TerminalInput*>(self); }

    static TerminalInput& input(EditLine* editor) {
        void* self = nullptr;
        (void)el_get(editor, EL_CLIENTDATA, &self);
        return input(self);
    }

    static const char* prompt(EditLine*) { return promptText; }
    static int readCharacter(EditLine* editor, wchar_t* character) {
        return input(editor).readCharacter(*character);
    }
    static unsigned char complete(EditLine* editor, int) {
        return input(editor).completeCommandName();
    }
    static int keyPressed(sd_event_source*, int, std::uint32_t events, void* self) noexcept {
        if ((events & (EPOLLHUP | EPOLLERR)) != 0)
            input(self).observer_.terminalClosed();
        else
            input(self).readKey();
        return 0;
    }
    static int resized(sd_event_source*, const signalfd_siginfo*, void* self) noexcept {
        input(self).takeWindowSize();
        return 0;
    }
    static int continued(sd_event_source*, const signalfd_siginfo*, void* self) noexcept {
        input(self).takeTerminalBack();
        return 0;
    }
};

bool TerminalInput::isPossible() {
    const char* const terminal = std::getenv("TERM");
    return ::isatty(STDIN_FILENO) == 1 && ::isatty(STDOUT_FILENO) == 1 && terminal != nullptr &&
           *terminal != '\0' && std::strcmp(terminal, "dumb") != 0;
}

TerminalInput::~TerminalInput() {
    TerminalInput::stop();
    if (editor_ != nullptr)
        el_end(editor_);
    if (history_ != nullptr)
        history_end(history_);
}

int TerminalInput::serve(sd_event* event) {
    termios settings{};
    if (::tcgetattr(STDIN_FILENO, &settings) == 0)
        process::restoreTerminalOnSuddenEnd(settings);
    ensureLocaleOfUTF8();
    if (!setUpEditor())
        return -ENOMEM;
    loadHistory();
    if (const int result = watchTerminal(event); result < 0)
        return result;
    setEditing(true);
    return 0;
}

bool TerminalInput::setUpEditor() {
    editor_ = el_init("companion", stdin, stdout, stderr);
    history_ = history_init();
    HistEvent event;
    return editor_ != nullptr && history_ != nullptr &&
           history(history_, &event, H_SETSIZE, historySize) >= 0 &&
           history(history_, &event, H_SETUNIQUE, 1) >= 0 &&
           el_set(editor_, EL_CLIENTDATA, this) == 0 &&
           el_set(editor_, EL_PROMPT, Callbacks::prompt) == 0 &&
           el_set(editor_, EL_EDITOR, "emacs") == 0 &&
           el_set(editor_, EL_HIST, history, history_) == 0 &&
           el_set(editor_, EL_GETCFN, Callbacks::readCharacter) == 0 && bindKeys();
}

bool TerminalInput::bindKeys() {
    // Wide text is kept as it is; the editor would copy other text and never free the copy.
    return el_wset(editor_, EL_ADDFN, L"complete-command-name", L"Complete the name of a command",
                   Callbacks::complete) == 0 &&
           el_wset(editor_, EL_BIND, L"^I", L"complete-command-name", nullptr) == 0;
}

void TerminalInput::loadHistory() {
    const std::optional<std::string> directory = stateDirectory();
    if (!directory)
        return;
    std::error_code ignored;
    std::filesystem::create_directories(*directory, ignored);
    historyPath_ = *directory + "/companion_history";
    HistEvent event;
    (void)history(history_, &event, H_LOAD, historyPath_.c_str());
}

/// Saves at once, since the program may be ended in many ways.
void TerminalInput::remember(const std::string& line) {
    HistEvent event;
    (void)history(history_, &event, H_ENTER, line.c_str());
    if (!historyPath_.empty())
        (void)history(history_, &event, H_SAVE, historyPath_.c_str());
}

int TerminalInput::watchTerminal(sd_event* event) {
    sigset_t signals;
    (void)sigemptyset(&signals);
    (void)sigaddset(&signals, SIGWINCH);
    (void)sigaddset(&signals, SIGCONT);
    (void)::sigprocmask(SIG_BLOCK, &signals, nullptr);
    int result = sd_event_add_signal(event, &resizeSource_, SIGWINCH, Callbacks::resized, this);
    if (result >= 0)
        result = sd_event_add_signal(event, &continueSource_, SIGCONT, Callbacks::continued, this);
    if (result >= 0)
        result =
            sd_event_add_io(event, &keySource_, STDIN_FILENO, EPOLLIN, Callbacks::keyPressed, this);
    return result;
}

void TerminalInput::setPaused(bool isPaused) {
    // The prompt goes too, so that nobody types into a program that does not listen.
    if (keySource_ == nullptr)
        return;
    (void)sd_event_source_set_enabled(keySource_, isPaused ? SD_EVENT_OFF : SD_EVENT_ON);
    setEditing(!isPaused);
}

void TerminalInput::stop() {
    if (isEditing_) {
        setEditing(false);
        (void)process::writeFully(STDOUT_FILENO, "\n"); // what comes next has a line of its own
    }
    keySource_ = sd_event_source_disable_unref(keySource_);
    resizeSource_ = sd_event_source_disable_unref(resizeSource_);
    continueSource_ = sd_event_source_disable_unref(continueSource_);
}

/// Starts a line with the prompt, or gives the terminal back to ordinary output.
void TerminalInput::setEditing(bool isEditing) {
    if (isEditing == isEditing_)
        return;
    isEditing_ = isEditing;
    columns_ = terminalColumns();
    (void)el_set(editor_, EL_UNBUFFERED, isEditing ? 1 : 0);
}

void TerminalInput::readKey() {
    isWithinEscape_ = false;
    int count = 0;
    const char* const line = el_gets(editor_, &count);
    if (line == nullptr || count <= 0)
        return;
    const std::string_view text(line, static_cast<std::size_t>(count));
    if (text.back() == '\n' || text.back() == '\r') {
        finishLine(std::string(text.substr(0, text.size() - 1)));
    } else if (text.size() == 1 && text.front() == endOfInputKey) {
        observer_.inputEnded();
    }
}

void TerminalInput::finishLine(const std::string& line) {
    setEditing(false);
    if (line.find_first_not_of(" \t") != std::string::npos)
        remember(line);
    observer_.lineEntered(line);
    int enabled = SD_EVENT_OFF;
    if (keySource_ != nullptr && sd_event_source_get_enabled(keySource_, &enabled) > 0)
        setEditing(true);
}

/// Gives 1 with a character, or 0 when there is none, which drops an unfinished key.
int TerminalInput::readCharacter(wchar_t& character) {
    std::mbstate_t state{};
    for (;;) {
        pollfd request{.fd = STDIN_FILENO, .events = POLLIN, .revents = 0};
        if (isWithinEscape_ && ::poll(&request, 1, escapePatienceInMilliseconds) == 0)
            return 0;
        char byte = 0;
        const ssize_t count = ::read(STDIN_FILENO, &byte, 1);
        if (count < 0 && errno == EINTR)
            continue;
        if (count <= 0)
            return 0;
        const std::size_t length = std::mbrtowc(&character, &byte, 1, &state);
        if (length == static_cast<std::size_t>(-2))
            continue;
        if (length == static_cast<std::size_t>(-1))
            character = L'\uFFFD';
        isWithinEscape_ = isWithinEscape_ || byte == escapeKey;
        return 1;
    }
}

unsigned char TerminalInput::completeCommandName() {
    const LineInfo* const line = el_line(editor_);
    const std::string_view word(line->buffer,
                                static_cast<std::size_t>(line->cursor - line->buffer));
    const std::vector<std::string_view> names = namesStartingWith(word);
    if (names.empty())
        return CC_ERROR;
    std::string rest = commonStart(names).substr(word.size());
    if (names.size() == 1)
        rest += ' ';
    if (!rest.empty())
        return el_insertstr(editor_, rest.c_str()) == 0 ? CC_REFRESH : CC_ERROR;

    std::string list = "\n";
    for (const std::string_view name : names)
        list.append(name).append("  ");
    list.back() = '\n';
    (void)process::writeFully(STDOUT_FILENO, list);
    return CC_REDISPLAY;
}

void TerminalInput::hide() {
    if (!isEditing_)
        return;
    const LineInfo* const line = el_line(editor_);
    const std::string_view beforeCursor(line->buffer,
                                        static_cast<std::size_t>(line->cursor - line->buffer));
    const std::size_t row = columnAfter(std::strlen(promptText), beforeCursor) / columns_;
    std::string erase = "\r";
    if (row > 0)
        erase += "\033[" + std::to_string(row) + "A";
    (void)process::writeFully(STDOUT_FILENO, erase + "\033[J");
}

void TerminalInput::show() {
    if (isEditing_)
        (void)el_set(editor_, EL_REFRESH);
}

void TerminalInput::takeWindowSize() {
    hide();
    columns_ = terminalColumns();
    el_resize(editor_);
    show();
}

/// The shell has had the terminal while the program was stopped.
void TerminalInput::takeTerminalBack() {
    if (!isEditing_)
        return;
    (void)el_set(editor_, EL_PREP_TERM, 0);
    (void)el_set(editor_, EL_PREP_TERM, 1);
    takeWindowSize();
}

} // namespace companion
