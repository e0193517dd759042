#pragma once

#include "platform/linux/RunLoop.h"

namespace findersync {

/// Makes sure that descriptors 0, 1 and 2 are open, so that no socket can end up under a number
/// that trace or log lines are written to. Call it before anything is opened.
void secureStandardDescriptors();

/// Has SIGTERM and SIGINT end the run loop with exit code 0, and has SIGPIPE ignored.
///
/// A process that does not come back to its run loop within a second, because it waits for the
/// reader of its standard output or is flooded by its peer, is ended there and then, also with 0.
/// The run loop outlives the process's readiness for signals.
void endOnSignals(platform::linux_backend::RunLoop& runLoop);

} // namespace findersync
