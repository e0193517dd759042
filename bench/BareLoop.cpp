// bare-loop PORT BURST TRACE: what the extension's inbound link is compared with. It makes the same
// kinds of system calls for the same bytes and does nothing else: it waits, receives at most as
// many bytes as BURST has, and writes TRACE, which is what the extension prints for that burst.

#include "bench/SystemCalls.h"

#include <csignal>
#include <cstdlib>
#include <poll.h>
#include <stdexcept>
#include <string>
#include <string_view>
#include <sys/socket.h>
#include <unistd.h>

namespace {

using findersync::bench::checked;

void writeFully(std::string_view text) {
    while (!text.empty())
        text.remove_prefix(static_cast<std::size_t>(
            checked(::write(STDOUT_FILENO, text.data(), text.size()), "write")));
}

/// Each burst is received into its place in the trace, which is otherwise ready to be written.
void serve(int connection, const std::string& burst, std::string trace) {
    char* const received = trace.data() + trace.find(burst);
    for (;;) {
        pollfd request{.fd = connection, .events = POLLIN, .revents = 0};
        checked(::poll(&request, 1, -1), "poll");
        const auto count =
            checked(::recv(connection, received, burst.size(), MSG_DONTWAIT), "recv");
        if (count == 0)
            return;
        if (static_cast<std::size_t>(count) != burst.size())
            throw std::runtime_error("a burst did not arrive whole");
        writeFully(trace);
    }
}

} // namespace

int main(int argc, char** argv) {
    if (argc != 4)
        throw std::invalid_argument("usage: bare-loop PORT BURST TRACE");
    (void)std::signal(SIGTERM, [](int) { ::_exit(EXIT_SUCCESS); }); // exit code 0, as the extension
    serve(findersync::bench::connectToLoopback(argv[1]), argv[2], argv[3]);
    return EXIT_SUCCESS;
}
