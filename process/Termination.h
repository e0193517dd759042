#pragma once

#include <systemd/sd-event.h>

namespace process {

/// Makes SIGINT, SIGTERM and SIGHUP end the event loop with exit code 0, ignores SIGPIPE and
/// SIGXFSZ, whose writes fail, and blocks no signal that was blocked before. A SIGHUP that is
/// already ignored stays ignored, as `nohup` wants it.
///
/// If the process does not return to its event loop within one second, because it blocks on a
/// write, it exits at once, also with 0. Returns 0 or a negative errno.
[[nodiscard]] int endOnSignals(sd_event* event);

} // namespace process
