#pragma once

#include "process/Descriptor.h"
#include "process/SystemdHandles.h"

#include <cstdint>
#include <functional>
#include <string>

namespace companion {

/// The socket on the loopback interface that extensions connect to.
class Listener {
public:
    /// Is handed each new connection as a non-blocking socket.
    using ConnectionHandler = std::function<void(process::Descriptor socket)>;

    explicit Listener(ConnectionHandler handler) : handler_(std::move(handler)) {}

    /// Binds to a port of 127.0.0.1, to a free one for 0. Nobody can connect yet. Returns false on
    /// failure; `failure` then says what is wrong and what to do.
    [[nodiscard]] bool bind(std::uint16_t port, std::string& failure);

    /// The port that it is bound to.
    [[nodiscard]] std::uint16_t port() const { return port_; }

    /// Makes the event loop accept connections from now on.
    [[nodiscard]] bool listen(sd_event* event, std::string& failure);

private:
    static int acceptConnections(sd_event_source*, int socket, std::uint32_t, void* self) noexcept;

    ConnectionHandler handler_;
    process::Descriptor socket_;
    std::uint16_t port_ = 0;
    process::EventSource source_;
};

} // namespace companion
