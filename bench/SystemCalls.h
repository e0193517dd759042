#pragma once

#include <arpa/inet.h>
#include <cerrno>
#include <cstdint>
#include <netinet/in.h>
#include <string>
#include <sys/socket.h>
#include <system_error>

namespace findersync::bench {

/// The result of a system call, or an exception when it failed.
template <typename Result> Result checked(Result result, const char* what) {
    if (result < 0)
        throw std::system_error(errno, std::generic_category(), what);
    return result;
}

/// Connects to a port of 127.0.0.1, given as text. The socket stays open as long as the process.
inline int connectToLoopback(const char* port) {
    const int connection = checked(::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0), "socket");
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    address.sin_port = htons(static_cast<std::uint16_t>(std::stoi(port)));
    checked(::connect(connection, reinterpret_cast<const sockaddr*>(&address), sizeof address),
            "connect");
    return connection;
}

} // namespace findersync::bench
