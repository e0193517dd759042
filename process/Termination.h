#pragma once

#include <systemd/sd-event.h>
#include <termios.h>

namespace process {

/// Has SIGINT, SIGTERM and SIGHUP end the event loop with exit code 0, and has SIGPIPE ignored.
/// A SIGHUP that is ignored already stays so: the program was told to outlive its terminal.
///
/// A process that does not come back to its event loop within a second, because it waits for a
/// reader or for a key, is ended there and then, also with 0. Gives 0 or a negative errno.
[[nodiscard]] int endOnSignals(sd_event* event);

/// The settings that the terminal on standard input gets back when the process ends there and then.
void restoreTerminalOnSuddenEnd(const termios& settings);

} // namespace process
