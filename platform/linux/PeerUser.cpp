// The kernel's tables of TCP sockets are read from /proc: they need no right that the sandbox
// denies, unlike a netlink socket, and no module that a kernel may lack.

#include "platform/linux/PeerUser.h"

#include "platform/text/Splitting.h"
#include "process/Descriptor.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <charconv>
#include <cstdio>
#include <fcntl.h>
#include <netinet/in.h>
#include <string>
#include <string_view>
#include <sys/socket.h>
#include <unistd.h>

namespace platform::linux_backend {

namespace {

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

/// The words of a line: number, local address, remote address, state, ..., user, time, inode.
std::array<std::string_view, 10> wordsOf(std::string_view line) {
    std::array<std::string_view, 10> words;
    for (std::string_view& word : words) {
        line.remove_prefix(std::min(line.find_first_not_of(' '), line.size()));
        word = line.substr(0, line.find(' '));
        line.remove_prefix(word.size());
    }
    return words;
}

/// The beginning of a table up to a connection, or the whole table if the connection is not there:
/// the read that finds the end takes as long as all before it.
std::string readUntil(const char* table, const std::string& connection) {
    const process::Descriptor file(::open(table, O_RDONLY | O_CLOEXEC));
    std::string text;
    std::array<char, 4096> part{};
    ssize_t count = 0;
    while (text.find('\n', text.find(connection)) == std::string::npos &&
           ((count = ::read(file.get(), part.data(), part.size())) > 0 ||
            (count < 0 && errno == EINTR)))
        text.append(part.data(), static_cast<std::size_t>(std::max<ssize_t>(count, 0)));
    return text;
}

/// Searches one protocol's table for the other end of a connection.
std::optional<uid_t> userIn(const char* table, const std::string& own, const std::string& peer) {
    std::string wildcard = peer;
    std::fill(wildcard.begin(), std::ranges::find(wildcard, ':'), '0');
    std::optional<uid_t> found;
    for (const std::string_view line : text::split(readUntil(table, peer + " " + own), "\n")) {
        const auto [number, local, remote, state, queues, timer, retries, user, time, inode] =
            wordsOf(line);
        const bool listens = state == "0A" && (local == peer || local == wildcard);
        // Until a connection is accepted, it has no inode and no user.
        const bool hasAccepted = local == peer && remote == own && inode != "0";
        uid_t id = 0;
        (void)std::from_chars(user.data(), user.data() + user.size(), id);
        if ((listens || hasAccepted) && (!found || *found == ::geteuid()))
            found = id;
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
