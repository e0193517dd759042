#pragma once

#include "companion/Links.h"
#include "finder_sync_companion/Companion.h"
#include "process/SystemdHandles.h"
#include "tools/companion/Commands.h"
#include "tools/companion/Input.h"
#include "tools/companion/Screen.h"

#include <cstdint>
#include <deque>
#include <optional>
#include <string>

namespace companion {

/// The program: takes commands from its input to the extension, and click reports back. What the
/// library would refuse or say only once is sent as well, and any report is shown: so it has links
/// of the library, but lines in place of a state.
class Companion : private InputObserver, private finder_sync::Dialogue {
public:
    struct Options {
        bool isPadded = false;       ///< Lines are padded to the size of the extension's reads.
        bool countsBadLines = false; ///< A bad line makes the exit code 1.
    };

    Companion(sd_event* event, Screen& screen, Options options);

    /// Takes the port, which can then be written into settings. Returns false on failure; `failure`
    /// then says what is wrong and what to do.
    [[nodiscard]] bool listen(std::uint16_t port, std::string& failure);
    [[nodiscard]] std::uint16_t port() const { return links_.port(); }

    /// Serves an extension and reads standard input from now on. Ends the event loop when all is
    /// done.
    [[nodiscard]] bool start(std::string& failure);

    /// Carries out a command as if it had been entered.
    void enter(std::string_view line) { lineEntered(line); }

private:
    void lineEntered(std::string_view line) override;
    void inputEnded() override;
    void terminalClosed() override;
    [[nodiscard]] bool hasMore() const override;
    [[nodiscard]] std::optional<std::string> nextBlock() override;
    [[nodiscard]] std::string receive(std::string_view bytes) override;

    finder_sync::Dialogue* extensionConnected();
    void connectionLost(const std::string& reason);
    std::string print(std::string_view report);
    void send(const Send& message);
    void complain(const std::string& about);
    void sayWhatIsMissing();
    void limitWaitingLines();
    void end(int exitCode);

    sd_event* event_;
    Screen& screen_;
    Options options_;
    finder_sync::Links links_;
    process::EventSource linksSource_;
    Input input_;
    bool isConnected_ = false;
    bool wasConnected_ = false;

    std::deque<std::string> lines_; ///< that wait for an extension, with their LF
    std::size_t size_ = 0;          ///< of the waiting lines, in bytes
    std::size_t sentOfFirst_ = 0;   ///< bytes
    bool isAcknowledged_ = true;    ///< What has been sent is.

    finder_sync::ReportSplitter splitter_;
    std::uint64_t lineNumber_ = 0;
    bool isInputPaused_ = false;
    bool hasInputEnded_ = false;
    bool hasReader_ = true; ///< Standard output takes what is printed.
    int exitCode_ = 0;
};

} // namespace companion
