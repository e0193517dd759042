// Whose program listens on a port.

#include "tools/finderctl/Doctor.h"

#include <algorithm>
#include <arpa/inet.h>
#include <array>
#include <cstdio>
#include <fstream>
#include <netinet/in.h>
#include <pwd.h>
#include <set>
#include <unistd.h>

namespace finderctl {

namespace {

/// The addresses that a listener for 127.0.0.1 can have, as the kernel writes them: in words of the
/// machine's byte order.
std::array<std::string, 4> addresses() {
    char loopback[9];
    (void)std::snprintf(loopback, sizeof loopback, "%08X", htonl(INADDR_LOOPBACK));
    char mapped[9]; // the third word of an IPv4 address among those of IPv6
    (void)std::snprintf(mapped, sizeof mapped, "%08X", htonl(0xFFFF));
    const std::string zero(8, '0');
    return {loopback, zero, zero + zero + zero + zero, zero + zero + mapped + loopback};
}

/// The users whose programs listen on that port of 127.0.0.1.
std::set<uid_t> listeners(unsigned port) {
    std::set<uid_t> users;
    for (const char* const table : {"/proc/net/tcp", "/proc/net/tcp6"}) {
        std::ifstream file(table);
        for (std::string line; std::getline(file, line);) {
            char address[33] = "";
            unsigned localPort = 0;
            unsigned state = 0;
            uid_t user = 0;
            constexpr unsigned listening = 0x0A;
            if (std::sscanf(line.c_str(), "%*s %32[0-9A-F]:%X %*s %X %*s %*s %*s %u", address,
                            &localPort, &state, &user) == 4 &&
                localPort == port && state == listening &&
                std::ranges::count(addresses(), address) > 0)
                users.insert(user);
        }
    }
    return users;
}

std::string nameOf(uid_t user) {
    const passwd* const entry = ::getpwuid(user);
    return entry == nullptr ? "user " + std::to_string(user) : entry->pw_name;
}

} // namespace

Finding examinePort(unsigned port) {
    std::set<uid_t> users = listeners(port);
    const std::string where = " listens on port " + std::to_string(port);
    if (users.empty())
        return {"port", "nobody" + where, "start the companion application"};
    users.erase(::getuid());
    if (users.empty())
        return {"port", "a program of yours" + where, ""};
    return {"port", "a program of " + nameOf(*users.begin()) + where,
            "give your companion application another \"ServerPort\" in its settings"};
}

} // namespace finderctl
