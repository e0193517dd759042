#pragma once

// The kernel's tables of TCP sockets. They are read from /proc: that needs no right that the
// sandbox denies, unlike a netlink socket, and no module that a kernel may lack.

#include <functional>
#include <netinet/in.h>
#include <sys/types.h>

namespace process {

/// An end of a connection over IPv4, also of one whose socket is for IPv6. Equal to none of these
/// for a proper IPv6 address.
struct Endpoint {
    in_addr_t address = INADDR_BROADCAST; ///< as in `sockaddr_in`
    unsigned port = 0;                    ///< in the host's byte order

    bool operator==(const Endpoint&) const = default;

    [[nodiscard]] static Endpoint of(const sockaddr_in& address) {
        return {.address = address.sin_addr.s_addr, .port = ntohs(address.sin_port)};
    }
};

struct TCPSocket {
    Endpoint local;
    Endpoint remote;
    bool isListening = false;
    bool isOwned = false; ///< false until a connection is accepted: it has no user either
    uid_t user = 0;

    /// Whether it listens for connections to that end of this machine.
    [[nodiscard]] bool listensFor(const Endpoint& end) const {
        return isListening && local.port == end.port &&
               (local.address == end.address || local.address == INADDR_ANY);
    }
};

/// Calls `visit` for each socket of a table, "/proc/self/net/tcp" or "tcp6", listening ones first,
/// until it returns false. A table that cannot be read has no sockets.
void visitTCPSockets(const char* table, const std::function<bool(const TCPSocket&)>& visit);

} // namespace process
