#include "tools/companion/Listener.h"

#include <algorithm>
#include <arpa/inet.h>
#include <cerrno>
#include <cstring>
#include <netinet/in.h>
#include <sys/epoll.h>
#include <sys/socket.h>
#include <utility>

namespace companion {

namespace {

std::string portFailure(std::uint16_t port, int number) {
    const std::string name = "port " + std::to_string(port) + " of 127.0.0.1";
    if (number == EADDRINUSE)
        return name + " is in use, perhaps by another companion: end that program, or choose "
                      "another port with --port N (0 takes a free one)";
    return name + " cannot be had: " + std::strerror(number);
}

} // namespace

bool Listener::bind(std::uint16_t port, std::string& failure) {
    const auto fail = [&] {
        failure = portFailure(port, errno);
        return false;
    };
    socket_.reset(::socket(AF_INET, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0));
    if (!socket_)
        return fail();
    // Connections that have just ended must not keep the port in use.
    const int one = 1;
    (void)::setsockopt(socket_.get(), SOL_SOCKET, SO_REUSEADDR, &one, sizeof one);

    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_port = htons(port);
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    socklen_t length = sizeof address;
    auto* const generic = static_cast<sockaddr*>(static_cast<void*>(&address));
    if (::bind(socket_.get(), generic, length) != 0 ||
        ::getsockname(socket_.get(), generic, &length) != 0)
        return fail();
    port_ = ntohs(address.sin_port);
    return true;
}

bool Listener::listen(sd_event* event, std::string& failure) {
    int number = ::listen(socket_.get(), SOMAXCONN) == 0 ? 0 : errno;
    if (number == 0)
        number = -std::min(sd_event_add_io(event, process::Out(source_), socket_.get(), EPOLLIN,
                                           acceptConnections, this),
                           0);
    if (number != 0)
        failure = portFailure(port_, number);
    return number == 0;
}

int Listener::acceptConnections(sd_event_source*, int socket, std::uint32_t, void* self) noexcept {
    process::Descriptor accepted(::accept4(socket, nullptr, nullptr, SOCK_NONBLOCK | SOCK_CLOEXEC));
    if (accepted)
        static_cast<Listener*>(self)->handler_(std::move(accepted));
    return 0;
}

} // namespace companion
