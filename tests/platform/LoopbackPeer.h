#pragma once

#include <arpa/inet.h>
#include <cstdint>
#include <netinet/in.h>
#include <poll.h>
#include <stdexcept>
#include <string>
#include <sys/socket.h>
#include <unistd.h>

namespace tests {

/// A companion's end of the link: listens on a free port of the loopback and takes one connection.
/// Every operation waits at most a few seconds and throws when it fails.
class LoopbackPeer {
public:
    LoopbackPeer() {
        sockaddr_in address{};
        address.sin_family = AF_INET;
        address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        socklen_t size = sizeof address;
        require(listener_ >= 0);
        require(::bind(listener_, asAddress(&address), size) == 0);
        require(::listen(listener_, 4) == 0);
        require(::getsockname(listener_, asAddress(&address), &size) == 0);
        port_ = ntohs(address.sin_port);
    }
    ~LoopbackPeer() {
        close(connection_);
        close(listener_);
    }
    LoopbackPeer(const LoopbackPeer&) = delete;
    LoopbackPeer& operator=(const LoopbackPeer&) = delete;

    [[nodiscard]] std::uint16_t port() const { return port_; }

    void send(const std::string& bytes) {
        const ssize_t sent = ::send(connection(), bytes.data(), bytes.size(), 0);
        require(sent == static_cast<ssize_t>(bytes.size()));
    }

    void finishSending() { require(::shutdown(connection(), SHUT_WR) == 0); }

    void reset() {
        const linger abortive{.l_onoff = 1, .l_linger = 0};
        require(::setsockopt(connection(), SOL_SOCKET, SO_LINGER, &abortive, sizeof abortive) == 0);
        close(connection_);
    }

    /// Everything that has arrived so far.
    std::string received() {
        char buffer[4096];
        ssize_t count = 0;
        while ((count = ::recv(connection(), buffer, sizeof buffer, MSG_DONTWAIT)) > 0)
            received_.append(buffer, static_cast<std::size_t>(count));
        return received_;
    }

    /// Whether the other side has closed; looks for a moment.
    bool seesEnd() {
        char byte = 0;
        return isReadable(connection(), 50) &&
               ::recv(connection(), &byte, 1, MSG_PEEK | MSG_DONTWAIT) == 0;
    }

private:
    static sockaddr* asAddress(sockaddr_in* address) {
        return reinterpret_cast<sockaddr*>(address);
    }

    static void require(bool condition) {
        if (!condition)
            throw std::runtime_error("the loopback peer failed");
    }

    static bool isReadable(int descriptor, int milliseconds) {
        pollfd request{.fd = descriptor, .events = POLLIN, .revents = 0};
        return ::poll(&request, 1, milliseconds) > 0;
    }

    static void close(int& descriptor) {
        if (descriptor >= 0)
            (void)::close(descriptor);
        descriptor = -1;
    }

    int connection() {
        if (connection_ < 0) {
            require(isReadable(listener_, 5000));
            connection_ = ::accept(listener_, nullptr, nullptr);
            require(connection_ >= 0);
        }
        return connection_;
    }

    int listener_ = ::socket(AF_INET, SOCK_STREAM, 0);
    int connection_ = -1;
    std::uint16_t port_ = 0;
    std::string received_;
};

} // namespace tests
