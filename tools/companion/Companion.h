#pragma once

#include "tools/companion/Commands.h"
#include "tools/companion/Connection.h"
#include "tools/companion/Input.h"
#include "tools/companion/Listener.h"
#include "tools/companion/Outbox.h"
#include "tools/companion/ReportParser.h"
#include "tools/companion/Screen.h"

#include <cstdint>
#include <optional>
#include <string>

namespace companion {

/// The program: takes commands from its input to the extension, and click reports back.
class Companion : private InputObserver, private ConnectionObserver {
public:
    struct Options {
        bool isPadded = false;       ///< Lines are padded to the size of the extension's reads.
        bool countsBadLines = false; ///< A bad line makes the exit code 1.
    };

    Companion(sd_event* event, Screen& screen, Options options);

    /// Binds to the port, which can then be written into settings before anybody connects.
    [[nodiscard]] bool bind(std::uint16_t port, std::string& failure);
    [[nodiscard]] std::uint16_t port() const { return listener_.port(); }

    /// Listens and reads standard input from now on. Ends the event loop when all is done.
    [[nodiscard]] bool start(std::string& failure);

    /// Carries out a command as if it had been entered.
    void enter(std::string_view line) { lineEntered(line); }

private:
    void lineEntered(std::string_view line) override;
    void inputEnded() override;
    void terminalClosed() override;
    bool bytesArrived(std::string_view bytes) override;
    void linesTaken() override;
    void everythingSent() override;
    void connectionLost(const std::string& reason) override;

    void extensionConnected(process::Descriptor socket);
    void send(const Send& message);
    void complain(const std::string& about);
    void sayWhatIsMissing();
    void limitWaitingLines();
    void end(int exitCode);

    sd_event* event_;
    Screen& screen_;
    Options options_;
    Listener listener_;
    Outbox outbox_;
    ReportParser parser_;
    Input input_;
    std::optional<Connection> connection_;
    std::uint64_t lineNumber_ = 0;
    bool isInputPaused_ = false;
    bool hasInputEnded_ = false;
    bool hasReader_ = true; ///< Standard output takes what is printed.
    bool wasConnected_ = false;
    int exitCode_ = 0;
};

} // namespace companion
