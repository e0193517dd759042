#include "process/TCPTable.h"

#include "process/Descriptor.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <charconv>
#include <fcntl.h>
#include <string_view>
#include <unistd.h>

namespace process {

namespace {

/// Parses "0100007F:F192", words of the machine's byte order. IPv6 has four words for the address:
/// an IPv4 address is mapped, and the wildcard is zero, as in IPv4.
Endpoint endpointIn(std::string_view text) {
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

/// Parses a line: number, local address, remote address, state, ..., user, time, inode.
TCPSocket socketIn(std::string_view line) {
    std::array<std::string_view, 10> words;
    for (std::string_view& word : words) {
        line.remove_prefix(std::min(line.find_first_not_of(' '), line.size()));
        word = line.substr(0, line.find(' '));
        line.remove_prefix(word.size());
    }
    const auto& [number, local, remote, state, queues, timer, retries, owner, time, inode] = words;
    uid_t user = 0;
    (void)std::from_chars(owner.data(), owner.data() + owner.size(), user);
    return {.local = endpointIn(local),
            .remote = endpointIn(remote),
            .isListening = state == "0A",
            .isOwned = inode != "0",
            .user = user};
}

} // namespace

void visitTCPSockets(const char* table, const std::function<bool(const TCPSocket&)>& visit) {
    const Descriptor file(::open(table, O_RDONLY | O_CLOEXEC));
    std::array<char, 4096> buffer{};
    std::size_t kept = 0;
    ssize_t count = 0;
    while ((count = ::read(file.get(), buffer.data() + kept, buffer.size() - kept)) > 0 ||
           (count < 0 && errno == EINTR)) {
        std::string_view text(buffer.data(),
                              kept + static_cast<std::size_t>(std::max(count, ssize_t{0})));
        for (std::size_t end = 0; (end = text.find('\n')) != std::string_view::npos;
             text.remove_prefix(end + 1)) {
            if (!visit(socketIn(text.substr(0, end))))
                return;
        }
        kept = text.size();
        std::ranges::copy(text, buffer.begin());
    }
}

} // namespace process
