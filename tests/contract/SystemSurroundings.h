#pragma once

// Surroundings of the back ends whose output, files and sockets are the system's own.

#include "tests/contract/Surroundings.h"
#include "tests/platform/LoopbackPeer.h"
#include "tests/platform/ScratchFolder.h"
#include "tests/platform/StreamCapture.h"

#include <chrono>
#include <memory>
#include <optional>
#include <unistd.h>

namespace contract {

struct SystemSurroundings {
    tests::ScratchFolder folder;
    tests::StreamCapture standardOutput{STDOUT_FILENO};
    tests::StreamCapture standardError{STDERR_FILENO};
    std::optional<tests::LoopbackPeer> peer;
};

/// New for each test: created by the back end's `setUp`, destroyed by its `tearDown`.
extern std::unique_ptr<SystemSurroundings> surroundings;

// Defined by the back end.

/// Writes out what the back end has buffered for standard output and standard error.
void flushOutput();
/// Runs the run loop for at most that long; may return once something has been delivered.
void runFor(std::chrono::milliseconds duration);

} // namespace contract
