// The kernel's tables of TCP sockets are read from /proc: they need no right that the sandbox
// denies, unlike a netlink socket, and no module that a kernel may lack.

#include "platform/linux/PeerUser.h"

#include "process/Descriptor.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <charconv>
#include <fcntl.h>
#include <netinet/in.h>
#include <string_view>
#include <sys/socket.h>
#include <unistd.h>

namespace platform::linux_backend {

namespace {

struct Endpoint {
    in_addr_t address = INADDR_BROADCAST; ///< as in `sockaddr_in`, as are the tables' words
    unsigned port = 0;                    ///< in the host's byte order

    bool operator==(const Endpoint&) const = default;
};

Endpoint endpointOf(const sockaddr_in& address) {
    return {.address = address.sin_addr.s_addr, .port = ntohs(address.sin_port)};
}

/// Parses "0100007F:F192". IPv6 has four words for the address: an IPv4 address is mapped, and the
/// wildcard is zero, as in IPv4. Any other address is none of ours.
Endpoint endpointOf(std::string_view text) {
    constexpr std::string_view mapped = "0000000000000000FFFF0000";
    constexpr std::string_view wildcard = "000000000000000000000000";
    if (text.starts_with(mapped) || text.starts_with(wildcard))
        text.remove_prefix(mapped.size());
    Endpoint endpoint;
    const char* const end = text.data() + text.size();
    const auto address = std::from_chars(text.data(), end, endpoint.address, 16);
    if (address.ptr != end)
        (void)std::from_chars(address.ptr + 1, end, endpoint.port, 16);
    return endpoint;
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

/// What the tables say about one connection.
struct Search {
    Endpoint own;
    Endpoint peer;
    std::optional<uid_t> user;

    /// Returns whether the line is the connection's, which comes after those of all listeners.
    bool read(std::string_view line) {
        const auto [number, local, remote, state, queues, timer, retries, owner, time, inode] =
            wordsOf(line);
        const Endpoint end = endpointOf(local);
        const bool isConnection = end == peer && endpointOf(remote) == own;
        const bool listens = state == "0A" && end.port == peer.port &&
                             (end.address == peer.address || end.address == INADDR_ANY);
        // Until a connection is accepted, it has no inode and no user.
        if (listens || (isConnection && inode != "0")) {
            uid_t id = 0;
            (void)std::from_chars(owner.data(), owner.data() + owner.size(), id);
            if (!user || *user == ::geteuid())
                user = id;
        }
        return isConnection;
    }
};

/// Reads a table up to the connection, or to its end, which takes as long as all before it.
void searchTable(const char* table, Search& search) {
    const process::Descriptor file(::open(table, O_RDONLY | O_CLOEXEC));
    std::array<char, 4096> buffer{};
    std::size_t kept = 0;
    ssize_t count = 0;
    while ((count = ::read(file.get(), buffer.data() + kept, buffer.size() - kept)) > 0 ||
           (count < 0 && errno == EINTR)) {
        std::string_view text(buffer.data(),
                              kept + static_cast<std::size_t>(std::max(count, ssize_t{0})));
        for (std::size_t end = 0; (end = text.find('\n')) != std::string_view::npos;
             text.remove_prefix(end + 1)) {
            if (search.read(text.substr(0, end)))
                return;
        }
        kept = text.size();
        std::ranges::copy(text, buffer.begin());
    }
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
    Search search{.own = endpointOf(own), .peer = endpointOf(peer), .user = {}};
    searchTable("/proc/self/net/tcp", search);
    if (!search.user) // where nobody listens with IPv4, a listener with IPv6 may take both
        searchTable("/proc/self/net/tcp6", search);
    return search.user;
}

} // namespace platform::linux_backend
