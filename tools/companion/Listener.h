#pragma once

#include <cstdint>
#include <functional>
#include <string>
#include <systemd/sd-event.h>

namespace companion {

/// The port of the loopback that extensions connect to.
class Listener {
public:
    /// Gets each new connection as a non-blocking socket, and owns it from then on.
    using ConnectionHandler = std::function<void(int socket)>;

    explicit Listener(ConnectionHandler handler) : handler_(std::move(handler)) {}
    ~Listener();
    Listener(const Listener&) = delete;
    Listener& operator=(const Listener&) = delete;

    /// Takes a port of 127.0.0.1, a free one for 0. Nobody can connect yet. Gives false on failure;
    /// `failure` then says what is wrong and what to do.
    [[nodiscard]] bool bind(std::uint16_t port, std::string& failure);

    /// The port that was taken.
    [[nodiscard]] std::uint16_t port() const { return port_; }

    /// Has the event loop accept connections from now on.
    [[nodiscard]] bool listen(sd_event* event, std::string& failure);

private:
    static int acceptConnections(sd_event_source*, int socket, std::uint32_t, void* self) noexcept;

    ConnectionHandler handler_;
    int socket_ = -1;
    std::uint16_t port_ = 0;
    sd_event_source* source_ = nullptr;
};

} // namespace companion
