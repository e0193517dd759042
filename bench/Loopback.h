#pragma once

#include "bench/FileDescriptor.h"

#include <cstdint>
#include <string_view>

namespace findersync::bench {

/// Listens where the extension looks for its companion application: on the loopback interface, at
/// a port that the system has chosen.
class LoopbackListener {
public:
    LoopbackListener();

    [[nodiscard]] std::uint16_t port() const { return port_; }

    /// Waits for a connection and takes it; throws when none comes within ten seconds. What is
    /// written to the connection leaves at once, however short it is.
    [[nodiscard]] FileDescriptor accept() const;

private:
    FileDescriptor socket_;
    std::uint16_t port_ = 0;
};

/// Connects to a port on the loopback interface.
[[nodiscard]] FileDescriptor connectToLoopback(std::uint16_t port);

/// The port number that a text holds; throws when it holds none.
[[nodiscard]] std::uint16_t portFromText(std::string_view text);

} // namespace findersync::bench
