// The kernel's tables of TCP sockets are read from /proc: they need no right that the sandbox
// denies, unlike a netlink socket, and no module that a kernel may lack.

#include "platform/linux/PeerUser.h"

#include <algorithm>
#include <array>
#include <cstdio>
#include <memory>
#include <netinet/in.h>
#include <string>
#include <sys/socket.h>
#include <unistd.h>

namespace platform::linux_backend {

namespace {

using File = std::unique_ptr<std::FILE, decltype([](std::FILE* file) { (void)std::fclose(file); })>;

enum class Protocol { IPv4, IPv6 };

/// An address as the tables have it, in hexadecimal: words in the kernel's byte order, and a port.
std::string addressText(const sockaddr_in& address, Protocol protocol) {
    std::array<char, sizeof "0000000000000000FFFF0000FFFFFFFF:FFFF"> text{};
    const in_addr_t word = address.sin_addr.s_addr;
    const unsigned port = ntohs(address.sin_port);
    if (protocol == Protocol::IPv4)
        (void)std::snprintf(text.data(), text.size(), "%08X:%04X", word, port);
    else // an IPv4 address within IPv6
        (void)std::snprintf(text.data(), text.size(), "%016X%08X%08X:%04X", 0U, htonl(0xffff), word,
                            port);
    return text.data();
}

/// Searches one protocol's table for the other end of a connection.
std::optional<uid_t> userIn(const char* table, const std::string& own, const std::string& peer) {
    std::string wildcard = peer;
    std::fill(wildcard.begin(), std::ranges::find(wildcard, ':'), '0');
    const File file(std::fopen(table, "re"));
    std::array<char, 256> line{};
    std::optional<uid_t> found;
    // Listeners come first. The connection ends the search, since the read that finds the end of
    // the table takes as long as all before it.
    for (bool isConnection = false; !isConnection && file;) {
        std::array<char, 40> local{};
        std::array<char, 40> remote{};
        unsigned state = 0;
        uid_t user = 0;
        unsigned long inode = 0;
        if (std::fgets(line.data(), line.size(), file.get()) == nullptr)
            break;
        // NOLINTNEXTLINE(cert-err34-c): the numbers are the kernel's
        if (std::sscanf(line.data(), " %*u: %39s %39s %x %*s %*s %*s %u %*u %lu", local.data(),
                        remote.data(), &state, &user, &inode) != 5)
            continue; // the heading
        constexpr unsigned listening = 0x0a;
        const bool listens =
            state == listening && (peer == local.data() || wildcard == local.data());
        isConnection = peer == local.data() && own == remote.data();
        // Until a connection is accepted, it has no inode and no user.
        if ((listens || (isConnection && inode != 0)) && (!found || *found == ::geteuid()))
            found = user;
    }
    return found;
}

} // namespace

std::optional<uid_t> peerUser(int socket) {
    sockaddr_in own{};
    sockaddr_in peer{};
    socklen_t ownSize = sizeof own;
    socklen_t peerSize = sizeof peer;
    if (::getsockname(socket, reinterpret_cast<sockaddr*>(&own), &ownSize) != 0 ||
        ::getpeername(socket, reinterpret_cast<sockaddr*>(&peer), &peerSize) != 0)
        return std::nullopt;
    for (const Protocol protocol : {Protocol::IPv4, Protocol::IPv6}) {
        // Where nobody listens with IPv4, a listener with IPv6 may take both.
        const auto user =
            userIn(protocol == Protocol::IPv4 ? "/proc/self/net/tcp" : "/proc/self/net/tcp6",
                   addressText(own, protocol), addressText(peer, protocol));
        if (user)
            return user;
    }
    return std::nullopt;
}

} // namespace platform::linux_backend
