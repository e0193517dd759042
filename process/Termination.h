#pragma once

#include <systemd/sd-event.h>
#include <termios.h>

namespace process {

/// Makes SIGINT, SIGTERM and SIGHUP end the event loop with exit code 0, and ignores SIGPIPE.
/// A SIGHUP that is already ignored stays ignored, as `nohup` wants it.
///
/// If the process does not return to its event loop within one second, because it blocks on a
/// write or on a key press, it exits at once, also with 0. Returns 0 or a negative errno.
[[nodiscard]] int endOnSignals(sd_event* event);

/// Sets the terminal settings to restore on standard input when that timeout ends the process.
void restoreTerminalOnSuddenEnd(const termios& settings);

} // namespace process
