#include "bench/Loopback.h"

#include "bench/SystemCall.h"

#include <arpa/inet.h>
#include <charconv>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <poll.h>
#include <stdexcept>
#include <string>
#include <sys/socket.h>

namespace findersync::bench {

namespace {

constexpr int patienceInMilliseconds = 10'000;

sockaddr_in loopbackAddress(std::uint16_t port) {
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    address.sin_port = htons(port);
    return address;
}

FileDescriptor makeSocket() {
    return FileDescriptor(checked(::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0), "socket"));
}

} // namespace

LoopbackListener::LoopbackListener() : socket_(makeSocket()) {
    sockaddr_in address = loopbackAddress(0);
    socklen_t size = sizeof address;
    auto* const generic = reinterpret_cast<sockaddr*>(&address);
    checked(::bind(socket_.get(), generic, size), "bind");
    checked(::listen(socket_.get(), SOMAXCONN), "listen");
    checked(::getsockname(socket_.get(), generic, &size), "getsockname");
    port_ = ntohs(address.sin_port);
}

FileDescriptor LoopbackListener::accept() const {
    pollfd request{.fd = socket_.get(), .events = POLLIN, .revents = 0};
    if (checked(::poll(&request, 1, patienceInMilliseconds), "poll") == 0)
        throw std::runtime_error("the program that was started did not connect");
    FileDescriptor connection(
        checked(::accept4(socket_.get(), nullptr, nullptr, SOCK_CLOEXEC), "accept4"));
    const int on = 1;
    checked(::setsockopt(connection.get(), IPPROTO_TCP, TCP_NODELAY, &on, sizeof on), "setsockopt");
    return connection;
}

FileDescriptor connectToLoopback(std::uint16_t port) {
    FileDescriptor socket = makeSocket();
    const sockaddr_in address = loopbackAddress(port);
    checked(::connect(socket.get(), reinterpret_cast<const sockaddr*>(&address), sizeof address),
            "connect");
    return socket;
}

std::uint16_t portFromText(std::string_view text) {
    std::uint16_t port = 0;
    const char* const end = text.data() + text.size();
    const auto [stop, error] = std::from_chars(text.data(), end, port);
    if (error != std::errc() || stop != end || port == 0)
        throw std::invalid_argument("not a port: " + std::string(text));
    return port;
}

} // namespace findersync::bench
