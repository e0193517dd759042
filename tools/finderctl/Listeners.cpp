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
#include <sstream>
#include <unistd.h>

namespace finderctl {

namespace {

std::string hexadecimal(unsigned number, int digits) {
    char text[9];
    (void)std::snprintf(text, sizeof text, "%0*X", digits, number);
    return text;
}

/// The addresses that a listener for this port of 127.0.0.1 can have, as the kernel writes them: in
/// words of the machine's byte order.
std::array<std::string, 4> addresses(unsigned port) {
    const std::string loopback = hexadecimal(htonl(INADDR_LOOPBACK), 8);
    const std::string mapped = hexadecimal(htonl(0xFFFF), 8); // IPv4 among IPv6
    const std::string zero(8, '0');
    const std::string end = ":" + hexadecimal(port, 4);
    return {loopback + end, zero + end, zero + zero + zero + zero + end,
            zero + zero + mapped + loopback + end};
}

/// The users whose programs listen on that port of 127.0.0.1.
std::set<uid_t> listeners(unsigned port) {
    const auto wanted = addresses(port);
    std::set<uid_t> users;
    for (const char* const table : {"/proc/net/tcp", "/proc/net/tcp6"}) {
        std::ifstream file(table);
        for (std::string line; std::getline(file, line);) {
            std::istringstream fields(line);
            std::string skipped;
            std::string address;
            std::string state;
            uid_t user = 0;
            fields >> skipped >> address >> skipped >> state >> skipped >> skipped >> skipped >>
                user;
            if (state == "0A" && std::ranges::count(wanted, address) > 0) // LISTEN
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
