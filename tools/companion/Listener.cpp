#include "tools/companion/Listener.h"

#include "tools/companion/Commands.h"

#include <algorithm>
#include <arpa/inet.h>
#include <cerrno>
#include <cstring>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <sys/epoll.h>
#include <sys/socket.h>
#include <unistd.h>

namespace companion {

namespace {

/// Makes a segment carry one padded line, next to the time stamp that each segment has.
constexpr int segmentSize = static_cast<int>(lineLimit) + TCPOLEN_TSTAMP_APPA;

std::string portFailure(std::uint16_t port, int number) {
    const std::string name = "port " + std::to_string(port) + " of 127.0.0.1";
    if (number == EADDRINUSE)
        return name + " is in use, perhaps by another companion: end that program, or choose "
                      "another port with --port N (0 takes a free one)";
    return name + " cannot be had: " + std::strerror(number);
}

} // namespace

Listener::~Listener() {
    sd_event_source_disable_unref(source_);
    if (socket_ >= 0)
        ::close(socket_);
}

bool Listener::bind(std::uint16_t port, std::string& failure) {
    const auto fail = [&] {
        failure = portFailure(port, errno);
        return false;
    };
    socket_ = ::socket(AF_INET, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0);
    if (socket_ < 0)
        return fail();
    // Links that have just ended must not keep the port from being listened on again.
    const int one = 1;
    (void)::setsockopt(socket_, SOL_SOCKET, SO_REUSEADDR, &one, sizeof one);
    (void)::setsockopt(socket_, IPPROTO_TCP, TCP_MAXSEG, &segmentSize, sizeof segmentSize);

    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_port = htons(port);
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    socklen_t length = sizeof address;
    auto* const generic = static_cast<sockaddr*>(static_cast<void*>(&address));
    if (::bind(socket_, generic, length) != 0 || ::getsockname(socket_, generic, &length) != 0)
        return fail();
    port_ = ntohs(address.sin_port);
    return true;
}

bool Listener::listen(sd_event* event, std::string& failure) {
    int number = ::listen(socket_, SOMAXCONN) == 0 ? 0 : errno;
    if (number == 0)
        number = -std::min(
            sd_event_add_io(event, &source_, socket_, EPOLLIN, acceptConnections, this), 0);
    if (number != 0)
        failure = portFailure(port_, number);
    return number == 0;
}

int Listener::acceptConnections(sd_event_source*, int socket, std::uint32_t, void* self) noexcept {
    const int accepted = ::accept4(socket, nullptr, nullptr, SOCK_NONBLOCK | SOCK_CLOEXEC);
    if (accepted >= 0)
        static_cast<Listener*>(self)->handler_(accepted);
    return 0;
}

} // namespace companion
