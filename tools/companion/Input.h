#pragma once

#include <string_view>

namespace companion {

/// Hears what comes in on standard input.
class InputObserver {
public:
    virtual ~InputObserver() = default;

    /// A line, without its LF.
    virtual void lineEntered(std::string_view line) = 0;

    /// There is nothing more to come.
    virtual void inputEnded() = 0;

    /// The terminal that the lines came from is gone, and with it the user.
    virtual void terminalClosed() = 0;
};

/// Standard input, as a source of lines.
class Input {
public:
    virtual ~Input() = default;

    /// Stops reading for a while. What is typed or piped meanwhile waits in the system.
    virtual void setPaused(bool isPaused) = 0;

    /// Stops reading for good. The observer hears nothing more.
    virtual void stop() = 0;
};

} // namespace companion
