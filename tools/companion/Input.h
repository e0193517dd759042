#pragma once

#include "process/SystemdHandles.h"

#include <cstdint>
#include <string>
#include <string_view>

namespace companion {

/// Is told what comes in on standard input.
class InputObserver {
public:
    virtual ~InputObserver() = default;

    /// A line, without its LF.
    virtual void lineEntered(std::string_view line) = 0;

    /// The input has ended.
    virtual void inputEnded() = 0;

    /// The terminal that the lines came from is gone, and with it the user.
    virtual void terminalClosed() = 0;
};

/// Reads lines from standard input: a pipe, a file or a terminal.
class Input {
public:
    explicit Input(InputObserver& observer) : observer_(observer) {}

    /// Makes the event loop read standard input. Returns 0 or a negative errno.
    [[nodiscard]] int serve(sd_event* event);

    /// Stops reading until it is resumed. Meanwhile the system keeps what is typed or piped.
    void setPaused(bool isPaused);

    /// Stops reading for good. The observer is not called any more.
    void stop();

private:
    static int readPollable(sd_event_source*, int, std::uint32_t events, void* self) noexcept;
    static int readFile(sd_event_source*, void* self) noexcept;
    void readSome(bool isHungUp);
    void take(std::string_view bytes);
    void end();

    InputObserver& observer_;
    process::EventSource source_;
    std::string unfinishedLine_;
    bool isTerminal_ = false;
    bool isStopped_ = false;
};

} // namespace companion
