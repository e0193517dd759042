#include "companion/Listener.h"

#include "companion/System.h"

#include <cerrno>
#include <cstdlib>
#include <netinet/in.h>
#include <string>
#include <sys/socket.h>

namespace finder_sync {

namespace {

constexpr int firstPassedDescriptor = 3;

/// The one socket that systemd has passed to this process, -1 for none. The variables are removed:
/// they are not for programs that are started.
int passedSocket() {
    const char* const process = std::getenv("LISTEN_PID");
    const char* const count = std::getenv("LISTEN_FDS");
    const bool isPassed = process != nullptr && count != nullptr &&
                          process == std::to_string(::getpid()) && count == std::string("1");
    (void)::unsetenv("LISTEN_PID");
    (void)::unsetenv("LISTEN_FDS");
    return isPassed ? firstPassedDescriptor : -1;
}

sockaddr* generic(sockaddr_in& address) {
    return reinterpret_cast<sockaddr*>(&address);
}

} // namespace

int Listener::listen(std::uint16_t port) {
    sockaddr_in address{};
    socklen_t length = sizeof address;
    address.sin_family = AF_INET;
    address.sin_port = htons(port);
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    socket_.reset(passedSocket());
    if (socket_) {
        makePrivate(socket_.get());
    } else {
        socket_ = openSocket();
        // Connections that have just ended must not keep the port in use.
        const int one = 1;
        (void)::setsockopt(socket_.get(), SOL_SOCKET, SO_REUSEADDR, &one, sizeof one);
        if (::bind(socket_.get(), generic(address), length) != 0)
            return errno;
    }
    if (::listen(socket_.get(), SOMAXCONN) != 0 ||
        ::getsockname(socket_.get(), generic(address), &length) != 0)
        return errno;
    port_ = ntohs(address.sin_port);
    return address.sin_family == AF_INET ? 0 : EAFNOSUPPORT;
}

} // namespace finder_sync
