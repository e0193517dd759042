#pragma once

#include "process/Descriptor.h"

#include <cstdint>

namespace finder_sync {

/// The socket on the loopback interface that extensions connect to.
class Listener {
public:
    /// Takes the socket that systemd has passed, if any, else binds to the port, 0 for a free one.
    /// Returns 0 or an errno.
    [[nodiscard]] int listen(std::uint16_t port);

    [[nodiscard]] int socket() const { return socket_.get(); }
    [[nodiscard]] std::uint16_t port() const { return port_; }

private:
    process::Descriptor socket_;
    std::uint16_t port_ = 0;
};

} // namespace finder_sync
