#include "platform/linux/PeerUser.h"

#include "process/TCPTable.h"

#include <sys/socket.h>
#include <unistd.h>

namespace platform::linux_backend {

std::optional<uid_t> peerUser(int socket) {
    sockaddr_in own{};
    sockaddr_in peer{};
    socklen_t ownSize = sizeof own;
    socklen_t peerSize = sizeof peer;
    if (::getsockname(socket, reinterpret_cast<sockaddr*>(&own), &ownSize) != 0 ||
        ::getpeername(socket, reinterpret_cast<sockaddr*>(&peer), &peerSize) != 0)
        return std::nullopt;

    const auto ownEnd = process::Endpoint::of(own);
    const auto peerEnd = process::Endpoint::of(peer);
    std::optional<uid_t> user;
    // The connection ends the search: the read that finds the end of a table takes as long as all
    // before it.
    const auto visit = [&](const process::TCPSocket& found) {
        const bool isConnection = found.local == peerEnd && found.remote == ownEnd;
        if ((found.listensFor(peerEnd) || (isConnection && found.isOwned)) &&
            (!user || *user == ::geteuid()))
            user = found.user;
        return !isConnection;
    };
    process::visitTCPSockets("/proc/self/net/tcp", visit);
    if (!user) // where nobody listens with IPv4, a listener with IPv6 may take both
        process::visitTCPSockets("/proc/self/net/tcp6", visit);
    return user;
}

} // namespace platform::linux_backend
