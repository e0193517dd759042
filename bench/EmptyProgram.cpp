// empty-program PORT: what the extension's start-up and memory are compared with. It is linked with
// the same libraries, takes a name on the session bus, connects to the port, and waits for its end.

#include "bench/Loopback.h"

#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <exception>
#include <stdexcept>
#include <systemd/sd-bus.h>
#include <unistd.h>

namespace {

void run(int argc, char** argv) {
    if (argc != 2)
        throw std::invalid_argument("usage: empty-program PORT");
    (void)std::signal(SIGTERM, [](int) { ::_exit(EXIT_SUCCESS); });

    sd_bus* bus = nullptr;
    if (sd_bus_open_user(&bus) < 0)
        throw std::runtime_error("no session bus");
    if (sd_bus_request_name(bus, FINDER_SYNC_GROUP ".EmptyProgram", 0) < 0)
        throw std::runtime_error("the bus name cannot be had");
    const auto connection =
        findersync::bench::connectToLoopback(findersync::bench::portFromText(argv[1]));
    for (;;)
        (void)::pause();
}

} // namespace

int main(int argc, char** argv) {
    try {
        run(argc, argv);
    } catch (const std::exception& error) {
        (void)std::fprintf(stderr, "empty-program: %s\n", error.what());
    }
    return EXIT_FAILURE;
}
