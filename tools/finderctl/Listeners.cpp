// Whose program listens on a port.

#include "tools/finderctl/Doctor.h"

#include "process/TCPTable.h"

#include <pwd.h>
#include <set>
#include <unistd.h>

namespace finderctl {

namespace {

/// The users whose programs listen on that port of 127.0.0.1.
std::set<uid_t> listeners(unsigned port) {
    const process::Endpoint end{.address = htonl(INADDR_LOOPBACK), .port = port};
    std::set<uid_t> users;
    for (const char* const table : {"/proc/self/net/tcp", "/proc/self/net/tcp6"})
        process::visitTCPSockets(table, [&](const process::TCPSocket& socket) {
            if (socket.listensFor(end))
                users.insert(socket.user);
            return true;
        });
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
