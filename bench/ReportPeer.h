#pragma once

#include "bench/FileDescriptor.h"
#include "bench/ForkedProcess.h"
#include "bench/Pipe.h"

#include <chrono>
#include <string>

namespace findersync::bench {

/// Receives click reports as a companion application does: in a process that waits for them.
class ReportPeer {
public:
    /// Each report that arrives on the connection is to be the given one.
    ReportPeer(FileDescriptor connection, std::string report);

    /// Waits for a report; gives the moment at which its last byte had arrived.
    [[nodiscard]] std::chrono::steady_clock::time_point arrival() const;

private:
    FileDescriptor connection_;
    std::string report_;
    Pipe arrivals_;
    ForkedProcess process_;
};

} // namespace findersync::bench
