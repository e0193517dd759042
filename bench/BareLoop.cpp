// bare-loop PORT TRAFFIC: what the extension is compared with. It makes the same kinds of system
// calls for the same bytes, and nothing else: it waits, receives at most 1,024 bytes, and writes
// the text to standard output that the extension would have printed of them.

#include "bench/InboundTraffic.h"
#include "bench/Loopback.h"
#include "bench/SystemCall.h"

#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <exception>
#include <poll.h>
#include <stdexcept>
#include <string_view>
#include <sys/socket.h>
#include <unistd.h>

namespace {

using findersync::bench::checked;
using findersync::bench::Traffic;

void writeFully(std::string_view text) {
    while (!text.empty())
        text.remove_prefix(static_cast<std::size_t>(
            checked(::write(STDOUT_FILENO, text.data(), text.size()), "write")));
}

/// The trace lies ready, but for the bytes in its midst that each burst is received into.
void serve(int connection, const Traffic& traffic) {
    std::string trace = traffic.trace;
    char* const received = trace.data() + trace.find(traffic.burst);
    for (;;) {
        pollfd request{.fd = connection, .events = POLLIN, .revents = 0};
        checked(::poll(&request, 1, -1), "poll");
        const auto count =
            checked(::recv(connection, received, Traffic::burstSize, MSG_DONTWAIT), "recv");
        if (count == 0)
            return;
        if (count != Traffic::burstSize)
            throw std::runtime_error("a burst did not arrive whole");
        writeFully(trace);
    }
}

void run(int argc, char** argv) {
    const auto traffic = findersync::bench::trafficWithName(argc == 3 ? argv[2] : "");
    if (!traffic)
        throw std::invalid_argument("usage: bare-loop PORT ascii|non-ascii");
    // Ends like the extension does, with exit code 0.
    (void)std::signal(SIGTERM, [](int) { ::_exit(EXIT_SUCCESS); });
    const auto connection =
        findersync::bench::connectToLoopback(findersync::bench::portFromText(argv[1]));
    serve(connection.get(), *traffic);
}

} // namespace

int main(int argc, char** argv) {
    try {
        run(argc, argv);
        return EXIT_SUCCESS;
    } catch (const std::exception& error) {
        (void)std::fprintf(stderr, "bare-loop: %s\n", error.what());
        return EXIT_FAILURE;
    }
}
